#!/usr/bin/env bash
# Throughput and tail latency of `velmor-ocsp serve` against `openssl ocsp -port` (one
# process, and -multi 2) on the loopback, for the same request about the fixture leaf:
# without a nonce (GET, which serve answers from its cache and openssl signs every time) and
# with one (POST, signed per request by both). RSA-2048 and P-256 responder keys. The
# signing limit of the key on all cores (`openssl speed -multi $(nproc)`) is measured too,
# and the with-nonce throughput is given as a share of it. Prints one table.
#
# The load generator is ApacheBench (`ab`), for every server alike: openssl's responder
# speaks HTTP/1.0 and closes each connection, which wrk does not handle. ab runs on the same
# machine and takes a core's share itself.
#
# Environment: VELMOR_BUILD (default build/release, built with the velmor_ocsp_tool target),
# BENCH_REQUESTS (most requests a run, default 20000), BENCH_SECONDS (longest run, default
# 5), BENCH_CONCURRENCY (default 8).
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMOR_BUILD:-$source_dir/build/release}
tool=$build/tools/velmor-ocsp
requests=${BENCH_REQUESTS:-20000}
seconds=${BENCH_SECONDS:-5}
concurrency=${BENCH_CONCURRENCY:-8}
cores=$(nproc)

for program in ab openssl ss; do
  command -v "$program" >/dev/null || {
    echo "http-bench: $program is missing (bash scripts/install-deps.sh bench)" >&2
    exit 1
  }
done
[[ -x $tool ]] || {
  echo "http-bench: $tool is missing; build the velmor_ocsp_tool target first" >&2
  exit 1
}

work=$(mktemp -d)
servers=()
cleanup() {
  for pid in "${servers[@]}"; do
    stop_server "$pid"
  done
  rm -rf "$work"
}
trap cleanup EXIT

# A TCP port nobody listens on.
free_port() {
  local port
  while :; do
    port=$((20000 + RANDOM % 30000))
    [[ -z $(ss -Hltn "sport = :$port") ]] && echo "$port" && return
  done
}

# Waits (10 s at most) until something listens on the port.
wait_listening() {
  for _ in $(seq 100); do
    [[ -n $(ss -Hltn "sport = :$1") ]] && return 0
    sleep 0.1
  done
  echo "http-bench: nothing listens on port $1" >&2
  exit 1
}

# Stops a server by its process id. openssl ocsp -multi stops its children itself (it made
# itself the leader of their process group, which goes too if it has to be killed).
stop_server() {
  kill -TERM "$1" 2>/dev/null || return 0
  for _ in $(seq 50); do
    kill -0 "$1" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -KILL -- "-$1" 2>/dev/null || kill -KILL "$1" 2>/dev/null || true
}

# openssl ocsp -port for a family; extra options follow. Prints "pid port".
start_openssl() {
  local family=$1 pki=$source_dir/tests/data/pki/$1 port
  shift
  port=$(free_port)
  openssl ocsp -port "$port" -index "$pki/index.txt" -CA "$pki/inter.pem" \
    -rsigner "$pki/ocsp.pem" -rkey "$pki/ocsp.key.pem" -ndays 1 "$@" \
    >"$work/openssl-$family.log" 2>&1 &
  local pid=$!
  wait_listening "$port"
  echo "$pid $port"
}

# velmor-ocsp serve for a family, on a port it picks. Prints "pid port".
start_serve() {
  local family=$1 pki=$source_dir/tests/data/pki/$1
  "$tool" serve --port 0 --index "$pki/index.txt" --ca "$pki/inter.pem" \
    --rsigner "$pki/ocsp.pem" --rkey "$pki/ocsp.key.pem" >"$work/serve-$family.out" \
    2>"$work/serve-$family.err" &
  local pid=$! port=""
  for _ in $(seq 100); do
    port=$(sed -n 's|.*http://127\.0\.0\.1:\([0-9]*\)/.*|\1|p' "$work/serve-$family.out")
    [[ -n $port ]] && break
    sleep 0.1
  done
  [[ -n $port ]] || {
    echo "http-bench: serve did not start: $(cat "$work/serve-$family.err")" >&2
    exit 1
  }
  echo "$pid $port"
}

# Runs ab; prints "requests-per-second p99-ms failures" (failures: non-2xx answers and
# broken exchanges; answers of another length than the first are not failures, as ECDSA
# signatures vary in length).
measure() {
  local url=$1 body=${2:-} keepalive=${3:-}
  local args=(-q -t "$seconds" -n "$requests" -c "$concurrency" -s 10 -e "$work/ab.csv")
  [[ -n $body ]] && args+=(-p "$body" -T application/ocsp-request)
  [[ -n $keepalive ]] && args+=(-k)
  local out
  out=$(ab "${args[@]}" "$url" 2>&1) || {
    echo "http-bench: ab failed on $url: $out" >&2
    exit 1
  }
  local rps p99 non2xx broken
  rps=$(awk '/^Requests per second/ { print $4 }' <<<"$out")
  p99=$(awk -F, '$1 == 99 { print $2 }' "$work/ab.csv")
  non2xx=$(awk '/^Non-2xx responses/ { print $3 }' <<<"$out")
  broken=$(sed -n 's/.*(Connect: \([0-9]*\), Receive: \([0-9]*\), Length: [0-9]*, Exceptions: \([0-9]*\)).*/\1 \2 \3/p' <<<"$out" |
    awk '{ print $1 + $2 + $3 }')
  echo "$rps $p99 $((${non2xx:-0} + ${broken:-0}))"
}

# The signatures a second the key makes on all cores.
signing_limit() {
  openssl speed -multi "$cores" -seconds 3 -mr "$1" 2>/dev/null |
    awk -F: -v tag="$2" '$1 == tag { value = $4 } END { printf "%.0f\n", value }'
}

rows=()
summaries=()
for family in rsa ec; do
  pki=$source_dir/tests/data/pki/$family
  plain=$work/plain-$family.der
  nonce=$work/nonce-$family.der
  openssl ocsp -issuer "$pki/inter.pem" -cert "$pki/leaf.pem" -no_nonce -reqout "$plain" >/dev/null
  openssl ocsp -issuer "$pki/inter.pem" -cert "$pki/leaf.pem" -reqout "$nonce" >/dev/null
  path=$(base64 -w0 "$plain" | sed 's|+|%2B|g; s|/|%2F|g; s|=|%3D|g')
  if [[ $family == rsa ]]; then
    key=RSA-2048 limit=$(signing_limit rsa2048 +F2)
  else
    key=P-256 limit=$(signing_limit ecdsap256 +F4)
  fi

  declare -A rps=() p99=()
  run() { # server request url [body] [keepalive]
    local server=$1 request=$2 result failures
    shift 2
    result=$(measure "$@")
    read -r "rps[$server $request]" "p99[$server $request]" failures <<<"$result"
    echo "  $key $server $request: ${rps[$server $request]}/s, p99 ${p99[$server $request]} ms," \
      "$failures failed" >&2
    rows+=("$(printf '%-9s  %-17s  %-24s  %9s  %8s  %6s' "$key" "$server" "$request" \
      "${rps[$server $request]}" "${p99[$server $request]}" "$failures")")
  }

  # A fresh server for each run: ab may leave connections open that it never sends on when
  # its time is up, and openssl's responder would wait on such a connection for ever.
  for server in "openssl" "openssl -multi 2" "serve"; do
    for request in "GET, no nonce" "GET, no nonce, keep-alive" "POST, nonce" \
      "POST, nonce, keep-alive"; do
      if [[ $server != serve && $request == *keep-alive ]]; then
        continue # openssl's responder closes every connection
      fi
      case $server in
      openssl) started=$(start_openssl "$family") ;;
      "openssl -multi 2") started=$(start_openssl "$family" -multi 2) ;;
      serve) started=$(start_serve "$family") ;;
      esac
      read -r pid port <<<"$started"
      [[ -n ${port:-} ]] || exit 1
      servers+=("$pid")
      keepalive=""
      [[ $request == *keep-alive ]] && keepalive=yes
      if [[ $request == GET* ]]; then
        run "$server" "$request" "http://127.0.0.1:$port/$path" "" "$keepalive"
      else
        run "$server" "$request" "http://127.0.0.1:$port/" "$nonce" "$keepalive"
      fi
      stop_server "$pid"
    done
  done

  cached=$(awk -v a="${rps[serve GET, no nonce]}" -v b="${rps[openssl GET, no nonce]}" \
    'BEGIN { printf "%.1f", a / b }')
  share=$(awk -v a="${rps[serve POST, nonce]}" -v b="$limit" 'BEGIN { printf "%.0f", 100 * a / b }')
  summaries+=("$key: signing limit on $cores cores $limit/s; serve GET without nonce ${cached}x openssl ocsp -port (target >= 20x); serve POST with nonce ${share}% of the signing limit (target >= 90%); serve GET p99 ${p99[serve GET, no nonce]} ms, with keep-alive ${p99[serve GET, no nonce, keep-alive]} ms (target < 5 ms)")
  unset rps p99
done

echo
echo "loopback, concurrency $concurrency, at most $requests requests or $seconds s a run," \
  "$cores cores (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
printf '%-9s  %-17s  %-24s  %9s  %8s  %6s\n' key server request "req/s" "p99 ms" failed
for line in "${rows[@]}"; do
  echo "$line"
done
echo
for line in "${summaries[@]}"; do
  echo "$line"
done
