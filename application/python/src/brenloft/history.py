"""The history that `brenloft scan --history` and the service keep: its readings as rows."""

from __future__ import annotations

import pathlib
import sqlite3
from contextlib import closing
from datetime import datetime, timezone
from os import PathLike
from typing import TYPE_CHECKING, Iterator, NamedTuple

from .errors import AbsentError, Error, NotPermittedError

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


_QUERY = """
SELECT seq, seconds, beacon, rssi, temperature, humidity, battery, emergency FROM readings
WHERE (:beacon IS NULL OR beacon = :beacon) AND (:since IS NULL OR seconds >= :since)
  AND (:until IS NULL OR seconds < :until)
ORDER BY seq
"""


def _seconds(instant: datetime | None) -> float | None:
    return None if instant is None else instant.timestamp()


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
    from `since` up to but without `until`. It can be read while it is written."""
    file = pathlib.Path(path)
    values = {"beacon": beacon, "since": _seconds(since), "until": _seconds(until)}
    try:
        with closing(sqlite3.connect(f"{_file(path).absolute().as_uri()}?mode=ro", uri=True)) as connection:
            for seq, seconds, *rest in connection.execute(_QUERY, values):
                yield Row(seq, datetime.fromtimestamp(seconds, timezone.utc), *rest)
    except sqlite3.Error as error:
        raise Error(f"{path}: {error}") from error


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
