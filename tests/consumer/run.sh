#!/usr/bin/env bash
# Installs the build in BUILD_DIR into a temporary prefix, checks what was installed, and builds
# and runs the host program in this directory against it twice: through the CMake package and
# through pkg-config. BUILD_DIR must be a build without sanitizers (debug or release).
set -euo pipefail

if [[ $# -ne 1 || ! -d $1 ]]; then
  echo "usage: $0 BUILD_DIR" >&2
  exit 2
fi
build=$(realpath "$1")
here=$(dirname "$(realpath "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

# Runs a command with its output kept aside, and shows that output only if it fails.
quiet() {
  "$@" >"$work/quiet.log" 2>&1 || {
    cat "$work/quiet.log" >&2
    echo "failed: $*" >&2
    return 1
  }
}

quiet cmake --install "$build" --prefix "$prefix"

pc=$(find "$prefix" -name zefo_resource_monitor.pc -path '*/pkgconfig/*' | head -n 1)
[[ -n $pc ]] || { echo "zefo_resource_monitor.pc was not installed" >&2; exit 1; }
libdir=$(dirname "$(dirname "$pc")")
# The other libraries of the package (libzefo_thread, libzefo_timmer, libzefo_utils) are needed
# by the library, which finds them beside itself: the runs below fail to load without them.
soname=$(readelf -d "$libdir"/libzefo_resource_monitor.so | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[[ $soname == libzefo_resource_monitor.so.1 ]] || { echo "unexpected SONAME: $soname" >&2; exit 1; }
echo "consumer: install layout ok ($prefix)"

# 1. The CMake package.
quiet cmake -S "$here" -B "$work/cmake-build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$prefix"
quiet cmake --build "$work/cmake-build"
"$work/cmake-build/consumer" >"$work/cmake.out"
grep -q '^update time: [1-9]' "$work/cmake.out"
"$work/cmake-build/consumer_format" >"$work/format.out"
grep -q '^openmetrics: ' "$work/format.out"
echo "consumer: find_package(ZefoResourceMonitor) builds ran ok (zefo::resource_monitor, zefo::format)"

# 2. pkg-config, as a plain compiler line.
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046  # the flags are meant to split into words
c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror "$here/main.cpp" -o "$work/consumer-pc" \
  $(pkg-config --cflags --libs zefo_resource_monitor) \
  -Wl,-rpath,"$(pkg-config --variable=libdir zefo_resource_monitor)"
"$work/consumer-pc" >"$work/pc.out"
grep -q '^update time: [1-9]' "$work/pc.out"
# shellcheck disable=SC2046
c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -DZEFO_CONSUMER_FORMAT "$here/main.cpp" \
  -o "$work/format-pc" \
  $(pkg-config --cflags --libs zefo_format) \
  -Wl,-rpath,"$(pkg-config --variable=libdir zefo_format)"
grep -q '^json: ' <<<"$("$work/format-pc")"
echo "consumer: pkg-config builds ran ok (zefo_resource_monitor, zefo_format)"

# 3. The installed tool finds its libraries without help.
grep -q '^update time: ' <<<"$("$prefix/bin/zefo-monitor" --count 1 --period 10)"
echo "consumer: installed zefo-monitor ran ok"
