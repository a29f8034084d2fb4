# Shared pieces of the HTTP benchmarks (bench/http_bench.sh, bench/daemon_http_bench.sh); sourced, not run.
# The caller sets `work` (a temporary directory it removes) and `connections`, `duration`.

for tool in taskset wrk nginx python3 curl; do
    command -v "$tool" >/dev/null || { echo "missing: $tool" >&2; exit 1; }
done

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

wait_for_port() {
    for _ in $(seq 200); do
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
# runs on CPU 0. wrk runs on CPU 1 with keep-alive connections.
run_wrk() {
    taskset -c 1 wrk -t1 -c"$connections" -d2s "$1" >/dev/null
    local before after
    before=$(cpu_ticks "$2")
    taskset -c 1 wrk -t1 -c"$connections" -d"${duration}s" --latency "$1" >"$work/wrk.out"
    after=$(cpu_ticks "$2")
    awk -v ticks=$((after - before)) -v hz="$(getconf CLK_TCK)" '
        /Requests\/sec:/ { rate = $2 }
        / requests in / { total = $1 }
        /Non-2xx or 3xx responses:/ { bad = $NF }
        $1 == "99%" {
            value = $2; unit = value; sub(/[0-9.]+/, "", unit); sub(/[a-z]+$/, "", value)
            p99 = unit == "us" ? value / 1000 : unit == "s" ? value * 1000 : value
        }
        END {
            if (bad > 0) { print "wrk: " bad " answers were not 2xx" > "/dev/stderr"; exit 1 }
            printf "%.0f %.3f %.0f\n", rate, p99, (ticks > 0 ? total * hz / ticks : 0)
        }' "$work/wrk.out"
}

# Starts nginx on CPU 0 serving the files of $work/www on port $1; sets nginx_pid.
start_nginx() {
    mkdir -p "$work/www" "$work/logs" "$work/tmp"
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
        listen 127.0.0.1:$1;
        location / { root $work/www; default_type application/json; }
    }
}
CONF
    taskset -c 0 nginx -p "$work" -c "$work/nginx.conf" -e "$work/logs/error.log" 2>"$work/nginx.err" &
    nginx_pid=$!
    wait_for_port "$1"
}
