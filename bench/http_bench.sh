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
for tool in taskset wrk nginx python3; do
    command -v "$tool" >/dev/null || { echo "missing: $tool" >&2; exit 1; }
done
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

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

wait_for_port() {
    for _ in $(seq 100); do
        python3 -c "import socket,sys; socket.create_connection(('127.0.0.1', $1), 0.2)" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "nothing listens on port $1" >&2
    exit 1
}

cpu_ticks() {
    awk '{ print $14 + $15 }' "/proc/$1/stat"
}

# Prints "<requests per second> <p99 in ms> <requests per CPU second of the server>" for the server
# with process id $2. The last figure holds on a busy machine, where the rate depends on what else
# runs on CPU 0.
run_wrk() {
    taskset -c 1 wrk -t1 -c"$connections" -d2s "$1" >/dev/null
    local before after
    before=$(cpu_ticks "$2")
    taskset -c 1 wrk -t1 -c"$connections" -d"${duration}s" --latency "$1" >"$work/wrk.out"
    after=$(cpu_ticks "$2")
    awk -v ticks=$((after - before)) -v hz="$(getconf CLK_TCK)" '
        /Requests\/sec:/ { rate = $2 }
        / requests in / { total = $1 }
        $1 == "99%" {
            value = $2; unit = value; sub(/[0-9.]+/, "", unit); sub(/[a-z]+$/, "", value)
            p99 = unit == "us" ? value / 1000 : unit == "s" ? value * 1000 : value
        }
        END { printf "%.0f %.3f %.0f\n", rate, p99, (ticks > 0 ? total * hz / ticks : 0) }' "$work/wrk.out"
}

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
mkdir -p "$work/www" "$work/logs" "$work/tmp"
printf '{"value": 42}\n' >"$work/www/hello"
cat >"$work/nginx.conf" <<CONF
daemon off;
master_process off;
worker_processes 1;
error_log $work/logs/error.log;
pid $work/nginx.pid;
events { worker_connections 1024; }
http {
    access_log off;
    client_body_temp_path $work/tmp/body;
    proxy_temp_path $work/tmp/proxy;
    fastcgi_temp_path $work/tmp/fastcgi;
    uwsgi_temp_path $work/tmp/uwsgi;
    scgi_temp_path $work/tmp/scgi;
    keepalive_requests 1000000;
    server {
        listen 127.0.0.1:$nginx_port;
        location / { root $work/www; default_type application/json; }
    }
}
CONF
taskset -c 0 nginx -p "$work" -c "$work/nginx.conf" 2>"$work/nginx.err" &
nginx_pid=$!
wait_for_port "$nginx_port"
read -r nginx_rate nginx_p99 nginx_per_cpu < <(run_wrk "http://127.0.0.1:$nginx_port/hello" "$nginx_pid")

uptime
printf '%-18s %12s %10s %16s\n' "server" "requests/s" "p99 ms" "requests/CPU s"
printf '%-18s %12s %10s %16s\n' "http_bench_server" "$server_rate" "$server_p99" "$server_per_cpu"
printf '%-18s %12s %10s %16s\n' "nginx" "$nginx_rate" "$nginx_p99" "$nginx_per_cpu"
awk -v a="$server_rate" -v b="$nginx_rate" -v c="$server_per_cpu" -v d="$nginx_per_cpu" 'BEGIN {
    printf "ratio (server / nginx): %.2f requests/s (goal >= 0.80), %.2f requests per CPU second\n", a / b, c / d }'
