#!/usr/bin/env bash
# Builds every libFuzzer target with clang and runs each for the given number of seconds
# (default 30), starting from its committed seed corpus in fuzz/corpus/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
build=build/fuzz
CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELMOR_BUILD_FUZZ=ON -DVELMOR_BUILD_TESTS=OFF -DVELMOR_BUILD_EXAMPLES=OFF >/dev/null
# Only the fuzz targets: the shared library's objects carry the fuzzer instrumentation,
# which a plain shared-library link cannot resolve.
mapfile -t names < <(for f in fuzz/*_fuzz.cpp; do basename "$f" .cpp; done)
cmake --build "$build" -j "$(nproc)" --target "${names[@]}"

for name in "${names[@]}"; do
  target=$build/fuzz/$name
  work=$build/corpus/$name
  mkdir -p "$work"
  seeds=fuzz/corpus/$name
  [[ -d $seeds ]] && cp -n "$seeds"/* "$work"/ 2>/dev/null || true
  echo "-- $name for ${seconds}s"
  "$target" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=10 \
    -print_final_stats=1 "$work" 2>"$build/$name.log" || {
    tail -n 60 "$build/$name.log"
    echo "fuzzer $name failed"
    exit 1
  }
  grep -E 'stat::number_of_executed_units|Done' "$build/$name.log" | tail -n 2
done
