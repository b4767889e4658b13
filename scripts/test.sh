#!/usr/bin/env bash
# Sets up, builds and runs every test: the whole suite under ASan+UBSan, then the concurrency
# suites under TSan, then a warning-free Release build of every target, then every fuzz target
# for a short while. Idempotent; build trees are reused when present.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
bash "$ROOT/scripts/setup.sh" --tests

echo "== Formatting"
bash "$ROOT/scripts/format.sh"

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}"
jobs="$(nproc)"

configure() {  # configure DIR SANITIZER [extra cmake args]
  local dir="$1" sanitizer="$2"
  shift 2
  cmake -S "$ROOT" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCORVANE_SANITIZE="$sanitizer" \
    -DCORVANE_BUILD_UI="${CORVANE_BUILD_UI:-ON}" "$@" >/dev/null
}

echo "== ASan+UBSan: every suite"
configure "$ROOT/build-asan" address
cmake --build "$ROOT/build-asan" -j"$jobs"
ctest --test-dir "$ROOT/build-asan" -j"$jobs" --output-on-failure --timeout 600

echo "== TSan: concurrency suites"
# clang's TSan runtime understands the timed waits libstdc++ 12 makes; gcc 12's aborts on them.
configure "$ROOT/build-tsan" thread -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCORVANE_BUILD_UI=OFF
cmake --build "$ROOT/build-tsan" --target concurrency_tests -j"$jobs"
ctest --test-dir "$ROOT/build-tsan" -L "^concurrency$" -j"$jobs" --output-on-failure --timeout 600

# Optimisation brings warnings of its own (GCC's -Wmaybe-uninitialized at -O2 and above), so every
# target, tests and benchmarks included, is also built as Release; -Werror makes any warning fail.
# With the shared compiler cache only what changed compiles again. CORVANE_RELEASE_CHECK=0 skips it.
if [ "${CORVANE_RELEASE_CHECK:-1}" != 0 ]; then
  echo "== Release: every target compiles warning-free"
  cmake -S "$ROOT" -B "$ROOT/build-release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCORVANE_BUILD_TESTS=ON -DCORVANE_BUILD_BENCH=ON -DCORVANE_BUILD_UI="${CORVANE_BUILD_UI:-ON}" >/dev/null
  cmake --build "$ROOT/build-release" -j"$jobs"
fi

echo "== Fuzzing: every target for ${CORVANE_FUZZ_SECONDS:-10} s"
bash "$ROOT/scripts/fuzz.sh" "${CORVANE_FUZZ_SECONDS:-10}"
