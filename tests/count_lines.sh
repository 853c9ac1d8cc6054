#!/bin/sh
# SPDX-License-Identifier: GPL-3.0-or-later
# Non-blank, non-comment lines of C++ (.cpp, .h) in the tests against the rest of the code
# (fuzz/, tools/, bench/ and the build folder left out), and their ratio.
# Usage: tests/count_lines.sh [ROOT]  (default: the repository this script is in)
root=${1:-$(dirname "$0")/..}
cd "$root" || exit 1
# Drops blank lines, // lines and /* ... */ blocks (a block's lines, however many).
count() {
    xargs -0 -r cat | awk '
        in_block { if (index($0, "*/")) in_block = 0; next }
        /^[ \t]*$/ { next }
        /^[ \t]*\/\// { next }
        /^[ \t]*\/\*/ { if (!index($0, "*/")) in_block = 1; next }
        { n++ }
        END { print n + 0 }'
}
tests=$(find tests -type f \( -name '*.cpp' -o -name '*.h' \) -print0 | count)
code=$(find . -path ./tests -prune -o -path ./fuzz -prune -o -path ./tools -prune \
           -o -path ./bench -prune -o -path './build*' -prune -o -path ./.git -prune \
           -o -type f \( -name '*.cpp' -o -name '*.h' \) -print0 | count)
echo "tests: $tests"
echo "code:  $code"
awk -v t="$tests" -v c="$code" 'BEGIN { printf "ratio: %.2f\n", (c ? t / c : 0) }'
