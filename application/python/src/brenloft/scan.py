"""Readings and sightings alone."""

from __future__ import annotations

import logging
from typing import Any, Callable, Iterator

from .events import Event, RadioChange, Reading, Sighting
from .search import Search

_log = logging.getLogger("brenloft")


class Scan:
    """The readings and sightings of a search, and nothing else: not what is found or lost. That the radio does not
    listen, and that it does again, is told to `on_message`, else as a warning of the logger `brenloft`."""

    def __init__(self, search: Search, on_message: Callable[[str], None] | None = None) -> None:
        self.search = search
        self._tell = on_message or _log.warning
        self._is_listening = True

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
            self._pass(event)
        return event

    def __aiter__(self) -> "Scan":
        return self

    async def __anext__(self) -> Reading | Sighting:
        while not isinstance(event := await self.search.__anext__(), (Reading, Sighting)):
            self._pass(event)
        return event

    def _pass(self, event: Event) -> None:
        if not isinstance(event, RadioChange):
            return
        if not (event.is_listening and self._is_listening):
            state = event.state.name.lower().replace("_", " ")
            self._tell(f"the radio is {state}" + (f": {event.reason}" if event.reason else ""))
        self._is_listening = event.is_listening


def scan(source: str = "auto", **settings: Any) -> Scan:
    """Everything that beacons send: `for reading in scan("demo")`, or `async for`. Settings as of `Search`,
    but those about losses, which only `Search` tells."""
    for name in settings.keys() & {"expected", "lost_after"}:
        raise TypeError(f"scan tells of no losses; Search does, with {name}")
    return Scan(Search(source, **settings), settings.get("on_message"))
