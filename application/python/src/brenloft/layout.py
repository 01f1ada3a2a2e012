"""The interface's event, and the tuple for it."""

from __future__ import annotations

import struct
from typing import Any

from ._interface import ffi, lib
from .events import Emergency, Event, Found, Lost, Missed, RadioChange, RadioState, Reading, Sighting

# brenloft_event, member by member: unpacking all of it is much faster than asking for one member at a time.
LAYOUT = struct.Struct("@Niiq64siiddii3i40si40siiqQ256si0Q")
assert LAYOUT.size == ffi.sizeof("brenloft_event"), "the installed library has another brenloft_event"
NO_RSSI = -(2**31)


def _text(field: bytes) -> str:
    return field[: field.index(0)].decode()


def event_of(fields: tuple[Any, ...]) -> Event:
    (_, kind, flag, time, id_, rssi, battery, temperature, humidity, emergency, tx_power, x, y, z, service,
     power, uuid, major, minor, last_heard, count, text, radio_state) = fields  # fmt: skip
    measured = None if rssi == NO_RSSI else rssi
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


def new_event(**members: Any) -> Any:
    return ffi.new("brenloft_event *", {"size": LAYOUT.size, **members})
