#!/usr/bin/env bash
# Installs what is missing, builds the debug preset and runs every test
# through CTest. Set QXD_PRESET=asan for the sanitizer build.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

"$root/scripts/install-deps.sh"

preset="${QXD_PRESET:-debug}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
export QT_QPA_PLATFORM=offscreen
ctest --preset "$preset"
