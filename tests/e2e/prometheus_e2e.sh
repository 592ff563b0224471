#!/usr/bin/env bash
# End to end on loopback: a simulated board, one zefo-monitor writing a textfile for the real
# node_exporter (textfile collector only) and serving /metrics itself, and a real Prometheus
# server scraping both every second. Passes when the server holds series of every zefo_ metric
# through both paths, every kind of figure among them, and the total memory it stored equals
# the machine's MemTotal; and when a second zefo-monitor, serving over TLS with basic auth from a
# web configuration file, is scraped with the right password, a wrong one gets 401 and plain
# HTTP to its TLS port fails. Installs prometheus and prometheus-node-exporter when missing (they
# are large, hence not in scripts/bootstrap). Everything it starts is stopped on exit.
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
install_packages() {
  local missing=()
  [[ -x $prometheus ]] || missing+=(prometheus)
  [[ -x $node_exporter ]] || missing+=(prometheus-node-exporter)
  ((${#missing[@]} > 0)) || return 0
  local as_root=()
  ((EUID == 0)) || as_root=(sudo)
  local policy=/usr/sbin/policy-rc.d made_policy=0
  if [[ ! -e $policy ]]; then
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
    made_policy=1
  fi
  echo "e2e: installing ${missing[*]}"
  local status=0
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q >/dev/null || status=$?
  ((status != 0)) || "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y \
    --no-install-recommends "${missing[@]}" </dev/null >/dev/null || status=$?
  ((made_policy == 0)) || "${as_root[@]}" rm -f "$policy"
  return "$status"
}
install_packages

# The packages' own services may be running (where systemd runs); this test never uses their
# ports, but say so, since a server there is not the one this test starts.
for port in 9090 9100; do
  if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
    echo "e2e: note: something listens on 127.0.0.1:$port; this test uses ports of its own"
  fi
done

# Four free loopback ports: bound to port 0, read back, released.
read -r prom_port node_port zefo_port tls_port < <(python3 -c '
import socket
socks = [socket.socket() for _ in range(4)]
for s in socks:
    s.bind(("127.0.0.1", 0))
print(*(s.getsockname()[1] for s in socks))')

work=$(mktemp -d)
pids=()
cleanup() {
  local pid
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    pid=${pids[i]}
    kill -TERM "$pid" 2>/dev/null || true
  done
  for pid in "${pids[@]}"; do
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# The simulated board gives the BPU, thermal zones, CPU frequencies and a DDR device; the rest
# comes from this machine's /proc.
mkfifo "$work/sim.out"
python3 "$board_sim" "$work/board" --period 200 --bpu-cores 2 --ddr-devices 1 --zones 3 \
  --cpus "$(nproc)" --clean >"$work/sim.out" &
pids+=($!)
read -r -t 30 ready <"$work/sim.out" || true
[[ $ready == "board-sim: ready"* ]] || { echo "e2e: board-sim did not come up" >&2; exit 1; }

mkdir "$work/textfile"
# One monitor feeds both paths, so the DDR device's records are not split between two readers.
# A .prom file with --format openmetrics is written in the text format node_exporter reads.
"$monitor" --sysfs "$work/board/sys" --devfs "$work/board/dev" --period 500 \
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
  - job_name: tls_wrong_password
    scheme: https
    tls_config: {ca_file: "$work/board.crt"}
    basic_auth: {username: prometheus, password: wrong}
    static_configs: [{targets: ["127.0.0.1:$tls_port"]}]
  - job_name: tls_plain_http
    static_configs: [{targets: ["127.0.0.1:$tls_port"]}]
YAML
"$prometheus" --config.file="$work/prometheus.yml" --storage.tsdb.path="$work/tsdb" \
  --web.listen-address="127.0.0.1:$prom_port" >"$work/prometheus.log" 2>&1 &
pids+=($!)

# Asks the server until every check holds or 90 s have passed; prints what it found.
status=0
python3 - "$prom_port" <<'PY' || status=$?
import json, sys, time, urllib.parse, urllib.request

base = "http://127.0.0.1:%s" % sys.argv[1]
KINDS = ("cpu", "bpu", "disk", "memory", "network", "temperature", "ddr", "process")

def get(path, **params):
    url = base + path + ("?" + urllib.parse.urlencode(params) if params else "")
    with urllib.request.urlopen(url, timeout=5) as reply:
        return json.load(reply)["data"]

def query(expr):
    return get("/api/v1/query", query=expr)["result"]

def mem_total():
    with open("/proc/meminfo") as f:
        for line in f:
            if line.startswith("MemTotal:"):
                return int(line.split()[1]) * 1024

def check():
    problems = []
    up = {r["metric"]["job"]: r["value"][1] for r in query("up")}
    expected = {"zefo": "1", "node": "1", "tls": "1", "tls_wrong_password": "0",
                "tls_plain_http": "0"}
    if up != expected:
        return ["targets up: %s, not %s" % (up, expected)]
    errors = {t["labels"]["job"]: t["lastError"] for t in get("/api/v1/targets")["activeTargets"]}
    if "401" not in errors["tls_wrong_password"]:
        return ["a wrong password got: %s" % errors["tls_wrong_password"]]
    if "zefo_update_time_seconds" not in [r["metric"]["__name__"] for r in
                                          query('{job="tls",__name__="zefo_update_time_seconds"}')]:
        return ["no zefo_update_time_seconds scraped over TLS"]
    names = {"zefo": set(), "node": set()}
    for r in query('count by (__name__, job) ({__name__=~"zefo_.+",job=~"zefo|node"})'):
        names[r["metric"]["job"]].add(r["metric"]["__name__"])
    if names["zefo"] != names["node"]:
        problems.append("only through /metrics: %s; only through the textfile: %s" % (
            sorted(names["zefo"] - names["node"]), sorted(names["node"] - names["zefo"])))
    for kind in KINDS:
        if not any(n.startswith("zefo_%s_" % kind) for n in names["zefo"] & names["node"]):
            problems.append("no %s series through both paths" % kind)
    totals = {r["metric"]["job"]: float(r["value"][1])
              for r in query("zefo_memory_total_bytes")}
    if totals != {"zefo": mem_total(), "node": mem_total()}:
        problems.append("zefo_memory_total_bytes %s, MemTotal %d" % (totals, mem_total()))
    if [r["value"][1] for r in query('node_textfile_scrape_error{job="node"}')] != ["0"]:
        problems.append("node_exporter's textfile collector reports an error")
    # The info type exists only in OpenMetrics: seeing it proves the scrape negotiated it.
    meta = get("/api/v1/targets/metadata", match_target='{job="zefo"}', metric="zefo_bpu")
    if [m["type"] for m in meta] != ["info"]:
        problems.append("zefo_bpu was not scraped as an OpenMetrics info: %s" % meta)
    return problems, names

deadline = time.monotonic() + 90
problems = ["the server did not answer"]
while time.monotonic() < deadline:
    try:
        result = check()
        if isinstance(result, tuple):
            problems, names = result
            if not problems:
                print("e2e: %d zefo_ metric names through /metrics and through node_exporter; "
                      "memory total %d bytes in both; scraped over TLS with basic auth, a "
                      "wrong password gets 401, plain HTTP fails" % (len(names["zefo"]),
                                                                     mem_total()))
                sys.exit(0)
        else:
            problems = result
    except (OSError, ValueError, KeyError) as error:
        problems = ["query failed: %s" % error]
    time.sleep(1)
for problem in problems:
    print("e2e: FAIL: " + problem, file=sys.stderr)
sys.exit(1)
PY
if ((status != 0)); then
  for log in zefo.err zefo-tls.err node.log prometheus.log; do
    echo "--- $log (last lines)" >&2
    tail -n 15 "$work/$log" >&2 || true
  done
  exit 1
fi
echo "e2e: ok"
