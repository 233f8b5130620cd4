#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs the main job.
# Extra arguments are passed to the program. Runs offscreen when there is no
# display.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

"$root/scripts/install-deps.sh"

cmake --preset release >/dev/null
cmake --build --preset release --target qxd-scanner

if [ -z "${DISPLAY:-}" ] && [ -z "${WAYLAND_DISPLAY:-}" ]; then
  export QT_QPA_PLATFORM=offscreen
fi

if [ $# -eq 0 ]; then
  set -- --output "$root/out"
fi
exec "$root/build/release/examples/scanner/qxd-scanner" "$@"
