#!/usr/bin/env bash
# rss_check.sh: the resident memory of zefo-monitor over many passes with a realistic process
# count. Starts N idle processes, runs zefo-monitor with a short period, and reads VmRSS (and
# VmHWM) from its /proc/<pid>/status when its 10th and its last report arrive. Every report
# follows at least one new pass, so the last reading comes after at least that many passes. A
# reading is taken when the report after the counted one begins, so that report is complete.
#
#   bench/rss_check.sh [--monitor FILE] [--build-dir DIR] [--idle N] [--reports R] [--period MS]
#
#   --monitor FILE   a built zefo-monitor (default: build it with the release preset)
#   --build-dir DIR  where the release build lives (default: build/release)
#   --idle N         idle processes to start for the run (default 300)
#   --reports R      reports to wait for (default 1000)
#   --period MS      the monitor's period (default 1)
#   --quick          100 idle processes, 100 reports
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
monitor=""
build_dir="$repo/build/release"
idle=300
reports=1000
period=1

usage() { sed -n '2,16p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2; }
while [ $# -gt 0 ]; do
  case "$1" in
    --monitor) monitor=$2; shift 2 ;;
    --build-dir) build_dir=$2; shift 2 ;;
    --idle) idle=$2; shift 2 ;;
    --reports) reports=$2; shift 2 ;;
    --period) period=$2; shift 2 ;;
    --quick) idle=100; reports=100; shift ;;
    -h|--help) usage ;;
    *) echo "rss_check.sh: unknown option $1" >&2; usage ;;
  esac
done

if [ -z "$monitor" ]; then
  if [ ! -f "$build_dir/build.ninja" ] && [ ! -f "$build_dir/Makefile" ]; then
    (cd "$repo" && cmake --preset release >/dev/null)
  fi
  cmake --build "$build_dir" --target zefo-monitor -j2 >/dev/null
  monitor="$build_dir/tools/zefo-monitor"
fi

work=$(mktemp -d)
children=()
cleanup() {
  if [ ${#children[@]} -gt 0 ]; then
    kill "${children[@]}" 2>/dev/null || true
    wait "${children[@]}" 2>/dev/null || true
  fi
  children=()
  rm -rf "$work"
}
trap cleanup EXIT
trap 'cleanup; exit 130' INT TERM

for ((i = 0; i < idle; i++)); do
  sleep 100000 &
  children+=($!)
done

mkfifo "$work/reports"
"$monitor" --period "$period" >"$work/reports" &
pid=$!
children+=("$pid")

memory() { awk '/^(VmRSS|VmHWM):/ { printf "%s %s kB  ", $1, $2 }' "/proc/$pid/status"; }

# Items are never removed, so every process id seen during the run keeps its block: the count
# of blocks in the report tells memory that follows process churn from memory that leaks.
start=$(date +%s)
n=0
blocks=0
report() {
  procs=$(ls /proc | grep -c '^[0-9]*$')
  printf 'report %5d (%d processes now, %d process items, %ds): %s\n' "$n" "$procs" "$blocks" \
    $(($(date +%s) - start)) "$(memory)"
}
while IFS= read -r line; do
  if [ "${line#update time:}" != "$line" ]; then
    # The previous report is complete.
    if [ "$n" -eq 10 ] || [ "$n" -eq "$reports" ]; then report; fi
    [ "$n" -ge "$reports" ] && break
    n=$((n + 1))
    blocks=0
  else
    blocks=$((blocks + 1))
  fi
done < <(grep -a --line-buffered -e '^update time:' -e '^Proc Name:' "$work/reports")
