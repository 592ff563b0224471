#!/usr/bin/env bash
# prometheus_series.sh: how many series and bytes one scrape holds at each setting of
# --metrics-processes and --metrics-monitors, on a board simulated by board-sim over this
# machine's /proc, and what the textfile route writes a day at the default 2 s period and with
# --output-interval. Each setting writes three passes to a .prom file (the Prometheus text
# format node_exporter reads) and measures the last one.
#
#   bench/prometheus_series.sh [--monitor FILE]
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
monitor=""
case "${1:-}" in
  --monitor) monitor=$2 ;;
  "") ;;
  *) sed -n '2,8p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2 ;;
esac
. "$repo/bench/find_monitor.sh"
find_monitor prometheus_series.sh

work=$(mktemp -d)
sim_pid=""
cleanup() {
  [ -z "$sim_pid" ] || { kill "$sim_pid" 2>/dev/null; wait "$sim_pid" 2>/dev/null || true; }
  rm -rf "$work"
}
trap cleanup EXIT
mkfifo "$work/sim.out"
python3 "$repo/tools/board-sim/board-sim" "$work/board" --period 500 --ddr-record-ms 1000 \
  >"$work/sim.out" &
sim_pid=$!
read -r -t 30 _ <"$work/sim.out"

echo "processes on this machine: $(ls -d /proc/[0-9]* | wc -l); board-sim defaults (4 CPUs' cpufreq, 2 BPU cores, 3 zones, 1 DDR device)"
echo
echo "| --metrics-processes | --metrics-monitors | series | bytes | bytes/day at 2 s | with --output-interval 60 |"
echo "|---|---|---:|---:|---:|---:|"
for setting in "none all" "registered all" "top:10 all" "by-name all" "all all" \
  "none cpu,memory,temperature,bpu,ddr"; do
  set -- $setting
  "$monitor" --sysfs "$work/board/sys" --devfs "$work/board/dev" --period 1000 --count 3 \
    --format prometheus --metrics-processes "$1" --metrics-monitors "$2" \
    --output "$work/zefo.prom" 2>/dev/null
  series=$(grep -vc '^#' "$work/zefo.prom")
  bytes=$(wc -c <"$work/zefo.prom")
  echo "| $1 | $2 | $series | $bytes | $((bytes * 43200)) | $((bytes * 1440)) |"
done
