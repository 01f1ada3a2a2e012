"""Searches: what is heard, as an iterator, with and without asyncio."""

from __future__ import annotations

import asyncio
import select
import struct
import threading
from collections import deque
from contextlib import contextmanager
from os import PathLike, fspath
from typing import Any, Callable, Iterable, Iterator, NamedTuple

from ._interface import ffi, lib
from .events import Emergency, Event, Found, Lost, Missed, RadioChange, RadioState, Reading, Sighting

# brenloft_event, member by member: unpacking all of it is much faster than asking for one member at a time.
_LAYOUT = struct.Struct("@Niiq64siiddii3i40si40siiqQ256si0Q")
assert _LAYOUT.size == ffi.sizeof("brenloft_event"), "the installed library has another brenloft_event"
_NO_RSSI = -(2**31)
_BATCH = 256


class Error(Exception):
    """Something failed; the text is one line for people."""


class AbsentError(Error):
    """Nothing is there under that name."""


class BusyError(Error):
    """Somebody else has it."""


class OffError(Error):
    """It is there and switched off."""


class NotPermittedError(Error):
    """The process lacks a right."""


class UnsupportedError(Error, ValueError):
    """An address, a text or a number that can be none."""


class SearchEnded(Error):
    """The search has ended, or was closed: nothing more will come."""


_ERRORS = {
    lib.BRENLOFT_FAILED: Error,
    lib.BRENLOFT_BUSY: BusyError,
    lib.BRENLOFT_ABSENT: AbsentError,
    lib.BRENLOFT_OFF: OffError,
    lib.BRENLOFT_NOT_PERMITTED: NotPermittedError,
    lib.BRENLOFT_UNSUPPORTED: UnsupportedError,
}


def check(status: int) -> None:
    """Raises what a function of the interface returned, when that is an error."""
    if status < 0:
        raise _ERRORS.get(status, Error)(ffi.string(lib.brenloft_error_text()).decode())


class Region(NamedTuple):
    """A part of all iBeacons; None means any."""

    uuid: str
    major: int | None = None
    minor: int | None = None


def _text(field: bytes) -> str:
    return field[: field.index(0)].decode()


def _event(fields: tuple[Any, ...]) -> Event:
    (_, kind, flag, time, id_, rssi, battery, temperature, humidity, emergency, tx_power, x, y, z, service,
     power, uuid, major, minor, last_heard, count, text, radio_state) = fields  # fmt: skip
    measured = None if rssi == _NO_RSSI else rssi
    if kind == lib.BRENLOFT_READING:
        return Reading(
            _text(id_), time, measured,
            None if temperature != temperature else temperature,
            None if humidity != humidity else humidity,
            battery, emergency, tx_power, (x, y, z), _text(service),
        )  # fmt: skip
    if kind == lib.BRENLOFT_SIGHTING:
        return Sighting(_text(id_), time, measured, _text(uuid), major, minor, power)
    if kind == lib.BRENLOFT_FOUND:
        return Found(_text(id_), time)
    if kind == lib.BRENLOFT_LOST:
        return Lost(_text(id_), time, last_heard)
    if kind == lib.BRENLOFT_EMERGENCY:
        return Emergency(_text(id_), time, flag == 0)
    if kind == lib.BRENLOFT_RADIO:
        return RadioChange(time, RadioState(radio_state), _text(text))
    return Missed(count)


def _struct(**members: Any) -> Any:
    return ffi.new("brenloft_event *", {"size": _LAYOUT.size, **members})


def decode(data: bytes | bytearray | memoryview) -> Reading:
    """The reading in a sensor beacon's manufacturer data, 22 octets or more."""
    octets = memoryview(data).tobytes()
    event = _struct()
    check(lib.brenloft_decode(octets, len(octets), event))
    reading = _event(_LAYOUT.unpack(ffi.buffer(event)))
    assert isinstance(reading, Reading)
    return reading


def beacon_id(typed: str) -> str:
    """A beacon's id as events have it, of one that a person typed: of a sensor in either case, with dashes or
    colons; of an iBeacon "UUID/major/minor". UnsupportedError of a text that is no beacon's."""
    room = ffi.new("char[]", lib.BRENLOFT_ID_SIZE)
    check(lib.brenloft_beacon_id(typed.encode(), room, lib.BRENLOFT_ID_SIZE))
    return str(ffi.string(room), "utf-8")


@ffi.def_extern()
def brenloft_python_message(user_data: Any, line: Any) -> None:
    ffi.from_handle(user_data)(ffi.string(line).decode(errors="replace"))


class Search:
    """A search, from its making to `close`: an iterator over everything that happens.

        with brenloft.Search("demo") as search:
            for event in search:
                print(event)

    A recording or the demonstration waits for who takes its events; of a radio, those that nobody takes are
    dropped beyond 4,096, the oldest first, and counted. `on_message` takes lines for people, on any thread, also
    before the search is made.
    """

    def __init__(
        self,
        source: str = "auto",
        *,
        sensors: bool = True,
        ibeacons: bool = False,
        services: Iterable[str] = (),
        regions: Iterable[Region | str | tuple[str, int | None, int | None]] = (),
        lost_after: float = 30.0,
        expected: Iterable[str] = (),
        record: str | PathLike[str] | None = None,
        on_message: Callable[[str], None] | None = None,
        air: "Air | None" = None,
    ) -> None:
        self._lock = threading.Lock()  # guards the next three
        self._search: Any = None
        self._is_closed = False
        self._users = 0
        self._waiting: deque[Event] = deque()
        if isinstance(services, str) or isinstance(expected, str):
            raise TypeError("services and expected are lists, not one text")
        if not isinstance(source, str):
            raise TypeError(f"source is a text such as 'auto' or 'capture:FILE', not {source!r}")
        if not isinstance(air, Air | None):
            raise TypeError(f"air is a brenloft.Air, not {air!r}")
        parts = [Region(region) if isinstance(region, str) else Region(*region) for region in regions]
        if not 0 < lost_after < float("inf"):
            raise ValueError(f"lost_after is in seconds, more than 0: {lost_after}")
        self._air = air
        self._message = ffi.new_handle(on_message) if on_message else ffi.NULL
        keep = [ffi.new("char[]", text.encode()) for text in services]
        awaited = [ffi.new("char[]", text.encode()) for text in expected]
        names = [ffi.new("char[]", region.uuid.encode()) for region in parts]
        places = ffi.new("brenloft_region[]", len(names))
        for place, name, region in zip(places, names, parts):
            place.uuid = name
            place.major = -1 if region.major is None else region.major
            place.minor = -1 if region.minor is None else region.minor
        service_list = ffi.new("char *[]", keep)
        expected_list = ffi.new("char *[]", awaited)
        address = ffi.new("char[]", source.encode())
        file = ffi.new("char[]", fspath(record).encode()) if record is not None else ffi.NULL
        settings = ffi.new(
            "brenloft_settings *",
            {
                "size": ffi.sizeof("brenloft_settings"),
                "source": address,
                "kinds": (lib.BRENLOFT_SENSORS if sensors else 0) | (lib.BRENLOFT_IBEACONS if ibeacons else 0),
                "services": ffi.cast("const char *const *", service_list),
                "service_count": len(keep),
                "regions": places,
                "region_count": len(names),
                "lost_after_ms": round(lost_after * 1000),
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
        thread, also that of `on_message`."""
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

    def take(self, timeout: float | None = None) -> Event | None:
        """The next event, waiting for it up to so many seconds, or as long as it takes. None: there was none
        in that time. SearchEnded: nothing more will come."""
        if not self._waiting and not self._fill() and self._air is None:
            with self._using() as search:
                poll = select.poll()
                poll.register(lib.brenloft_search_descriptor(search), select.POLLIN)
                poll.poll(None if timeout is None else timeout * 1000)
            self._fill()
        return self._next()

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
        self.close()

    # Takes what there is at once; raises SearchEnded at the end.
    def _fill(self) -> bool:
        size = _LAYOUT.size
        with self._using() as search:
            status = lib.brenloft_search_next_many(search, 0, self._events, size, _BATCH, self._count)
            check(status)
        if status == lib.BRENLOFT_END:
            raise SearchEnded("the search has ended: nothing more will come")
        count = int(self._count[0])
        self._waiting.extend(map(_event, _LAYOUT.iter_unpack(memoryview(self._octets)[: count * size])))
        return count > 0

    async def _readable(self) -> None:
        loop = asyncio.get_running_loop()
        ready: asyncio.Future[None] = loop.create_future()

        def wake() -> None:
            if not ready.done():
                ready.set_result(None)

        with self._using() as search:
            descriptor = lib.brenloft_search_descriptor(search)
            loop.add_reader(descriptor, wake)
            try:
                await ready
            finally:
                loop.remove_reader(descriptor)


class Scan:
    """The readings and sightings of a search, and nothing else: not what is found or lost."""

    def __init__(self, search: Search) -> None:
        self.search = search

    def close(self) -> None:
        self.search.close()

    def __enter__(self) -> "Scan":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    async def __aenter__(self) -> "Scan":
        return self

    async def __aexit__(self, *_: object) -> None:
        self.close()

    def __iter__(self) -> Iterator[Reading | Sighting]:
        return self

    def __next__(self) -> Reading | Sighting:
        while not isinstance(event := next(self.search), (Reading, Sighting)):
            pass
        return event

    def __aiter__(self) -> "Scan":
        return self

    async def __anext__(self) -> Reading | Sighting:
        while not isinstance(event := await self.search.__anext__(), (Reading, Sighting)):
            pass
        return event


def scan(source: str = "auto", **settings: Any) -> Scan:
    """Everything that beacons send: `for reading in scan("demo")`, or `async for`. Settings as of `Search`,
    but those about losses, which only `Search` tells."""
    for name in settings.keys() & {"expected", "lost_after"}:
        raise TypeError(f"scan tells of no losses; Search does, with {name}")
    return Scan(Search(source, **settings))


class Air:
    """An air without a radio, and its clock, for tests: time stands still until the test moves it.

        air = brenloft.Air()
        alarm = FridgeAlarm(brenloft.Search(air=air))
        air.repeat("C0-C1-5C-00-00-01", every=10, temperature_celsius=9.5)
        air.advance(660)

    What its searches find is there when `send` or `advance` returns; they end where they have given it.
    """

    def __init__(self) -> None:
        made = ffi.new("brenloft_air **")
        check(lib.brenloft_air_make(made))
        self._air = ffi.gc(made[0], lib.brenloft_air_free)

    def send(self, id: str, **measured: Any) -> None:
        """Sends one advertisement of a sensor beacon now, with what `reading` takes. The same one again within
        20 ms is heard once."""
        check(lib.brenloft_air_send(self._air, self.reading(id, **measured)))

    def repeat(self, id: str, *, every: float, **measured: Any) -> int:
        """Sends it now and then every so many seconds, until `silence` is called with the returned number."""
        number = ffi.new("int32_t *")
        check(lib.brenloft_air_repeat(self._air, self.reading(id, **measured), round(every * 1000), number))
        return int(number[0])

    def silence(self, number: int) -> None:
        """Ends what `repeat` began."""
        check(lib.brenloft_air_silence(self._air, number))

    @staticmethod
    def reading(
        id: str,
        *,
        temperature_celsius: float | None = None,
        relative_humidity_percent: float | None = None,
        battery_percent: int = 100,
        emergency: int = 0,
        rssi_dbm: int | None = -60,
        service: str = "",
    ) -> Any:
        """What a sensor beacon sends. 0.00 °C without a humidity is heard as no temperature."""
        if len(id.encode()) >= lib.BRENLOFT_ID_SIZE:
            raise UnsupportedError(f"no sensor has this id: {id}")
        absent = float("nan")
        return _struct(
            kind=lib.BRENLOFT_READING,
            id=id.encode(),
            temperature_celsius=absent if temperature_celsius is None else temperature_celsius,
            relative_humidity_percent=absent if relative_humidity_percent is None else relative_humidity_percent,
            battery_percent=battery_percent,
            emergency=emergency,
            rssi_dbm=_NO_RSSI if rssi_dbm is None else rssi_dbm,
            service=service.encode(),
        )

    def send_ibeacon(self, uuid: str, major: int, minor: int, *, rssi_dbm: int | None = -60) -> None:
        """Sends one advertisement of an iBeacon now."""
        event = _struct(
            kind=lib.BRENLOFT_SIGHTING,
            uuid=uuid.encode(),
            major=major,
            minor=minor,
            measured_power_dbm=-59,
            rssi_dbm=_NO_RSSI if rssi_dbm is None else rssi_dbm,
        )
        check(lib.brenloft_air_send(self._air, event))

    def advance(self, seconds: float) -> None:
        """Moves the clock; what becomes due on the way happens, each at its own instant."""
        check(lib.brenloft_air_advance(self._air, round(seconds * 1000)))

    def set_radio(self, state: RadioState, reason: str = "") -> None:
        """Switches the radio off, or makes it fail otherwise, for this reason; or on again."""
        check(lib.brenloft_air_set_radio(self._air, state.value, reason.encode()))


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
