#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws the output of scripts/bench as SVG: CPU time and latency of the bare loop, BlueALSA and kado-bt.
Usage: scripts/bench | tee FILE; bench/draw.py FILE > docs/performance.svg"""
import re
import sys

# Title of each chart, and its row in the table.
CHARTS = [
    ("CPU time per packet, in real time", "real time: CPU us per packet"),
    ("CPU time per packet, back to back", "back to back: CPU us per packet"),
    ("Time from sending a packet to receiving its last byte, median", "latency to the last byte, p50 us"),
]
COLOURS = {"bare loop": "#9aa5b1", "BlueALSA": "#d98e48", "kado-bt": "#2f7f79"}
WIDTH, LABEL, BAR, GAP, MARGIN = 720, 90, 22, 8, 24
SCALE = WIDTH - LABEL - 2 * MARGIN - 130  # the longest bar, with room for its figure on the right


def rows(lines):
    """Returns kado-bt's median, the other median and their ratio, from the first row of each name."""
    figures = {}
    for line in lines:
        match = re.match(r" +(\S.*?)  +" + r" +".join([r"([\d.]+) ± *\d+ %"] * 3), line)
        if match:
            figures.setdefault(match[1], [float(value) for value in match.groups()[1:]])
    return figures


def contestants(row, bare, peer):
    """Returns the microseconds of each. Uses the bare loop's ratio, because it ran beside another daemon process."""
    ours, bluealsa, _ = peer[row]
    return {"bare loop": ours / bare[row][2], "BlueALSA": bluealsa, "kado-bt": ours}


def chart(title, times, top):
    yield f'<text x="{MARGIN}" y="{top + 16}" font-weight="600">{title}</text>'
    longest = max(times.values())
    for i, (name, time) in enumerate(times.items()):
        y = top + 28 + i * (BAR + GAP)
        length = max(1, round(SCALE * time / longest))
        text = f"{time:.1f} µs" if name == "BlueALSA" else f"{time:.1f} µs, {time / times['BlueALSA']:.2f} ×"
        yield f'<text x="{MARGIN + LABEL - 8}" y="{y + 16}" text-anchor="end">{name}</text>'
        yield f'<rect x="{MARGIN + LABEL}" y="{y}" width="{length}" height="{BAR}" rx="3" fill="{COLOURS[name]}"/>'
        yield f'<text x="{MARGIN + LABEL + length + 8}" y="{y + 16}">{text}</text>'


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.splitlines()[1])
    with open(sys.argv[1], encoding="utf-8") as file:
        before, marker, after = file.read().partition("compared with BlueALSA")
    if not marker:
        sys.exit("bench/draw.py: the file has no comparison with BlueALSA")
    bare, peer = rows(before.splitlines()), rows(after.splitlines())
    height = len(CHARTS) * (3 * (BAR + GAP) + 48) + MARGIN
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" height="{height}" '
          'font-family="system-ui, sans-serif" font-size="14" fill="#1f2933">')
    print(f'<rect width="{WIDTH}" height="{height}" rx="8" fill="#ffffff"/>')
    top = MARGIN // 2
    for title, row in CHARTS:
        for line in chart(title, contestants(row, bare, peer), top):
            print(line)
        top += 3 * (BAR + GAP) + 48
    print("</svg>")


main()
