"""Searches: what is heard, as an iterator, with and without asyncio."""

from __future__ import annotations

import asyncio
import math
import os
import select
import threading
import time
from collections import deque
from contextlib import contextmanager
from datetime import timedelta
from os import PathLike
from typing import Any, Callable, Iterable, Iterator, NamedTuple

from ._interface import ffi, lib
from .air import Air
from .arguments import milliseconds, octets, part, seconds, text_list
from .errors import SearchEnded, check
from .events import Event, Reading
from .layout import LAYOUT, event_of, new_event

_BATCH = 256
_DAY = 86400.0


class Region(NamedTuple):
    """A part of all iBeacons; None means any."""

    uuid: str
    major: int | None = None
    minor: int | None = None


def decode(data: bytes | bytearray | memoryview) -> Reading:
    """The reading in a sensor beacon's manufacturer data, 22 octets or more."""
    frame = memoryview(data).tobytes()
    event = new_event()
    check(lib.brenloft_decode(frame, len(frame), event))
    reading = event_of(LAYOUT.unpack(ffi.buffer(event)))
    assert isinstance(reading, Reading)
    return reading


def beacon_id(typed: str) -> str:
    """A beacon's id as events have it, of one that a person typed: of a sensor in either case, with dashes or
    colons; of an iBeacon "UUID/major/minor". UnsupportedError of a text that is no beacon's."""
    room = ffi.new("char[]", lib.BRENLOFT_ID_SIZE)
    check(lib.brenloft_beacon_id(octets("typed", typed), room, lib.BRENLOFT_ID_SIZE))
    return str(ffi.string(room), "utf-8")


@ffi.def_extern()
def brenloft_python_message(user_data: Any, line: Any) -> None:
    ffi.from_handle(user_data)(ffi.string(line).decode(errors="replace"))


def _part(number: int | None) -> int:
    return -1 if number is None else part(number)


def _places(regions: Any, uuids: list[Any]) -> Any:
    places = ffi.new("brenloft_region[]", len(uuids))
    for place, uuid, region in zip(places, uuids, regions):
        place.uuid, place.major, place.minor = uuid, _part(region.major), _part(region.minor)
    return places


class Search:
    """A search, from its making to `close`: an iterator over everything that happens.

        with brenloft.Search("demo") as search:
            for event in search:
                print(event)

    A recording or the demonstration waits for who takes its events; of a radio, those that nobody takes are
    dropped beyond 4,096, the oldest first, and counted. `on_message` takes lines for people, on any thread, also
    before the search is made. With `lost_after=math.inf` no beacon is ever lost.

    Several threads or tasks may share a search: each event goes to one of them, and when it ends, it ends for all.
    `on_message` and the handler of a signal may call `close`, and nothing else of it.
    """

    _search: Any = None  # also when it was never made

    def __init__(
        self,
        source: str = "auto",
        *,
        sensors: bool = True,
        ibeacons: bool = False,
        services: Iterable[str] = (),
        regions: Iterable[Region | str | tuple[str, int | None, int | None]] = (),
        lost_after: float | timedelta = 30.0,
        expected: Iterable[str] = (),
        record: str | PathLike[str] | None = None,
        on_message: Callable[[str], None] | None = None,
        air: Air | None = None,
    ) -> None:
        # Guards the next two, and the freeing. A signal's handler may close while its own thread has it.
        self._lock = threading.RLock()
        self._is_closed = False
        self._users = 0
        self._taking = threading.Lock()  # guards what the interface fills; never held for long
        self._waiting: deque[Event] = deque()
        if not isinstance(source, str):
            raise TypeError(f"source is a text such as 'auto' or 'capture:FILE', not {source!r}")
        if not isinstance(air, Air | None):
            raise TypeError(f"air is a brenloft.Air, not {air!r}")
        if on_message is not None and not callable(on_message):
            raise TypeError(f"on_message is a function that takes a line, not {on_message!r}")
        if isinstance(regions, str):
            raise TypeError(f"regions is a list, not {regions!r}")
        self._air = air
        self._message = ffi.new_handle(on_message) if on_message else ffi.NULL
        parts = [Region(region) if isinstance(region, str) else Region(*region) for region in regions]
        uuids = text_list("regions", [region.uuid for region in parts])
        places = _places(parts, uuids)
        wanted = text_list("services", services)
        awaited = text_list("expected", expected)
        # They live as long as the call below; a struct's member does not keep what it points to.
        service_list = ffi.new("char *[]", wanted)
        expected_list = ffi.new("char *[]", awaited)
        address = ffi.new("char[]", octets("source", source))
        file = ffi.NULL if record is None else ffi.new("char[]", octets("record", os.fsdecode(record)))
        settings = ffi.new(
            "brenloft_settings *",
            {
                "size": ffi.sizeof("brenloft_settings"),
                "source": address,
                "kinds": (lib.BRENLOFT_SENSORS if sensors else 0) | (lib.BRENLOFT_IBEACONS if ibeacons else 0),
                "services": ffi.cast("const char *const *", service_list),
                "service_count": len(wanted),
                "regions": places,
                "region_count": len(parts),
                "lost_after_ms": milliseconds("lost_after", lost_after),
                "record": file,
                "on_message": lib.brenloft_python_message if on_message else ffi.NULL,
                "user_data": self._message,
                "air": air._air if air else ffi.NULL,
                "expected": ffi.cast("const char *const *", expected_list),
                "expected_count": len(awaited),
            },
        )
        self._events = ffi.new("brenloft_event[]", _BATCH)
        self._octets = ffi.buffer(self._events)
        self._count = ffi.new("size_t *")
        made = ffi.new("brenloft_search **")
        check(lib.brenloft_search_start(settings, made))
        self._search = made[0]
        self._free()  # when on_message has closed it already

    def fileno(self) -> int:
        """Readable when there is an event, the end included; for `select` and its like."""
        with self._using() as search:
            return int(lib.brenloft_search_descriptor(search))

    def close(self) -> None:
        """Ends the search. What waits is dropped, and whoever waits for an event finds that it has ended. Any
        thread may call it, `on_message` and the handler of a signal, too."""
        try:
            with self._using() as search:
                self._is_closed = True
                if search is not None:
                    lib.brenloft_search_stop(search)  # makes its descriptor readable
        except SearchEnded:
            return
        self._waiting.clear()

    # It is freed when it is closed and nobody uses it any more.
    @contextmanager
    def _using(self) -> Iterator[Any]:
        with self._lock:
            if self._is_closed:
                raise SearchEnded("the search is closed")
            self._users += 1
        try:
            yield self._search
        finally:
            with self._lock:
                self._users -= 1
            self._free()

    def _free(self) -> None:
        with self._lock:
            if not self._is_closed or self._users > 0 or self._search is None:
                return
            search, self._search = self._search, None
        lib.brenloft_search_free(search)

    def take(self, timeout: float | timedelta | None = None) -> Event | None:
        """The next event, waiting for it up to so many seconds, or as long as it takes. None: there was none
        in that time. SearchEnded: nothing more will come."""
        until = math.inf if timeout is None else time.monotonic() + seconds("timeout", timeout)
        while (event := self._next()) is None:
            if not self._fill() and not self._wait(until):
                return None
        return event

    # Waits for what the interface has, or another thread took for all. False: there is nothing to wait for.
    def _wait(self, until: float) -> bool:
        with self._using() as search:
            left = until - time.monotonic()
            if self._air is not None or left <= 0:
                return False
            if not self._has_waiting():
                poll = select.poll()
                poll.register(lib.brenloft_search_descriptor(search), select.POLLIN)
                poll.poll(min(left, _DAY) * 1000)  # it takes no more than 24 days
        return True

    # For who is counted among the users: nobody takes more than one event from now on, see _fill.
    def _has_waiting(self) -> bool:
        with self._taking:
            return bool(self._waiting)

    # Another thread may close the search, and drop them.
    def _next(self) -> Event | None:
        try:
            return self._waiting.popleft()
        except IndexError:
            return None

    def __iter__(self) -> Iterator[Event]:
        return self

    def __next__(self) -> Event:
        try:
            return self._waiting.popleft()
        except IndexError:
            pass  # as below, but faster: most events are here at once
        try:
            event = self.take()
        except SearchEnded:
            raise StopIteration from None
        if event is None:
            raise StopIteration
        return event

    def __aiter__(self) -> "Search":
        return self

    async def __anext__(self) -> Event:
        try:
            while (event := self._next()) is None:
                await asyncio.sleep(0)  # a recording is always readable: other tasks have their turn
                if self._fill():
                    continue
                if self._air is not None:
                    raise StopAsyncIteration
                await self._readable()
        except SearchEnded:
            raise StopAsyncIteration from None
        return event

    def __enter__(self) -> "Search":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    async def __aenter__(self) -> "Search":
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if self._search is not None:
            self.close()

    # Takes what there is at once; raises SearchEnded at the end.
    def _fill(self) -> bool:
        with self._taking, self._using() as search:
            # Beside others that wait, one event only: for what is taken here, the descriptor does not wake them.
            batch = _BATCH if self._users == 1 else 1
            status = lib.brenloft_search_next_many(search, 0, self._events, LAYOUT.size, batch, self._count)
            check(status)
            if status == lib.BRENLOFT_END:
                raise SearchEnded("the search has ended: nothing more will come")
            count = int(self._count[0])
            self._waiting.extend(map(event_of, LAYOUT.iter_unpack(memoryview(self._octets)[: count * LAYOUT.size])))
            if self._is_closed:  # meanwhile
                self._waiting.clear()
        return count > 0

    async def _readable(self) -> None:
        loop = asyncio.get_running_loop()
        ready: asyncio.Future[None] = loop.create_future()

        def wake() -> None:
            if not ready.done():
                ready.set_result(None)

        with self._using() as search:
            if self._has_waiting():
                return
            descriptor = os.dup(lib.brenloft_search_descriptor(search))  # a loop has one reader of each
            try:
                loop.add_reader(descriptor, wake)
                await ready
            finally:
                loop.remove_reader(descriptor)
                os.close(descriptor)


class Source(NamedTuple):
    """One thing that this machine offers to hear, or would."""

    address: str
    name: str
    state: str  #: "usable", or why not
    why: str
    is_automatic: bool


@ffi.def_extern()
def brenloft_python_source(user_data: Any, source: Any) -> None:
    def text(member: Any) -> str:
        return str(ffi.string(member), "utf-8", "replace")

    ffi.from_handle(user_data).append(
        Source(text(source.address), text(source.name), text(source.state), text(source.why), source.is_automatic != 0)
    )


def sources() -> list[Source]:
    """What this machine offers to hear."""
    found: list[Source] = []
    handle = ffi.new_handle(found)
    check(lib.brenloft_sources(lib.brenloft_python_source, handle))
    return found
