#!/usr/bin/env bash
# Builds the library and runs the end-to-end OCSP exchange example.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build/example -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMOR_BUILD_TESTS=OFF >/dev/null
cmake --build build/example --target ocsp_exchange
./build/example/examples/ocsp_exchange
