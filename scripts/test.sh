#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the project and runs the whole test suite, then builds it again with AddressSanitizer
# and UndefinedBehaviorSanitizer (build-asan/) and runs the unit and end-to-end tests there.
# QF_SKIP_SANITIZED=1 leaves out the second half.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build"
"$root/scripts/setup.sh" "$build"
(cd "$build" && ctest --output-on-failure -j"$(nproc)" --timeout 600)

if [ "${QF_SKIP_SANITIZED:-0}" = 1 ]; then
    exit 0
fi

asan_build="$root/build-asan"
# Any report ends the program with a failure (the build also makes undefined behaviour fatal);
# leaks count where LeakSanitizer can run. No leak needs a suppression so far.
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export ASAN_OPTIONS="strict_string_checks=1"

# LeakSanitizer stops the world with ptrace; where the container forbids that it cannot run
# at all, and every sanitized program would fail at exit. Find out once with a small program.
probe_dir=$(mktemp -d)
trap 'rm -rf "$probe_dir"' EXIT
printf 'int main() { return 0; }\n' >"$probe_dir/probe.c"
leaks=1
if cc -fsanitize=address -o "$probe_dir/probe" "$probe_dir/probe.c" 2>/dev/null; then
    if ! ASAN_OPTIONS="$ASAN_OPTIONS:detect_leaks=1" "$probe_dir/probe" 2>"$probe_dir/err"; then
        leaks=0
        echo "LeakSanitizer cannot run here ($(head -n 1 "$probe_dir/err")); leaks are not checked"
    fi
fi
export ASAN_OPTIONS="$ASAN_OPTIONS:detect_leaks=$leaks"

"$root/scripts/setup.sh" "$asan_build" -DCMAKE_BUILD_TYPE=Debug -DQF_SANITIZE=ON
cd "$asan_build"
ctest --output-on-failure -j"$(nproc)" --timeout 900 -L 'unit|e2e'
