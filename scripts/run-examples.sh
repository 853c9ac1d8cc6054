#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the project and converts the sample documents in examples/ to JPEG pages.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" "$root/build"
out="$root/out/examples"
mkdir -p "$out"
status=0
"$root/build/cli/quirefold-cli" --imageformat JPEG --dotsperinch 100 --zoomfactor 1 -o "$out" "$root/examples" || status=$?
echo
echo "The pages of the sample documents are in $out"
exit "$status"
