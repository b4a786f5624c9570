#!/usr/bin/env bash
# Measures the library as an application gets it: builds it in Release, installs it into a
# prefix under build/, builds bench/shared against that installed tree (find_package, the
# Velmor::ocsp target) and runs the program. Arguments go to the program (--rounds=N,
# --batch-us=MICROSECONDS, --filter=TEXT).
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
library_build=$source_dir/build/bench-shared-lib
prefix=$source_dir/build/bench-shared-prefix
consumer_build=$source_dir/build/bench-shared-consumer

cmake -S "$source_dir" -B "$library_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DVELMOR_BUILD_TESTS=OFF -DVELMOR_BUILD_EXAMPLES=OFF -DVELMOR_BUILD_TOOLS=OFF >/dev/null
cmake --build "$library_build"
rm -rf "$prefix"
cmake --install "$library_build" --prefix "$prefix" >/dev/null

cmake -S "$source_dir/bench/shared" -B "$consumer_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$consumer_build"

# The program must run against the library just installed, not another copy on the system.
program=$consumer_build/message_bench
loaded=$(ldd "$program" | awk '$1 == "libvelmor-ocsp.so.1" { print $3 }')
case $loaded in
"$prefix"/*) echo "library: $loaded" ;;
*)
  echo "message_bench loads libvelmor-ocsp.so.1 from '${loaded}', not from $prefix" >&2
  exit 1
  ;;
esac
"$program" "$@"
