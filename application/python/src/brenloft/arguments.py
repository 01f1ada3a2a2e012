"""What is handed in: checked here, where the argument's name is known."""

from __future__ import annotations

from datetime import timedelta
from math import inf
from numbers import Real
from typing import Any, Iterable

from ._interface import ffi
from .errors import UnsupportedError

_FOREVER = 2**63 - 1


def octets(name: str, text: Any) -> bytes:
    """A text for the interface, where a NUL would end it."""
    if not isinstance(text, str):
        raise TypeError(f"{name} is a text, not {text!r}")
    if "\0" in text:
        raise UnsupportedError(f"{name} has a NUL: {text!r}")
    return text.encode(errors="surrogateescape")  # file names need not be UTF-8


def text_list(name: str, texts: Any) -> list[Any]:
    """A list of texts as the interface takes them."""
    if isinstance(texts, str) or not isinstance(texts, Iterable):
        raise TypeError(f"{name} is a list, not {texts!r}")
    return [ffi.new("char[]", octets(f"each of {name}", text)) for text in texts]


def seconds(name: str, value: Any) -> float:
    if isinstance(value, timedelta):
        return value.total_seconds()
    if not isinstance(value, Real):
        raise TypeError(f"{name} is in seconds, or a timedelta, not {value!r}")
    if value != value:
        raise UnsupportedError(f"{name} is in seconds, not {value}")
    try:
        return float(value)
    except OverflowError:  # of an int, which has no bounds
        return inf if int(value) > 0 else -inf


def milliseconds(name: str, value: Any) -> int:
    """Held at the ends of what the interface can say: the longest is for ever."""
    return round(max(-_FOREVER, min(seconds(name, value) * 1000, _FOREVER)))


def part(number: Any) -> int:
    """A major or minor."""
    if not isinstance(number, int) or not 0 <= number <= 65_535:
        raise UnsupportedError(f"a major or minor is 0 to 65535: {number!r}")
    return number
