#!/usr/bin/env bash
# The dashboard in a real browser (tests/e2e/dashboard/dashboard_e2e.mjs): a simulated board,
# zefo-monitor --listen, and Debian's chromium driven headless by playwright-core. Installs
# chromium (and Node.js with npm, where missing) from Debian, and playwright-core from the
# pinned tests/e2e/dashboard/package-lock.json into BUILD_DIR/e2e-dashboard with npm's cache
# outside the source tree; playwright downloads no browser. The screenshot goes to
# BUILD_DIR/dashboard.png.
#
#   tests/e2e/dashboard_e2e.sh [BUILD_DIR] [--settle SECONDS]     (default build/debug)
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)
build=$(realpath "${1:-$source_dir/build/debug}")
shift || true
monitor=$build/tools/zefo-monitor
[[ -x $monitor ]] || { echo "dashboard-e2e: no zefo-monitor in $build/tools (build it first)" >&2; exit 2; }
if [[ ! -f $build/web/dashboard_page.cpp ]]; then
  echo "dashboard-e2e: $build was configured without the dashboard (see cmake/ZefoDashboard.cmake)" >&2
  exit 2
fi

# shellcheck source-path=SCRIPTDIR/../..
# shellcheck source=scripts/lib/apt-ensure.sh
. "$source_dir/scripts/lib/apt-ensure.sh"
packages=(chromium)
command -v node >/dev/null && command -v npm >/dev/null || packages+=(nodejs npm)
apt_ensure "${packages[@]}" </dev/null >/dev/null

# playwright-core, once per lock file.
cache=${ZEFO_NPM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zefo/npm}
modules=$build/e2e-dashboard
lock=$here/dashboard/package-lock.json
hash=$(sha256sum "$lock" | cut -d' ' -f1)
if [[ $(cat "$modules/npm-ci.stamp" 2>/dev/null) != "$hash" ]]; then
  mkdir -p "$modules"
  cp "$here/dashboard/package.json" "$lock" "$modules/"
  (cd "$modules" && npm ci --cache "$cache" --ignore-scripts --no-audit --no-fund --loglevel=error)
  echo "$hash" >"$modules/npm-ci.stamp"
fi

node "$here/dashboard/dashboard_e2e.mjs" --monitor "$monitor" \
  --board-sim "$source_dir/tools/board-sim/board-sim" --node-modules "$modules/node_modules" \
  --screenshot "$build/dashboard.png" "$@"
