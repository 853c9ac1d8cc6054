#!/bin/sh
# SPDX-License-Identifier: GPL-3.0-or-later
# Regenerates the three ICC profiles of resources/icc.
#   tools/make_icc_profiles.sh BUILD_DIR
# BUILD_DIR holds the built make_icc_profiles tool (cmake --build BUILD_DIR --target
# make_icc_profiles). Needs Debian's argyll and icc-profiles-free packages.
set -eu
build=${1:?usage: make_icc_profiles.sh BUILD_DIR}
here=$(cd "$(dirname "$0")" && pwd)
out="$here/../resources/icc"
mkdir -p "$out"

"$build/tools/make_icc_profiles" "$out"

# colprof reads NAME.ti3 and writes beside it, so it works on a copy in a scratch folder.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp /usr/share/color/icc/FOGRA39L.ti3 "$work/"
(cd "$work" && colprof -qm -D"Generic CMYK Profile" -O "Generic CMYK Profile.icc" FOGRA39L)
cp "$work/Generic CMYK Profile.icc" "$out/"
