# Sourced by the bench scripts: sets `monitor` to a built zefo-monitor (release, else debug)
# unless --monitor gave one, or exits 2 naming the script that needed it.
#   find_monitor SCRIPT_NAME
find_monitor() {
  if [ -z "$monitor" ]; then
    for candidate in "$repo/build/release/tools/zefo-monitor" "$repo/build/debug/tools/zefo-monitor"; do
      if [ -x "$candidate" ]; then monitor=$candidate; break; fi
    done
  fi
  [ -x "$monitor" ] || { echo "$1: no zefo-monitor; build one or pass --monitor" >&2; exit 2; }
}
