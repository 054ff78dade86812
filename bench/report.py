#!/usr/bin/env python3
"""Publishes what the benchmarks printed: bench/report.py RESULTS DIRECTORY

Draws DIRECTORY/performance.svg if the conversions are among the results, and if there is a
DIRECTORY/performance.md, puts every section of the results between its marks:

    <!-- bench: NAME -->
    <!-- end -->
"""

import pathlib
import re
import sys


def sections_of(text):
    """The text under every "## NAME"."""
    parts = re.split(r"^## (.*)\n", text, flags=re.MULTILINE)[1:]
    return {name: body.strip() for name, body in zip(parts[::2], parts[1::2])}


def refreshed(document, sections):
    def section(match):
        name = match[1]
        body = f"{sections[name]}\n\n" if name in sections else match[2]
        return f"<!-- bench: {name} -->\n{body}<!-- end -->"

    return re.sub(r"<!-- bench: (.*?) -->\n(.*?)<!-- end -->", section, document, flags=re.DOTALL)


def first_numbers(table):
    """The first number of each cell, None where there is none, by the rows of a Markdown table."""
    rows = {}
    for line in table.splitlines()[2:]:
        name, *cells = (cell.strip() for cell in line[1:-1].split("|"))
        numbers = (re.match(r"[\d.]+", cell) for cell in cells)
        rows[name] = [number and float(number[0]) for number in numbers]
    return rows


WIDTH, LEFT, RIGHT, TOP, PITCH, LEGEND = 920, 190, 40, 104, 54, 230
BARS = (("L1, 16 KiB", "#1f4e9c"), ("L2, 512 KiB", "#5b8fd9"), ("out of cache", "#a9c8f0"))
MARKS = (
    ("best other library, at L1", "#d9480f", "M0,-6 L6,0 L0,6 L-6,0 Z"),
    ("loop -O3 -march=native, at L1", "#2b8a3e", "M-5,-5 H5 V5 H-5 Z"),
    ("loop -O2, at L1", "#868e96", "M-5,4.5 L0,-5 L5,4.5 Z"),
)


def plot(sections):
    table, memcpy_rates = sections["conv groups"].split("\n\n")
    groups = first_numbers(table)
    peers = first_numbers(sections.get("conv peers", "").split("\n\n")[0])
    shown = {}  # group: three rates of ours, then those of the marks
    for name, (_, *ours, o2, o3) in groups.items():
        shown[name] = (ours, [peers.get(name, [None])[0], o3, o2])
    most = 1.03 * max(rate or 0 for rates in shown.values() for rate in rates[0] + rates[1])
    scale = (WIDTH - LEFT - RIGHT) / most
    bottom = TOP + PITCH * len(shown)
    svg = []

    def text(x, y, words, size=12, colour="#212529", anchor="start"):
        svg.append(
            f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" fill="{colour}" '
            f'text-anchor="{anchor}">{words}</text>'
        )

    def mark(x, y, colour, shape):
        svg.append(f'<path transform="translate({x:.1f},{y:.1f})" d="{shape}" fill="{colour}"/>')

    text(20, 28, "How fast the conversions are, per group: geometric means over memcpy's rate", 16)
    for k, (label, colour) in enumerate(BARS):
        svg.append(f'<rect x="{20 + LEGEND * k}" y="44" width="18" height="9" fill="{colour}"/>')
        text(44 + LEGEND * k, 53, label)
    for k, (label, colour, shape) in enumerate(MARKS):
        mark(29 + LEGEND * k, 71, colour, shape)
        text(44 + LEGEND * k, 75, label)

    for tick in range(int(most / 0.25) + 1):
        x = LEFT + tick * 0.25 * scale
        memcpy = tick == 4
        line = 'stroke="#212529" stroke-width="1.5"' if memcpy else 'stroke="#dee2e6"'
        svg.append(f'<path d="M{x:.1f},{TOP - 8} V{bottom}" {line}/>')
        text(x, bottom + 16, f"{tick * 0.25:g}", anchor="middle")
        if memcpy:
            text(x, TOP - 12, "memcpy", anchor="middle")
    middle = (LEFT + WIDTH - RIGHT) / 2
    axis = "times memcpy's rate for as many bytes read and written (further right is faster)"
    text(middle, bottom + 36, axis, anchor="middle")
    text(middle, bottom + 52, memcpy_rates.split(". ")[0], 11, anchor="middle")

    for row, (name, (ours, others)) in enumerate(shown.items()):
        y = TOP + PITCH * row
        text(LEFT - 10, y + 19, name, 13, anchor="end")
        for k, (rate, (_, colour)) in enumerate(zip(ours, BARS)):
            svg.append(
                f'<rect x="{LEFT}" y="{y + 10 * k}" width="{rate * scale:.1f}" height="9" '
                f'fill="{colour}"/>'
            )
            inside = "#ffffff" if k < 2 else "#212529"
            text(LEFT + 4, y + 10 * k + 8, f"{rate:.2f}", 9, inside)
        for rate, (_, colour, shape) in reversed(list(zip(others, MARKS))):
            if rate is not None:
                mark(LEFT + rate * scale, y + 37, colour, shape)
    height = bottom + 66
    return (
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
        f'height="{height}" font-family="sans-serif">\n'
        f'<rect width="{WIDTH}" height="{height}" rx="8" fill="#ffffff"/>\n'
        + "\n".join(svg)
        + "\n</svg>\n"
    )


def main():
    results, directory = map(pathlib.Path, sys.argv[1:])
    sections = sections_of(results.read_text())
    if "conv groups" in sections:
        (directory / "performance.svg").write_text(plot(sections))
    document = directory / "performance.md"
    if document.exists():
        document.write_text(refreshed(document.read_text(), sections))


main()
