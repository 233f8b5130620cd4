#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need.
# Idempotent: it only calls apt-get when something is missing, and says
# nothing when everything is already there. Every name below must be a real
# package (not a virtual one that another package provides): dpkg never
# reports a virtual name as installed, so apt would run every time.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config clang-format dpkg-dev
  libgtest-dev libgmock-dev libbenchmark-dev libopencv-dev
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev
  qt6-multimedia-dev qt6-declarative-dev qt6-speech-dev qt6-speech-flite-plugin
  flite1-dev flite pulseaudio pulseaudio-utils
  qt6-qpa-plugins libgl-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  fonts-dejavu-core fonts-roboto-unhinted fonts-ipafont-gothic
  python3-kiwisolver
)

if [ -n "${QXD_EXTRA_PACKAGES:-}" ]; then
  read -r -a extra <<<"$QXD_EXTRA_PACKAGES"
  packages+=("${extra[@]}")
fi

installed() {
  [ "$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null)" = "install ok installed" ]
}

missing=()
for p in "${packages[@]}"; do
  if ! installed "$p"; then
    missing+=("$p")
  fi
done

[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq >/dev/null
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

still_missing=()
for p in "${missing[@]}"; do
  if ! installed "$p"; then
    still_missing+=("$p")
  fi
done
if [ ${#still_missing[@]} -gt 0 ]; then
  echo "install-deps: not installed after apt-get: ${still_missing[*]} (virtual package names?)" >&2
  exit 1
fi
