#!/usr/bin/env bash
# Prometheus's own linter over the exposition: the fixture board's (its golden file) and
# zefo-monitor's over this machine (real process names, real mount points), for each way of
# choosing the processes. Any complaint fails.
#   tests/format/promtool_check.sh PROMTOOL ZEFO_MONITOR GOLDEN_DIR
set -euo pipefail
promtool=$1 monitor=$2 golden=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
lint() {
  local said
  # shellcheck disable=SC2015  # a complaint with exit status 0 fails too
  said=$("$promtool" check metrics <"$1" 2>&1) && [[ -z $said ]] ||
    { echo "promtool: $2: ${said:-exit status}" >&2; exit 1; }
}
lint "$golden/format_prometheus.txt" "the fixture board"
for processes in top:10 by-name all; do
  "$monitor" --count 2 --period 100 --format openmetrics --metrics-processes "$processes" \
    --output "$work/machine.prom"
  lint "$work/machine.prom" "this machine, --metrics-processes $processes"
done
echo "promtool: the fixture board and this machine pass the linter"
