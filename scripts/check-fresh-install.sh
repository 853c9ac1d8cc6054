#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the Debian package on a freshly made Debian 12 root and uses it there as a user would:
# `quirefold-cli --version`, a sample PDF converted to JPEG, a TIFF to PDF/A-1b, `man quirefold-cli`,
# and the window started under Xvfb with a PDF, kept up five seconds and photographed. The root
# holds only what debootstrap's smallest variant and the package's own dependencies bring, so a
# library the package forgets to depend on (one of a Qt plugin's, say) fails here.
# Not part of the test suite: it needs root, debootstrap and the network.
#
#   scripts/check-fresh-install.sh [DEB]
#
# Without DEB it builds the package in build-deb/ (update check off, no tests). Environment:
# QF_FRESH_ROOT (default /var/tmp/fresh, made anew each time), QF_DEBIAN_MIRROR (default
# http://deb.debian.org/debian). The screenshot is left in QF_FRESH_ROOT/home/tester/window.png
# (taken with ImageMagick's `import` from this machine when it has one).
set -euo pipefail

root_dir=$(cd "$(dirname "$0")/.." && pwd)
fresh=${QF_FRESH_ROOT:-/var/tmp/fresh}
mirror=${QF_DEBIAN_MIRROR:-http://deb.debian.org/debian}
fail() {
    echo "FAIL: $*" >&2
    exit 1
}
[ "$(id -u)" -eq 0 ] || fail "run as root: debootstrap and chroot need it"
# The root is removed and made again: never a short path that could be a live system's.
[[ "$fresh" == /?*/?* ]] || fail "QF_FRESH_ROOT must be an absolute path two folders deep, not $fresh"
command -v debootstrap >/dev/null || fail "debootstrap is missing (apt-get install debootstrap)"

deb=${1:-}
if [ -z "$deb" ]; then
    build="$root_dir/build-deb"
    cmake -S "$root_dir" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQF_UPDATE_BASE_URL= \
        -DQF_BUILD_TESTS=OFF >/dev/null
    cmake --build "$build"
    rm -f "$build"/quirefold_*.deb
    (cd "$build" && cpack -G DEB >/dev/null)
    deb=$(ls "$build"/quirefold_*.deb)
fi
[ -f "$deb" ] || fail "no package at $deb"

# The mounts come off before anything else, and always: removing a root with /proc mounted in it
# would reach into the live system.
unmount_all() {
    for point in dev/shm proc; do
        if mountpoint -q "$fresh/$point"; then umount "$fresh/$point"; fi
    done
}
if [ -d "$fresh" ]; then
    unmount_all
    rm -rf --one-file-system "$fresh"
fi
debootstrap --variant=minbase bookworm "$fresh" "$mirror" >/dev/null
# As an installed system has them: the point releases and security updates.
security=${mirror%/debian}/debian-security
cat >"$fresh/etc/apt/sources.list" <<EOF
deb $mirror bookworm main
deb $mirror bookworm-updates main
deb $security bookworm-security main
EOF

x_pid=""
cleanup() {
    if [ -n "$x_pid" ]; then
        # Only what this script started in the root: the window and the server under xvfb-run.
        for pid in $(program_pids quirefold) $(program_pids quirefold-worker) $(program_pids Xvfb); do
            kill "$pid" 2>/dev/null || true
        done
        kill "$x_pid" 2>/dev/null || true
        wait "$x_pid" 2>/dev/null || true
    fi
    unmount_all
}
trap cleanup EXIT
# Processes whose root is the fresh root and whose program is $1.
program_pids() {
    local pid
    for pid in /proc/[0-9]*; do
        [ "$(readlink "$pid/root" 2>/dev/null)" = "$fresh" ] || continue
        [ "$(cat "$pid/comm" 2>/dev/null)" = "$1" ] && echo "${pid#/proc/}"
    done
    return 0
}

mount -t proc proc "$fresh/proc"
# The workers hand pictures over in shared memory.
mount -t tmpfs -o mode=1777 shm "$fresh/dev/shm"
in_root() { chroot "$fresh" "$@"; }
as_user() { chroot --userspec=tester:tester "$fresh" env HOME=/home/tester LANG=C.UTF-8 "$@"; }

export DEBIAN_FRONTEND=noninteractive
in_root apt-get update -qq
cp "$deb" "$fresh/tmp/"
in_root apt-get install -y -qq --no-install-recommends "/tmp/$(basename "$deb")" >/dev/null
echo "installed $(basename "$deb") with --no-install-recommends"

in_root useradd --create-home --user-group tester
cp -r "$root_dir/examples" "$fresh/home/tester/examples"
in_root chown -R tester:tester /home/tester/examples

version=$(as_user quirefold-cli --version) || fail "quirefold-cli --version failed"
[ -n "$version" ] || fail "quirefold-cli --version says nothing"
echo "quirefold-cli --version: $version"

# A sample PDF to JPEG pages: three pages, each a JPEG file (its first bytes FF D8 FF).
as_user mkdir -p /home/tester/out/jpeg /home/tester/out/pdfa
as_user quirefold-cli --imageformat jpeg --dotsperinch 100 -o /home/tester/out/jpeg \
    /home/tester/examples/rotated-pages.pdf || fail "the JPEG conversion exited with $?"
jpegs=("$fresh"/home/tester/out/jpeg/*.JPG)
[ "${#jpegs[@]}" -eq 3 ] || fail "${#jpegs[@]} JPEG files for three pages"
for jpeg in "${jpegs[@]}"; do
    [ "$(od -An -tx1 -N3 "$jpeg" | tr -d ' ')" = ffd8ff ] || fail "$jpeg is not a JPEG file"
done

# A colour TIFF as PDF/A-1b: its output intent comes from the ICC profiles in the installed
# share/quirefold. (The sample PDFs use Helvetica without embedding it, which PDF/A forbids.)
log=$(as_user quirefold-cli --imageformat pdf --pdfversionnumber pdfa-1b -o /home/tester/out/pdfa \
    /home/tester/examples/colour-multipage.tif 2>&1) || fail "the PDF/A-1b conversion failed: $log"
echo "$log"
grep -q '^colour-multipage.PDF has been Saved$' <<<"$log" || fail "no PDF was saved"
! grep -q 'does not conform' <<<"$log" || fail "the PDF does not conform to PDF/A-1b"
grep -q 'pdfaid:part[^0-9]*1' "$fresh/home/tester/out/pdfa/colour-multipage.PDF" ||
    fail "the PDF does not claim PDF/A-1"

# The manual page, through man itself (man-db is no dependency of the package).
in_root apt-get install -y -qq --no-install-recommends man-db >/dev/null
manual=$(as_user man -P cat quirefold-cli 2>&1) || fail "man quirefold-cli: $manual"
grep -q -- '--imageformat' <<<"$manual" || fail "man quirefold-cli does not show the options"
echo "man quirefold-cli shows $(wc -l <<<"$manual") lines"

# The window, under Xvfb (installed for this check only) on a display nobody here uses. -ac lets
# this machine's `import` photograph it through the display's abstract socket.
in_root apt-get install -y -qq --no-install-recommends xvfb xauth >/dev/null
display=150
while [ -e "/tmp/.X$display-lock" ] || [ -e "$fresh/tmp/.X$display-lock" ] ||
    grep -q "@/tmp/.X11-unix/X$display\$" /proc/net/unix; do
    display=$((display + 1))
done
# QT_DEBUG_PLUGINS names every plugin whose library does not load.
as_user env QT_DEBUG_PLUGINS=1 xvfb-run -n "$display" -s "-screen 0 1280x900x24 -ac" \
    quirefold /home/tester/examples/rotated-pages.pdf >"$fresh/tmp/window.log" 2>&1 &
x_pid=$!
sleep 5
if ! kill -0 "$x_pid" 2>/dev/null || [ -z "$(program_pids quirefold)" ]; then
    cat "$fresh/tmp/window.log" >&2
    fail "the window did not stay up for five seconds"
fi
if grep -E 'Cannot load library|cannot open shared object|Could not load the Qt platform plugin' \
    "$fresh/tmp/window.log" >&2; then
    fail "a Qt plugin's library is missing"
fi
echo "quirefold stayed up five seconds with a PDF"
if command -v import >/dev/null; then
    DISPLAY=":$display" import -window root "$fresh/home/tester/window.png"
    echo "screenshot: $fresh/home/tester/window.png"
else
    echo "no ImageMagick import here: no screenshot"
fi
echo "the package installs and runs on a fresh Debian 12"
