#!/usr/bin/env bash
# Runs every fuzz target for SECONDS seconds each, two at a time (or -j N), from its seed corpus
# in fuzz/corpus/<target>/. New inputs go to a scratch corpus under the build tree, so the
# checked-in seeds stay as they are. Prints each target's executions; fails if any target
# found a crash, a leak, a sanitizer report or a failed check (the input is kept as
# build/fuzz/artifacts/<target>-crash-...).
#
#   cmake --preset fuzz && cmake --build --preset fuzz
#   fuzz/run.sh 60            # every target for a minute
#   fuzz/run.sh 600 -j 1 proc_stat scan_cursor
set -euo pipefail

usage() {
  echo "usage: $0 SECONDS [-j JOBS] [--build DIR] [TARGET...]" >&2
  exit 2
}

[[ $# -ge 1 && $1 =~ ^[0-9]+$ ]] || usage
seconds=$1
shift
jobs=2
here=$(cd "$(dirname "$0")" && pwd)
build="$here/../build/fuzz"
targets=()
while [[ $# -gt 0 ]]; do
  case $1 in
    -j) jobs=${2:?}; shift 2 ;;
    --build) build=${2:?}; shift 2 ;;
    -*) usage ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [[ ! -d $build ]]; then
  echo "$0: no $build (cmake --preset fuzz && cmake --build --preset fuzz)" >&2
  exit 2
fi
build=$(cd "$build" && pwd)
if [[ ${#targets[@]} -eq 0 ]]; then
  for seeds in "$here"/corpus/*/; do targets+=("$(basename "$seeds")"); done
fi

work="$build/runs"
artifacts="$build/artifacts"
mkdir -p "$work" "$artifacts"

run_one() {
  local target=$1
  local binary="$build/fuzz/${target}_fuzzer"
  local log="$work/$target.log"
  if [[ ! -x $binary ]]; then
    echo "$target: no $binary (build the fuzz preset first)" >"$log"
    return 1
  fi
  mkdir -p "$work/$target.corpus"
  # -rss_limit_mb: a parser that grows without bound is a finding too. -max_len: kernel files
  # of interest are small; 64 KiB leaves room for the long-line cases.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$binary" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$artifacts/$target-" \
    "$work/$target.corpus" "$here/corpus/$target" >"$log" 2>&1
}

failed=0
pids=()
names=()
wait_one() {
  local pid=${pids[0]} name=${names[0]}
  pids=("${pids[@]:1}")
  names=("${names[@]:1}")
  local status=0
  wait "$pid" || status=$?
  local runs
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$name.log" | tail -1)
  if ((status == 0)); then
    printf '%-14s %12s runs in %s s\n' "$name" "${runs:-?}" "$seconds"
  else
    printf '%-14s FAILED (exit %d) after %s runs; log: %s\n' "$name" "$status" "${runs:-?}" \
      "$work/$name.log"
    grep -m 20 -E 'ERROR|SUMMARY|fuzz check failed|runtime error|Test unit written' \
      "$work/$name.log" || true
    failed=1
  fi
}

for target in "${targets[@]}"; do
  ((${#pids[@]} < jobs)) || wait_one
  run_one "$target" &
  pids+=($!)
  names+=("$target")
done
while ((${#pids[@]} > 0)); do wait_one; done
exit $failed
