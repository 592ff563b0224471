#!/usr/bin/env python3
"""What zefo-monitor --top costs against --format line at the same period and passes.

Runs the two alternately, round by round, each for a fixed number of passes (--count), and
takes each run's CPU time (user + system, from wait4) as the kernel accounted it. --top runs on a
pseudo-terminal of the given size whose output is read and thrown away as a terminal would show
it; --format line writes to a pipe read the same way. Prints each round and the median of the
per-round ratios top/line.

  bench/top_cost.py [--monitor BIN] [--rounds 7] [--passes 40] [--period 100]
                    [--size 80x24] [-- monitor options (e.g. --sysfs DIR --devfs DIR)]
"""
import argparse
import fcntl
import os
import pty
import statistics
import struct
import sys
import termios
import threading


def drain(fd):
    try:
        while os.read(fd, 65536):
            pass
    except OSError:
        pass


def run(argv, size):
    """CPU seconds of one run of argv; on a pty of `size` (cols, rows) or with a pipe."""
    if size:
        pid, fd = pty.fork()
        if pid == 0:
            os.environ["TERM"] = "xterm-256color"
            os.execv(argv[0], argv)
        fcntl.ioctl(fd, termios.TIOCSWINSZ, struct.pack("HHHH", size[1], size[0], 0, 0))
    else:
        read_end, write_end = os.pipe()
        pid = os.fork()
        if pid == 0:
            os.dup2(write_end, 1)
            os.execv(argv[0], argv)
        os.close(write_end)
        fd = read_end
    reader = threading.Thread(target=drain, args=(fd,))
    reader.start()
    _, status, usage = os.wait4(pid, 0)
    reader.join()
    os.close(fd)
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit(f"top_cost: {' '.join(argv)} exited with {status}")
    return usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--monitor", default="build/release/tools/zefo-monitor")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--passes", type=int, default=40)
    parser.add_argument("--period", type=int, default=100)
    parser.add_argument("--size", default="80x24")
    parser.add_argument("rest", nargs="*")
    args = parser.parse_args()
    size = tuple(int(n) for n in args.size.split("x"))
    common = [args.monitor, "--period", str(args.period), "--count", str(args.passes)] + args.rest
    print("round  line_ms  top_ms  ratio")
    ratios, lines, tops = [], [], []
    for round_ in range(args.rounds):
        line = run(common + ["--format", "line"], None)
        top = run(common + ["--top"], size)
        lines.append(line)
        tops.append(top)
        ratios.append(top / line)
        print(f"{round_ + 1:5d} {line * 1e3:8.1f} {top * 1e3:7.1f} {top / line:6.3f}")
    print(f"median {statistics.median(lines) * 1e3:7.1f} {statistics.median(tops) * 1e3:7.1f} "
          f"{statistics.median(ratios):6.3f}")
    print(f"ratio (median of rounds): {statistics.median(ratios):.3f}  (goal: at most 1.2)")


if __name__ == "__main__":
    main()
