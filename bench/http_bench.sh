#!/usr/bin/env bash
# Requests per second and p99 latency of the HTTP server beside nginx, in the same run.
#
#   bench/http_bench.sh [build dir]          # default build/release; DURATION=10 CONNECTIONS=32
#
# Both servers run in turn on CPU 0 (taskset), wrk on CPU 1 with keep-alive connections, on
# loopback only: http_bench_server answers a small GET from a trivial handler, nginx serves a file
# of the same size. nginx runs as a plain process with its own prefix and configuration in a
# temporary directory, and both servers are stopped at the end.
set -euo pipefail

build_dir=${1:-build/release}
duration=${DURATION:-10}
connections=${CONNECTIONS:-32}
server_bin=$build_dir/bin/http_bench_server
[ -x "$server_bin" ] || { echo "missing: $server_bin (build with -DSDI_TAP_BENCHMARKS=ON)" >&2; exit 1; }

work=$(mktemp -d)
server_pid=
nginx_pid=
cleanup() {
    [ -n "$server_pid" ] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null || true
    [ -n "$nginx_pid" ] && kill "$nginx_pid" 2>/dev/null && wait "$nginx_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
source "$(dirname "$0")/http_bench_lib.sh"

# The server under test.
taskset -c 0 "$server_bin" >"$work/server.out" 2>"$work/server.err" &
server_pid=$!
for _ in $(seq 100); do
    grep -q '^port ' "$work/server.out" 2>/dev/null && break
    sleep 0.1
done
server_port=$(awk '/^port / { print $2 }' "$work/server.out")
[ -n "$server_port" ] || { echo "http_bench_server did not start" >&2; cat "$work/server.err" >&2; exit 1; }
read -r server_rate server_p99 server_per_cpu < <(run_wrk "http://127.0.0.1:$server_port/bench/hello" "$server_pid")
kill "$server_pid"; wait "$server_pid" 2>/dev/null || true; server_pid=

# nginx with the same small answer.
nginx_port=$(free_port)
mkdir -p "$work/www"
printf '{"value": 42}\n' >"$work/www/hello"
start_nginx "$nginx_port"
read -r nginx_rate nginx_p99 nginx_per_cpu < <(run_wrk "http://127.0.0.1:$nginx_port/hello" "$nginx_pid")

uptime
printf '%-18s %12s %10s %16s\n' "server" "requests/s" "p99 ms" "requests/CPU s"
printf '%-18s %12s %10s %16s\n' "http_bench_server" "$server_rate" "$server_p99" "$server_per_cpu"
printf '%-18s %12s %10s %16s\n' "nginx" "$nginx_rate" "$nginx_p99" "$nginx_per_cpu"
awk -v a="$server_rate" -v b="$nginx_rate" -v c="$server_per_cpu" -v d="$nginx_per_cpu" 'BEGIN {
    printf "ratio (server / nginx): %.2f requests/s (goal >= 0.80), %.2f requests per CPU second\n", a / b, c / d }'
