#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs one small program
# against that installed tree twice: through CMake's find_package and through pkg-config.
set -euo pipefail
source_dir=$1 build_dir=$2 work=$3
flags=${VELMOR_CONSUMER_FLAGS:-}

rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"

for header in "$prefix"/include/pki/ocsp/*.h; do
  for std in c++17 c++20; do
    echo "#include <pki/ocsp/$(basename "$header")>" |
      g++ -std=$std -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I"$prefix/include" -x c++ - ||
      { echo "public header $(basename "$header") does not compile as $std"; exit 1; }
  done
  # The umbrella header must bring in every public header.
  [[ $(basename "$header") == ocsp.h ]] ||
    grep -q "#include <pki/ocsp/$(basename "$header")>" "$prefix/include/pki/ocsp/ocsp.h" ||
    { echo "ocsp.h does not include $(basename "$header")"; exit 1; }
done

libdir=$(dirname "$(find "$prefix" -name 'libvelmor-ocsp.so.1' | head -n 1)")

cmake -S "$source_dir/tests/consumer/project" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" >"$work/configure.log"
cmake --build "$work/cmake-build" >"$work/build.log"
LD_LIBRARY_PATH=$libdir "$work/cmake-build/consumer" | tee "$work/cmake-run.txt"

export PKG_CONFIG_PATH=$libdir/pkgconfig
g++ -std=c++17 $flags "$source_dir/tests/consumer/project/consumer.cpp" -o "$work/pc-consumer" \
  $(pkg-config --cflags --libs velmor-ocsp)
LD_LIBRARY_PATH=$libdir "$work/pc-consumer" | tee "$work/pc-run.txt"

grep -q '^consumer ok$' "$work/cmake-run.txt"
grep -q '^consumer ok$' "$work/pc-run.txt"

# The program, when it was built, runs from the installed tree and finds the installed library
# on its own.
if [[ -e "$prefix/bin/velmor-ocsp" ]]; then
  [[ $("$prefix/bin/velmor-ocsp" --version) == "velmor-ocsp 1.0.0" ]] ||
    { echo "the installed velmor-ocsp does not run"; exit 1; }
  used=$(ldd "$prefix/bin/velmor-ocsp" | awk '/libvelmor-ocsp/ { print $3 }')
  [[ $(readlink -f "$used") == $(readlink -f "$libdir/libvelmor-ocsp.so.1") ]] ||
    { echo "the installed velmor-ocsp does not use the installed library"; exit 1; }
fi
