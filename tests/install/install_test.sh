#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the build into a temporary prefix and uses it as a user would: the desktop entry and
# the metainfo pass their validators, the entry's program, its icon and both manual pages are
# there, and the installed command line makes a PDF/A-1b from a sample with only what was
# installed (an installed program never falls back to the source or build tree, so a resource
# left out of the install fails here).
# Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail

build=$1
source=$2
app_id=org.quirefold.Quirefold
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

for tool in desktop-file-validate appstreamcli; do
    command -v "$tool" >/dev/null || fail "$tool is not installed (scripts/setup.sh installs it)"
done

cmake --install "$build" --prefix "$prefix/usr" >/dev/null

desktop="$prefix/usr/share/applications/$app_id.desktop"
metainfo="$prefix/usr/share/metainfo/$app_id.metainfo.xml"
desktop-file-validate "$desktop" || fail "desktop-file-validate rejects $desktop"
appstreamcli validate --no-net "$metainfo" || fail "appstreamcli rejects $metainfo"

# What the desktop entry names must be where a desktop looks for it.
program=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop")
[ -x "$prefix/usr/bin/$program" ] || fail "the entry starts $program, which is not in bin/"
icon=$(sed -n 's/^Icon=//p' "$desktop")
[ -f "$prefix/usr/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "no scalable icon $icon"
for side in 16 32 48 64 128 256 512; do
    png="$prefix/usr/share/icons/hicolor/${side}x${side}/apps/$icon.png"
    [ -f "$png" ] || fail "no ${side}x${side} icon"
    # A PNG's width sits at bytes 16-19 of its header.
    width=$(od -An -tu1 -j16 -N4 "$png" | awk '{ print $1 * 16777216 + $2 * 65536 + $3 * 256 + $4 }')
    [ "$width" = "$side" ] || fail "the ${side}x${side} icon is $width pixels wide"
done
# The files the programs look up only when asked: the help document, the About box's image and
# the image module of the TIFF samples libtiff cannot read.
for file in share/quirefold/quirefold.pdf share/quirefold/quirefold.png lib/quirefold/qf_magick.so; do
    [ -s "$prefix/usr/$file" ] || fail "$file is not installed"
done

cli="$prefix/usr/bin/quirefold-cli"
"$cli" --version | grep -q . || fail "quirefold-cli --version says nothing"
# The manual page names every option --help does.
man_page="$prefix/usr/share/man/man1/quirefold-cli.1.gz"
gzip -t "$prefix/usr/share/man/man1/quirefold.1.gz" || fail "quirefold.1.gz is not installed"
man_text=$(gzip -dc "$man_page" | sed 's/\\-/-/g') || fail "quirefold-cli.1.gz is not installed"
for flag in $("$cli" --help | grep -o '^  -[-a-z0-9]*'); do
    grep -q -e "^\.B.*$flag" <<<"$man_text" || fail "quirefold-cli.1 lacks $flag"
done
out="$prefix/out"
mkdir "$out"
status=0
log=$("$cli" --imageformat PDF --pdfversionnumber pdfa-1b -o "$out" "$source/examples/colour-multipage.tif" 2>&1) ||
    status=$?
echo "$log"
[ "$status" = 0 ] || fail "the installed quirefold-cli exited with $status"
grep -q '^colour-multipage.PDF has been Saved$' <<<"$log" || fail "no PDF was saved"
! grep -q 'does not conform' <<<"$log" || fail "the PDF does not conform to PDF/A-1b"
grep -q 'pdfaid:part[^0-9]*1' "$out/colour-multipage.PDF" || fail "the PDF does not claim PDF/A-1"
echo "installed into $prefix/usr and converted a sample"
