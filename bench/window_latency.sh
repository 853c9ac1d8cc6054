#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# How the window answers during a run: a 10 ms timer in the window while a document of 500 pages
# converts to JPEG; the worst lateness must stay under 100 ms. Usage: bench/window_latency.sh [PAGES]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
QT_QPA_PLATFORM=offscreen QUIREFOLD_UPDATE_BASE_URL= \
    "$root/build/tools/window_latency_qt" "$work" "${1:-500}" 2>/dev/null
