#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Quirefold beside general-purpose tools (poppler, MuPDF, Ghostscript, libtiff, img2pdf, qpdf,
# GraphicsMagick) on the bench corpus, in one run and at equal settings where the tools allow.
# Each case is the best of REPEATS runs (fewer on the slow cases) timed with GNU time for wall
# seconds and peak resident memory. Prints a table and writes bench/RESULTS.md.
#
#   bench/bench_all.sh                 needs a built tree (build/cli/quirefold-cli, build/tools)
#   REPEATS=1 bench/bench_all.sh       quicker, noisier
#   RESULTS=/tmp/r.md bench/bench_all.sh
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD:-$root/build}
corpus=${CORPUS:-$root/bench/corpus}
results=${RESULTS:-$root/bench/RESULTS.md}
repeats=${REPEATS:-3}
slow_repeats=${SLOW_REPEATS:-2}
cli=$build/cli/quirefold-cli

[ -x "$cli" ] || { echo "needs a built tree: $cli is missing (scripts/setup.sh builds one)" >&2; exit 2; }

# The peers and GNU time, installed from Debian when missing.
declare -A package_of=(
    [pdftocairo]=poppler-utils [pdftoppm]=poppler-utils [pdftotext]=poppler-utils
    [mutool]=mupdf-tools [gs]=ghostscript [tiff2pdf]=libtiff-tools [img2pdf]=img2pdf
    [qpdf]=qpdf [gm]=graphicsmagick [/usr/bin/time]=time
)
missing=()
for tool in "${!package_of[@]}"; do
    command -v "$tool" >/dev/null || missing+=("${package_of[$tool]}")
done
if [ "${#missing[@]}" -gt 0 ]; then
    mapfile -t missing < <(printf '%s\n' "${missing[@]}" | sort -u)
    echo "Installing: ${missing[*]}"
    sudo=()
    [ "$(id -u)" -eq 0 ] || sudo=(sudo)
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

"$build/tools/make_bench_corpus" "$corpus" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/data
mkdir -p "$XDG_DATA_HOME" "$work/logs"
started=$(date +%s)

load_before=$(cut -d' ' -f1 /proc/loadavg)
rows=()        # Markdown rows of the results table
declare -A seconds_of peak_of # by "case|tool": best seconds and peak KiB, for the targets
failures=()    # commands that exited non-zero
qf_seconds=""  # best seconds of the latest Quirefold case, for the ratios of its peers

# measure KIND CASE TOOL PAGES RUNS COMMAND...
#   KIND is qf (Quirefold; later peers are compared with it), peer, or info (no ratio).
#   Runs the command RUNS times into an empty $work/out (the command's working folder), keeps
#   the fastest run, and records seconds, pages per second, peak MiB and the outputs' size.
measure() {
    local kind=$1 case=$2 tool=$3 pages=$4 runs=$5
    shift 5
    local best="" kib_best="" status=0 run seconds kib
    local log=$work/logs/$(printf '%s' "$case-$tool" | tr -c 'A-Za-z0-9._-' '_')
    for ((run = 1; run <= runs; run++)); do
        rm -rf "$work/out" && mkdir -p "$work/out"
        if ! (cd "$work/out" && /usr/bin/time -f "%e %M" -o "$work/time" "$@" >"$log.out" 2>"$log.err"); then
            status=$(sed -n 's/.*exited with non-zero status \([0-9]*\).*/\1/p' "$work/time")
            status=${status:-1}
        fi
        read -r seconds kib < <(tail -n 1 "$work/time")
        if [ -z "$best" ] || awk "BEGIN{exit !($seconds < $best)}"; then
            best=$seconds
            kib_best=$kib
        fi
        [ "$status" -eq 0 ] || break
    done
    local files size_kib rate ratio="" mib note=""
    files=$(find "$work/out" -type f | wc -l)
    size_kib=$(du -sk "$work/out" | cut -f1)
    mib=$((kib_best / 1024))
    rate=$(awk "BEGIN{ s = $best; if (s < 0.01) s = 0.01; printf \"%.1f\", $pages / s }")
    if [ "$status" -ne 0 ]; then
        note="FAILED, exit $status"
        failures+=("$case / $tool: exit $status: $*"$'\n'"$(tail -n 5 "$log.err")")
    fi
    case $kind in
    qf) qf_seconds=$best ;;
    peer)
        if [ -n "$qf_seconds" ]; then
            ratio=$(awk "BEGIN{ q = $qf_seconds; if (q < 0.01) q = 0.01; printf \"%.2f\", $best / q }")
        fi
        ;;
    esac
    printf '%-34s %-40s %7.2f s %7s p/s %6s %5d MiB %3d files %8d KiB %s\n' \
        "$(printf '%s' "$case" | sed 's/→/->/g; s/×/x/g')" "$tool" "$best" "$rate" "${ratio:+${ratio}x}" "$mib" "$files" "$size_kib" "$note"
    rows+=("| $case | $tool | $runs | $pages | $best | $rate | ${ratio:+$ratio} | $mib | $files | $size_kib | $note |")
    seconds_of["$case|$tool"]=$best
    peak_of["$case|$tool"]=$kib_best
}

targets=() # Markdown rows of the targets table

# target NAME NEEDED MEASURED HOW: one row of the targets table; met when MEASURED >= NEEDED.
target() {
    local name=$1 needed=$2 measured=$3 how=$4 verdict
    if [ -z "$measured" ]; then
        verdict="not measured"
    elif awk "BEGIN{exit !($measured >= $needed)}"; then
        verdict="met"
    else
        verdict="**not met**"
    fi
    targets+=("| $name | $needed | ${measured:--} | $verdict | $how |")
}

# speedup CASE PEER [QFTOOL]: the peer's seconds over Quirefold's on CASE.
speedup() {
    local q=${seconds_of["$1|${3:-quirefold}"]:-} p=${seconds_of["$1|$2"]:-}
    [ -n "$q" ] && [ -n "$p" ] || return 0
    awk -v q="$q" -v p="$p" 'BEGIN{ if (q < 0.01) q = 0.01; printf "%.2f", p / q }'
}

echo "Quirefold beside peers: best of $repeats (slow cases $slow_repeats), $(nproc) cores"
printf '%-34s %-40s %9s %11s %6s %9s\n' case tool seconds pages/s "qf÷" peak
qf=("$cli" --zoomfactor 1 -o "$work/out")
text=$corpus/text-200.pdf
mixed=$corpus/mixed-40.pdf

# --- PDF to JPEG, 150 dpi, quality 75 (progressive where the tool has the choice) ----------------
for input in text-200 mixed-40; do
    pages=${input##*-}
    measure qf "PDF→JPEG 150dpi q75 $input" "quirefold" "$pages" "$repeats" \
        "${qf[@]}" --format jpeg --dpi 150 --jpgquality 75 "$corpus/$input.pdf"
    measure peer "PDF→JPEG 150dpi q75 $input" "pdftocairo -jpeg" "$pages" "$repeats" \
        pdftocairo -jpeg -jpegopt quality=75,progressive=y -r 150 "$corpus/$input.pdf" out
    measure peer "PDF→JPEG 150dpi q75 $input" "pdftoppm -jpeg" "$pages" "$repeats" \
        pdftoppm -jpeg -jpegopt quality=75,progressive=y -r 150 "$corpus/$input.pdf" out
    # mutool draw has no JPEG writer in MuPDF 1.21 (-F jpeg is refused; out%d.jpg gets PNG data),
    # so mutool is compared on PNG below only.
done

# --- PDF to PNG, 150 dpi ------------------------------------------------------------------------
measure qf "PDF→PNG 150dpi text-200" "quirefold" 200 "$slow_repeats" \
    "${qf[@]}" --format png --dpi 150 "$text"
measure peer "PDF→PNG 150dpi text-200" "pdftoppm -png" 200 "$slow_repeats" \
    pdftoppm -png -r 150 "$text" out
measure peer "PDF→PNG 150dpi text-200" "mutool draw png" 200 "$slow_repeats" \
    mutool draw -q -r 150 -o out%d.png "$text"
measure qf "PDF→PNG 150dpi mixed-40" "quirefold" 40 "$slow_repeats" \
    "${qf[@]}" --format png --dpi 150 "$mixed"
measure peer "PDF→PNG 150dpi mixed-40" "pdftoppm -png" 40 "$slow_repeats" \
    pdftoppm -png -r 150 "$mixed" out
measure peer "PDF→PNG 150dpi mixed-40" "mutool draw png" 40 "$slow_repeats" \
    mutool draw -q -r 150 -o out%d.png "$mixed"

# --- PDF to TIFF, 150 dpi -----------------------------------------------------------------------
measure qf "PDF→TIFF LZW 150dpi text-200" "quirefold" 200 "$slow_repeats" \
    "${qf[@]}" --imageformat "TIFF (Single Page)" --tiffcompression lzw --dpi 150 "$text"
measure peer "PDF→TIFF LZW 150dpi text-200" "pdftoppm -tiff lzw" 200 "$slow_repeats" \
    pdftoppm -tiff -tiffcompression lzw -r 150 "$text" out
measure qf "PDF→TIFF G4 150dpi text-200" "quirefold" 200 "$slow_repeats" \
    "${qf[@]}" --imageformat "TIFF (Single Page)" --tiffcompression g4 --dpi 150 "$text"
measure peer "PDF→TIFF G4 150dpi text-200" "gs tiffg4" 200 "$slow_repeats" \
    gs -q -dNOPAUSE -dBATCH -sDEVICE=tiffg4 -r150 -o out%d.tif "$text"

# --- PDF to PDF, one file per page ---------------------------------------------------------------
# The PDF structure cases run on 2,000 pages (text-200 ten times over), so that each takes long
# enough to measure beside qpdf.
text2000=$work/text-2000.pdf
qpdf --empty --pages $(for _ in 1 2 3 4 5 6 7 8 9 10; do printf '%s ' "$text"; done) -- "$text2000"
measure qf "PDF→PDF one file a page text-2000" "quirefold" 2000 "$repeats" \
    "${qf[@]}" --format pdf-single "$text2000"
measure peer "PDF→PDF one file a page text-2000" "qpdf --split-pages" 2000 "$repeats" \
    qpdf --split-pages "$text2000" out.pdf

# --- TIFF to PDF --------------------------------------------------------------------------------
measure qf "TIFF→PDF scan-g4-100" "quirefold" 100 "$repeats" \
    "${qf[@]}" --format pdf "$corpus/scan-g4-100.tif"
measure peer "TIFF→PDF scan-g4-100" "tiff2pdf" 100 "$repeats" \
    tiff2pdf -o out.pdf "$corpus/scan-g4-100.tif"
measure peer "TIFF→PDF scan-g4-100" "img2pdf" 100 "$repeats" \
    img2pdf -o out.pdf "$corpus/scan-g4-100.tif"

# --- TIFF to PNG and JPEG (as bench/bench_tiff_images.sh) ---------------------------------------
for input in scan-g4-100 colour-lzw-5; do
    pages=${input##*-}
    for format in png jpeg; do
        extension=$format
        [ "$format" = jpeg ] && extension=jpg
        measure qf "TIFF→${format^^} $input" "quirefold" "$pages" "$slow_repeats" \
            "${qf[@]}" --format "$format" --jpgquality 75 "$corpus/$input.tif"
        measure peer "TIFF→${format^^} $input" "gm convert" "$pages" "$slow_repeats" \
            gm convert "$corpus/$input.tif" +adjoin -quality 75 "out-%03d.$extension"
    done
done

# --- PDF merge and encryption -------------------------------------------------------------------
# On 20,000 pages (text-2000 ten times over), so that qpdf itself takes a good part of a second
# and neither side's start-up decides the ratio.
text20000=$work/text-20000.pdf
qpdf --empty --pages $(for _ in 1 2 3 4 5 6 7 8 9 10; do printf '%s ' "$text2000"; done) -- "$text20000"
mkdir -p "$work/split"
qpdf --split-pages=400 "$text20000" "$work/split/part-%d.pdf"
parts=("$work/split"/part-*.pdf)
measure qf "merge 50×400-page PDFs" "quirefold --combineall" 20000 "$repeats" \
    "${qf[@]}" --format pdf --combineall "${parts[@]}"
measure peer "merge 50×400-page PDFs" "qpdf --empty --pages" 20000 "$repeats" \
    qpdf --empty --pages "${parts[@]}" -- out.pdf
measure qf "AES-256 text-20000 (not same job*)" "quirefold --encryptionlevel aes-256" 20000 "$repeats" \
    "${qf[@]}" --format pdf --pdfpassword x --pdffullpassword y --encryptionlevel aes-256 "$text20000"
measure peer "AES-256 text-20000 (not same job*)" "qpdf --encrypt x y 256" 20000 "$repeats" \
    qpdf --encrypt x y 256 -- "$text20000" out.pdf

# --- Text ---------------------------------------------------------------------------------------
measure qf "PDF→text text-200" "quirefold" 200 "$repeats" \
    "${qf[@]}" --format text "$text"
measure peer "PDF→text text-200" "pdftotext" 200 "$repeats" \
    pdftotext "$text" out.txt

# --- Quirefold's memory against document length -------------------------------------------------
measure info "memory: JPEG 150dpi text-200 p1-10" "quirefold --pages 1-10" 10 "$repeats" \
    "${qf[@]}" --format jpeg --dpi 150 --jpgquality 75 --pages 1-10 "$text"
measure info "memory: JPEG 150dpi text-200 all" "quirefold (all 200 pages)" 200 1 \
    "${qf[@]}" --format jpeg --dpi 150 --jpgquality 75 "$text"

# --- Information: pdftoppm in two processes over page halves ------------------------------------
# Quirefold already prepares pages on every core (-j defaults to one per core); this shows what a
# single-threaded peer reaches when split by hand. Peak MiB is the largest single process.
measure info "info: PDF→JPEG text-200, -P 2" "xargs -P 2 pdftoppm -jpeg" 200 "$slow_repeats" \
    sh -c 'printf "1 100\n101 200\n" | xargs -P 2 -L 1 sh -c '\''pdftoppm -jpeg -jpegopt quality=75,progressive=y -r 150 -f "$1" -l "$2" "$0" "out-$1"'\'' "$1"' _ "$text"
measure info "info: PDF→JPEG mixed-40, -P 2" "xargs -P 2 pdftoppm -jpeg" 40 "$slow_repeats" \
    sh -c 'printf "1 20\n21 40\n" | xargs -P 2 -L 1 sh -c '\''pdftoppm -jpeg -jpegopt quality=75,progressive=y -r 150 -f "$1" -l "$2" "$0" "out-$1"'\'' "$1"' _ "$mixed"

elapsed=$(($(date +%s) - started))
echo "bench run took ${elapsed} s"
load_after=$(cut -d' ' -f1 /proc/loadavg)

# --- Targets ------------------------------------------------------------------------------------
target "PDF→JPEG text-200: ≥ 2× pdftocairo" 2.0 "$(speedup "PDF→JPEG 150dpi q75 text-200" "pdftocairo -jpeg")" "pdftocairo s ÷ quirefold s"
target "PDF→JPEG mixed-40: ≥ 2× pdftocairo" 2.0 "$(speedup "PDF→JPEG 150dpi q75 mixed-40" "pdftocairo -jpeg")" "pdftocairo s ÷ quirefold s"
target "PDF→PNG text-200: ≥ 1.5× mutool draw" 1.5 "$(speedup "PDF→PNG 150dpi text-200" "mutool draw png")" "mutool s ÷ quirefold s"
target "PDF→PNG mixed-40: ≥ 1.2× mutool draw" 1.2 "$(speedup "PDF→PNG 150dpi mixed-40" "mutool draw png")" "mutool s ÷ quirefold s"
target "PDF→G4 TIFF: ≥ 1.2× gs tiffg4" 1.2 "$(speedup "PDF→TIFF G4 150dpi text-200" "gs tiffg4")" "gs s ÷ quirefold s"
target "G4 TIFF→PDF: within 2× tiff2pdf" 0.5 "$(speedup "TIFF→PDF scan-g4-100" "tiff2pdf")" "tiff2pdf s ÷ quirefold s"
target "G4 TIFF→PDF: faster than img2pdf" 1.0 "$(speedup "TIFF→PDF scan-g4-100" "img2pdf")" "img2pdf s ÷ quirefold s"
target "One file a page: within 2× qpdf --split-pages" 0.5 "$(speedup "PDF→PDF one file a page text-2000" "qpdf --split-pages")" "qpdf s ÷ quirefold s"
target "Merge: within 1.5× qpdf" 0.67 "$(speedup "merge 50×400-page PDFs" "qpdf --empty --pages" "quirefold --combineall")" "qpdf s ÷ quirefold s"
target "AES-256: within 1.5× qpdf" 0.67 "$(speedup "AES-256 text-20000 (not same job*)" "qpdf --encrypt x y 256" "quirefold --encryptionlevel aes-256")" "qpdf s ÷ quirefold s"
target "Text: ≥ pdftotext" 1.0 "$(speedup "PDF→text text-200" "pdftotext")" "pdftotext s ÷ quirefold s"
peak_10=${peak_of["memory: JPEG 150dpi text-200 p1-10|quirefold --pages 1-10"]:-}
peak_200=${peak_of["memory: JPEG 150dpi text-200 all|quirefold (all 200 pages)"]:-}
memory_ratio=""
if [ -n "$peak_10" ] && [ -n "$peak_200" ]; then
    memory_ratio=$(awk "BEGIN{ printf \"%.2f\", $peak_10 * 1.2 / $peak_200 }")
fi
target "Peak memory, 200 pages ≤ 1.2× 10 pages" 1.0 "$memory_ratio" "1.2 × peak(10) ÷ peak(200)"

# --- bench/RESULTS.md ---------------------------------------------------------------------------
version() { "$@" 2>&1 | head -n 1 || true; }
{
    echo "# Quirefold beside general tools"
    echo
    echo "Measured by \`bench/bench_all.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC'):"
    echo "$(nproc) cores (\`nproc\`), $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1),"
    echo "$(awk '/MemTotal/ {printf "%.1f GiB", $2 / 1048576}' /proc/meminfo) RAM, $(uname -sr). Whole run: ${elapsed} s."
    echo "Load average (1 min) $load_before at the start and $load_after at the end of the run."
    echo
    echo "## Targets"
    echo
    echo "Each figure is a ratio of wall times measured side by side in this run; a target is met"
    echo "when the figure reaches the one needed."
    echo
    echo "| target | needed | measured | verdict | figure |"
    echo "|---|---:|---:|---|---|"
    printf '%s\n' "${targets[@]}"
    echo
    echo "## All cases"
    echo
    echo "Seconds are wall time of the fastest of *runs*; peak MiB is the maximum resident set of"
    echo "that run (GNU time). **qf÷tool** is the tool's seconds divided by Quirefold's seconds on"
    echo "the same case: above 1 Quirefold is faster, below 1 Quirefold is slower. Output is the"
    echo "count and total size of the files written."
    echo
    echo "| case | tool | runs | pages | seconds | pages/s | qf÷tool | peak MiB | files | output KiB | note |"
    echo "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---|"
    printf '%s\n' "${rows[@]}"
    echo
    echo "Notes"
    echo
    echo "- Quirefold runs with \`--zoomfactor 1\`, its own data folder and \`-j\` at its default"
    echo "  (one page under way per core); pdftoppm, pdftocairo, mutool draw, gs, tiff2pdf, img2pdf,"
    echo "  qpdf and gm run one process each. The \`-P 2\` rows split pdftoppm by page halves by hand."
    echo "- PDF→JPEG: mutool draw is absent because MuPDF $(mutool -v 2>&1 | sed -n 's/.*version //p' | head -n 1)"
    echo "  has no JPEG writer (\`-F jpeg\` is refused and \`out%d.jpg\` receives PNG data)."
    echo "  Quirefold's JPEG is at quality 75; the poppler tools write progressive JPEG at quality 75."
    echo "- PDF→TIFF: pdftoppm writes 24-bit RGB LZW, gs tiffg4 writes 1-bit G4 from its own"
    echo "  threshold; the outputs differ in content, not only in speed."
    echo "- TIFF→PNG/JPEG: gm convert is given \`-quality 75\`, Quirefold \`--jpgquality 75\` (as in"
    echo "  bench/bench_tiff_images.sh for gm)."
    echo "- *AES-256: Quirefold's PDF output copies the pages into a new document, encrypted in the"
    echo "  write that makes it; qpdf only rewrites the file encrypted. They are not the identical job."
    echo "- One file a page uses text-2000 (text-200 ten times over, joined by qpdf); merge and"
    echo "  AES-256 use text-20000 (text-2000 ten times over) and its 50 parts of 400 pages, given"
    echo "  to both tools in the same order."
    echo "- Tool versions: $(version pdftoppm -v); $(version mutool -v); gs $(gs --version);"
    echo "  $(version qpdf --version); img2pdf $(img2pdf --version 2>&1 | awk '{print $NF}');"
    echo "  $(version gm version); tiff2pdf from $(dpkg-query -W -f='libtiff-tools ${Version}' libtiff-tools 2>/dev/null || echo libtiff-tools)."
    cat "$root/bench/WHERE-THE-TIME-GOES.md"
    if [ "${#failures[@]}" -gt 0 ]; then
        echo
        echo "Failed runs (last lines of stderr)"
        echo
        for failure in "${failures[@]}"; do
            echo '```'
            echo "$failure"
            echo '```'
        done
    fi
} >"$results"
echo "wrote $results"
if [ "${#failures[@]}" -gt 0 ]; then
    printf 'FAILED: %s\n' "${failures[@]}" >&2
fi
