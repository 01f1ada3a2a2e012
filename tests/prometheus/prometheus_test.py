#!/usr/bin/env python3
"""Debian's Prometheus scrapes a gateway's file and the live page of its history; an alert fires for the beacon that falls silent.

    prometheus_test.py TOOL [MINUTES]     3 minutes at least
"""
import functools
import http.server
import json
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

examples = pathlib.Path(__file__).resolve().parents[2] / "examples/prometheus"
tool = sys.argv[1]
minutes = max(3.0, float(sys.argv[2]) if len(sys.argv) > 2 else 3.0)
SILENT, LOUD = "C0-C1-5C-00-00-01", "C0-C1-5C-00-00-00"
running = []


def check(command, text=None):
    done = subprocess.run(command, input=text, capture_output=True, text=True, timeout=60)
    if done.returncode != 0 or done.stderr.strip() and command[1] == "check":
        sys.exit(f"{' '.join(map(str, command))}: {done.stdout}{done.stderr}")


def start(command, log):
    running.append(subprocess.Popen(command, stdout=log, stderr=log, stdin=subprocess.DEVNULL))
    return running[-1]


def capture_of_a_silence(file, seconds, silent_from):
    """A capture in which one beacon is not heard any more from then on."""
    check([tool, "simulate", "--out", str(file), "--beacons", "2", "--seconds", str(seconds)])
    data = file.read_bytes()
    kept, at, first = data[:16], 16, None
    marker = bytes.fromhex(SILENT.replace("-", ""))
    while at < len(data):
        length, = struct.unpack(">I", data[at + 4:at + 8])
        when, = struct.unpack(">Q", data[at + 16:at + 24])
        record = data[at:at + 24 + length]
        first = first or when
        is_silent = marker in record or marker[::-1] in record
        if not is_silent or when - first < silent_from * 1_000_000:
            kept += record
        at += len(record)
    if len(kept) == len(data):
        sys.exit("the capture has no beacon to be silent")
    file.write_bytes(kept)


class Quiet(http.server.SimpleHTTPRequestHandler):
    extensions_map = {".prom": "text/plain; version=0.0.4; charset=utf-8"}

    def log_message(self, *_):
        pass


def serve(folder):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=folder))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


def free_port():
    import socket
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def ask(port, path, **query):
    url = f"http://127.0.0.1:{port}/api/v1/{path}?{urllib.parse.urlencode(query)}"
    with urllib.request.urlopen(url, timeout=10) as answer:
        return json.load(answer)["data"]


def value_of(port, expression):
    result = ask(port, "query", query=expression)["result"]
    return float(result[0]["value"][1]) if result else None


def dashboard_expressions():
    board = json.loads((examples / "dashboard.json").read_text())
    for panel in board["panels"]:
        for target in panel["targets"]:
            expression = re.sub(r"\$(instance|beacon)", ".*", target["expr"])
            yield panel["title"], re.sub(r"\$__\w*interval", "1m", expression)


def failures_of(port, job):
    """What is wrong with what was scraped of it."""
    def of(name, **labels):
        return name + "{" + ",".join(f'{key}="{value}"' for key, value in {"job": job, **labels}.items()) + "}"

    span = f"[{int(minutes)}m]"
    scrapes = value_of(port, f"count_over_time({of('up')}{span})") or 0
    answered = value_of(port, f"sum_over_time({of('up')}{span})") or 0
    print(f"{job}: {scrapes:.0f} scrapes, {answered:.0f} answered")
    if scrapes < minutes * 60 / 5 * 0.9 or scrapes - answered > 2:
        yield "scrapes are missing"
    if value_of(port, of("brenloft_beacon_temperature_celsius", beacon=SILENT)) is not None:
        yield "who is silent still has a temperature"
    if value_of(port, of("brenloft_beacon_temperature_celsius", beacon=LOUD)) is None:
        yield "who is there has no temperature"
    for alert in "BrenloftAlarm", "BrenloftBeaconSilent":
        if value_of(port, f"count({of('ALERTS', alertname=alert, alertstate='firing')})") is None:
            yield f"{alert} does not fire"


def main(work):
    check(["promtool", "check", "rules", str(examples / "alerts.yml")])
    check(["promtool", "test", "rules", str(examples / "alerts_test.yml")])
    silent_from = minutes * 10
    capture_of_a_silence(work / "capture", minutes * 60 + 60, silent_from)
    (work / "settings.toml").write_text(
        f'[beacon."{LOUD}"]\nname = "Fridge \\"old\\" \\\\"\nplace = "Kitchen"\n'
        f'[beacon."{SILENT}"]\nname = "Cellar"\nexit-time = 10\n'
        '[[alarm]]\nname = "hot"\nquantity = "temperature"\nabove = -50\n')
    (work / "web").mkdir()
    (work / "container").mkdir()
    page = work / "web/metrics.prom"
    log = open(work / "log", "w")
    start([tool, "scan", "--config", str(work / "settings.toml"), "--container", str(work / "container"), "--history",
           "--source", f"capture:{work}/capture?paced", "--format", "none", "--metrics-file", str(page),
           "--metrics-interval", "5"], log)
    target, live, port = serve(work / "web"), free_port(), free_port()
    start([tool, "serve", "--config", str(work / "settings.toml"), "--container", str(work / "container"),
           "--listen", str(live)], log)
    (work / "prometheus.yml").write_text(json.dumps({
        "global": {"scrape_interval": "5s", "evaluation_interval": "5s"},
        "rule_files": [str(examples / "alerts.yml")],
        "scrape_configs": [{"job_name": "brenloft", "metrics_path": "/metrics.prom",
                            "static_configs": [{"targets": [f"127.0.0.1:{target}"]}]},
                           {"job_name": "live", "static_configs": [{"targets": [f"127.0.0.1:{live}"]}]}]}))
    start(["prometheus", f"--config.file={work}/prometheus.yml", f"--storage.tsdb.path={work}/tsdb",
           f"--web.listen-address=127.0.0.1:{port}"], log)

    begin = time.monotonic()
    fired, values = None, None
    while time.monotonic() - begin < minutes * 60:
        time.sleep(5)
        try:
            alerts = ask(port, "alerts")["alerts"]
            if values is None and time.monotonic() - begin > 20:
                values = {title: len(ask(port, "query", query=one)["result"]) for title, one in dashboard_expressions()}
        except OSError:
            continue
        silent = [one for one in alerts if one["labels"]["alertname"] == "BrenloftBeaconSilent"]
        if fired is None and any(one["state"] == "firing" for one in silent):
            fired = time.monotonic() - begin
            print(f"after {fired:.0f} s, silent from {silent_from:.0f} s: {silent[0]['annotations']['summary']}")
            if {one["labels"]["beacon"] for one in silent} != {SILENT}:
                sys.exit(f"not that one alone: {silent}")
    check(["promtool", "check", "metrics"], page.read_text())
    with urllib.request.urlopen(f"http://127.0.0.1:{live}/metrics", timeout=10) as answer:
        check(["promtool", "check", "metrics"], answer.read().decode())

    failures = []
    if fired is None:
        failures.append("no alert fired")
    if not values or 0 in values.values():
        failures.append("a chart of the dashboard is empty")
    print(f"charts and their series: {values}")
    for job in "brenloft", "live":
        failures += [f"{job}: {one}" for one in failures_of(port, job)]
    if failures:
        print((work / "log").read_text()[-2000:])
        sys.exit("; ".join(failures))


with tempfile.TemporaryDirectory() as folder:
    try:
        main(pathlib.Path(folder))
    finally:
        for one in running:
            one.terminate()
        for one in running:
            try:
                one.wait(10)
            except subprocess.TimeoutExpired:
                one.kill()
