#!/usr/bin/env bash
# zefo-monitor's generated manual page formats without a warning, and its bash completion offers
# every option of --help, the formats after --format and directories after a DIR option.
#   tests/tools/manual_test.sh ZEFO_MONITOR MANUAL_DIR
set -euo pipefail
monitor=$1 dir=$2
fail() { echo "manual: $*" >&2; exit 1; }
if command -v man >/dev/null; then
  warnings=$(MANWIDTH=80 man --warnings -l "$dir/zefo-monitor.1" 2>&1 >/dev/null)
  [[ -z $warnings ]] || fail "man warns: $warnings"
fi
source "$dir/zefo-monitor.bash"
complete_words() {  # the completions of the command line "$@" (the last word is being typed)
  COMP_WORDS=(zefo-monitor "$@") COMP_CWORD=$#
  _zefo_monitor
  printf '%s\n' "${COMPREPLY[@]}"
}
for option in $("$monitor" --help | grep -oE '^ +--[a-z-]+' | tr -d ' '); do
  complete_words -- | grep -qx -- "$option" || fail "completion lacks $option"
  grep -q -- "${option//-/\\\\-}" "$dir/zefo-monitor.1" || fail "the manual lacks $option"
done
[[ $(complete_words --format "" | tr '\n' ' ') == "report line json openmetrics prometheus " ]] ||
  fail "formats after --format: $(complete_words --format "")"
complete_words --sysfs / | grep -qx /usr || fail "no directories after --sysfs"
echo "manual: page and completion cover every option"
