"""The Python package, as an application uses it."""

import asyncio
import json
import math
import os
import pathlib
import subprocess
import threading
from datetime import datetime, timedelta, timezone

import brenloft
import pytest

FRIDGE = "C0-C1-5C-00-00-01"
START = datetime(2026, 1, 1, tzinfo=timezone.utc)


def test_gives_what_a_sensor_does_in_order_on_virtual_time():
    air = brenloft.Air()
    search = brenloft.Search(air=air, lost_after=10)
    air.send(FRIDGE, temperature_celsius=-327.68, relative_humidity_percent=655.35, battery_percent=255, service="FFF0")
    air.advance(5)
    air.send(FRIDGE, emergency=1, rssi_dbm=None)
    air.advance(30)
    air.set_radio(brenloft.RadioState.OFF, "blocked by rfkill")
    radio, found, cold, unmeasured, emergency, lost, off = search
    assert radio == brenloft.RadioChange(radio.time_us, brenloft.RadioState.LISTENING, "") and radio.is_listening
    assert (type(found), found.id, found.time) == (brenloft.Found, FRIDGE, START)
    assert cold[2:6] == (-60, -327.68, 655.35, 255) and cold.service == "FFF0"
    assert unmeasured[2:5] == (None, None, None) and unmeasured.is_emergency
    assert emergency == brenloft.Emergency(FRIDGE, unmeasured.time_us, False)
    assert (lost.time, lost.last_heard) == (START + timedelta(seconds=15), START + timedelta(seconds=5))
    assert off[1:] == (brenloft.RadioState.OFF, "blocked by rfkill")
    assert list(search) == []
    air.send(FRIDGE)
    assert [type(event) for event in search] == []  # the radio is off


def test_loses_who_is_expected_and_never_heard():
    air = brenloft.Air()
    search = brenloft.Search(air=air, lost_after=10, expected=[FRIDGE.lower()])
    air.advance(10)
    _, lost = search
    assert (lost.id, lost.last_heard) == (FRIDGE, None)


def test_wakes_who_waits_for_a_search_that_is_closed():
    async def count(search):
        return sum([1 async for _ in search])

    async def run():
        search = brenloft.Search("demo?paced", services=["1234"])
        counting = asyncio.create_task(count(search))
        await asyncio.sleep(0.2)
        search.close()
        return search, await asyncio.wait_for(counting, 10)

    search, counted = asyncio.run(run())
    assert counted <= 1  # the radio's state
    with pytest.raises(brenloft.SearchEnded):
        search.take(1)


def test_may_be_closed_by_what_it_calls(tmp_path):
    recording = tmp_path / "recording.btsnoop"
    list(brenloft.scan("demo", record=recording))
    recording.write_bytes(recording.read_bytes() + bytes(30))
    lines = []
    is_made = threading.Event()

    def close(line):
        lines.append(line)
        is_made.wait()
        search.close()

    search = brenloft.Search(f"capture:{recording}", on_message=close)
    is_made.set()
    assert list(search) and "record" in lines[0]


def test_says_what_is_wrong_with_an_argument():
    for wrong in (
        lambda: brenloft.Search(pathlib.Path("x")),
        lambda: brenloft.Search(air="x"),
        lambda: brenloft.scan("demo", expected=[FRIDGE]),
        lambda: brenloft.Search("demo", services="1234"),
    ):
        with pytest.raises(TypeError, match="source is|air is|tells of no|are lists"):
            wrong()
    with pytest.raises(ValueError, match="lost_after"):
        brenloft.Search("demo", lost_after=float("nan"))
    with pytest.raises(brenloft.UnsupportedError, match="its kind is not searched for"):
        brenloft.Search("demo", expected=["51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1/2"])
    with pytest.raises(FileNotFoundError, match="nowhere"):
        next(brenloft.history("nowhere"))
    assert brenloft.decode(bytearray(22)).emergency == 0


def test_hears_only_the_ibeacons_of_a_region():
    air = brenloft.Air()
    uuid = "51C70E2A-9B44-4D1F-8A63-2FD075E81C36"
    scan = brenloft.scan(air=air, sensors=False, ibeacons=True, regions=[brenloft.Region(uuid, 65535)])
    air.send_ibeacon(uuid, 65535, 2)
    air.send_ibeacon(uuid, 1, 2)
    air.send(FRIDGE)
    (heard,) = scan
    assert heard[:1] + heard[2:] == (f"{uuid}/65535/2", -60, uuid, 65535, 2, -59)


def heard_by_the_tool(source):
    run = subprocess.run(
        [os.environ["BRENLOFT"], "scan", "--source", source, "--format", "readings"], check=True, capture_output=True
    )
    lines = [json.loads(line) for line in run.stdout.splitlines()]
    return [line for line in lines if line["event"] == "reading"]


def test_hears_a_recording_as_the_tool_does(tmp_path):
    recording = tmp_path / "recording.btsnoop"
    live = list(brenloft.scan("demo", record=recording))
    again = list(brenloft.scan(f"capture:{recording}"))
    assert again == live and len(live) > 200
    told = heard_by_the_tool(f"capture:{recording}")
    assert [(line["id"], line["temperature"], line["humidity"]) for line in told] == [
        (reading.id, reading.temperature_celsius, reading.relative_humidity_percent) for reading in again
    ]


def test_leaves_other_tasks_their_turn():
    async def main():
        turns = 0

        async def other():
            nonlocal turns
            while True:
                turns += 1
                await asyncio.sleep(0)

        beside = asyncio.create_task(other())
        readings = [reading async for reading in brenloft.scan("demo")]
        beside.cancel()
        return len(readings), turns

    readings, turns = asyncio.run(main())
    assert readings > 200 and turns > 1


def test_repeats_until_it_is_silenced():
    air = brenloft.Air()
    scan = brenloft.scan(air=air)
    number = air.repeat(FRIDGE, every=10, temperature_celsius=9.5)
    air.advance(30)
    air.silence(number)
    air.advance(30)
    assert [reading.temperature_celsius for reading in scan] == [9.5] * 4


def test_iterates_under_asyncio_beside_other_tasks():
    async def count(source):
        return sum([1 async for _ in brenloft.scan(source)])

    async def both():
        return await asyncio.gather(count("demo"), count("demo"))

    first, second = asyncio.run(both())
    assert first == second > 200


def test_says_what_is_wrong():
    with pytest.raises(brenloft.UnsupportedError, match="did you mean capture:x"):
        brenloft.scan("captur:x")
    with pytest.raises(brenloft.AbsentError, match="/nowhere/x"):
        brenloft.scan("capture:/nowhere/x")
    with pytest.raises(brenloft.UnsupportedError, match="no beacon has this id: fridge"):
        brenloft.beacon_id("fridge")
    assert brenloft.beacon_id("c0:c1:5c:00:00:01") == FRIDGE
    with pytest.raises(ValueError, match="no frame can carry this temperature"):
        brenloft.Air().send(FRIDGE, temperature_celsius=327.68)
    with pytest.raises(ValueError, match="22 octets"):
        brenloft.decode(bytes(21))
    assert brenloft.decode(bytes.fromhex("290988130c64000c61cf123456fc1803e8800001020a")).temperature_celsius == 23.45
    search = brenloft.Search("demo")
    search.close()
    assert list(search) == []


def test_gives_the_history_as_a_frame():
    pandas = pytest.importorskip("pandas", reason="the history was not tried as a frame: pandas is not installed")
    rows = list(brenloft.history(os.environ["BRENLOFT_KEPT"]))
    frame = brenloft.history_frame(os.environ["BRENLOFT_KEPT"], since=rows[1].time)
    later = [row for row in rows if row.time >= rows[1].time]
    assert list(frame.index) == [pandas.Timestamp(row.time) for row in later]
    assert list(frame["temperature_celsius"]) == [row.temperature_celsius for row in later]
    assert len(frame.groupby("beacon")["temperature_celsius"].resample("30s").mean()) > 5


def test_reads_the_history_as_rows():
    rows = list(brenloft.history(os.environ["BRENLOFT_KEPT"]))
    assert len(rows) > 200
    middle = rows[len(rows) // 2]
    some = list(brenloft.history(os.environ["BRENLOFT_KEPT"], beacon=middle.beacon, since=middle.time))
    assert some and all(row.beacon == middle.beacon and row.time >= middle.time for row in some)
    assert all(math.isfinite(row.temperature_celsius) for row in some)
