#!/usr/bin/env bash
# Throughput, tail latency and CPU per request of `velmor-ocsp serve` against `openssl ocsp
# -port` (one process, and -multi 2) on the loopback, for the same request about the fixture
# leaf: without a nonce (GET, which serve answers from its cache and openssl signs every
# time) and with one (POST, signed per request by both). RSA-2048 and P-256 responder keys.
# The signing limit of the key on all cores (`openssl speed -multi $(nproc)`) is measured
# too, and the with-nonce throughput is given as a share of it. Prints one table.
#
# Clients: ApacheBench (`ab`) for every server, without keep-alive: openssl's responder
# speaks HTTP/1.0 and closes each connection, so it cannot be measured with keep-alive at
# all. serve is also measured with keep-alive, by `ab -k` and by wrk (two threads, one per
# core here; ab is single-threaded and may be the limit itself). Client and server share the
# machine's cores: the CPU each spends per request (user and system time over the run,
# divided by the requests answered; for openssl -multi, its worker processes') is in the
# table, and loopback TCP work done for the peer is counted where the kernel did it.
#
# Each case runs BENCH_REPEAT times on a fresh server; the table gives the median run's
# figures (by requests per second) and the lowest and highest throughput seen.
#
# Environment: VELMOR_BUILD (default build/release, built with the velmor_ocsp_tool target),
# BENCH_SECONDS (length of a run, default 3), BENCH_REQUESTS (most requests a run of ab,
# default 1000000), BENCH_REPEAT (default 3), BENCH_CONCURRENCY (default 8).
set -euo pipefail
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build=${VELMOR_BUILD:-$source_dir/build/release}
tool=$build/tools/velmor-ocsp
requests=${BENCH_REQUESTS:-1000000}
seconds=${BENCH_SECONDS:-3}
repeat=${BENCH_REPEAT:-3}
concurrency=${BENCH_CONCURRENCY:-8}
cores=$(nproc)
ticks=$(getconf CLK_TCK)

for program in ab wrk openssl ss; do
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

# The CPU time (user and system, in clock ticks) a server and its child processes spent
# so far.
server_ticks() {
  local total=0 pid stat
  for pid in "$1" $(ps -o pid= --ppid "$1"); do
    stat=$(cat "/proc/$pid/stat" 2>/dev/null) || continue
    # utime and stime: fields 14 and 15, counted after the command name, which is in
    # parentheses and may hold spaces.
    total=$((total + $(awk '{ print $12 + $13 }' <<<"${stat##*) }")))
  done
  echo "$total"
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

# velmor-ocsp serve for a family, on a port it picks. Prints "pid port". Each server writes
# to files of its own: the port is read from them before the server may have started.
start_serve() {
  local family=$1 pki=$source_dir/tests/data/pki/$1
  local log
  log=$(mktemp "$work/serve-$family.XXXXXX")
  "$tool" serve --port 0 --index "$pki/index.txt" --ca "$pki/inter.pem" \
    --rsigner "$pki/ocsp.pem" --rkey "$pki/ocsp.key.pem" >"$log.out" 2>"$log.err" &
  local pid=$! port=""
  for _ in $(seq 100); do
    port=$(sed -n 's|.*http://127\.0\.0\.1:\([0-9]*\)/.*|\1|p' "$log.out" 2>/dev/null)
    [[ -n $port ]] && break
    sleep 0.1
  done
  [[ -n $port ]] || {
    echo "http-bench: serve did not start: $(cat "$log.err")" >&2
    exit 1
  }
  echo "$pid $port"
}

# Runs the client against a server; prints "requests-per-second p99-ms failures requests
# client-cpu-seconds". Failures are non-2xx answers and broken exchanges (answers of
# another length than the first are not failures for ab: ECDSA signatures vary in length).
# client is ab or wrk; keepalive is yes or no (wrk always keeps alive).
measure() {
  local client=$1 keepalive=$2 url=$3 body=${4:-}
  local out=$work/client.out status=0
  local TIMEFORMAT='%U %S'
  if [[ $client == ab ]]; then
    local args=(-q -t "$seconds" -n "$requests" -c "$concurrency" -s 10 -e "$work/ab.csv")
    [[ -n $body ]] && args+=(-p "$body" -T application/ocsp-request)
    [[ $keepalive == yes ]] && args+=(-k)
    { time ab "${args[@]}" "$url" >"$out" 2>&1; } 2>"$work/client.time" || status=$?
  else
    local args=(-t 2 -c "$concurrency" -d "${seconds}s" --latency --timeout 10s)
    [[ -n $body ]] && args+=(-s "$work/post.lua")
    export BENCH_BODY=$body
    { time wrk "${args[@]}" "$url" >"$out" 2>&1; } 2>"$work/client.time" || status=$?
  fi
  if ((status != 0)); then
    echo "http-bench: $client failed on $url: $(cat "$out")" >&2
    exit 1
  fi
  local cpu
  cpu=$(awk '{ print $1 + $2 }' "$work/client.time")
  if [[ $client == ab ]]; then
    local rps p99 answered non2xx broken
    rps=$(awk '/^Requests per second/ { print $4 }' "$out")
    answered=$(awk '/^Complete requests/ { print $3 }' "$out")
    p99=$(awk -F, '$1 == 99 { print $2 }' "$work/ab.csv")
    non2xx=$(awk '/^Non-2xx responses/ { print $3 }' "$out")
    broken=$(sed -n 's/.*(Connect: \([0-9]*\), Receive: \([0-9]*\), Length: [0-9]*, Exceptions: \([0-9]*\)).*/\1 \2 \3/p' "$out" |
      awk '{ print $1 + $2 + $3 }')
    echo "$rps $p99 $((${non2xx:-0} + ${broken:-0})) $answered $cpu"
  else
    awk -v cpu="$cpu" '
      /Requests\/sec:/ { rps = $2 }
      /requests in/ { done = $1 }
      $1 == "99%" { p99 = $2 }
      /Non-2xx or 3xx responses:/ { failed += $5 }
      /Socket errors:/ { gsub(",", ""); failed += $4 + $6 + $8 + $10 }
      END {
        # wrk writes latencies with their unit: us, ms or s.
        value = p99 + 0
        if (p99 ~ /us$/) value /= 1000
        else if (p99 ~ /[^m]s$/) value *= 1000
        printf "%s %.3f %d %d %s\n", rps, value, failed, done, cpu
      }' "$out"
  fi
}

# The signatures a second the key makes on all cores.
signing_limit() {
  openssl speed -multi "$cores" -seconds 3 -mr "$1" 2>/dev/null |
    awk -F: -v tag="$2" '$1 == tag { value = $4 } END { printf "%.0f\n", value }'
}

# The CPU microseconds one signature takes, from one process (openssl speed divides by the
# CPU time it used, which other load on the machine changes less than the wall time).
signature_cpu() {
  openssl speed -seconds 3 -mr "$1" 2>/dev/null |
    awk -F: -v tag="$2" '$1 == tag { value = $4 } END { printf "%.1f\n", 1e6 / value }'
}

cat >"$work/post.lua" <<'EOF'
-- A POST of the request in the file BENCH_BODY names.
wrk.method = "POST"
wrk.headers["Content-Type"] = "application/ocsp-request"
local file = assert(io.open(os.getenv("BENCH_BODY"), "rb"))
wrk.body = file:read("*a")
file:close()
EOF

# One row of the table.
row() {
  printf '%-8s  %-16s  %-6s  %-4s  %-13s  %8s  %-13s  %6s  %6s  %6s  %6s\n' "$@"
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
    key=RSA-2048 limit=$(signing_limit rsa2048 +F2) signature_us=$(signature_cpu rsa2048 +F2)
  else
    key=P-256 limit=$(signing_limit ecdsap256 +F4) signature_us=$(signature_cpu ecdsap256 +F4)
  fi

  declare -A rps=() p99=() serverus=()
  # One case, BENCH_REPEAT runs on fresh servers: a run of ab may leave connections open that
  # it never sends on when its time is up, and openssl's responder would wait on such a
  # connection for ever.
  run() { # server client keepalive request
    local server=$1 client=$2 keepalive=$3 request=$4 runs=() started pid port before after
    local url body="" result
    for _ in $(seq "$repeat"); do
      case $server in
      openssl) started=$(start_openssl "$family") ;;
      "openssl -multi 2") started=$(start_openssl "$family" -multi 2) ;;
      serve) started=$(start_serve "$family") ;;
      esac
      read -r pid port <<<"$started"
      servers+=("$pid")
      sleep 0.2 # openssl -multi starts its workers after it listens
      if [[ $request == GET* ]]; then
        url="http://127.0.0.1:$port/$path"
      else
        url="http://127.0.0.1:$port/" body=$nonce
      fi
      before=$(server_ticks "$pid")
      result=$(measure "$client" "$keepalive" "$url" "$body")
      after=$(server_ticks "$pid")
      stop_server "$pid"
      runs+=("$result $((after - before))")
    done
    # rps p99 failures requests client-cpu server-ticks, sorted by rps; the median run.
    local sorted median low high failures
    sorted=$(printf '%s\n' "${runs[@]}" | sort -g -k1,1)
    median=$(sed -n "$(((repeat + 1) / 2))p" <<<"$sorted")
    low=$(head -n1 <<<"$sorted" | cut -d' ' -f1)
    high=$(tail -n1 <<<"$sorted" | cut -d' ' -f1)
    failures=$(awk '{ sum += $3 } END { print sum }' <<<"$sorted")
    local line
    line=$(awk -v t="$ticks" '{
      printf "%.0f %.2f %.1f %.1f", $1, $2, $6 / t * 1e6 / $4, $5 * 1e6 / $4 }' <<<"$median")
    local r p s c
    read -r r p s c <<<"$line"
    local id="$server|$client|$keepalive|$request"
    rps[$id]=$r p99[$id]=$p serverus[$id]=$s
    echo "  $key $server, $client, keep-alive $keepalive, $request: $r/s," \
      "p99 $p ms, $failures failed" >&2
    rows+=("$(row "$key" "$server" "$client" "$keepalive" "$request" "$r" \
      "$(printf '%.0f-%.0f' "$low" "$high")" "$p" "$failures" "$s" "$c")")
  }

  for request in "GET, no nonce" "POST, nonce"; do
    run openssl ab no "$request"
    run "openssl -multi 2" ab no "$request"
    run serve ab no "$request"
    run serve ab yes "$request"
    run serve wrk yes "$request"
  done

  best() { # the higher of two figures
    awk -v a="$1" -v b="$2" 'BEGIN { print (a > b ? a : b) }'
  }
  get_closed=${rps[serve|ab|no|GET, no nonce]}
  get_kept=$(best "${rps[serve|ab|yes|GET, no nonce]}" "${rps[serve|wrk|yes|GET, no nonce]}")
  post_kept=$(best "${rps[serve|ab|yes|POST, nonce]}" "${rps[serve|wrk|yes|POST, nonce]}")
  openssl_get=${rps[openssl|ab|no|GET, no nonce]}
  post_us=${serverus[serve|ab|yes|POST, nonce]}
  # The limit again from the CPU time of one signature: openssl speed -multi counts wall
  # time, and other load on the machine lowers it.
  cpu_limit=$(awk -v c="$cores" -v s="$signature_us" 'BEGIN { printf "%.0f", c * 1e6 / s }')
  summaries+=("$key: signing limit on $cores cores $limit/s (openssl speed -multi $cores); one signature takes $signature_us us of CPU, so $cpu_limit/s on $cores idle cores.")
  summaries+=("  Without nonce: serve ${get_closed}/s without keep-alive, $(awk -v a="$get_closed" -v b="$openssl_get" 'BEGIN { printf "%.1f", a / b }')x openssl ocsp -port (${openssl_get}/s, which cannot keep alive); with keep-alive ${get_kept}/s, $(awk -v a="$get_kept" -v b="$openssl_get" 'BEGIN { printf "%.1f", a / b }')x (target >= 20x). p99 ${p99[serve|ab|no|GET, no nonce]} ms, with keep-alive ${p99[serve|ab|yes|GET, no nonce]} ms (ab), ${p99[serve|wrk|yes|GET, no nonce]} ms (wrk) (target < 5 ms).")
  summaries+=("  With nonce: serve ${post_kept}/s with keep-alive, $(awk -v a="$post_kept" -v b="$limit" 'BEGIN { printf "%.0f", 100 * a / b }')% of the measured signing limit, $(awk -v a="$post_kept" -v b="$cpu_limit" 'BEGIN { printf "%.0f", 100 * a / b }')% of the idle cores' (target >= 90%). serve spends ${post_us} us CPU a request (ab -k), $signature_us us of it signing ($(awk -v a="$signature_us" -v b="$post_us" 'BEGIN { printf "%.0f", 100 * a / b }')%).")
  unset rps p99 serverus
done

echo
echo "loopback, concurrency $concurrency, runs of $seconds s (ab: at most $requests requests)," \
  "median of $repeat, $cores cores (load average: $(cut -d' ' -f1-3 /proc/loadavg))"
row key server client keep request "req/s" range "p99 ms" failed "srv us" "cli us"
for line in "${rows[@]}"; do
  echo "$line"
done
echo "(srv us, cli us: CPU microseconds a request, server and client)"
echo
for line in "${summaries[@]}"; do
  echo "$line"
done
