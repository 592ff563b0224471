#!/usr/bin/env python3
"""Runs the built zefo-monitor as a child process: option errors, output files, replay, an
exited process leaving the output, SIGINT, and what other users control (registered names,
command lines) staying bounded and reaching terminals escaped. What --listen serves is
tests/http/http_hostile_test.py's.

  zefo_monitor_test.py [--with-record] [--with-http] [--no-rss-bound] -- [EMULATOR...] MONITOR

Everything after "--" is the command that starts zefo-monitor (a cross build's emulator first).
Exits 0 on success, 1 with every failure listed."""

import argparse
import json
import os
import pty
import signal
import subprocess
import sys
import tempfile
import threading
import time

failures = []


def check(condition, message):
    if not condition:
        failures.append(message)
    return condition


def run(command, *args, stdout=subprocess.PIPE):
    """Runs to the end; returns (exit code or 128 + signal, stdout, stderr)."""
    done = subprocess.run(command + list(args), stdin=subprocess.DEVNULL, stdout=stdout,
                          stderr=subprocess.PIPE, timeout=60)
    code = done.returncode if done.returncode >= 0 else 128 - done.returncode
    return code, (done.stdout or b"").decode(errors="replace"), done.stderr.decode(errors="replace")


def options_and_output_files(monitor, out, with_http):
    """Each case is one run: bad options exit 2 with the reason on standard error and nothing on
    standard output; --help and --version exit 0; a failed write ends the run with status 1 and a
    message, a reader that left ends it quietly; --output replaces its file whole with one pass."""
    full = open("/dev/full", "wb")
    left_read, left_write = os.pipe()
    os.close(left_read)
    cases = [
        (["--period", "1.5"], 2, "'1.5' is not a whole number"),
        (["--period", "-5"], 2, "'-5' is out of range"),
        (["--count", "0"], 2, "'0' is out of range"),
        (["--pid", "1", "--pid", ""], 2, "'' is not a process id"),
        (["stray"], 2, "stray"),
        (["--format", "xml"], 2,
         "'xml' is not a format (report, line, json, openmetrics, prometheus)"),
        (["--output", "/nonexistent-zefo-dir/x.prom"], 2,
         "cannot write --output /nonexistent-zefo-dir/x.prom: cannot create files in "
         "/nonexistent-zefo-dir: No such file or directory"),
        (["--output", "/"], 2, "/ is a directory"),
        (["--output", ""], 2, "the file name is empty"),
        (["--listen", "127.0.0.1"], 2, "'127.0.0.1' is not an address and port"),
        (["--web-config", "web.yml"], 2, "--web-config needs --listen"),
        (["--listen", "127.0.0.1:65536"], 2, "'65536' is not a port"),
        (["--listen", "[::1"], 2, "is not an address and port"),
        (["--from", "1", "--count", "1"], 2, "--from requires --replay"),
        (["--replay", "/tmp", "--to", "2024-05-01T25:00"], 2, "is not a time"),
        (["--replay", "/tmp", "--from", "20", "--to", "10"], 2, "--from 20 lies after --to 10"),
        (["--replay", "/tmp", "--record", "/tmp"], 2, "--record excludes --replay"),
        (["--record-max-size", "1K", "--record", "/tmp/x"], 2, "'1K' is too small"),
        (["--record-max-age", "7y", "--record", "/tmp/x"], 2, "'7y' is not a duration"),
        (["--metrics-processes", "top:0"], 2, "'0' is not a process count (1 to 10000)"),
        (["--metrics-monitors", "cpu,gpu"], 2, "'gpu' is not a monitor"),
        (["--output-interval", "5"], 2, "--output-interval needs --output"),
        (["--count", "3", "--period", "50"], 1,
         "cannot write to standard output: No space left on device", full),
        (["--period", "50"], 0, "", left_write),
        (["--help"], 0, "--rootfs DIR"),
        (["--version"], 0, "zefo-monitor "),
        # --output-interval keeps the first pass, which has no two-sample figures yet.
        (["--count", "3", "--period", "50", "--format", "json", "--output-interval", "3600",
          "--output", out + "kept.json"], 0, ""),
        # For node_exporter: a .prom file gets the 0.0.4 text format, not OpenMetrics.
        (["--count", "3", "--period", "50", "--format", "openmetrics", "--output", out + "z.prom"],
         0, ""),
    ]
    if with_http:
        cases.append((["--listen", "no.such.host.invalid:9464"], 2,
                      "cannot listen on no.such.host.invalid:9464"))
    for args, expected, text, *target in cases:
        code, stdout, stderr = run(monitor, *args, stdout=target[0] if target else subprocess.PIPE)
        what = " ".join(args[:2])
        check(code == expected, "%s: exit %d, not %d: %s" % (what, code, expected, stderr))
        check(text in (stdout if expected == 0 else stderr),
              "%s: no %r in %r" % (what, text, stderr))
        check(expected == 0 or stdout == "", "%s: wrote %r" % (what, stdout))
        check(expected != 0 or not target or stderr == "", "%s: said %r" % (what, stderr))
    full.close()
    os.close(left_write)
    check("total" not in json.loads(open(out + "kept.json").read())["cpu"],
          "--output-interval did not keep the first pass")
    # The newest of the three passes (the first has no two-sample figures), and it alone.
    prom = open(out + "z.prom").read()
    check(prom.count("\nzefo_update_time_seconds ") == 1, "z.prom does not hold one pass")
    check("\nzefo_cpu_machine_time_ratio{" in prom, "z.prom holds the first pass")
    check("# EOF" not in prom, "z.prom is OpenMetrics")
    check(sorted(os.listdir(out)) == ["kept.json", "z.prom"],
          "files left behind: %s" % os.listdir(out))


def hostile_names_and_command_lines(monitor, work, rss_bound, with_record):
    """What other users control (a registration directory anyone may write, a process's own
    command line) cannot make the monitor's memory or output grow with it; and a terminal gets
    names escaped where a pipe gets the library's bytes. The JSON run also shows the process
    with the long command line leaving the output from the pass after its exit (what is live is
    chosen once for every format, so JSON stands for them all), and SIGINT then ending the run at
    once and cleanly, without waiting the period out. The JSON and piped report runs also
    --record, and --replay writes what they wrote byte for byte."""
    # A 1.8 MB command line (the kernel allows a quarter of the default 8 MB stack); sleep adds up
    # its arguments, however many zeros they hold, and forks nothing that could hold our output.
    hostile = subprocess.Popen(["/bin/sleep", "30"] + ["0" * 130000] * 14)
    self, other = str(os.getpid()), str(hostile.pid)
    name = "cam\x1b]0;owned\x07\x1b[2J\r\xc2\x9b" + "x" * 300
    for pid, registered in ((self, name.encode("latin-1")), (other, b"n" * (4 << 20))):
        os.makedirs(os.path.join(work, "reg", pid))
        open(os.path.join(work, "reg", pid, "pid"), "w").write(pid + "\n")
        open(os.path.join(work, "reg", pid, "name"), "wb").write(registered + b"\n")
    args = monitor + ["--pid", self, "--pid", other, "--regdir", os.path.join(work, "reg")]
    record = {form: ["--record", os.path.join(work, form)] if with_record else []
              for form in ("json", "report")}
    child = subprocess.Popen(args + ["--period", "2000", "--format", "json"] + record["json"],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             stdin=subprocess.DEVNULL)
    watchdog = threading.Timer(60, child.kill)  # a run that never shows it ends the test
    watchdog.start()
    needle = b'"%s":{' % other.encode()
    lines = iter(child.stdout.readline, b"")
    passes = []
    for line in lines:
        passes.append(line)
        if needle in line:
            break
    process = json.loads(passes[-1].decode("utf-8", "surrogateescape"))["process"]
    hostile.kill()
    hostile.wait()
    # The pass under way at the exit may still have sampled it; the one after may not.
    passes += [next(lines, b""), next(lines, needle)]
    check(needle not in passes[-1], "the exited process stayed in the output")
    sent = time.monotonic()
    child.send_signal(signal.SIGINT)
    passes += list(lines)
    _, status, usage = os.wait4(child.pid, 0)
    watchdog.cancel()
    check(status == 0 and child.stderr.read() == b"", "SIGINT: status %d" % status)
    check(time.monotonic() - sent < 1.5, "SIGINT took %.1f s" % (time.monotonic() - sent))
    check(max(len(line) for line in passes) < 16 << 10,
          "a pass of %d bytes" % max(len(line) for line in passes))
    # Sanitizers and an emulator (whose own memory counts in the child's) add their own.
    check(not rss_bound or usage.ru_maxrss < 24 << 10, "%d kB resident" % usage.ru_maxrss)
    check(process[self]["zefo_name"].encode("utf-8", "surrogateescape") ==
          name.encode("latin-1")[:255], "registered name: %r" % process[self]["zefo_name"])
    check(process[other]["zefo_name"] == "", "a 4 MB name was taken")
    cmd_line = process[other]["cmd_line"]
    check(len(cmd_line) == 4096 and cmd_line.startswith("/bin/sleep 30 000"),
          "command line of %d characters" % len(cmd_line))
    # The report, on a terminal and through a pipe.
    args += ["--count", "2", "--period", "50"]
    terminal, replica = pty.openpty()
    child = subprocess.Popen(args, stdout=replica, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)
    os.close(replica)
    shown = b""
    while True:
        try:
            chunk = os.read(terminal, 4096)
        except OSError:  # EIO: the tool closed the terminal
            break
        if not chunk:
            break
        shown += chunk
    os.close(terminal)
    check(child.wait(30) == 0, "report on a terminal: %s" % child.stderr.read())
    check(b": cam\\x1b]0;owned\\x07\\x1b[2J\\x0d\\u009bxxx" in shown, "terminal: name not escaped")
    check(b"\x1b" not in shown and b"\x07" not in shown, "terminal: control characters shown")
    _, piped, _ = run(args + ["--format", "report"] + record["report"])
    check(": " + name.encode("latin-1")[:255].decode(errors="replace") + "\n" in piped,
          "a pipe did not get the name's bytes")
    for form, live in (("json", b"".join(passes).decode(errors="replace")), ("report", piped)):
        if with_record:
            code, replayed, stderr = run(monitor, "--replay", record[form][1], "--format", form)
            check(code == 0 and stderr == "" and replayed == live,
                  "--replay %s: exit %d, %r\n%r\nagainst %r" % (form, code, stderr, replayed, live))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--with-record", action="store_true")
    parser.add_argument("--with-http", action="store_true")
    parser.add_argument("--no-rss-bound", action="store_true")
    parser.add_argument("monitor", nargs="+", help="[EMULATOR...] MONITOR")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="zefo-tool-") as work:
        os.mkdir(os.path.join(work, "out"))
        options_and_output_files(options.monitor, os.path.join(work, "out/"), options.with_http)
        hostile_names_and_command_lines(options.monitor, work, not options.no_rss_bound,
                                        options.with_record)
    for failure in failures:
        sys.stderr.write("FAIL: %s\n" % failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
