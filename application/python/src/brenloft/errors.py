"""What goes wrong."""

from __future__ import annotations

from ._interface import ffi, lib


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
        raise _ERRORS.get(status, Error)(ffi.string(lib.brenloft_error_text()).decode(errors="replace"))
