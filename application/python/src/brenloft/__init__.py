"""Hears Bluetooth Low Energy sensor beacons and iBeacons.

    import brenloft

    for reading in brenloft.scan("demo"):
        print(reading.id, reading.temperature_celsius)
"""

from ._interface import ffi as _ffi, lib as _lib
from .air import Air
from .errors import AbsentError, BusyError, Error, NotPermittedError, OffError, SearchEnded, UnsupportedError
from .events import Emergency, Event, Found, Lost, Missed, RadioChange, RadioState, Reading, Sighting
from .history import Row, history, history_frame
from .scan import Scan, scan
from .search import Region, Search, Source, beacon_id, decode, sources

#: Of the library that was loaded.
__version__: str = _ffi.string(_lib.brenloft_version()).decode()

__all__ = [
    "AbsentError", "Air", "BusyError", "Emergency", "Error", "Event", "Found", "Lost", "Missed", "NotPermittedError",
    "OffError", "RadioChange", "RadioState", "Reading", "Region", "Row", "Scan", "Search", "SearchEnded", "Sighting",
    "Source", "UnsupportedError", "beacon_id", "decode", "history", "history_frame", "scan", "sources",
]  # fmt: skip
