#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the Debian packages the project needs when they are missing, then configures and
# builds it. Usage: scripts/setup.sh [BUILD_DIR] [extra cmake arguments...]
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-"$root/build"}
shift || true

packages=(
    build-essential cmake ninja-build pkg-config
    libqpdf-dev qpdf
    libmupdf-dev libmujs-dev libgumbo-dev libopenjp2-7-dev libjbig2dec0-dev libharfbuzz-dev libfreetype-dev
    libtiff-dev libtiff-tools libjpeg62-turbo-dev libspng-dev
    libgraphicsmagick++1-dev libpugixml-dev libcurl4-openssl-dev liblcms2-dev
    libgtest-dev libimage-exiftool-perl # ExifTool: the stamping tests read tags back with it
    qt6-base-dev qt6-svg-dev libqt6svg6 xvfb xauth fonts-dejavu-core
    desktop-file-utils appstream # the install test validates the desktop entry and the metainfo
    default-jre-headless libpdfbox2-java libfontbox2-java libcommons-logging-java libactivation-java libjaxb-api-java
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        sudo=(sudo)
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
