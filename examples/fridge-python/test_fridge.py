"""The alarm without a radio and without waiting: an hour in the air takes no time."""

import brenloft
from fridge import FridgeAlarm

FRIDGE = "C0-C1-5C-00-00-01"


class Kitchen:
    def __init__(self) -> None:
        self.air = brenloft.Air()
        self.search = brenloft.Search(air=self.air)
        self.told: list[str] = []
        self.alarm = FridgeAlarm(FRIDGE.lower(), self.told.append)

    def passes(self, *, minutes: float) -> None:
        self.air.advance(minutes * 60)
        for event in self.search:  # ends where it has given what happened so far
            self.alarm.heard(event)

    def measures(self, celsius: float, *, minutes: float) -> None:
        """The beacon sends this every ten seconds for so long."""
        number = self.air.repeat(FRIDGE, every=10, temperature_celsius=celsius, relative_humidity_percent=40)
        self.passes(minutes=minutes)
        self.air.silence(number)


def test_is_raised_once_after_ten_minutes_and_cleared_by_cold() -> None:
    kitchen = Kitchen()
    kitchen.measures(9.5, minutes=9)
    assert kitchen.told == []
    kitchen.measures(9.5, minutes=20)
    kitchen.measures(7.5, minutes=20)
    assert kitchen.told == ["the fridge is too warm: 9.5 °C"]
    kitchen.measures(4.0, minutes=1)
    assert kitchen.told[1:] == ["the fridge is cold again"]


def test_forgives_an_open_door() -> None:
    kitchen = Kitchen()
    for _ in range(10):
        kitchen.measures(9.5, minutes=5)
        kitchen.measures(5.0, minutes=1)
    assert kitchen.told == []


def test_tells_of_silence() -> None:
    kitchen = Kitchen()
    kitchen.measures(4.0, minutes=1)
    kitchen.passes(minutes=1)
    assert kitchen.told == ["no word from the fridge"]
