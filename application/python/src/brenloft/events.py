"""What happens: each kind of event is a tuple with names."""

from __future__ import annotations

import enum
from datetime import datetime, timezone
from typing import NamedTuple, Union

_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)


def _instant(microseconds: int) -> datetime:
    return datetime.fromtimestamp(microseconds / 1e6, timezone.utc).replace(microsecond=microseconds % 1_000_000)


class Reading(NamedTuple):
    """What one advertisement of a sensor beacon measured.

    A frame has the same zero for 0.00 °C and for a beacon that measures no temperature: it counts as 0.00 °C
    where the same frame has a humidity, else as None.
    """

    id: str  #: "C0-C1-5C-00-00-01"
    time_us: int  #: microseconds since 1970 in UTC; `time` gives it as a datetime
    rssi_dbm: int | None = None
    temperature_celsius: float | None = None
    relative_humidity_percent: float | None = None
    battery_percent: int = 0  #: 0 to 255 as sent; up to 100 by convention
    emergency: int = 0  #: 0 to 255 as sent; 1 or more signals an emergency
    tx_power: int = 0  #: 0 to 255 as sent
    acceleration: tuple[int, int, int] = (0, 0, 0)  #: x, y, z as sent
    service: str = ""  #: the first service UUID that it advertised

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)

    @property
    def is_emergency(self) -> bool:
        return self.emergency > 0


class Sighting(NamedTuple):
    """One advertisement of an iBeacon."""

    id: str  #: "UUID/major/minor"
    time_us: int
    rssi_dbm: int | None
    uuid: str
    major: int
    minor: int
    measured_power_dbm: int = -59  #: at one metre, as its maker measured

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)


class Found(NamedTuple):
    """A beacon is there that was not; comes before the reading that it was found by."""

    id: str
    time_us: int

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)


class Lost(NamedTuple):
    """A beacon was silent for `lost_after` seconds, while the radio listened."""

    id: str
    time_us: int
    last_heard_us: int  #: 0: it was expected, and never heard

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)

    @property
    def last_heard(self) -> datetime | None:
        return _instant(self.last_heard_us) if self.last_heard_us else None


class Emergency(NamedTuple):
    """A sensor's emergency began, or is over; comes behind its reading."""

    id: str
    time_us: int
    is_over: bool

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)


class RadioState(enum.Enum):
    """What a radio is good for now; the rest is in the reason of a `RadioChange`."""

    UNKNOWN = 0
    RESTARTING = 1  #: it failed and is tried again, without end
    UNUSABLE = 2  #: no bluetoothd, no adapter, or one that cannot listen
    NOT_PERMITTED = 3  #: this process may not use it
    OFF = 4  #: switched off, blocked, unplugged, or another program has it
    LISTENING = 5  #: it is on; whether it hears well, the reason tells


class RadioChange(NamedTuple):
    """The radio changed its state, or the reason for it; the first tells the state at the start. One that never
    listens says why here, and nothing else comes."""

    time_us: int
    state: RadioState
    reason: str  #: one line for people, or ""

    @property
    def is_listening(self) -> bool:
        return self.state is RadioState.LISTENING

    @property
    def time(self) -> datetime:
        return _instant(self.time_us)


class Missed(NamedTuple):
    """So many events were dropped: they came faster than they were taken."""

    count: int  # type: ignore[assignment]  # a tuple has one, too


Event = Union[Reading, Sighting, Found, Lost, Emergency, RadioChange, Missed]
