#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building and testing need and that are
# missing. Pass "test" to include the test, benchmark and fuzzing tools, "bench" to include
# the HTTP load generators that bench/http-bench.sh drives.
set -euo pipefail
want=(cmake ninja-build g++ pkg-config libssl-dev openssl libcli11-dev libcpp-httplib-dev)
if [[ ${1:-} == test ]]; then
  want+=(googletest libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev
    clang-format python3 python3-cryptography)
fi
if [[ ${1:-} == bench ]]; then
  want+=(apache2-utils wrk)
fi

missing=()
for package in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
# python3-cryptography is only needed when no python3 on the PATH already has the module.
if [[ " ${missing[*]} " == *" python3-cryptography "* ]] &&
  python3 -c 'import cryptography' 2>/dev/null; then
  missing=("${missing[@]/python3-cryptography/}")
fi
missing=(${missing[@]})
if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "installing: ${missing[*]}"
sudo=""
if [[ $(id -u) -ne 0 ]]; then sudo=sudo; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
