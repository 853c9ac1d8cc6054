#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The PDF structure cases (one file a page, merge, AES-256) for an older build, this build and
# qpdf at the same job, interleaved: each round runs the three in a rotating order, RUNS rounds
# (five by default), medians of wall and CPU time (user + system, children included).
# Prints Markdown rows.
#
#   OLD=/path/to/old/build bench/bench_pdf_structure.sh
#   PAGES=2000 PARTS=50x40 AES_PAGES=20000 RUNS=5 ...
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
new_build=${BUILD:-$root/build}
old_build=${OLD:?OLD=/path/to/an/older/build directory}
corpus=${CORPUS:-$root/bench/corpus}
runs=${RUNS:-5}
pages=${PAGES:-2000}
parts=${PARTS:-50x40}
aes_pages=${AES_PAGES:-$pages}

[ -f "$corpus/text-200.pdf" ] || "$new_build/tools/make_bench_corpus" "$corpus" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/data
mkdir -p "$XDG_DATA_HOME" "$work/parts"

# A document of N pages: text-200 repeated.
repeat_text() {
    local n=$1 target=$2 list=() i
    for ((i = 0; i < n / 200; i++)); do list+=("$corpus/text-200.pdf"); done
    qpdf --empty --pages "${list[@]}" -- "$target"
}
repeat_text "$pages" "$work/text-$pages.pdf"
[ "$aes_pages" = "$pages" ] || repeat_text "$aes_pages" "$work/text-$aes_pages.pdf"
part_count=${parts%x*}
part_pages=${parts#*x}
repeat_text $((part_count * part_pages < 200 ? 200 : part_count * part_pages)) "$work/whole.pdf"
qpdf --split-pages="$part_pages" "$work/whole.pdf" "$work/parts/part-%d.pdf"
mapfile -t part_files < <(find "$work/parts" -name '*.pdf' | sort | head -n "$part_count")
rm -f "$work/whole.pdf"

qf_old=("$old_build/cli/quirefold-cli" --zoomfactor 1 -o "$work/out")
qf_new=("$new_build/cli/quirefold-cli" --zoomfactor 1 -o "$work/out")

declare -A walls cpus
# run CASE TOOL COMMAND...: one timed run into an empty $work/out.
run() {
    local case=$1 tool=$2
    shift 2
    rm -rf "$work/out" && mkdir -p "$work/out"
    (cd "$work/out" && /usr/bin/time -f "%e %U %S" -o "$work/time" "$@" >/dev/null 2>"$work/err") ||
        { echo "FAILED: $case / $tool" >&2; tail -n 3 "$work/err" >&2; }
    read -r wall user system <"$work/time"
    walls["$case|$tool"]+="$wall "
    cpus["$case|$tool"]+="$(awk -v u="$user" -v s="$system" 'BEGIN{printf "%.2f", u + s}') "
}

median() { tr ' ' '\n' | grep -v '^$' | sort -g | awk '{v[NR] = $1} END {print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

split_case="one file a page, $pages pages"
merge_case="merge ${part_count}×${part_pages}-page PDFs"
aes_case="AES-256 of $aes_pages pages"
load_before=$(cut -d' ' -f1-3 /proc/loadavg)
started=$(date -u '+%H:%M')
for ((round = 0; round < runs; round++)); do
    for ((k = 0; k < 3; k++)); do
        case $(((round + k) % 3)) in
        0)
            run "$split_case" old "${qf_old[@]}" --format pdf-single "$work/text-$pages.pdf"
            run "$merge_case" old "${qf_old[@]}" --format pdf --combineall "${part_files[@]}"
            run "$aes_case" old "${qf_old[@]}" --format pdf --pdfpassword x --pdffullpassword y \
                --encryptionlevel aes-256 "$work/text-$aes_pages.pdf"
            ;;
        1)
            run "$split_case" new "${qf_new[@]}" --format pdf-single "$work/text-$pages.pdf"
            run "$merge_case" new "${qf_new[@]}" --format pdf --combineall "${part_files[@]}"
            run "$aes_case" new "${qf_new[@]}" --format pdf --pdfpassword x --pdffullpassword y \
                --encryptionlevel aes-256 "$work/text-$aes_pages.pdf"
            ;;
        2)
            run "$split_case" qpdf qpdf --split-pages "$work/text-$pages.pdf" out.pdf
            run "$merge_case" qpdf qpdf --empty --pages "${part_files[@]}" -- out.pdf
            run "$aes_case" qpdf qpdf --encrypt x y 256 -- "$work/text-$aes_pages.pdf" out.pdf
            ;;
        esac
    done
done
load_after=$(cut -d' ' -f1-3 /proc/loadavg)

echo "Runs $started-$(date -u '+%H:%M') UTC; load average (1, 5, 15 min) $load_before before, $load_after after."
echo
echo "| case | tool | median wall s | wall s of each run | median CPU s | qpdf ÷ tool (wall) | qpdf ÷ tool (CPU) |"
echo "|---|---|---:|---|---:|---:|---:|"
for case in "$split_case" "$merge_case" "$aes_case"; do
    qpdf_wall=$(echo "${walls["$case|qpdf"]}" | median)
    qpdf_cpu=$(echo "${cpus["$case|qpdf"]}" | median)
    for tool in old new qpdf; do
        wall=$(echo "${walls["$case|$tool"]}" | median)
        cpu=$(echo "${cpus["$case|$tool"]}" | median)
        label=$tool
        [ "$tool" = old ] && label="quirefold $(git -C "$old_build/.." rev-parse --short HEAD 2>/dev/null || echo old)"
        [ "$tool" = new ] && label="quirefold $(git -C "$root" rev-parse --short HEAD)"
        ratio_wall=$(awk -v q="$qpdf_wall" -v t="$wall" 'BEGIN{ if (t < 0.01) t = 0.01; printf "%.2f", q / t }')
        ratio_cpu=$(awk -v q="$qpdf_cpu" -v t="$cpu" 'BEGIN{ if (t < 0.01) t = 0.01; printf "%.2f", q / t }')
        echo "| $case | $label | $wall | ${walls["$case|$tool"]% } | $cpu | $ratio_wall | $ratio_cpu |"
    done
done
