#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the libFuzzer programs (clang, sanitizers) in build-fuzz/ and fuzzes one target on a
# copy of its seed corpus. New inputs and crash reproducers stay in the work folder, outside
# the repository; a fault worth keeping is minimized and added to fuzz/corpus/TARGET by hand.
#
#   scripts/fuzz.sh TARGET [SECONDS]   TARGET: range_text profile admission_pdf admission_tiff
#                                              tiff_source pdf_source; SECONDS defaults to 600
# Environment: QF_FUZZ_BUILD (build folder), QF_FUZZ_WORK (work folder, default
# /tmp/qf-fuzz/TARGET), QF_FUZZ_ARGS (more libFuzzer options).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
target=${1:?usage: scripts/fuzz.sh TARGET [SECONDS]}
seconds=${2:-600}
build=${QF_FUZZ_BUILD:-$root/build-fuzz}
work=${QF_FUZZ_WORK:-/tmp/qf-fuzz/$target}

if [[ ! -d "$root/fuzz/corpus/$target" ]]; then
    echo "no such fuzz target: $target" >&2
    exit 2
fi

# Longest input and slowest run allowed, per target; documents are kept small so that each
# run is quick, and PDF pages get time to render.
case "$target" in
    range_text) max_len=256; timeout=10; dictionary="" ;;
    profile) max_len=4096; timeout=10; dictionary=profile ;;
    admission_tiff | tiff_source) max_len=16384; timeout=20; dictionary="" ;;
    admission_pdf | pdf_source) max_len=16384; timeout=30; dictionary=pdf ;;
    *) max_len=4096; timeout=10; dictionary="" ;;
esac

# clang and its libFuzzer runtime, from Debian when missing.
if ! command -v clang++ >/dev/null || ! dpkg-query -W -f='${Status}' libclang-rt-14-dev 2>/dev/null | grep -q "install ok installed"; then
    sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends clang libclang-rt-14-dev ninja-build cmake
fi

if [[ ! -f "$build/build.ninja" ]]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DQF_FUZZ=ON -DQF_BUILD_TESTS=OFF
fi
ninja -C "$build" "fuzz_$target"

mkdir -p "$work/corpus" "$work/artifacts"
cp -n "$root/fuzz/corpus/$target"/* "$work/corpus/"
dictionary_option=()
if [[ -n "$dictionary" ]]; then
    dictionary_option=(-dict="$root/fuzz/$dictionary.dict")
fi

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# Inputs that need a file are written here; a RAM disk keeps that quick.
if [[ -d /dev/shm && -w /dev/shm ]]; then
    export TMPDIR=/dev/shm
fi
# shellcheck disable=SC2086
exec "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2560 \
    -timeout="$timeout" -max_len="$max_len" -print_final_stats=1 \
    -artifact_prefix="$work/artifacts/" "${dictionary_option[@]}" ${QF_FUZZ_ARGS:-} "$work/corpus"
