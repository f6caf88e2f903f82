#!/usr/bin/env bash
# Configures and builds Pelkam into build/ (or $1), extra CMake options after it.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
dir="${1:-$here/build}"
shift || true
cmake -S "$here" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build "$dir" -j "$(nproc)"
