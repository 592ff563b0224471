#!/usr/bin/env bash
# End to end on loopback: a simulated board, one zefo-monitor writing a textfile for the real
# node_exporter (textfile collector only) and serving /metrics itself, and a real Prometheus
# server scraping both every 2 s (asking for OpenMetrics and gzip, as every scrape of it does:
# the negotiation and the coding are tested here, with the real client). Passes when the server
# holds series of every zefo_ metric through both paths, every kind of figure among them, and
# the total memory it stored equals the machine's MemTotal; and when a second zefo-monitor,
# serving over TLS with basic auth from a web configuration file, is scraped (what a wrong
# password or plain HTTP get is tests/http/http_hostile_test.py's). Then, over 60 s of traffic
# it makes (TCP over loopback, writes to the disk, a steady load on the simulated DDR ports),
# rate() of the network, disk and DDR counters agrees with it within 5 %; every query of
# prometheus/zefo-dashboard.json returns data (the rules of prometheus/ loaded); a process that
# exits leaves the latest scrape; and the OpenMetrics reference parser
# (python3-prometheus-client) reads zefo-monitor's /metrics.
# Installs prometheus, prometheus-node-exporter (large, hence not in scripts/bootstrap) and
# python3-prometheus-client when missing. Everything it starts is stopped on exit.
#
#   tests/e2e/prometheus_e2e.sh [BUILD_DIR]     (default build/debug)
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
build=$(realpath "${1:-$source_dir/build/debug}")
monitor=$build/tools/zefo-monitor
board_sim=$source_dir/tools/board-sim/board-sim
prometheus=/usr/bin/prometheus
node_exporter=/usr/bin/prometheus-node-exporter
[[ -x $monitor ]] || { echo "e2e: no zefo-monitor in $build/tools (build it first)" >&2; exit 2; }

# Debian starts an installed package's service through invoke-rc.d. Without systemd that would
# run the init script and leave a server on 9090 and an exporter on 9100, so a policy that
# forbids starting services is put in place for the install when there is none.
# shellcheck source=scripts/lib/apt-ensure.sh
. "$source_dir/scripts/lib/apt-ensure.sh"
install_packages() {
  [[ -x $prometheus && -x $node_exporter ]] &&
    /usr/bin/python3 -c 'import prometheus_client' 2>/dev/null && return 0
  local as_root=() policy=/usr/sbin/policy-rc.d made_policy=0 code=0
  ((EUID == 0)) || as_root=(sudo)
  if [[ ! -e $policy ]]; then
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
    made_policy=1
  fi
  # python3-prometheus-client: the OpenMetrics reference parser, for the system's Python.
  apt_ensure prometheus prometheus-node-exporter python3-prometheus-client </dev/null >/dev/null ||
    code=$?
  ((made_policy == 0)) || "${as_root[@]}" rm -f "$policy"
  return "$code"
}
install_packages

# Four free loopback ports: bound to port 0, read back, released.
read -r prom_port node_port zefo_port tls_port < <(python3 -c '
import socket
socks = [socket.create_server(("127.0.0.1", 0)) for _ in range(4)]
print(*(s.getsockname()[1] for s in socks))')

work=$(mktemp -d)
pids=()
cleanup() {
  local pid
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill -TERM "${pids[i]}" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# The simulated board gives the BPU, thermal zones, CPU frequencies and a DDR device; the rest
# comes from this machine's /proc.
mkfifo "$work/sim.out"
# Its DDR device samples once a second, at a steady 1000 MiB/s read and 500 written per port.
python3 "$board_sim" "$work/board" --period 200 --bpu-cores 2 --ddr-devices 1 --zones 3 \
  --cpus "$(nproc)" --ddr-record-ms 1000 --ddr-load 1000,500 --clean >"$work/sim.out" &
pids+=($!)
read -r -t 30 ready <"$work/sim.out" || true
[[ $ready == "board-sim: ready"* ]] || { echo "e2e: board-sim did not come up" >&2; exit 1; }

mkdir "$work/textfile"
# The one process the monitor exports (--metrics-processes registered): registered in a
# registration directory of the test's own, and ended halfway.
sleep 100000 &
child=$!
pids+=("$child")
mkdir -p "$work/reg/$child"
echo "$child" >"$work/reg/$child/pid"
echo e2e-child >"$work/reg/$child/name"
# One monitor feeds both paths, so the DDR device's records are not split between two readers.
# A .prom file with --format openmetrics is written in the text format node_exporter reads.
"$monitor" --sysfs "$work/board/sys" --devfs "$work/board/dev" --period 1000 \
  --regdir "$work/reg" --metrics-processes registered \
  --format openmetrics --output "$work/textfile/zefo.prom" \
  --listen "127.0.0.1:$zefo_port" 2>"$work/zefo.err" &
pids+=($!)
# The guarded endpoint: a certificate for 127.0.0.1 made here, and a bcrypt hash of the password.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 \
  -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout "$work/board.key" \
  -out "$work/board.crt" 2>/dev/null
hash=$(python3 -W ignore -c 'import crypt; print(crypt.crypt("right", crypt.mksalt(crypt.METHOD_BLOWFISH)))')
cat >"$work/web.yml" <<YAML
tls_server_config:
  cert_file: board.crt
  key_file: board.key
basic_auth_users:
  prometheus: '$hash'
YAML
mkdir "$work/nosys"
# It watches only this script's shell, so that its scrapes stay small.
"$monitor" --sysfs "$work/nosys" --pid $$ --period 500 --listen "127.0.0.1:$tls_port" \
  --web-config "$work/web.yml" 2>"$work/zefo-tls.err" &
pids+=($!)
"$node_exporter" --collector.disable-defaults --collector.textfile \
  --collector.textfile.directory="$work/textfile" \
  --web.listen-address="127.0.0.1:$node_port" >"$work/node.log" 2>&1 &
pids+=($!)
cat >"$work/prometheus.yml" <<YAML
global:
  scrape_interval: 2s
  scrape_timeout: 2s
  evaluation_interval: 2s
rule_files: ["$source_dir/prometheus/zefo-rules.yml", "$source_dir/prometheus/zefo-alerts.yml"]
scrape_configs:
  - job_name: zefo
    static_configs: [{targets: ["127.0.0.1:$zefo_port"]}]
  - job_name: node
    static_configs: [{targets: ["127.0.0.1:$node_port"]}]
  - job_name: tls
    scheme: https
    tls_config: {ca_file: "$work/board.crt"}
    basic_auth: {username: prometheus, password: right}
    static_configs: [{targets: ["127.0.0.1:$tls_port"]}]
YAML
"$prometheus" --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/tsdb" \
  --web.listen-address="127.0.0.1:$prom_port" >"$work/prometheus.log" 2>&1 &
pids+=($!)

# Waits for every target's scrapes, then measures rates against traffic it makes.
status=0
/usr/bin/python3 "$here/prometheus_rates.py" "$prom_port" "$zefo_port" "$work" "$child" \
  "$source_dir/prometheus/zefo-dashboard.json" || status=$?
if ((status != 0)); then
  for log in zefo.err zefo-tls.err node.log prometheus.log; do
    echo "--- $log (last lines)" >&2
    tail -n 15 "$work/$log" >&2 || true
  done
  exit 1
fi
echo "e2e: ok"
