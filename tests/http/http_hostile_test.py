#!/usr/bin/env python3
"""zefo-monitor --listen on loopback: what each route serves (the newest pass, the page, the
dashboard's bounded history); then hostile clients: held half-open connections, oversized and
body-carrying requests, SIGTERM while clients hold connections, and TLS with basic auth from a
web configuration file (certificate and bcrypt hash made here).
Exits 0 on success, 1 with a message on failure."""

import argparse
import base64
import http.client
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import warnings

with warnings.catch_warnings():
    warnings.simplefilter("ignore", DeprecationWarning)
    import crypt

ONLY_ME = ("--period", "200", "--pid", str(os.getpid()))
HELD = 500  # half-open connections, 25 from each of 20 loopback addresses


def fail(message):
    sys.stderr.write("FAIL: %s\n" % message)
    sys.exit(1)


def start(monitor, *extra):
    server = subprocess.Popen([monitor, "--listen", "127.0.0.1:0", *extra],
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    line = server.stderr.readline()
    if "serving " not in line:
        fail("no banner: %r" % (line + server.stderr.read()))
    return server, int(line.rsplit(":", 1)[1].split("/")[0])


def rss_kb(pid):
    with open("/proc/%d/status" % pid) as status:
        return int(next(l for l in status if l.startswith("VmRSS")).split()[1])


def connect(port, source="127.0.0.1"):
    return socket.create_connection(("127.0.0.1", port), timeout=5, source_address=(source, 0))


def get(port, path, headers=None, context=None, method="GET", body=None):
    """Sends one request on a connection of its own; returns (status, headers, body)."""
    if context is None:
        conn = http.client.HTTPConnection("127.0.0.1", port, timeout=5)
    else:
        conn = http.client.HTTPSConnection("127.0.0.1", port, timeout=5, context=context)
    try:
        conn.request(method, path, body, headers or {})
        answer = conn.getresponse()
        return answer.status, answer.headers, answer.read()
    finally:
        conn.close()


def wait_first_pass(port, headers=None, context=None):
    """Until the first pass, /metrics answers 503."""
    for _ in range(100):
        if get(port, "/metrics", headers, context)[0] == 200:
            return
        time.sleep(0.05)
    fail("/metrics never answered 200")


def expect(condition, message):
    if not condition:
        fail(message)


def check_routes(monitor):
    """At a 10 ms period with a one-second history, a route at a time."""
    server, port = start(monitor, "--period", "10", "--history", "1")
    try:
        wait_first_pass(port)
        status, _, body = get(port, "/")
        expect(status == 200 and b'href="/metrics"' in body, "the page: %d" % status)
        expect(get(port, "/nothing")[0] == 404, "/nothing is not 404")
        # Without an Accept header, the text format. OpenMetrics for what Prometheus sends is
        # prometheus_e2e.sh's (zefo_bpu scraped as an info); which headers prefer what,
        # tests/tools/http_routes_test.cpp's.
        _, headers, body = get(port, "/metrics")
        expect(headers["content-type"] == "text/plain; version=0.0.4; charset=utf-8" and
               b"\nzefo_update_time_seconds " in body, "/metrics: %s" % headers)
        # The history keeps its window (about 100 passes; the ring itself is
        # tests/tools/pass_history_test.cpp's), every pass with its charted figures; /api/latest
        # is the newest of them as the JSON format writes it.
        time.sleep(1.5)
        history = json.loads(get(port, "/api/history")[2])
        times = history["times"]
        expect(2 <= len(times) <= 101 and times[-1] - times[0] < 1000 and
               history["window_seconds"] == 1 and history["period_ms"] == 10 and
               history["series"] and
               all(len(s["values"]) == len(times) for s in history["series"]),
               "/api/history: %d passes over %d ms, %s" % (
                   len(times), times[-1] - times[0], {k: history[k] for k in history
                                                       if k not in ("times", "series")}))
        _, headers, body = get(port, "/api/latest")
        latest = json.loads(body)
        expect(headers["content-type"] == "application/json" and latest["cpu"] and
               latest["update_time"] >= times[-1], "/api/latest: %s" % headers)
        for bad in ("0", "x", "1e999"):
            expect(get(port, "/api/history?seconds=" + bad)[0] == 400, "seconds=" + bad)
        # Another zefo-monitor on the same port says so and exits 2.
        taken = subprocess.run([monitor, "--listen", "127.0.0.1:%d" % port],
                               capture_output=True, text=True, timeout=10)
        expect(taken.returncode == 2 and "cannot listen on 127.0.0.1:%d: Address already in "
               "use" % port in taken.stderr, "a taken port: %r" % taken.stderr)
    finally:
        server.send_signal(signal.SIGTERM)
        out, _ = server.communicate(timeout=5)
    # Serving without --format keeps standard output quiet.
    expect(server.returncode == 0 and out == "", "exit %d, output %r" % (server.returncode, out))
    print("routes: /, /metrics, /api/history and /api/latest, a taken port")


def check_hostile(monitor):
    # Watching only this script keeps the passes small: what is timed here is the server.
    server, port = start(monitor, *ONLY_ME)
    try:
        wait_first_pass(port)
        held = []
        for n in range(HELD):
            sock = connect(port, "127.0.0.%d" % (2 + n % 20))
            sock.sendall(b"GET /metrics HTTP/1.1\r\nHost: b\r\n")  # and never the rest
            held.append(sock)
        time.sleep(0.2)
        began = time.monotonic()
        status, _, body = get(port, "/metrics")
        took = time.monotonic() - began
        if status != 200 or b"zefo_update_time_seconds" not in body or took > 1:
            fail("/metrics with %d half-open connections held: %d in %.3f s" % (HELD, status, took))
        print("scrape with %d half-open connections held: %.1f ms, server RSS %d kB" %
              (HELD, took * 1000, rss_kb(server.pid)))
        # One address may hold only so many: the rest are closed at once.
        crowd = [connect(port, "127.0.0.99") for _ in range(40)]
        closed = 0
        for sock in crowd:
            sock.settimeout(1)
            try:
                closed += sock.recv(1) == b""
            except (socket.timeout, ConnectionResetError):
                closed += isinstance(sys.exc_info()[1], ConnectionResetError)
        expect(closed > 0, "40 connections from one address were all kept")

        cases = [
            # (method, path, headers, body, status expected)
            ("GET", "/" + "x" * 20000, {}, None, 414),
            ("GET", "/", {"X-Big": "y" * 20000}, None, 431),
            ("DELETE", "/metrics", {}, None, 405),
            ("GET", "/metrics", {}, "hello", 413),
        ]
        for method, path, headers, body, expected in cases:
            status = get(port, path, headers, method=method, body=body)[0]
            expect(status == expected, "%s %s: %d, not %d" % (method, path[:20], status, expected))

        # A 100 MB body is refused before it is read: the answer comes while it is being sent,
        # and the server does not grow by it.
        before = rss_kb(server.pid)
        sock = connect(port)
        sock.sendall(b"POST /metrics HTTP/1.1\r\nHost: b\r\nContent-Length: 100000000\r\n\r\n")
        sent, chunk = 0, b"z" * 65536
        try:
            while sent < 100000000:
                sent += sock.send(chunk)
        except OSError:
            pass
        answer = sock.recv(4096) if sent < 100000000 else b""
        if sent >= 100000000 or not answer.startswith(b"HTTP/1.1 405 "):
            fail("a 100 MB POST was taken whole (%d bytes sent): %r" % (sent, answer[:80]))
        if rss_kb(server.pid) - before > 10000:
            fail("the server grew by %d kB on a refused body" % (rss_kb(server.pid) - before))

        # gzip: Prometheus asks for it on every scrape (prometheus_e2e.sh), chromium for the page
        # and its API (dashboard_e2e.sh); which codings ask, tests/tools/http_routes_test.cpp.

        # SIGTERM ends it within a second whatever the held connections and a reader that
        # never reads do.
        slow = connect(port)
        slow.sendall(b"GET /metrics HTTP/1.1\r\nHost: b\r\n\r\n" * 50)
        began = time.monotonic()
        server.send_signal(signal.SIGTERM)
        code = server.wait(timeout=5)
        took = time.monotonic() - began
        if code != 0 or took > 1:
            fail("SIGTERM with clients holding connections: exit %d after %.2f s" % (code, took))
        print("SIGTERM with %d connections held: ended in %.0f ms" % (HELD + 41, took * 1000))
    finally:
        if server.poll() is None:
            server.kill()


def check_web_config(monitor, openssl):
    tmp = tempfile.mkdtemp(prefix="zefo-web-config-")
    path = lambda name: os.path.join(tmp, name)
    subprocess.run([openssl, "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                    "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                    path("board.key"), "-out", path("board.crt")], check=True, capture_output=True)
    # A real cost, so that guessing costs the server what it would on a board.
    digest = crypt.crypt("right", crypt.mksalt(crypt.METHOD_BLOWFISH, rounds=1 << 12))
    tls = "tls_server_config:\n  cert_file: board.crt\n  key_file: board.key\n"
    users = "basic_auth_users:\n  scraper: '%s'\n" % digest
    bad = [
        ("tls_server_config: [", "not valid YAML"),
        ("tls_server_config:\n  cert_file: board.crt\n", "needs both cert_file and key_file"),
        (tls.replace("board.crt", "none.crt"), "cannot read cert_file"),
        ("tls_server_config:\n  cert_file: board.key\n  key_file: board.crt\n", "do not make"),
        (tls + "  min_version: TLS13\n", "min_version is not supported"),
        ("basic_auth_users:\n  scraper: plain\n", "is not a bcrypt hash"),
        ("listen: 1\n", "listen is not a known setting"),
    ]
    for n, (text, expected) in enumerate(bad):
        with open(path("bad%d.yml" % n), "w") as out:
            out.write(text)
        run = subprocess.run([monitor, "--listen", "127.0.0.1:0", "--web-config",
                              path("bad%d.yml" % n)], capture_output=True, text=True, timeout=10)
        if run.returncode != 2 or expected not in run.stderr:
            fail("web config %r: exit %d, %r" % (text, run.returncode, run.stderr))

    with open(path("web.yml"), "w") as out:
        out.write(tls + users)
    server, port = start(monitor, "--web-config", path("web.yml"), *ONLY_ME)
    try:
        context = ssl.create_default_context(cafile=path("board.crt"))
        auth = lambda who: {"Authorization": "Basic " + base64.b64encode(who.encode()).decode()}
        wait_first_pass(port, auth("scraper:right"), context)
        for who in ("scraper:wrong", "nobody:right"):
            status, headers, _ = get(port, "/metrics", auth(who), context)
            if status != 401 or "basic" not in headers.get("www-authenticate", "").lower():
                fail("%s: %d" % (who, status))
        expect(get(port, "/", {}, context)[0] == 401, "the dashboard is served without a password")
        try:  # plain HTTP to the TLS port: no answer
            plain = get(port, "/metrics", auth("scraper:right"))[0]
        except (OSError, http.client.HTTPException) as error:
            plain = error
        expect(plain != 200, "plain HTTP to the TLS port was answered")
        # Someone guessing passwords keeps bcrypt busy; the scraper, whose login passed
        # before, is still answered at once.
        done = time.monotonic() + 2
        def guess():
            while time.monotonic() < done:
                try:
                    get(port, "/metrics", auth("scraper:guess"), context)
                except (OSError, http.client.HTTPException):
                    pass  # a guess may wait behind the others longer than the client does
        guessers = [threading.Thread(target=guess) for _ in range(6)]
        for thread in guessers:
            thread.start()
        time.sleep(0.5)
        began = time.monotonic()
        status = get(port, "/metrics", auth("scraper:right"), context)[0]
        took = time.monotonic() - began
        for thread in guessers:
            thread.join()
        if status != 200 or took > 1:
            fail("while passwords were guessed: %d after %.2f s" % (status, took))
        print("scrape over TLS while 6 clients guess passwords: %.1f ms" % (took * 1000))
    finally:
        server.send_signal(signal.SIGTERM)
        server.wait(timeout=5)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--monitor", required=True)
    parser.add_argument("--openssl", default="openssl")
    args = parser.parse_args()
    check_routes(args.monitor)
    check_hostile(args.monitor)
    check_web_config(args.monitor, args.openssl)
    print("ok")


if __name__ == "__main__":
    main()
