#!/usr/bin/env bash
# Builds the engine and capture tests with ThreadSanitizer (the tsan preset)
# and runs them, with scripts/tsan-suppressions.txt hiding reports that lie
# inside Qt's own libraries. Any report in our code fails the run. Not part
# of CI (a TSan build of these tests takes about ten minutes on two cores).
#
#   scripts/tsan.sh [ctest regex]     (default: the camera and capture tests)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

regex="${1:-^(QXDCamera|CameraFaults|Capture|VirtualCamera|VirtualScene|camera\.)}"
targets=(camera_tests platform_capture_tests platform_virtualcamera_tests qxd-camera-stress)

cmake --preset tsan >/dev/null
# The build runs instrumented tools (the icon rasteriser); Qt's own reports
# there must not stop it.
export TSAN_OPTIONS="suppressions=$root/scripts/tsan-suppressions.txt exitcode=0"
if command -v qxd-build >/dev/null; then
  qxd-build build/tsan --target "${targets[@]}"
else
  cmake --build --preset tsan --target "${targets[@]}"
fi

export TSAN_OPTIONS="suppressions=$root/scripts/tsan-suppressions.txt halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build/tsan -R "$regex" -j2 --output-on-failure --timeout 600
