"""The history that `brenloft scan --history` and the service keep: its readings as rows."""

from __future__ import annotations

import pathlib
import sqlite3
from contextlib import closing
from datetime import datetime, timedelta, timezone
from os import PathLike
from typing import TYPE_CHECKING, Any, Iterator, NamedTuple

from .errors import AbsentError, Error, NotPermittedError
from .search import beacon_id

if TYPE_CHECKING:
    import pandas  # type: ignore[import]


class Row(NamedTuple):
    """One reading as it was kept, with the beacon's offsets; None where it has none."""

    seq: int
    time: datetime
    beacon: str
    rssi_dbm: int | None
    temperature_celsius: float | None
    relative_humidity_percent: float | None
    battery_percent: int | None
    emergency: int | None


# In whole microseconds, as they were kept and as a datetime has them.
_QUERY = """
SELECT seq, CAST(round(seconds * 1e6) AS INTEGER) AS at, beacon, rssi, temperature, humidity, battery, emergency FROM readings
WHERE (:beacon IS NULL OR beacon = :beacon) AND (:since IS NULL OR at >= :since)
  AND (:until IS NULL OR at < :until)
ORDER BY seq
"""


_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


def _microseconds(name: str, instant: datetime | None) -> int | None:
    if instant is None:
        return None
    if not isinstance(instant, datetime):
        raise TypeError(f"{name} is a datetime, not {instant!r}")
    return (instant.astimezone(timezone.utc) - _EPOCH) // timedelta(microseconds=1)


def _file(path: str | PathLike[str]) -> pathlib.Path:
    file = pathlib.Path(path)
    try:
        if file.is_dir():
            file = file / "history.sqlite"
        if not file.exists():
            raise AbsentError(f"no history there: {file}")
    except PermissionError as error:
        raise NotPermittedError(f"{file}: {error.strerror}") from error
    return file


def history(
    path: str | PathLike[str],
    *,
    beacon: str | None = None,
    since: datetime | None = None,
    until: datetime | None = None,
) -> Iterator[Row]:
    """The readings in a `history.sqlite`, or in the container that holds one, in the order they were kept;
    from `since` up to but without `until`, of all beacons or of one, by its id as a person types it. It can be
    read while it is written."""
    values = {
        "beacon": None if beacon is None else beacon_id(beacon),
        "since": _microseconds("since", since),
        "until": _microseconds("until", until),
    }
    return _rows(_file(path), values)


def _rows(file: pathlib.Path, values: dict[str, Any]) -> Iterator[Row]:
    try:
        with closing(sqlite3.connect(f"{file.absolute().as_uri()}?mode=ro", uri=True)) as connection:
            for seq, at, *rest in connection.execute(_QUERY, values):
                yield Row(seq, _EPOCH + timedelta(microseconds=at), *rest)
    except sqlite3.Error as error:
        raise Error(f"{file}: {error}") from error


def history_frame(
    path: str | PathLike[str],
    *,
    beacon: str | None = None,
    since: datetime | None = None,
    until: datetime | None = None,
) -> "pandas.DataFrame":
    """The same as a pandas DataFrame with the time as its index; needs pandas."""
    import pandas

    rows = history(path, beacon=beacon, since=since, until=until)
    return pandas.DataFrame(rows, columns=Row._fields).set_index("time")
