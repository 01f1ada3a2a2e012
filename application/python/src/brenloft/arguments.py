"""What is handed in: checked here, where the argument's name is known."""

from __future__ import annotations

from datetime import timedelta
from numbers import Real
from typing import Any, Iterable

from ._interface import ffi
from .errors import UnsupportedError

_LONGEST = 9e9  # seconds: the library counts nanoseconds in 64 bits


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
    return float(value)


def milliseconds(name: str, value: Any, least: int = 0) -> int:
    length = seconds(name, value)
    if not -_LONGEST <= length <= _LONGEST or round(length * 1000) < least:
        raise UnsupportedError(f"{name} is in seconds, from {least / 1000:g} to {_LONGEST:g}, not {length:g}")
    return round(length * 1000)
