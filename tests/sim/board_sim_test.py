#!/usr/bin/env python3
"""Runs board-sim for a few periods and zefo-monitor over it: the BPU cores, the DDR devices and
(once the temperature monitor reports anything) the thermal zones of the simulated board must
all show in the report. Exits 0 on success, 1 with a message on failure."""

import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile

CORES, DEVICES, ZONES = 3, 2, 3
ZONE_TYPES = ("cpu-thermal", "bpu-thermal", "ddr-thermal")


def fail(message, report=""):
    sys.stderr.write("FAIL: %s\n%s" % (message, report))
    sys.exit(1)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--board-sim", required=True)
    parser.add_argument("--monitor", required=True)
    args = parser.parse_args()

    root = tempfile.mkdtemp(prefix="zefo-board-sim-")
    sim = subprocess.Popen(
        [sys.executable, args.board_sim, root, "--period", "100", "--bpu-cores", str(CORES),
         "--ddr-devices", str(DEVICES), "--zones", str(ZONES), "--cpus", "2", "--clean"],
        stdout=subprocess.PIPE, text=True)
    try:
        if not sim.stdout.readline().startswith("board-sim: ready"):
            fail("board-sim did not come up")
        # An absent procfs keeps the report to the monitors under test.
        run = subprocess.run(
            [args.monitor, "--sysfs", os.path.join(root, "sys"), "--devfs",
             os.path.join(root, "dev"), "--procfs", os.path.join(root, "proc"),
             "--period", "250", "--count", "3"],
            capture_output=True, text=True, timeout=60)
        if run.returncode != 0:
            fail("zefo-monitor exited with %d" % run.returncode, run.stderr)
        # The first pass only remembers samples; the last report has every item.
        report = run.stdout.split("update time: ")[-1]
        for n in range(CORES):
            if "Bpu Label: bpu%d\n  name              : bpu%d\n" % (n, n) not in report:
                fail("no block for BPU core %d" % n, report)
        for n in range(DEVICES):
            if "DDR Device Name: ddr%d\n" % n not in report:
                fail("no block for DDR device %d" % n, report)
        if not re.search(r"read bandwidth  : [1-9][0-9]*\.00\n", report):
            fail("every DDR figure is zero", report)
        for zone_type in ZONE_TYPES:
            if "Temperature Type: %s\n" % zone_type not in report:
                fail("no block for thermal zone %s" % zone_type, report)
    finally:
        sim.send_signal(signal.SIGTERM)
        code = sim.wait(timeout=10)
        leftover = os.listdir(root)
        shutil.rmtree(root, ignore_errors=True)
    if code != 0:
        fail("board-sim exited with %d" % code)
    if leftover:
        fail("board-sim --clean left %s" % leftover)
    print("ok")


if __name__ == "__main__":
    main()
