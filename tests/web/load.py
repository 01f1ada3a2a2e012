#!/usr/bin/python3
"""What `brenloft serve` costs and bears: load.py TOOL [FOLDER]

500 streams at 10 events/s beside questions, then clients that hold places, and views of the history in FOLDER (a year of it by
`bench_history ROWS BEACONS FOLDER/history.sqlite 365`). Prints figures; status 1 where something is not as it should be.
"""
import asyncio
import json
import os
import statistics
import struct
import subprocess
import sys
import tempfile
import time
import urllib.parse

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import beacon_week  # noqa: E402

TOOL = sys.argv[1]
STREAMS, RATE, SECONDS = 500, 10, 15
wrong = []


def check(is_right, what):
    print(('' if is_right else 'WRONG: ') + what, flush=True)
    if not is_right:
        wrong.append(what)


class Server:
    def __init__(self, folder):
        self.process = subprocess.Popen([TOOL, 'serve', '--listen', '0', '-C', folder], stderr=subprocess.PIPE, text=True)
        self.port = int(self.process.stderr.readline().rstrip('/\n').rsplit(':', 1)[1])

    def processor(self):
        with open(f'/proc/{self.process.pid}/stat', encoding='utf-8') as file:
            return sum(int(field) for field in file.read().rsplit(') ', 1)[1].split()[11:13]) / os.sysconf('SC_CLK_TCK')

    def memory(self):
        with open(f'/proc/{self.process.pid}/status', encoding='utf-8') as file:
            return next(int(line.split()[1]) / 1024 for line in file if line.startswith('VmRSS'))

    def stop(self):
        self.process.terminate()
        return self.process.wait(30)


async def ask(port, path, headers=''):
    """The status, the body, and how many milliseconds it took."""
    start = time.perf_counter()
    reader, writer = await asyncio.open_connection('127.0.0.1', port)
    writer.write(f'GET {path} HTTP/1.0\r\nHost: localhost\r\n{headers}\r\n'.encode())
    try:
        answer = await asyncio.wait_for(reader.read(), 60)
    except ConnectionResetError:
        answer = b''
    writer.close()
    head, _, body = answer.partition(b'\r\n\r\n')
    return int(head.split()[1]) if head else 0, body, (time.perf_counter() - start) * 1e3


async def stream(port, counts, number):
    reader, writer = await asyncio.open_connection('127.0.0.1', port)
    writer.write(b'GET /api/events HTTP/1.0\r\nHost: localhost\r\n\r\n')
    try:
        while line := await reader.readline():
            if line.startswith(b'id: '):
                counts[number] += 1
    finally:
        writer.close()


async def streams_beside_questions(folder):
    radio = subprocess.Popen([TOOL, 'scan', '--uuid', '180F', '--source', 'capture:-?paced', '--history', '--format', 'none',
                              '-C', folder], stdin=subprocess.PIPE)
    radio.stdin.write(b'btsnoop\0' + struct.pack('>II', 1, 1002))
    beacons = beacon_week.beacons()

    def hear(i):
        beacon = beacons[i % 10]
        radio.stdin.write(beacon_week.packet(i / 1e3, beacon_week.advertisement(
            beacon, beacon_week.frame(beacon, 0, 0, 4 + i % 7), -60)))
        radio.stdin.flush()
    hear(0)
    server = Server(folder)
    counts = [0] * STREAMS
    streams = [asyncio.create_task(stream(server.port, counts, i)) for i in range(STREAMS)]
    await asyncio.sleep(3)
    times, before, start = [], server.processor(), list(counts)
    for i in range(RATE * SECONDS):
        hear(i)
        if i % 2 == 0:
            status, _, taken = await ask(server.port, '/api/beacons')
            times.append(taken)
            assert status == 200
        await asyncio.sleep(1 / RATE)
    await asyncio.sleep(2)
    used = server.processor() - before
    got = [count - first for count, first in zip(counts, start)]
    print(f'{STREAMS} streams at {RATE} events/s for {SECONDS} s: {used:.2f} s of processor, {server.memory():.0f} MB; '
          f'a question beside takes {statistics.median(times):.1f} ms (median), {max(times):.1f} ms at the most')
    check(min(got) == max(got) and min(got) >= RATE * SECONDS, f'every stream has every event: {min(got)} to {max(got)}')
    for task in streams:
        task.cancel()
    await asyncio.gather(*streams, return_exceptions=True)
    radio.stdin.close()
    radio.terminate()
    radio.wait(20)
    await asyncio.sleep(7)  # a heartbeat finds them gone
    return server


async def clients_that_hold_places(server):
    port = server.port
    refused = 0
    held = []
    for _ in range(1000):
        try:
            reader, writer = await asyncio.open_connection('127.0.0.1', port)
            writer.write(b'GET / HT')
            held.append((reader, writer))
        except OSError:
            refused += 1
    await asyncio.sleep(1)
    gone = sum(reader.at_eof() or reader._exception is not None for reader, _ in held) + refused  # pylint: disable=protected-access
    check(gone >= 300, f'of 1000 connections {gone} are refused, {server.memory():.0f} MB')
    start = time.perf_counter()
    while (await ask(port, '/healthz'))[0] == 0 and time.perf_counter() - start < 30:
        for _, writer in held:  # an octet now and then
            if not writer.is_closing():
                writer.write(b'T')
        await asyncio.sleep(.5)
    check(time.perf_counter() - start < 15, f'slow ones are left after {time.perf_counter() - start:.0f} s')
    for _, writer in held:
        writer.close()
    reader, writer = await asyncio.open_connection('127.0.0.1', port)
    writer.write(b'POST /api/history HTTP/1.1\r\nHost: localhost\r\nContent-Length: 1000000000\r\n\r\n')
    sent = 0
    try:
        for _ in range(1000):
            writer.write(b'x' * 1_000_000)
            sent += 1
            await asyncio.wait_for(writer.drain(), 20)
    except (OSError, asyncio.TimeoutError):
        pass
    check(sent < 50, f'of a request of 1 GB at most {sent} MB are sent, {server.memory():.0f} MB')
    for path in ('/../../etc/passwd', '/%2e%2e/%2e%2e/etc/passwd', '/..%2f..%2fetc/passwd', '//etc/passwd', '/history.sqlite',
                 '/' + 'a' * 8000, '/%00', '/api/history?beacon=' + urllib.parse.quote("' OR 1=1 --")):
        status, body, _ = await ask(port, path)
        check(status in (400, 404, 414, 431) and b'root:' not in body, f'{path[:40]}: {status}')


async def views(folder):
    server = Server(folder)
    status, page, first = await ask(server.port, '/')
    _, _, again = await ask(server.port, '/')
    check(status == 200, f'first view {first:.0f} ms, again {again:.0f} ms, {len(page) / 1e3:.0f} KB, {server.memory():.0f} MB')
    _, body, _ = await ask(server.port, '/api/beacons')
    beacon = json.loads(body)['beacons'][0]['beacon']
    for name, since in (('a day', '1d'), ('a week', '7d'), ('a month', '30d'), ('a year', '365d')):
        times = []
        for _ in range(5):
            status, body, taken = await ask(server.port, f'/api/history?beacon={beacon}&since={since}&points=720')
            times.append(taken)
        points = len(json.loads(body)['temperature'])
        check(status == 200 and points > 100, f'{name} of one beacon in {points} points: {min(times):.0f} to {max(times):.0f} ms')
    print(f'{server.memory():.0f} MB')
    server.stop()


async def main():
    with tempfile.TemporaryDirectory(prefix='brenloft-load-') as folder:
        server = await streams_beside_questions(folder)
        await clients_that_hold_places(server)
        check((await ask(server.port, '/healthz'))[0] in (200, 503), 'it still answers')
        check(server.stop() == 0, 'and ends in order')
    if len(sys.argv) > 2:
        await views(sys.argv[2])
    sys.exit(1 if wrong else 0)

asyncio.run(main())
