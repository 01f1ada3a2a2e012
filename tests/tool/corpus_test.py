#!/usr/bin/env python3
"""Holds what `hear` and `range` print against what an independent dissector saw in real captures, which are not
part of the project: corpus_test.py TOOL FOLDER, or the folder that BRENLOFT_CAPTURES names. Status 77 without."""
import collections
import json
import os
import pathlib
import subprocess
import sys

tool, folder = sys.argv[1], pathlib.Path(os.environ.get("BRENLOFT_CAPTURES", sys.argv[2]))


def lines(*arguments):
    ended = subprocess.run([tool, *arguments, "-F", "jsonl"], stdout=subprocess.PIPE, check=True)
    return [json.loads(line) for line in ended.stdout.splitlines()]


def ranged(source, uuid):
    events = lines("range", "-s", source, "--uuid", uuid, "--group", "2", "-q")
    beacons = [event["beacon"] for event in events if event["event"] == "beacon"]
    return {f'{beacon["uuid"]}/{beacon["major"]}/{beacon["minor"]}' for beacon in beacons}


def dissected(table):
    names, *rows = [row.split("\t") for row in table.read_text().splitlines()]
    reports = [dict(zip(names, row)) for row in rows]
    return [report for report in reports if report["crc"] != "bad"]


def check(capture, table):
    """The number of reports and of UUIDs that agree."""
    heard = lines("hear", "-s", f"capture:{capture}")
    seen = collections.defaultdict(set)
    compared = 0
    for report in dissected(table):
        if report["malformed"] == "1":
            # In this one the dissector loses a second report with each event that it gives up on.
            del heard[: 2 if capture.name == "btsnoop-decoder-multi.btsnoop" else 1]
            continue
        line = heard.pop(0)
        found = (line["address"].lower(), str(line["rssi"]), ",".join(line["uuids"]), line["manufacturer"] or "")
        first_of_several = report["manufacturer_data"].split(";")[0]
        expected = (report["address"], report["rssi"], report["service_uuids"], first_of_several)
        assert found == expected, f"{capture}, record {report['frame']}: {found}, not {expected}"
        compared += 1
        identity, _, _ = report["ibeacon"].upper().rpartition("/")  # the power stands behind it
        if len(identity) > 36:
            seen[identity[:36]].add(identity)
    assert not heard, f"{capture}: {len(heard)} reports more than dissected"
    for uuid, identities in seen.items():
        assert ranged(f"capture:{capture}", uuid) == identities, f"{capture}: {uuid}"
    return compared, len(seen)


if not folder.is_dir():
    sys.exit(77)
tables = sorted(folder.glob("*.*.tsv"))
counts = [check(table.with_suffix(""), table) for table in tables]
reports, uuids = map(sum, zip(*counts))
print(f"{reports} reports and the iBeacons of {uuids} UUIDs agree")
assert reports and uuids
