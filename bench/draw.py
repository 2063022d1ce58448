#!/usr/bin/env python3
"""draw.py CSV FOLDER: draws figures of the messages' table as bars, on a logarithmic scale, into FOLDER."""

import csv
import html
import math
import pathlib
import sys

# File, title, and the rows that it shows.
CHARTS = [
    ("rpc-waiting.svg", "Round trip of 64 bytes, waiting, on two processors",
     {"what": "round trip", "waiting": "waiting", "placement": "two processors", "bytes": "64"}),
    ("rpc-polling.svg", "Round trip of 64 bytes, polling, on two processors",
     {"what": "round trip", "waiting": "polling", "placement": "two processors", "bytes": "64"}),
    ("rpc-one-processor.svg", "Round trip of 64 bytes, waiting, on one processor",
     {"what": "round trip", "waiting": "waiting", "placement": "one processor", "bytes": "64"}),
    ("rpc-notifications.svg", "Notifications, waiting, on two processors",
     {"what": "notification", "waiting": "waiting", "placement": "two processors", "bytes": "64"}),
]

WIDTH, LEFT, RIGHT, TOP, STEP, BAR, FOOT = 760, 130, 70, 48, 28, 18, 40
OUR_NAME = "corvalen"
OURS, PEER, LIMIT, TAIL = "#0b6e4f", "#7a8ca3", "#c7ced8", "#333333"


def color(row):
    if row["transport"].startswith("raw "):
        return LIMIT
    return OURS if row["transport"] == OUR_NAME else PEER


def decades(values):
    """The powers of ten that the values lie between."""
    low = math.floor(math.log10(min(values)))
    high = math.ceil(math.log10(max(values)))
    return low, max(high, low + 1)


def text(x, y, words, anchor="start", size=13, weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" '
            f'font-weight="{weight}" fill="#222222">{html.escape(words)}</text>')


def grid(low, high, place, bottom):
    parts = []
    for power in range(low, high + 1):
        x = place(10.0 ** power)
        parts.append(f'<line x1="{x:.1f}" y1="{TOP - 6}" x2="{x:.1f}" y2="{bottom}" stroke="#dddddd"/>')
        parts.append(text(x, bottom + 16, f"{10.0 ** power:g}", "middle", 12))
    return parts


def bar(row, y, place):
    middle = y + BAR / 2
    end = place(float(row["us"]))
    label_at = end
    parts = [
        text(LEFT - 8, middle + 4.5, row["transport"], "end"),
        f'<rect x="{LEFT}" y="{y}" width="{max(end - LEFT, 1):.1f}" height="{BAR}" fill="{color(row)}"/>',
    ]
    if row["p99"]:
        label_at = place(float(row["p99"]))
        parts.append(f'<line x1="{end:.1f}" y1="{middle}" x2="{label_at:.1f}" y2="{middle}" stroke="{TAIL}"/>')
        parts.append(f'<line x1="{label_at:.1f}" y1="{middle - 4}" x2="{label_at:.1f}" y2="{middle + 4}" '
                     f'stroke="{TAIL}"/>')
    parts.append(text(label_at + 6, middle + 4.5, f"{float(row['us']):.3g}", size=12))
    return parts


def draw(title, rows):
    low, high = decades([float(row[key]) for row in rows for key in ("us", "p99") if row[key]])

    def place(value):
        part = (math.log10(value) - low) / (high - low)
        return LEFT + max(part, 0) * (WIDTH - LEFT - RIGHT)

    bottom = TOP + len(rows) * STEP
    height = bottom + FOOT
    unit = "microseconds"
    if any(row["p99"] for row in rows):
        unit += ": median, and a line to the 99th percentile"
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
        f'height="{height}" font-family="sans-serif" role="img">',
        f"<title>{html.escape(title)}</title>",
        f'<rect width="{WIDTH}" height="{height}" fill="#ffffff"/>',
        text(LEFT, 22, title, size=15, weight="bold"),
    ]
    parts += grid(low, high, place, bottom)
    for number, row in enumerate(rows):
        parts += bar(row, TOP + number * STEP, place)
    parts.append(text(LEFT, bottom + 33, unit, size=12))
    return "\n".join(parts + ["</svg>"]) + "\n"


def main():
    folder = pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    with open(sys.argv[1], newline="") as file:
        rows = list(csv.DictReader(file))
    for name, title, wanted in CHARTS:
        chosen = [row for row in rows if all(row[key] == value for key, value in wanted.items())]
        chosen = [row for row in chosen if float(row["us"]) > 0]
        if chosen:
            chosen.sort(key=lambda row: float(row["us"]))
            (folder / name).write_text(draw(title, chosen))


if __name__ == "__main__":
    main()
