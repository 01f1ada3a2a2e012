"""Hears Bluetooth Low Energy sensor beacons and iBeacons.

    import brenloft

    for reading in brenloft.scan("demo"):
        print(reading.id, reading.temperature_celsius)
"""

from .events import Emergency, Event, Found, Lost, Missed, RadioChange, Reading, Sighting
from .history import Row, history, history_frame
from .search import (
    AbsentError,
    Air,
    Error,
    NotPermittedError,
    Region,
    Scan,
    Search,
    Source,
    UnsupportedError,
    decode,
    scan,
    sources,
)

__all__ = [
    "AbsentError", "Air", "Emergency", "Error", "Event", "Found", "Lost", "Missed", "NotPermittedError",
    "RadioChange", "Reading", "Region", "Row", "Scan", "Search", "Sighting", "Source", "UnsupportedError",
    "decode", "history", "history_frame", "scan", "sources",
]  # fmt: skip
