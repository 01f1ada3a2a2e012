#!/usr/bin/env python3
"""What publishing costs, and how long it takes, at a real broker: measure.py TOOL

Emergencies behind a backlog, latency and processor at 1,000 readings a second, octets on the wire, and what it costs when
nothing happens. Write the machine's load beside the figures: everything runs beside each other here.
"""
import datetime
import json
import os
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

TOOL = sys.argv[1]
BEACONS = 1000


class Subscriber:
    """Every message with the time of its coming."""

    def __init__(self, port, topics):
        command = ["mosquitto_sub", "-p", str(port), "-F", "%U\t%t\t%p"]
        self.process = subprocess.Popen(command + [word for t in topics for word in ("-t", t)], stdout=subprocess.PIPE, text=True)
        self.messages = []
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.process.stdout:
            moment, topic, payload = line.rstrip("\n").split("\t", 2)
            self.messages.append((float(moment), topic, payload))

    def wait(self, is_enough, seconds=300):
        end = time.time() + seconds
        while time.time() < end and not is_enough(self.messages):
            time.sleep(0.05)


class Bench:
    def __init__(self, folder):
        self.folder, self.running = folder, []
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        with open(folder + "/conf", "w", encoding="utf-8") as conf:
            conf.write(f"listener {self.port} 127.0.0.1\nallow_anonymous true\nuser root\nsys_interval 1\nmax_queued_messages 0\n")

    def start(self, *command):
        self.running.append(subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL))
        return self.running[-1]

    def broker(self):
        self.start("mosquitto", "-c", self.folder + "/conf")
        while subprocess.run(["mosquitto_pub", "-p", str(self.port), "-t", "up", "-n"], stderr=subprocess.DEVNULL).returncode:
            time.sleep(0.1)

    def subscribe(self, *topics):
        subscriber = Subscriber(self.port, topics)
        self.running.append(subscriber.process)
        return subscriber

    def publisher(self, container, *options):
        return self.start(TOOL, "publish", "--config", "/dev/null", "--container", container, "--gateway", "gw", "--broker",
                          f"mqtt://127.0.0.1:{self.port}", *options)

    def scan(self, container, source):
        return self.start(TOOL, "scan", "--config", "/dev/null", "--container", container, "--source", source, "--history",
                          "--format", "none")

    def end(self, process=None):
        for one in [process] if process else self.running:
            one.send_signal(signal.SIGTERM)
            one.wait()
            if process:
                self.running.remove(one)


def usage(process):
    """Seconds of processor, memory in MB, how often it was woken."""
    with open(f"/proc/{process.pid}/stat", encoding="utf-8") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
        memory = next(int(line.split()[1]) / 1024 for line in file if line.startswith("VmRSS"))
    wakes = 0
    for thread in os.listdir(f"/proc/{process.pid}/task"):
        with open(f"/proc/{process.pid}/task/{thread}/status", encoding="utf-8") as file:
            wakes += next(int(line.split()[1]) for line in file if line.startswith("voluntary"))
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK"), memory, wakes


def octets(system, readings):
    """That the broker was sent for each of the readings, which are the times of their coming."""
    # The first was retained, and is of an earlier moment.
    (begun, _, first), (ended, _, last) = system.messages[1], system.messages[-1]
    return (int(last) - int(first)) / sum(begun <= moment < ended for moment in readings)


def moment_of(payload):
    return datetime.datetime.fromisoformat(json.loads(payload)["time"].replace("Z", "+00:00")).timestamp()


def backlog(bench, capture):
    container = bench.folder + "/backlog"
    bench.scan(container, "capture:" + capture).wait()
    shown = subprocess.run([TOOL, "history", "export", "--config", "/dev/null", "--container", container, "--format", "jsonl"],
                           capture_output=True, text=True, check=True).stdout
    urgent = shown.count('"event":"emergency')
    events = bench.subscribe("brenloft/gw/event", "brenloft/gw/status")
    publisher = bench.publisher(container, "--from", "all")

    def came(messages):
        return [moment for moment, _, payload in messages if '"event":"emergency' in payload]

    events.wait(lambda messages: len(came(messages)) >= urgent)
    begun = next(moment for moment, _, payload in events.messages if payload == "online")
    print(f"backlog of {shown.count(chr(10))} rows: {len(came(events.messages))} of {urgent} emergencies and their ends came, the first "
          f"{came(events.messages)[0] - begun:.3f} s and the last {came(events.messages)[-1] - begun:.3f} s after the connection")
    time.sleep(5)  # events come first
    batches, system = bench.subscribe("brenloft/gw/batch"), bench.subscribe("$SYS/broker/bytes/received")
    time.sleep(20)
    rows = [moment for moment, _, payload in batches.messages for _ in range(payload.count('"seq":'))]
    print(f"on the wire in a batch: {octets(system, rows):.0f} octets a reading")
    for one in (publisher, batches.process, system.process):
        bench.end(one)


def live(bench, capture, batches):
    container = f"{bench.folder}/live-{batches}"
    os.mkdir(container)
    publisher = bench.publisher(container, "--batches", batches)
    states = bench.subscribe("brenloft/gw/beacon/+/state")
    scan = bench.scan(container, f"capture:{capture}?paced")
    time.sleep(20)
    system = bench.subscribe("$SYS/broker/bytes/received")
    since, (before, _, _) = time.time(), usage(publisher)
    time.sleep(40)
    now, (after, memory, _) = time.time(), usage(publisher)
    wire = octets(system, [moment for moment, _, _ in states.messages])
    late = sorted(moment - moment_of(payload) for moment, _, payload in states.messages if since <= moment < now)
    print(f"live, batches {batches}: {len(late) / (now - since):.0f} states a second; from the advertisement to the subscriber "
          f"median {statistics.median(late):.3f} s, 99 % {late[len(late) * 99 // 100]:.3f} s; "
          f"processor {100 * (after - before) / (now - since):.1f} %, memory {memory:.0f} MB; "
          f"{wire:.0f} octets a reading")
    bench.end(scan)
    time.sleep(5)
    since, (before, _, first) = time.time(), usage(publisher)
    time.sleep(60)
    after, memory, last = usage(publisher)
    now = time.time()
    print(f"idle: processor {1000 * (after - before) / (now - since):.2f} ms a second, {(last - first) / (now - since):.1f} wake-ups "
          f"a second, memory {memory:.0f} MB")
    for one in (publisher, states.process, system.process):
        bench.end(one)


def main():
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(folder)
        try:
            capture = folder + "/capture"
            subprocess.run([TOOL, "simulate", "--out", capture, "--beacons", str(BEACONS), "--seconds", "105"], check=True)
            print(f"load {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores")
            bench.broker()
            backlog(bench, capture)
            for batches in ("on", "off"):
                live(bench, capture, batches)
            print(f"load {os.getloadavg()[0]:.1f}")
        finally:
            bench.end()


if __name__ == "__main__":
    main()
