#!/usr/bin/env bash
# zefo-monitor --top in a real terminal (tmux) over the simulated board and over a board without BPU,
# DDR devices or thermal zones: every panel shows, the sort and filter keys change the list, a
# resize redraws, and q, Ctrl-C or SIGTERM leave the terminal as it was. Last, board-sim --clean
# leaves nothing behind.
#   tests/tools/top_tmux_test.sh ZEFO_MONITOR BOARD_SIM
set -euo pipefail
monitor=$1 board_sim=$2
command -v tmux >/dev/null || { echo "top-tmux: tmux is not installed (apt-get install tmux)" >&2; exit 2; }
work=$(mktemp -d)
socket=$work/tmux  # in the scratch directory: no other run can meet this server
sim_pid=
cleanup() {
  tmux -S "$socket" kill-server 2>/dev/null || true
  [[ -n $sim_pid ]] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "top-tmux: $case_name: $*" >&2; echo "--- screen:" >&2; screen >&2; exit 1; }
screen() { tmux -S "$socket" capture-pane -p -t top; }
# Waits up to 10 s for the screen to match an extended regular expression.
await() {
  for _ in $(seq 100); do grep -Eq -- "$1" <<<"$(screen)" && return 0; sleep 0.1; done
  fail "no '$1' on the screen"
}
# The pids of the process rows, in screen order.
pids() { screen | sed -n '/^ *PID/,/^processes/p' | awk '$1 ~ /^[0-9]+$/ {print $1}'; }

"$board_sim" "$work/board" --period 300 --bpu-cores 2 --ddr-devices 2 --zones 3 --clean \
  >"$work/sim.log" &
sim_pid=$!
for _ in $(seq 100); do grep -q ready "$work/sim.log" && break; sleep 0.1; done
# (That the monitors read every BPU core, DDR device and zone of it, and what the report shows of
# them, is the dashboard's and the Prometheus end-to-end tests' and the golden report's.)

mkdir -p "$work/bare/sys" "$work/bare/dev"

#     name          board  size    resized  TERM            end   panels shown / left out
cases=(
  "sim-80x24      board  80x24   200x50   xterm-256color  q     CPU|BPU|DDR|MEM|TEMP|DISK|NET  -"
  "sim-200x50     board  200x50  80x24    screen          C-c   CPU|BPU|DDR|MEM|TEMP|DISK|NET  -"
  "bare-80x24     bare   80x24   120x40   vt100           TERM  CPU|MEM|DISK|NET  BPU|DDR|TEMP"
)
for entry in "${cases[@]}"; do
  read -r case_name root size resized term end shown absent <<<"$entry"
  tmux -S "$socket" kill-server 2>/dev/null || true
  socket=$work/tmux-$case_name
  rm -f "$work/pid" "$work/before" "$work/after"
  tmux -S "$socket" -f /dev/null new-session -d -s top -x "${size%x*}" -y "${size#*x}" \
    "stty -g >$work/before; echo BEFORE-TOP; sh -c 'echo \$\$ >$work/pid; exec \"\$@\"' top \
     env TERM=$term $monitor --top --period 300 --sysfs $work/$root/sys --devfs $work/$root/dev; \
     echo exit=\$?; stty -g >$work/after; sleep 60"
  await '^processes [0-9]+-[0-9]+ of'
  await 'busy +[0-9]+%'
  # A panel shows once a pass has a figure for it; DDR needs two reads of its counters.
  for title in ${shown//|/ }; do await "^$title "; done
  for title in ${absent//[-|]/ }; do  # "-": none
    ! screen | grep -Eq "^$title " || fail "an empty $title panel"
  done

  tmux -S "$socket" send-keys -t top p
  await 'PIDv'
  pids | sort -n -C || fail "p does not sort by pid"
  tmux -S "$socket" send-keys -t top r
  await 'PID\^'
  pids | sort -n -r -C || fail "r does not reverse the list"
  tmux -S "$socket" send-keys -t top / zefo-mon Enter
  await 'matching "zefo-mon"'
  rows=$(screen | sed -n '/^ *PID/,/^processes/p' | grep -Ec '^ *[0-9]+ ' || true)
  [[ $rows -ge 1 && $rows -eq $(screen | grep -Ec '^ *[0-9]+ zefo-mon' || true) ]] ||
    fail "the filter lets other processes through"

  tmux -S "$socket" resize-window -t top -x "${resized%x*}" -y "${resized#*x}"
  sleep 0.5
  # (capture-pane always gives as many lines as the pane has, none wider than it; that no row is
  # drawn wider than the terminal is top_model_test's.)
  screen | sed -n "${resized#*x}p" | grep -q '^processes' || fail "the status line is not at the bottom after the resize"

  case $end in
    q) tmux -S "$socket" send-keys -t top q ;;
    C-c) tmux -S "$socket" send-keys -t top C-c ;;
    TERM) kill -TERM "$(cat "$work/pid")" ;;
  esac
  await '^exit=0'
  # Terminals with an alternate screen get theirs back; a vt100 or serial console has none.
  if tput -T "$term" smcup >/dev/null 2>&1; then
    grep -q BEFORE-TOP <<<"$(tmux -S "$socket" capture-pane -p -S - -t top)" ||
      fail "the screen from before --top is not back"
  fi
  [[ $(tmux -S "$socket" display -p -t top '#{alternate_on}') == 0 ]] || fail "still on the alternate screen"
  for _ in $(seq 50); do [[ -s $work/after ]] && break; sleep 0.1; done
  cmp -s "$work/before" "$work/after" || fail "the terminal modes were not restored"
  echo "top-tmux: $case_name: panels, sort, filter, resize and $end: ok"
done

# A recording of the simulated board, stepped through with the arrows. A pass shows DDR only if
# a record came in since the one before, and the simulated devices give one each 300 ms: passes
# 700 ms apart get one however the two clocks drift under load.
case_name=replay
"$monitor" --record "$work/rec" --count 4 --period 700 --sysfs "$work/board/sys" \
  --devfs "$work/board/dev" 2>/dev/null
tmux -S "$socket" kill-server 2>/dev/null || true
socket=$work/tmux-$case_name  # a fresh server: the one just killed may still be going
tmux -S "$socket" -f /dev/null new-session -d -s top -x 100 -y 30 \
  "$monitor --top --replay $work/rec; echo exit=\$?; sleep 60"
await 'replay 1/4'
tmux -S "$socket" send-keys -t top Right Right
await 'replay 3/4'
await '^DDR '
tmux -S "$socket" send-keys -t top Left q
await '^exit=0'
echo "top-tmux: replay: steps and quits: ok"

kill "$sim_pid"
wait "$sim_pid" || { echo "top-tmux: board-sim exited with $?" >&2; exit 1; }
sim_pid=
if [[ -e $work/board ]] && [[ -n $(ls -A "$work/board") ]]; then
  echo "top-tmux: board-sim --clean left $(ls -A "$work/board")" >&2
  exit 1
fi
echo "top-tmux: board-sim --clean: ok"
