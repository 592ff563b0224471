#!/usr/bin/env bash
# compare.sh: the CPU cost of one full sampling pass of the library against the floor, the cost of
# the same file operations with no parsing at all (floor.c), measured in the same run, round by
# round, with N idle processes added so that the machine has a realistic process count.
#
#   bench/compare.sh [--quick] [--floor-src FILE] [--driver FILE] [--build-dir DIR]
#                    [--idle N] [--rounds R] [--passes K] [--procs-only]
#
#   --floor-src FILE  floor.c to build (default: ../shared/bench/floor.c beside the repository,
#                     else /work/shared/bench/floor.c)
#   --driver FILE     a built zefo-pass-bench (default: build it with the release preset)
#   --build-dir DIR   where the release build lives (default: build/release)
#   --idle N          idle processes to start for the run (default 300)
#   --rounds R        floor/driver alternations (default 15)
#   --passes K        passes per measurement after the warm-up (default 10)
#   --procs-only      the process monitor alone
#   --quick           a short run for CI: 100 idle processes, 3 rounds of 5 passes
#
# Prints one line per round and the medians: the floor's and our CPU microseconds per pass, their
# ratio, microseconds per process, the driver's peak RSS and its heap allocations per pass.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
floor_src=""
driver=""
build_dir="$repo/build/release"
idle=300
rounds=15
passes=10
driver_args=()

usage() { sed -n '2,20p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//'; exit 2; }
while [ $# -gt 0 ]; do
  case "$1" in
    --floor-src) floor_src=$2; shift 2 ;;
    --driver) driver=$2; shift 2 ;;
    --build-dir) build_dir=$2; shift 2 ;;
    --idle) idle=$2; shift 2 ;;
    --rounds) rounds=$2; shift 2 ;;
    --passes) passes=$2; shift 2 ;;
    --procs-only) driver_args+=(--procs-only); shift ;;
    --quick) idle=100; rounds=3; passes=5; shift ;;
    -h|--help) usage ;;
    *) echo "compare.sh: unknown option $1" >&2; usage ;;
  esac
done

if [ -z "$floor_src" ]; then
  for candidate in "$repo/../shared/bench/floor.c" /work/shared/bench/floor.c; do
    if [ -f "$candidate" ]; then floor_src=$candidate; break; fi
  done
fi
if [ -z "$floor_src" ] || [ ! -f "$floor_src" ]; then
  echo "compare.sh: floor.c not found; give it with --floor-src" >&2
  exit 1
fi

work=$(mktemp -d)
sleepers=()
cleanup() {
  if [ ${#sleepers[@]} -gt 0 ]; then
    kill "${sleepers[@]}" 2>/dev/null || true
    wait "${sleepers[@]}" 2>/dev/null || true
  fi
  sleepers=()
  rm -rf "$work"
}
trap cleanup EXIT
trap 'cleanup; exit 130' INT TERM

# The floor, built from a copy (its own directory may be read-only).
cp "$floor_src" "$work/floor.c"
${CC:-cc} -O2 -Wall -o "$work/floor" "$work/floor.c"

if [ -z "$driver" ]; then
  if [ ! -f "$build_dir/build.ninja" ] && [ ! -f "$build_dir/Makefile" ]; then
    (cd "$repo" && cmake --preset release >/dev/null)
  fi
  cmake --build "$build_dir" --target zefo-pass-bench -j2 >/dev/null
  driver="$build_dir/bench/zefo-pass-bench"
fi

for ((i = 0; i < idle; i++)); do
  sleep 100000 &
  sleepers+=($!)
done

field() { sed -n "s/.*\\b$1=\\([^ ]*\\).*/\\1/p" <<<"$2"; }

printf 'floor: %s\ndriver: %s %s\nidle processes added: %d, passes per measurement: %d\n\n' \
  "$floor_src" "$driver" "${driver_args[*]:-}" "$idle" "$passes"
printf '%5s %6s %10s %10s %6s %10s %10s %10s %10s %9s\n' round procs floor_us ours_us ratio \
  floor_us/p ours_us/p rss_kb allocs allocs/p
rows="$work/rows"
: >"$rows"
for ((r = 1; r <= rounds; r++)); do
  f=$("$work/floor" "$passes")
  o=$("$driver" "$passes" "${driver_args[@]}")
  procs=$(field procs "$o")
  awk -v r="$r" -v procs="$procs" -v fu="$(field total_us "$f")" -v ou="$(field total_us "$o")" \
    -v rss="$(field maxrss_kb "$o")" -v al="$(field allocs "$o")" 'BEGIN {
      printf "%5d %6d %10.0f %10.0f %6.3f %10.1f %10.1f %10d %10.1f %9.3f\n",
        r, procs, fu, ou, ou / fu, fu / procs, ou / procs, rss, al, al / procs }' | tee -a "$rows"
done

# Medians, column by column (each column on its own, so they need not come from one round).
awk '{ for (c = 2; c <= NF; c++) v[c, NR] = $c; n = NR; w = NF }
  function median(c,    i, j, t, a) {
    for (i = 1; i <= n; i++) a[i] = v[c, i]
    for (i = 2; i <= n; i++) for (j = i; j > 1 && a[j - 1] > a[j]; j--) { t = a[j]; a[j] = a[j - 1]; a[j - 1] = t }
    return n % 2 ? a[(n + 1) / 2] : (a[n / 2] + a[n / 2 + 1]) / 2
  }
  END {
    printf "%5s %6d %10.0f %10.0f %6.3f %10.1f %10.1f %10d %10.1f %9.3f\n", "median",
      median(2), median(3), median(4), median(5), median(6), median(7), median(8), median(9),
      median(10)
    printf "\nratio (median of rounds): %.3f   us per process: %.1f   peak RSS: %d kB   " \
      "allocations per pass: %.1f (%.3f per process)\n", median(5), median(7), median(8),
      median(9), median(10)
  }' "$rows"
