#!/usr/bin/env python3
"""fridge.py BEACON [SOURCE]: watches one beacon."""

import sys
from collections.abc import Callable
from datetime import datetime, timedelta

import brenloft


class FridgeAlarm:
    """Says when a fridge was too warm for ten minutes, when it is cold again, and when its beacon is silent."""

    TOO_WARM = 8.0
    COLD_AGAIN = 7.0  # below the first, so that it does not flicker
    PATIENCE = timedelta(minutes=10)

    def __init__(self, beacon: str, notify: Callable[[str], None]) -> None:
        self._beacon = brenloft.beacon_id(beacon)
        self._notify = notify
        self._warm_since: datetime | None = None
        self.is_raised = False

    def heard(self, event: brenloft.Event) -> None:
        if isinstance(event, brenloft.Reading) and event.id == self._beacon and event.temperature_celsius is not None:
            self._measured(event.temperature_celsius, event.time)
        if isinstance(event, brenloft.Lost) and event.id == self._beacon:
            self._notify("no word from the fridge")

    # The reading's own time: the same on a recording, and in a test.
    def _measured(self, celsius: float, time: datetime) -> None:
        if celsius < self.COLD_AGAIN:
            if self.is_raised:
                self._notify("the fridge is cold again")
            self.is_raised = False
        if celsius <= self.TOO_WARM:
            self._warm_since = None
            return
        self._warm_since = self._warm_since or time
        if not self.is_raised and time - self._warm_since >= self.PATIENCE:
            self.is_raised = True
            self._notify(f"the fridge is too warm: {celsius} °C")


def main(beacon: str, source: str = "auto") -> None:
    alarm = FridgeAlarm(beacon, lambda line: print(line, flush=True))  # at once, also into a file or a pipe
    for event in brenloft.Search(source, expected=[beacon]):
        if isinstance(event, brenloft.RadioChange) and not event.is_listening:
            print("no radio:", event.reason, file=sys.stderr)
        alarm.heard(event)


if __name__ == "__main__":
    if not 2 <= len(sys.argv) <= 3:
        sys.exit("usage: fridge.py BEACON [SOURCE]")
    try:
        main(*sys.argv[1:])
    except brenloft.Error as error:
        sys.exit(str(error))
