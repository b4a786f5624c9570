#!/usr/bin/env bash
# Builds the library and the velmor-ocsp program and runs the end-to-end OCSP exchange over
# HTTP on this machine: a responder (`velmor-ocsp serve`) for the fixture RSA CA on
# 127.0.0.1, asked by `velmor-ocsp query` about a good, a revoked and an unknown certificate,
# by POST (with a nonce) and by GET (without), each answer checked by the response validator.
# Then the library example plays the same road inside one program, with RSA and ECDSA keys.
# Fails when any answer is not the one expected.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build/example -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELMOR_BUILD_TESTS=OFF >/dev/null
cmake --build build/example --target velmor_ocsp_tool ocsp_exchange
tool=build/example/tools/velmor-ocsp
pki=tests/data/pki/rsa

# A port nobody listens on, and the responder on it; stopped on every way out.
server=""
log=$(mktemp)
trap '[[ -n $server ]] && kill -TERM "$server" 2>/dev/null; rm -f "$log"' EXIT
listening() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
for attempt in 1 2 3 4 5; do
  port=$((20000 + RANDOM % 20000))
  listening "$port" && continue
  "$tool" serve --port "$port" --bind 127.0.0.1 --index "$pki/index.txt" --ca "$pki/inter.pem" \
    --rsigner "$pki/ocsp.pem" --rkey "$pki/ocsp.key.pem" --next-update 1 >"$log" 2>&1 &
  server=$!
  for _ in $(seq 50); do
    listening "$port" && break
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
  done
  listening "$port" && break
  server=""
done
if [[ -z $server ]]; then
  echo "the responder did not start:" >&2
  cat "$log" >&2
  exit 1
fi
echo "== responder: velmor-ocsp serve on http://127.0.0.1:$port (pid $server)"

# Each certificate with the exit code that says its status: 0 good, 1 revoked, 2 unknown.
failed=0
for method in --post --get; do
  for expected in leaf:0 leaf00:1 client:2; do
    cert=${expected%%:*}
    nonce=$([[ $method == --post ]] && echo --nonce || echo --no-nonce)
    echo "== client: velmor-ocsp query $method $nonce --cert $cert.pem"
    status=0
    "$tool" query --url "http://127.0.0.1:$port" "$method" "$nonce" --issuer "$pki/inter.pem" \
      --cert "$pki/$cert.pem" || status=$?
    if [[ $status != "${expected#*:}" ]]; then
      echo "   exit $status, expected ${expected#*:}" >&2
      failed=1
    fi
  done
done

kill -TERM "$server"
wait "$server" || { echo "the responder did not stop cleanly" >&2; failed=1; }
server=""
echo "== responder stopped"

echo "== the library example: one program plays client and responder"
./build/example/examples/ocsp_exchange || failed=1
exit $failed
