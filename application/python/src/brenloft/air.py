"""An air without a radio."""

from __future__ import annotations

from datetime import timedelta
from typing import Any

from ._interface import ffi, lib
from .arguments import milliseconds, octets, part
from .errors import UnsupportedError, check
from .events import RadioState
from .layout import NO_RSSI, new_event


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

    def repeat(self, id: str, *, every: float | timedelta, **measured: Any) -> int:
        """Sends it now and then every so many seconds, until `silence` is called with the returned number."""
        number = ffi.new("int32_t *")
        check(lib.brenloft_air_repeat(self._air, self.reading(id, **measured), milliseconds("every", every), number))
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
        name = octets("id", id)
        if len(name) >= lib.BRENLOFT_ID_SIZE:
            raise UnsupportedError(f"no sensor has this id: {id}")
        absent = float("nan")
        return new_event(
            kind=lib.BRENLOFT_READING,
            id=name,
            temperature_celsius=absent if temperature_celsius is None else temperature_celsius,
            relative_humidity_percent=absent if relative_humidity_percent is None else relative_humidity_percent,
            battery_percent=battery_percent,
            emergency=emergency,
            rssi_dbm=NO_RSSI if rssi_dbm is None else rssi_dbm,
            service=octets("service", service),
        )

    def send_ibeacon(self, uuid: str, major: int, minor: int, *, rssi_dbm: int | None = -60) -> None:
        """Sends one advertisement of an iBeacon now."""
        event = new_event(
            kind=lib.BRENLOFT_SIGHTING,
            uuid=octets("uuid", uuid),
            major=part(major),
            minor=part(minor),
            measured_power_dbm=-59,
            rssi_dbm=NO_RSSI if rssi_dbm is None else rssi_dbm,
        )
        check(lib.brenloft_air_send(self._air, event))

    def advance(self, seconds: float | timedelta) -> None:
        """Moves the clock; what becomes due on the way happens, each at its own instant."""
        check(lib.brenloft_air_advance(self._air, milliseconds("seconds", seconds)))

    def set_radio(self, state: RadioState, reason: str = "") -> None:
        """Switches the radio off, or makes it fail otherwise, for this reason; or on again."""
        if not isinstance(state, RadioState):
            raise TypeError(f"state is a brenloft.RadioState, not {state!r}")
        check(lib.brenloft_air_set_radio(self._air, state.value, octets("reason", reason)))
