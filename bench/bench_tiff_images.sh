#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# TIFF pages to PNG and JPEG files: Quirefold beside GraphicsMagick on the same inputs, in one
# run. Prints seconds and peak memory for each; needs a built tree (scripts/setup.sh).
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build}
corpus=${CORPUS:-$root/bench/corpus}
cli=$build/cli/quirefold-cli
command -v gm >/dev/null || { echo "needs GraphicsMagick: apt-get install graphicsmagick" >&2; exit 2; }
command -v /usr/bin/time >/dev/null || { echo "needs GNU time: apt-get install time" >&2; exit 2; }

"$build/tools/make_bench_corpus" "$corpus" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# measure LABEL COMMAND...: prints "LABEL  seconds  peak-MiB", best of three runs.
measure() {
    local label=$1
    shift
    local best="" memory=""
    for _ in 1 2 3; do
        rm -rf "$work/out" && mkdir -p "$work/out"
        /usr/bin/time -f "%e %M" -o "$work/time" "$@" >/dev/null 2>&1
        read -r seconds kib <"$work/time"
        if [ -z "$best" ] || awk "BEGIN{exit !($seconds < $best)}"; then
            best=$seconds
            memory=$((kib / 1024))
        fi
    done
    printf '%-44s %8.2f s %6d MiB\n' "$label" "$best" "$memory"
}

export XDG_DATA_HOME=$work/data
for input in scan-g4-100.tif colour-lzw-5.tif; do
    for format in png jpeg; do
        extension=$format
        [ "$format" = jpeg ] && extension=jpg
        measure "quirefold $input -> $format" "$cli" --format "$format" --zoomfactor 1 -o "$work/out" "$corpus/$input"
        measure "gm convert $input -> $format" gm convert "$corpus/$input" +adjoin -quality 75 "$work/out/out-%03d.$extension"
    done
done
