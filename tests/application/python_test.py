"""The Python package, as an application uses it."""

import asyncio
import json
import math
import os
import pathlib
import queue
import subprocess
import sys
import threading
from datetime import datetime, timedelta, timezone

import brenloft
import pytest

FRIDGE = "C0-C1-5C-00-00-01"
START = datetime(2026, 1, 1, tzinfo=timezone.utc)


def test_gives_what_a_sensor_does_in_order_on_virtual_time():
    air = brenloft.Air()
    search = brenloft.Search(air=air, lost_after=timedelta(seconds=10))
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


def test_loses_nobody_where_silence_may_last_for_ever():
    air = brenloft.Air()
    searches = [brenloft.Search(air=air, lost_after=long) for long in (math.inf, 1e300, timedelta.max)]
    air.send(FRIDGE)
    air.advance(timedelta(days=365))
    assert [[type(event) for event in search][2:] for search in searches] == [[brenloft.Reading]] * 3


def test_wakes_who_waits_for_a_search_that_is_closed():
    async def count(search):
        return sum([1 async for _ in search])

    async def run():
        search = brenloft.Search("demo?paced", services=["1234"])
        counting = asyncio.gather(count(search), count(search))
        await asyncio.sleep(0.2)
        search.close()
        return search, await asyncio.wait_for(counting, 10)

    search, counted = asyncio.run(run())
    assert sum(counted) <= 1  # the radio's state
    with pytest.raises(brenloft.SearchEnded):
        search.take(1)


def share(search, each):
    """Two threads that go through the search."""

    def take():
        for event in search:
            each(event)

    threads = [threading.Thread(target=take, daemon=True) for _ in range(2)]
    for thread in threads:
        thread.start()
    return threads


def have_ended(threads):
    for thread in threads:
        thread.join(30)
    return not any(thread.is_alive() for thread in threads)


def test_gives_each_event_to_one_of_several_threads(request):
    request.addfinalizer(lambda interval=sys.getswitchinterval(): sys.setswitchinterval(interval))
    sys.setswitchinterval(1e-5)
    whole = list(brenloft.Search("demo"))
    for _ in range(40):
        events = []
        assert have_ended(share(brenloft.Search("demo"), events.append))
        assert sorted(map(repr, events)) == sorted(map(repr, whole))


def test_ends_for_several_threads_when_it_is_closed():
    search = brenloft.Search("demo?paced")
    events = queue.Queue()
    threads = share(search, events.put)
    for _ in range(8):
        events.get(timeout=30)
    assert all(thread.is_alive() for thread in threads)
    search.close()
    assert have_ended(threads)


def test_waits_no_longer_than_it_is_told():
    search = brenloft.Search("demo?paced", services=["1234"])
    assert search.take(math.inf).is_listening
    threading.Timer(0.5, search.close).start()
    assert [search.take(nothing) for nothing in (-1, -1e300, timedelta(0))] == [None] * 3
    with pytest.raises(brenloft.SearchEnded):
        search.take(1e12)


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
    list(search)
    assert "record" in lines[0]


def test_says_what_is_wrong_with_an_argument():
    air = brenloft.Air()
    for wrong, named in (
        (lambda: brenloft.Search(pathlib.Path("x")), "source is"),
        (lambda: brenloft.Search(air="x"), "air is"),
        (lambda: brenloft.Search("demo", on_message=3), "on_message is"),
        (lambda: brenloft.scan("demo", expected=[FRIDGE]), "tells of no"),
        (lambda: brenloft.Search("demo", services="1234"), "services is a list"),
        (lambda: brenloft.Search("demo", expected=[None]), "each of expected is a text, not None"),
        (lambda: brenloft.Search("demo", lost_after="3"), "lost_after is in seconds"),
        (lambda: brenloft.beacon_id(None), "typed is a text"),
        (lambda: air.set_radio("off"), "state is a brenloft.RadioState"),
    ):
        with pytest.raises(TypeError, match=named):
            wrong()
    for seconds in (math.nan, 0, 0.0001, -math.inf):
        with pytest.raises(brenloft.UnsupportedError, match="lost_after is|loses a beacon"):
            brenloft.Search("demo", lost_after=seconds)
    for wrong in (lambda: brenloft.Search("demo\0"), lambda: brenloft.beacon_id(FRIDGE + "\0")):
        with pytest.raises(ValueError, match="NUL"):
            wrong()
    with pytest.raises(brenloft.UnsupportedError, match="a major or minor is"):
        brenloft.Search("demo", ibeacons=True, regions=[("51C70E2A-9B44-4D1F-8A63-2FD075E81C36", -1, None)])
    with pytest.raises(brenloft.UnsupportedError, match="its kind is not searched for"):
        brenloft.Search("demo", expected=["51C70E2A-9B44-4D1F-8A63-2FD075E81C36/1/2"])
    assert brenloft.decode(bytearray(22)).emergency == 0


def test_says_nothing_more_of_a_search_that_was_never_made(monkeypatch):
    said = []
    monkeypatch.setattr(sys, "unraisablehook", said.append)
    with pytest.raises(TypeError, match="lostafter"):
        brenloft.Search("demo", lostafter=3)
    type("Mine", (brenloft.Search,), {"__init__": lambda self: None})()
    assert said == []


def test_says_of_the_history_what_is_wrong(tmp_path):
    with pytest.raises(brenloft.AbsentError, match="nowhere"):
        brenloft.history("nowhere")
    with pytest.raises(TypeError, match="since"):
        brenloft.history(tmp_path, since="2026-01-01")
    with pytest.raises(brenloft.UnsupportedError, match="fridge"):
        brenloft.history(tmp_path, beacon="fridge")
    (tmp_path / "history.sqlite").write_text("no database, but a text that is long enough to be one" * 20)
    with pytest.raises(brenloft.Error, match="not a database"):
        next(brenloft.history(tmp_path))


def test_scans_with_a_word_of_a_radio_that_does_not_listen(caplog):
    air = brenloft.Air()
    lines = []
    scans = [brenloft.scan(air=air, on_message=lines.append), brenloft.scan(air=air)]
    air.set_radio(brenloft.RadioState.OFF, "blocked by rfkill")
    air.set_radio(brenloft.RadioState.LISTENING)
    assert [list(scan) for scan in scans] == [[], []]
    assert lines == caplog.messages == ["the radio is off: blocked by rfkill", "the radio is listening"]


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
    typed = middle.beacon.lower().replace("-", ":")
    assert some == list(brenloft.history(os.environ["BRENLOFT_KEPT"], beacon=typed, since=middle.time))
    # Each row's own time leads to it.
    for at in {row.time for row in rows}:
        until = list(brenloft.history(os.environ["BRENLOFT_KEPT"], until=at))
        assert until == [row for row in rows if row.time < at]
    assert all(math.isfinite(row.temperature_celsius) for row in some)
