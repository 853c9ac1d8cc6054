#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the project and runs the whole test suite.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build"
"$root/scripts/setup.sh" "$build"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 600
