#!/usr/bin/env python3
"""Readings a second of processor time into Python, out of a capture: faces.py many.btsnoop. Needs the package."""

import asyncio
import sys
import time

started = time.process_time()
import brenloft  # noqa: E402

print(f"{'Python, import':32} {(time.process_time() - started) * 1000:.0f} ms")


def measure(what, run):
    before = time.process_time()
    readings = run(brenloft.scan("capture:" + sys.argv[1]))
    seconds = time.process_time() - before
    print(f"{what:32} {readings:9} readings {seconds:6.2f} s {readings / seconds:9.0f}/s")


async def awaited(scan):
    count = 0
    async for _ in scan:
        count += 1
    return count


measure("Python, for", lambda scan: sum(1 for _ in scan))
measure("Python, async for", lambda scan: asyncio.run(awaited(scan)))
