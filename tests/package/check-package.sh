#!/usr/bin/env bash
# Checks the installed library as its users get it, in four steps that CTest
# runs in order:
#   install   cmake --install into <work>/prefix
#   headers   every installed header compiles on its own, with the flags of
#             the installed pkg-config file
#   consumer  examples/consumer builds against the prefix with find_package
#             and runs offscreen on the virtual cameras until its capture
#             screen shows a frame, finding the libraries and the resources
#             without LD_LIBRARY_PATH or QXD_FRAMEWORK_BUNDLE
#   deb       cpack makes the .deb; its files, control fields and libraries
#             are checked in a scratch root made with dpkg -x
# Usage: check-package.sh <step> <source-dir> <build-dir> <work-dir>
set -euo pipefail

step=$1 source=$2 build=$3 work=$4
prefix=$work/prefix
unset LD_LIBRARY_PATH QXD_FRAMEWORK_BUNDLE

fail() {
  echo "check-package $step: $*" >&2
  exit 1
}

libdir_of() { # the folder of the installed libQXDCameraController.so under $1
  local lib
  lib=$(find "$1" -name 'libQXDCameraController.so' | head -n 1)
  [ -n "$lib" ] || fail "no libQXDCameraController.so under $1"
  dirname "$lib"
}

check_libraries() { # $1: a folder with the installed libraries
  local dir=$1 name
  for name in QXDCameraController QXDPlatform; do
    local so=$dir/lib$name.so
    [ -L "$so" ] || fail "$so is not a link to the versioned library"
    # Whole outputs first: grep -q would close the pipe early.
    local dynamic resolved
    dynamic=$(readelf -d "$so")
    resolved=$(ldd "$so")
    grep -q "SONAME.*\[lib$name\.so\.1\]" <<<"$dynamic" || fail "lib$name has no SONAME lib$name.so.1"
    grep -q 'RUNPATH.*\[\$ORIGIN\]' <<<"$dynamic" || fail "lib$name has no RUNPATH \$ORIGIN"
    if grep -q 'not found' <<<"$resolved"; then
      echo "$resolved" >&2
      fail "lib$name has unresolved dependencies"
    fi
  done
  grep -q "libQXDPlatform.so.1 => $dir/" <<<"$(ldd "$dir/libQXDCameraController.so")" ||
    fail "libQXDCameraController does not find its sibling libQXDPlatform in $dir"
}

case $step in
install)
  rm -rf "$work"
  mkdir -p "$work"
  cmake --install "$build" --prefix "$prefix" >"$work/install.log"
  check_libraries "$(libdir_of "$prefix")"
  ;;

headers)
  libdir=$(libdir_of "$prefix")
  export PKG_CONFIG_PATH=$libdir/pkgconfig
  flags=$(pkg-config --cflags QXDCameraController) || fail "pkg-config does not know QXDCameraController"
  grep -q -- "-L$libdir" <<<"$(pkg-config --libs QXDCameraController)" ||
    fail "pkg-config's -L does not point at $libdir"
  root=$prefix/include/QXDCameraController
  [ -f "$root/QXDManualEditController.h" ] || fail "public headers are not at $root"
  # Each header alone, twice (its include guard must hold).
  find "$root" -name '*.h' | sort >"$work/headers.txt"
  [ "$(wc -l <"$work/headers.txt")" -gt 10 ] || fail "too few headers installed"
  export flags
  xargs -P 2 -I{} sh -c 'printf "#include \"%s\"\n#include \"%s\"\n" "$1" "$1" |
      c++ -std=c++20 -fPIC -fsyntax-only -Wall -Wextra -Werror $flags -x c++ - ||
      { echo "does not compile alone: $1" >&2; exit 255; }' _ {} <"$work/headers.txt"
  ;;

consumer)
  cmake -S "$source/examples/consumer" -B "$work/consumer" -G Ninja \
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_PREFIX_PATH="$prefix" >"$work/consumer-configure.log" ||
    { cat "$work/consumer-configure.log" >&2; fail "configuring the consumer failed"; }
  cmake --build "$work/consumer" -j 2 >"$work/consumer-build.log" ||
    { cat "$work/consumer-build.log" >&2; fail "building the consumer failed"; }
  output=$(cd "$work" && QT_QPA_PLATFORM=offscreen QXD_CAMERA=virtual "$work/consumer/qxd-consumer" \
    --snapshot "$work/consumer.png" 2>&1) || { echo "$output" >&2; fail "the consumer failed"; }
  echo "$output"
  grep -q "resources: $prefix/share/QXDCameraController/resources" <<<"$output" ||
    fail "the consumer did not find the installed resources"
  [ -s "$work/consumer.png" ] || fail "the consumer wrote no snapshot"
  ;;

deb)
  rm -rf "$work/deb" "$work/root"
  (cd "$build" && cpack -G DEB -B "$work/deb" >"$work/cpack.log") ||
    { cat "$work/cpack.log" >&2; fail "cpack failed"; }
  deb=$(find "$work/deb" -maxdepth 1 -name '*.deb' | head -n 1)
  [ -n "$deb" ] || fail "cpack made no .deb"
  dpkg-deb -x "$deb" "$work/root"
  for file in usr/include/QXDCameraController/QXDManualEditController.h \
    usr/include/QXDCameraController/platform/ui/View.h \
    usr/share/QXDCameraController/resources/Info.json \
    usr/share/QXDCameraController/resources/en.lproj/Localizable.strings; do
    [ -f "$work/root/$file" ] || fail "the package lacks /$file"
  done
  libdir=$(libdir_of "$work/root/usr")
  [ -f "$libdir/cmake/QXDCameraController/QXDCameraControllerConfig.cmake" ] ||
    fail "the package lacks the CMake package files"
  [ -f "$libdir/cmake/QXDCameraController/QXDCameraControllerConfigVersion.cmake" ] ||
    fail "the package lacks the CMake version file"
  [ -f "$libdir/pkgconfig/QXDCameraController.pc" ] || fail "the package lacks the pkg-config file"
  check_libraries "$libdir"
  depends=$(dpkg-deb -f "$deb" Depends)
  echo "Depends: $depends"
  for package in libqt6core6 libqt6gui6 libqt6multimedia6 libqt6widgets6 qt6-base-dev; do
    grep -q "$package" <<<"$depends" || fail "the package does not depend on $package"
  done
  ;;

*)
  fail "unknown step"
  ;;
esac
