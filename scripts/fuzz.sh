#!/usr/bin/env bash
# Builds the libFuzzer targets (the fuzz preset: clang with AddressSanitizer
# and UndefinedBehaviorSanitizer) and runs each for a given time on its seed
# corpus. Not part of CI.
#
#   scripts/fuzz.sh [seconds-per-target] [target...]
#
# Targets: visual_format interface_file string_table info_dictionary
# image_loading (default: all), 600 seconds each unless told. New inputs go
# to build/fuzz/corpus/<target> (the seeds in fuzz/corpus are not touched);
# a crash leaves its input as build/fuzz/artifacts/<target>/crash-* and ends
# the run with a failure. Add a reproducer of every fixed finding to
# fuzz/corpus/<target> and a regression test beside the code it broke.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

seconds="${1:-600}"
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(visual_format interface_file string_table info_dictionary image_loading)
fi

build() {
  cmake --preset fuzz >/dev/null
  local names=()
  for t in "${targets[@]}"; do names+=("fuzz_$t"); done
  if command -v qxd-build >/dev/null; then
    qxd-build build/fuzz --target "${names[@]}"
  else
    cmake --build --preset fuzz --target "${names[@]}"
  fi
}
build

export QT_QPA_PLATFORM=offscreen
# detect_odr_violation=0: the duplicate QtWidgetHost vtable of the clang build
# (see CMakeLists.txt) is identical in both places.
export ASAN_OPTIONS="detect_leaks=0:detect_odr_violation=0:${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:${UBSAN_OPTIONS:-}"
status=0
for t in "${targets[@]}"; do
  corpus="build/fuzz/corpus/$t"
  artifacts="build/fuzz/artifacts/$t/"
  mkdir -p "$corpus" "$artifacts"
  echo "fuzz: $t for ${seconds}s"
  if ! "build/fuzz/fuzz/fuzz_$t" "$corpus" "fuzz/corpus/$t" \
      -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=4096 -timeout=20 \
      -artifact_prefix="$artifacts" -print_final_stats=1 2>"build/fuzz/$t.log"; then
    echo "fuzz: $t found a problem; see build/fuzz/$t.log and $artifacts" >&2
    status=1
  fi
  grep -E "^stat::number_of_executed_units|^stat::new_units_added" "build/fuzz/$t.log" | sed "s/^/  /" || true
done
exit $status
