#!/usr/bin/env python3
"""Draws growth.tsv: growth.py FILE FOLDER writes growth-instructions.svg and growth-time.svg, both axes logarithmic."""
import collections
import math
import pathlib
import sys

NAMES = {
    "new": "an advertisement of a new beacon",
    "known": "an advertisement of a known beacon",
    "ranged": "a beacon in a ranging report",
}
COLOURS = {"new": ("#a3421f", "#ff9a6b"), "known": ("#1d5fa8", "#7db8f5"), "ranged": ("#2f7d32", "#86d98a")}
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 720, 400, 70, 20, 78, 46


def style():
    rules = ["text{font:13px sans-serif;fill:#222}.grid{stroke:#ccc}.back{fill:#fff}"]
    dark = ["text{fill:#ddd}.grid{stroke:#444}.back{fill:#161616}"]
    for name, (light, bright) in COLOURS.items():
        rules.append(f".{name}{{stroke:{light};fill:{light}}}text.{name}{{stroke:none}}")
        dark.append(f".{name}{{stroke:{bright};fill:{bright}}}text.{name}{{stroke:none}}")
    return f"<style>{''.join(rules)}@media(prefers-color-scheme:dark){{{''.join(dark)}}}</style>"


def short(value):
    return f"{value:,.0f}"


def picture(title, series):
    values = [value for points in series.values() for _, value in points]
    low, high = 10 ** math.floor(math.log10(min(values))), 10 ** math.ceil(math.log10(max(values)))
    most = max(beacons for points in series.values() for beacons, _ in points)

    def x(beacons):
        return LEFT + math.log10(beacons) / math.log10(most) * (WIDTH - LEFT - RIGHT)

    def y(value):
        return HEIGHT - BOTTOM - math.log10(value / low) / math.log10(high / low) * (HEIGHT - TOP - BOTTOM)

    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img" aria-label="{title}">',
        style(),
        f'<rect class="back" width="{WIDTH}" height="{HEIGHT}"/><text x="{LEFT}" y="20">{title}</text>',
    ]
    for power in range(round(math.log10(most)) + 1):
        at = x(10**power)
        parts.append(f'<line class="grid" x1="{at:.0f}" y1="{TOP}" x2="{at:.0f}" y2="{HEIGHT - BOTTOM}"/>')
        anchor = "end" if power == round(math.log10(most)) else "middle"
        parts.append(f'<text x="{at:.0f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="{anchor}">{short(10**power)}</text>')
    parts.append(f'<text x="{(LEFT + WIDTH) / 2:.0f}" y="{HEIGHT - 8}" text-anchor="middle">beacons</text>')
    value = low
    while value <= high:
        parts.append(f'<line class="grid" x1="{LEFT}" y1="{y(value):.0f}" x2="{WIDTH - RIGHT}" y2="{y(value):.0f}"/>')
        parts.append(f'<text x="{LEFT - 8}" y="{y(value) + 4:.0f}" text-anchor="end">{short(value)}</text>')
        value *= 10
    for row, (name, points) in enumerate(series.items()):
        line = " ".join(f"{x(beacons):.1f},{y(value):.1f}" for beacons, value in points)
        parts.append(f'<polyline class="{name}" style="fill:none;stroke-width:2" points="{line}"/>')
        for beacons, value in points:
            parts.append(f'<circle class="{name}" cx="{x(beacons):.1f}" cy="{y(value):.1f}" r="3"/>')
        across = LEFT + row % 2 * 310
        down = 42 + row // 2 * 18
        parts.append(f'<text class="{name}" x="{across}" y="{down}">● {NAMES[name]}</text>')
    return "\n".join([*parts, "</svg>", ""])


def main(file, folder):
    rows = [line.split("\t") for line in pathlib.Path(file).read_text().splitlines() if not line.startswith("#")]
    for name, column, title in (
        ("instructions", 3, "Instructions for each"),
        ("time", 2, "Nanoseconds of the processor for each"),
    ):
        series = collections.defaultdict(list)
        for row in rows:
            series[row[0]].append((int(row[1]), float(row[column])))
        (pathlib.Path(folder) / f"growth-{name}.svg").write_text(picture(title, series))


main(*sys.argv[1:])
