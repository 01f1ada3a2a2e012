#!/usr/bin/env python3
"""Prints what every sensor beacon measures: thermometer.py [SOURCE]."""

import sys

import brenloft


def main() -> None:
    try:
        search = brenloft.Search(sys.argv[1] if len(sys.argv) > 1 else "auto")
    except brenloft.Error as error:
        sys.exit(str(error))
    for event in search:
        match event:
            case brenloft.Reading(temperature_celsius=float(celsius)):
                print(f"{event.id}  {celsius:g} °C", flush=True)
            case brenloft.Lost():
                print(f"{event.id} is silent", flush=True)
            case brenloft.RadioChange() if not event.is_listening:
                print("no radio:", event.reason, file=sys.stderr)


if __name__ == "__main__":
    main()
