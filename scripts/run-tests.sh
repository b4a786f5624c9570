#!/usr/bin/env bash
# Builds and runs every test: formatting, a Release build with warnings as errors and the
# whole suite, a short run of every fuzzer, then the whole suite again under
# AddressSanitizer and UndefinedBehaviorSanitizer. Ends with ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh test
jobs=$(nproc)

echo "== formatting"
bash scripts/check-format.sh

echo "== release build and tests"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMOR_WERROR=ON \
  -DVELMOR_BUILD_BENCH=ON >/dev/null
cmake --build build/release -j "$jobs"
ctest --test-dir build/release -j "$jobs" --output-on-failure

if [[ -d fuzz ]] && compgen -G "fuzz/*.cpp" >/dev/null; then
  echo "== fuzzing"
  bash scripts/run-fuzzers.sh "${VELMOR_FUZZ_SECONDS:-30}"
fi

echo "== sanitizer build and tests"
cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMOR_WERROR=ON \
  -DVELMOR_SANITIZE=ON -DVELMOR_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/sanitize -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build/sanitize -j "$jobs" --output-on-failure
