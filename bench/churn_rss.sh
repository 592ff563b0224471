#!/usr/bin/env bash
# churn_rss.sh: zefo-monitor's resident memory while processes come and go. Runs zefo-monitor
# (JSON to /dev/null, default period and retention) while RATE new processes a second start,
# each living LIFE seconds, and reads VmRSS from its /proc/<pid>/status at the end of every
# minute. With retention, memory stops growing once the first names are forgotten (after the
# 60 s of --forget-after and a pass); with --forget-after 0 (pass it after --) every minute adds
# what a minute of processes costs.
#
#   bench/churn_rss.sh [--monitor FILE] [--rate N] [--life S] [--minutes M] [-- OPTIONS...]
#
#   --monitor FILE   a built zefo-monitor (default: build/release, else build/debug)
#   --rate N         new processes per second (default 60)
#   --life S         seconds each one lives (default 3: every one is seen by a pass or two)
#   --minutes M      minutes to run, reading at the end of each (default 3)
#   OPTIONS          more zefo-monitor options, e.g. --forget-after 0
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
monitor=""
rate=60
life=3
minutes=3
usage() { sed -n '2,15p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2; }
while [ $# -gt 0 ]; do
  case "$1" in
    --monitor) monitor=$2; shift 2 ;;
    --rate) rate=$2; shift 2 ;;
    --life) life=$2; shift 2 ;;
    --minutes) minutes=$2; shift 2 ;;
    --) shift; break ;;
    *) usage ;;
  esac
done
. "$repo/bench/find_monitor.sh"
find_monitor churn_rss.sh

rss_kb() { awk '/^VmRSS:/ { print $2 }' "/proc/$1/status"; }

"$monitor" --format json "$@" > /dev/null &
monitor_pid=$!
(
  while :; do
    for _ in $(seq "$rate"); do sleep "$life" & done
    sleep 1
  done
) &
churn_pid=$!
cleanup() {
  kill "$churn_pid" 2> /dev/null || true
  kill "$monitor_pid" 2> /dev/null || true
  wait 2> /dev/null || true
}
trap cleanup EXIT

first=""
for minute in $(seq "$minutes"); do
  sleep 60
  rss=$(rss_kb "$monitor_pid")
  echo "minute ${minute}: VmRSS ${rss} kB${first:+ (${minute} less 1: $(( rss - previous )) kB)}"
  first=${first:-$rss}
  previous=$rss
done
echo "rate ${rate}/s, life ${life} s, options: ${*:-none}"
