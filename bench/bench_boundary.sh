#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The cost of the process boundary: the command line that reads documents in reader workers
# against one that reads them in its own process, on the bench corpus cases that take at
# least 2 seconds. Runs alternate old and new, RUNS each (5), and are compared by median wall
# time, so that a change of load on the machine falls on both alike, and by median CPU time
# (user and system, the workers' included: the program waits for them), which the load of
# other programs on the machine touches far less.
#
#   OLD=/path/to/old/quirefold-cli bench/bench_boundary.sh
#
# The old program is a build of the commit before the boundary (30f28b0), made in a folder of
# its own. Prints one Markdown row a case.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build}
corpus=${CORPUS:-$root/bench/corpus}
runs=${RUNS:-5}
old=${OLD:?"OLD names the quirefold-cli built before the boundary"}
new=${NEW:-$build/cli/quirefold-cli}

"$build/tools/make_bench_corpus" "$corpus" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/data
mkdir -p "$XDG_DATA_HOME"

cases=(
    "PDF→JPEG 150dpi q75 text-200|--format jpeg --dpi 150 --jpgquality 75 $corpus/text-200.pdf"
    "PDF→JPEG 150dpi q75 mixed-40|--format jpeg --dpi 150 --jpgquality 75 $corpus/mixed-40.pdf"
    "PDF→PNG 150dpi text-200|--format png --dpi 150 $corpus/text-200.pdf"
    "PDF→PNG 150dpi mixed-40|--format png --dpi 150 $corpus/mixed-40.pdf"
)

# seconds PROGRAM ARGS...: "WALL CPU" seconds of one run into an empty folder.
seconds() {
    local program=$1
    shift
    rm -rf "$work/out" && mkdir -p "$work/out"
    /usr/bin/time -f "%e %U %S" -o "$work/time" "$program" --zoomfactor 1 -o "$work/out" "$@" >/dev/null 2>&1
    awk '{ printf "%s %.2f", $1, $2 + $3 }' "$work/time"
}

median() {
    printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

change() {
    awk -v o="$1" -v n="$2" 'BEGIN{ printf "%+.1f %%", (n / o - 1) * 100 }'
}

echo "| case | wall, in process (s) | wall, in workers (s) | change | CPU, in process (s) | CPU, in workers (s) | change |"
echo "|---|---:|---:|---:|---:|---:|---:|"
for entry in "${cases[@]}"; do
    name=${entry%%|*}
    read -r -a arguments <<<"${entry#*|}"
    old_wall=() old_cpu=() new_wall=() new_cpu=()
    for ((run = 1; run <= runs; run++)); do
        read -r wall cpu <<<"$(seconds "$old" "${arguments[@]}")"
        old_wall+=("$wall") old_cpu+=("$cpu")
        read -r wall cpu <<<"$(seconds "$new" "${arguments[@]}")"
        new_wall+=("$wall") new_cpu+=("$cpu")
    done
    ow=$(median "${old_wall[@]}") nw=$(median "${new_wall[@]}")
    oc=$(median "${old_cpu[@]}") nc=$(median "${new_cpu[@]}")
    echo "| $name | $ow | $nw | $(change "$ow" "$nw") | $oc | $nc | $(change "$oc" "$nc") |"
    echo "  $name: wall old ${old_wall[*]}; new ${new_wall[*]}; CPU old ${old_cpu[*]}; new ${new_cpu[*]}" >&2
done
