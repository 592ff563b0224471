#!/usr/bin/env bash
# dashboard_cost.sh: what an open dashboard costs the board. Runs zefo-monitor --listen and
# alternates two phases of S seconds, R rounds each: nobody polling, then one client polling as
# the dashboard page does (/api/latest, then /api/history for the seconds it has not seen, once
# a period). Prints zefo-monitor's CPU time per second in each phase (utime + stime from
# /proc/<pid>/stat), the medians over the rounds and their ratio.
#
#   bench/dashboard_cost.sh [--monitor FILE] [--period MS] [--seconds S] [--rounds R]
#
#   --monitor FILE   a built zefo-monitor with HTTP (default: build/release, else build/debug)
#   --period MS      the monitor's period and the client's (default 2000)
#   --seconds S      length of one phase (default 20)
#   --rounds R       rounds of the two phases (default 3)
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
monitor=""
period=2000
seconds=20
rounds=3
usage() { sed -n '2,14p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2; }
while [ $# -gt 0 ]; do
  case "$1" in
    --monitor) monitor=$2; shift 2 ;;
    --period) period=$2; shift 2 ;;
    --seconds) seconds=$2; shift 2 ;;
    --rounds) rounds=$2; shift 2 ;;
    *) usage ;;
  esac
done
. "$repo/bench/find_monitor.sh"
find_monitor dashboard_cost.sh

log=$(mktemp)
"$monitor" --listen 127.0.0.1:0 --period "$period" 2> "$log" &
monitor_pid=$!
poller_pid=""
cleanup() {
  [ -n "$poller_pid" ] && kill "$poller_pid" 2> /dev/null || true
  kill "$monitor_pid" 2> /dev/null || true
  wait 2> /dev/null || true
  rm -f "$log"
}
trap cleanup EXIT
for _ in $(seq 100); do
  grep -q "serving " "$log" && break
  sleep 0.1
done
base=$(sed -n 's#.*serving \(http://[^ ]*/\)metrics#\1#p' "$log" | head -n 1)
[ -n "$base" ] || { echo "dashboard_cost.sh: zefo-monitor did not start:" >&2; cat "$log" >&2; exit 1; }
sleep 5  # a few passes, so the history holds something

# zefo-monitor's own process may be the HTTP helper it handed over to (same pid: execv).
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$monitor_pid/stat"; }
ticks_per_second=$(getconf CLK_TCK)

# The dashboard page's loop: the newest pass, then the history it has not seen yet. Run in the
# background, it execs python, so that killing it ends the client.
poll() {
  exec python3 - "$base" "$period" << 'PY'
import json, math, sys, time, urllib.request
base, period = sys.argv[1], int(sys.argv[2]) / 1000
last = 0
while True:
    latest = json.load(urllib.request.urlopen(base + "api/latest"))
    t = latest.get("update_time", 0)
    if t > last:
        query = "" if last == 0 else "?seconds=%d" % (math.ceil((t - last) / 1000) + 1)
        urllib.request.urlopen(base + "api/history" + query).read()
        last = t
    time.sleep(period)
PY
}

phase() {  # phase NAME: prints CPU milliseconds per second over the phase
  local before after
  before=$(cpu_ticks)
  sleep "$seconds"
  after=$(cpu_ticks)
  awk -v a="$after" -v b="$before" -v t="$ticks_per_second" -v s="$seconds" \
    'BEGIN { printf "%.1f\n", (a - b) * 1000 / t / s }'
}

none=()
open=()
for round in $(seq "$rounds"); do
  none+=("$(phase none)")
  poll &
  poller_pid=$!
  open+=("$(phase open)")
  kill "$poller_pid" 2> /dev/null || true
  wait "$poller_pid" 2> /dev/null || true
  poller_pid=""
  echo "round $round: none ${none[-1]} ms/s, one dashboard ${open[-1]} ms/s"
done
median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
m_none=$(median "${none[@]}")
m_open=$(median "${open[@]}")
echo "median: none ${m_none} ms/s, one dashboard ${m_open} ms/s, ratio $(awk -v a="$m_open" -v b="$m_none" 'BEGIN { if (b > 0) printf "%.2f", a / b; else print "n/a" }')"
