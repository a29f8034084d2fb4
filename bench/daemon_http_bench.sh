#!/usr/bin/env bash
# The daemon's REST service beside nginx, in the same run: GET of the service tree's root and of one
# leaf from a real sdi_tap in pattern mode, and the same JSON bytes as static files from nginx.
#
#   flock /tmp/sdi_tap_e2e.lock bench/daemon_http_bench.sh [build dir]
#       # default build/release; DURATION=10 CONNECTIONS=32 VIDEOFORMAT=0 LEAF=AudioSampling/1/DataRate
#
# Each server runs in turn on CPU 0 (taskset; the daemon with its pattern loop, which shares that
# CPU), wrk on CPU 1 with keep-alive connections, on loopback only. The daemon runs on SDI port 0
# with an installation root in a temporary directory; everything is stopped and removed at the end.
set -euo pipefail

build_dir=${1:-build/release}
duration=${DURATION:-10}
connections=${CONNECTIONS:-32}
video_format=${VIDEOFORMAT:-0}
leaf=${LEAF:-AudioSampling/1/DataRate}
daemon_bin=$build_dir/bin/sdi_tap
[ -x "$daemon_bin" ] || { echo "missing: $daemon_bin" >&2; exit 1; }

work=$(mktemp -d)
daemon_pid=
nginx_pid=
cleanup() {
    [ -n "$daemon_pid" ] && kill -TERM "$daemon_pid" 2>/dev/null && wait "$daemon_pid" 2>/dev/null || true
    [ -n "$nginx_pid" ] && kill "$nginx_pid" 2>/dev/null && wait "$nginx_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
source "$(dirname "$0")/http_bench_lib.sh"

# The daemon, with its tree on a free loopback port.
mkdir -p "$work/registry/SOFTWARE/FirmwareAgent/CurrentVersion" "$work/root/App/Bin"
echo "$work/root/App/Bin" >"$work/registry/SOFTWARE/FirmwareAgent/CurrentVersion/Pathname"
daemon_port=$(free_port)
SDI_TAP_REGISTRY=$work/registry SDI_TAP_HTTP_BASE_URL=http://127.0.0.1:$daemon_port \
    taskset -c 0 "$daemon_bin" -sdiport 0 -videoformat "$video_format" -pattern >"$work/daemon.out" 2>&1 &
daemon_pid=$!
wait_for_port "$daemon_port"
root_url=http://127.0.0.1:$daemon_port/sdi_tap/0
mkdir -p "$work/www"
curl -sf "$root_url" -o "$work/www/root.json"
curl -sf "$root_url/$leaf" -o "$work/www/leaf.json"
read -r root_rate root_p99 root_per_cpu < <(run_wrk "$root_url" "$daemon_pid")
read -r leaf_rate leaf_p99 leaf_per_cpu < <(run_wrk "$root_url/$leaf" "$daemon_pid")
kill -TERM "$daemon_pid"; wait "$daemon_pid" 2>/dev/null || true; daemon_pid=

# nginx with the same bytes.
nginx_port=$(free_port)
start_nginx "$nginx_port"
read -r nginx_root_rate nginx_root_p99 nginx_root_per_cpu < <(run_wrk "http://127.0.0.1:$nginx_port/root.json" "$nginx_pid")
read -r nginx_leaf_rate nginx_leaf_p99 nginx_leaf_per_cpu < <(run_wrk "http://127.0.0.1:$nginx_port/leaf.json" "$nginx_pid")

uptime
echo "root: $(wc -c <"$work/www/root.json") bytes; leaf $leaf: $(wc -c <"$work/www/leaf.json") bytes"
printf '%-14s %12s %10s %16s\n' "GET" "requests/s" "p99 ms" "requests/CPU s"
printf '%-14s %12s %10s %16s\n' "sdi_tap root" "$root_rate" "$root_p99" "$root_per_cpu"
printf '%-14s %12s %10s %16s\n' "nginx root" "$nginx_root_rate" "$nginx_root_p99" "$nginx_root_per_cpu"
printf '%-14s %12s %10s %16s\n' "sdi_tap leaf" "$leaf_rate" "$leaf_p99" "$leaf_per_cpu"
printf '%-14s %12s %10s %16s\n' "nginx leaf" "$nginx_leaf_rate" "$nginx_leaf_p99" "$nginx_leaf_per_cpu"
awk -v a="$root_rate" -v b="$nginx_root_rate" -v c="$root_per_cpu" -v d="$nginx_root_per_cpu" 'BEGIN {
    printf "root ratio (sdi_tap / nginx): %.2f requests/s (goal >= 0.60), %.2f requests per CPU second\n", a / b, c / d }'
awk -v a="$leaf_rate" -v b="$nginx_leaf_rate" -v c="$leaf_per_cpu" -v d="$nginx_leaf_per_cpu" 'BEGIN {
    printf "leaf ratio (sdi_tap / nginx): %.2f requests/s (goal >= 0.80), %.2f requests per CPU second\n", a / b, c / d }'
