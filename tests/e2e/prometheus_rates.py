#!/usr/bin/env python3
"""What prometheus_e2e.sh asks the server it started.

First, within 90 s: every target is up (the TLS one with basic auth), series of every zefo_
metric arrive through /metrics and through node_exporter's textfile alike (a textfile the
collector cannot read gives none), every kind among them, the stored memory total equals this
machine's MemTotal, and zefo_bpu was scraped as an OpenMetrics info.

Then, for 60 s, it makes traffic it can count: TCP over loopback at a steady 40 MiB/s and writes
to the disk at 16 MiB/s (the board simulator adds 1000 MiB/s read and 500 written on every DDR
port). Near the end, rate(..._total[30s]) must agree within 5 %: each DDR port with the
simulator's load, and the loopback's received and the disk's written bytes with what the
kernel's /proc/net/dev and /proc/diskstats counted between the two passes the window's first and
last scrapes carried (both are shared with the rest of the machine, so the test's own traffic is
only a floor). Every query of the dashboard must return data, and the registered child,
killed early on, must be gone from the latest scrape. Last, the OpenMetrics reference parser
must read zefo-monitor's /metrics.

    prometheus_rates.py PROMETHEUS_PORT ZEFO_PORT WORK_DIR CHILD_PID DASHBOARD_JSON
"""
import json
import os
import signal
import socket
import subprocess
import sys
import threading
import time
import urllib.parse
import urllib.request

from prometheus_client.openmetrics.parser import text_string_to_metric_families

port, zefo_port, work, dashboard = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[5]
child = int(sys.argv[4])
base = "http://127.0.0.1:%s" % port
MIB = 1 << 20
SECONDS = 60
NET_RATE = 40 * MIB
DISK_RATE = 16 * MIB
DDR_LOAD = {"read": 1000 * MIB, "write": 500 * MIB}  # board-sim --ddr-load 1000,500
TOLERANCE = 0.05
# Every kind must be there before the two paths are compared: the DDR figures, for one, come
# only with the device's first record.
KINDS = ("cpu", "bpu", "disk", "memory", "network", "temperature", "ddr", "process")


def get(path, **params):
    url = base + path + ("?" + urllib.parse.urlencode(params) if params else "")
    with urllib.request.urlopen(url, timeout=10) as reply:
        return json.load(reply)["data"]


def query(expr, at=None):
    return get("/api/v1/query", query=expr, **({} if at is None else {"time": "%.3f" % at}))[
        "result"]


def value(expr, at):
    """The first series' value of an instant query at `at`, or 0 when there is none."""
    result = query(expr, at)
    return float(result[0]["value"][1]) if result else 0


def failed(problems):
    for problem in problems:
        print("e2e: FAIL: " + problem, file=sys.stderr)
    return 1 if problems else 0


def mem_total():
    with open("/proc/meminfo") as f:
        return next(int(line.split()[1]) * 1024 for line in f if line.startswith("MemTotal:"))


def scraped():
    """What is still missing from the scrapes (nothing, once every target is in)."""
    up = {r["metric"]["job"]: r["value"][1] for r in query("up")}
    if up != {"zefo": "1", "node": "1", "tls": "1"}:
        return ["targets up: %s" % up]
    if not query('{job="tls",__name__="zefo_update_time_seconds"}'):
        return ["no zefo_update_time_seconds scraped over TLS"]
    problems, names = [], {"zefo": set(), "node": set()}
    for r in query('count by (__name__, job) ({__name__=~"zefo_.+",job=~"zefo|node"})'):
        names[r["metric"]["job"]].add(r["metric"]["__name__"])
    if names["zefo"] != names["node"]:
        problems.append("only through /metrics: %s; only through the textfile: %s" % (
            sorted(names["zefo"] - names["node"]), sorted(names["node"] - names["zefo"])))
    for kind in KINDS:
        if not any(n.startswith("zefo_%s_" % kind) for n in names["zefo"] & names["node"]):
            problems.append("no %s series through both paths" % kind)
    totals = {r["metric"]["job"]: float(r["value"][1]) for r in query("zefo_memory_total_bytes")}
    if totals != {"zefo": mem_total(), "node": mem_total()}:
        problems.append("zefo_memory_total_bytes %s, MemTotal %d" % (totals, mem_total()))
    # The info type exists only in OpenMetrics: seeing it proves the scrape negotiated it.
    meta = get("/api/v1/targets/metadata", match_target='{job="zefo"}', metric="zefo_bpu")
    if [m["type"] for m in meta] != ["info"]:
        problems.append("zefo_bpu was not scraped as an OpenMetrics info: %s" % meta)
    if not problems:
        print("e2e: %d zefo_ metric names through /metrics and through node_exporter; memory "
              "total %d bytes in both; scraped over TLS with basic auth" % (
                  len(names["zefo"]), mem_total()))
    return problems


def paced(rate, send, stop):
    """Calls send(n) so that the bytes sent keep up with rate * elapsed until `stop`."""
    start, sent = time.monotonic(), 0
    while time.monotonic() < stop:
        due = rate * (time.monotonic() - start) - sent
        if due >= 64 * 1024:
            sent += send(int(min(due, MIB)))
        else:
            time.sleep(0.002)
    return sent / (time.monotonic() - start)


def loopback(stop, result):
    server = socket.create_server(("127.0.0.1", 0))
    sender = socket.create_connection(server.getsockname())
    receiver, _ = server.accept()

    def drain():
        while receiver.recv(MIB):
            pass

    threading.Thread(target=drain, daemon=True).start()
    chunk = b"z" * MIB
    result["net"] = paced(NET_RATE, lambda n: sender.send(chunk[:n]), stop)
    sender.close()


def disk(stop, result):
    fd = os.open(os.path.join(work, "disk-traffic"), os.O_WRONLY | os.O_CREAT, 0o600)
    chunk, offset = b"d" * MIB, [0]

    def write(n):
        # Over the same 64 MiB again and again, each chunk pushed to the device at once.
        written = os.pwrite(fd, chunk[:n], offset[0] % (64 * MIB))
        offset[0] += written
        os.fdatasync(fd)
        return written

    result["disk"] = paced(DISK_RATE, write, stop)
    os.close(fd)


def device_of(path):
    """The block device (as /proc/diskstats names it) of the file system holding `path`."""
    source = subprocess.run(["findmnt", "--noheadings", "--nofsroot", "--output", "SOURCE",
                             "--target", path], check=True, capture_output=True, text=True).stdout
    return os.path.basename(os.path.realpath(source.strip()))


def kernel_log(device, stop, log):
    """Appends (time, bytes written to `device`, bytes received on lo) every 100 ms, as
    /proc/diskstats and /proc/net/dev count them."""
    while time.time() < stop:
        sample = [time.time(), 0, 0]
        with open("/proc/diskstats") as f:
            for line in f:
                fields = line.split()
                if fields[2] == device:
                    sample[1] = int(fields[9]) * 512
        with open("/proc/net/dev") as f:
            for line in f:
                name, _, counters = line.partition(":")
                if name.strip() == "lo":
                    sample[2] = int(counters.split()[0])
        log.append(sample)
        time.sleep(0.1)


def counted_at(log, when, column):
    """The log's count in `column` at `when`, interpolated."""
    for before, after in zip(log, log[1:]):
        if before[0] <= when <= after[0]:
            share = (when - before[0]) / (after[0] - before[0])
            return before[column] + (after[column] - before[column]) * share
    raise ValueError("no kernel sample around %.1f" % when)


def agrees(what, got, expected, problems):
    line = "%s: rate %.2f MiB/s, expected %.2f MiB/s" % (what, got / MIB, expected / MIB)
    print("e2e: " + line)
    if expected <= 0 or abs(got - expected) > TOLERANCE * expected:
        problems.append(line)


def main():
    deadline, problems = time.monotonic() + 90, ["the server did not answer"]
    while problems and time.monotonic() < deadline:
        try:
            problems = scraped()
        except (OSError, ValueError, KeyError) as error:
            problems = ["query failed: %s" % error]
        if problems:
            time.sleep(1)
    if problems:
        return failed(problems)
    device = device_of(os.path.realpath(work))
    result, log = {}, []
    stop = time.monotonic() + SECONDS
    threads = [threading.Thread(target=loopback, args=(stop, result)),
               threading.Thread(target=disk, args=(stop, result)),
               threading.Thread(target=kernel_log, args=(device, time.time() + SECONDS, log))]
    for thread in threads:
        thread.start()
    time.sleep(5)
    exported = query('zefo_process_info{job="zefo",pid="%d"}' % child)
    if [r["metric"].get("zefo_name") for r in exported] != ["e2e-child"]:
        problems.append("the registered child was not exported: %s" % exported)
    os.kill(child, signal.SIGTERM)
    time.sleep(SECONDS - 10)
    at = time.time()  # the window [at - 30 s, at] lies inside the traffic

    # rate() divides what grew between the window's first and last scrapes by the time between
    # them; the values are those of the passes the scrapes carried, which ended at the times
    # zefo_update_time_seconds gives (up to a period before the scrape).
    passes = query('zefo_update_time_seconds{job="zefo"}[30s]', at)
    (first_scrape, first_pass), (last_scrape, last_pass) = [
        (float(t), float(v)) for t, v in (passes[0]["values"][0], passes[0]["values"][-1])]

    for t in threads:
        t.join()

    def kernel_rate(column):
        grew = counted_at(log, last_pass, column) - counted_at(log, first_pass, column)
        return grew / (last_scrape - first_scrape)

    # The machine's loopback and disk are shared: what the kernel counted is the figure to meet,
    # the test's own traffic a floor.
    net = value('rate(zefo_network_receive_bytes_total{job="zefo",interface="lo"}[30s])', at)
    written = value(
        'rate(zefo_disk_written_bytes_total{job="zefo",device="%s"}[30s])' % device, at)
    for what, got, column, own in (("loopback received", net, 2, result["net"]),
                                   ("disk %s written" % device, written, 1, result["disk"])):
        agrees(what + " (the kernel's count)", got, kernel_rate(column), problems)
        print("e2e: %s: the test's own %.2f MiB/s" % (what, own / MIB))
        if got < (1 - TOLERANCE) * own:
            problems.append("%s: %.2f MiB/s, less than the test's own" % (what, got / MIB))
    for way, load in DDR_LOAD.items():
        ports = query('rate(zefo_ddr_port_%s_bytes_total{job="zefo"}[30s])' % way, at)
        if len(ports) != 5:
            problems.append("DDR %s: %d ports, not 5" % (way, len(ports)))
        for r in ports:
            agrees("DDR %s %s" % (r["metric"]["port"], way), float(r["value"][1]), load,
                   problems)

    # Every panel's query, over every board, at the server's 30 s rate interval.
    with open(dashboard) as f:
        panels = json.load(f)["panels"]
    empty = []
    for panel in panels:
        for target in panel["targets"]:
            expr = target["expr"].replace("$instance", ".+").replace("$__rate_interval", "30s")
            if not query(expr):
                empty.append("%s: %s" % (panel["title"], expr))
    print("e2e: %d dashboard queries, %d without data" % (
        sum(len(p["targets"]) for p in panels), len(empty)))
    problems += ["dashboard query without data: " + e for e in empty]

    gone = query('{job=~"zefo|node",pid="%d"}' % child)
    if gone:
        problems.append("the exited child is still in the latest scrape: %s" % gone[:3])

    request = urllib.request.Request("http://127.0.0.1:%s/metrics" % zefo_port,
                                     headers={"Accept": "application/openmetrics-text"})
    with urllib.request.urlopen(request, timeout=10) as reply:
        text = reply.read().decode()
    try:
        families = list(text_string_to_metric_families(text))
        print("e2e: the OpenMetrics reference parser read %d families" % len(families))
    except ValueError as error:
        problems.append("the OpenMetrics reference parser refused /metrics: %s" % error)

    return failed(problems)


if __name__ == "__main__":
    sys.exit(main())
