#!/usr/bin/env python3
"""page.py RESULTS DOCS: writes DOCS/benchmarks.md from page.md and from what the benchmarks printed.

A section whose results are missing is left out.
"""

import csv
import os
import pathlib
import platform
import re
import subprocess
import sys

PLACES = ["free", "two processors", "one processor"]
WAITINGS = ["waiting", "polling"]


def machine():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    count = len(os.sched_getaffinity(0))
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True, check=False)
    first = (compiler.stdout.splitlines() or ["unknown compiler"])[0]
    return f"Measured on {model}, {count} processors, Linux {platform.release()}, {first}."


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def figure(text):
    """Three digits that matter, or nothing."""
    if not text:
        return ""
    value = float(text)
    return f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def unique(values):
    return list(dict.fromkeys(values))


def select(rows, **wanted):
    return [row for row in rows if all(row[key] == value for key, value in wanted.items())]


def round_trips(rows):
    parts = []
    for waiting in WAITINGS:
        for place in PLACES:
            chosen = select(rows, what="round trip", waiting=waiting, placement=place)
            for size in unique(row["bytes"] for row in chosen):
                body = [
                    [row["transport"]] + [figure(row[key]) for key in ("us", "p99", "p999", "cpu", "ratio")]
                    for row in chosen if row["bytes"] == size
                ]
                head = ["transport", "p50", "p99", "p99.9", "processor time", "ratio"]
                parts.append(f"### {size} bytes, {waiting}, {place}\n\n{table(head, body)}")
    return "\n\n".join(parts)


def notifications(rows):
    chosen = select(rows, what="notification")
    conditions = [(w, p) for w in WAITINGS for p in PLACES if select(chosen, waiting=w, placement=p)]
    body = []
    for transport in unique(row["transport"] for row in chosen):
        cells = [transport]
        for waiting, place in conditions:
            found = select(chosen, transport=transport, waiting=waiting, placement=place)
            cells.append(f"{figure(found[0]['us'])} ({figure(found[0]['ratio'])})" if found else "")
        body.append(cells)
    head = ["transport (ratio)"] + [f"{w}, {p}" for w, p in conditions]
    return table(head, body)


def idle(rows):
    body = [[row["transport"], figure(row["cpu"])] for row in select(rows, what="idle")]
    return table(["transport", "percent"], body)


def read_results(folder):
    """What to put in the place of each name in braces."""
    found = {"machine": machine()}
    for file in folder.glob("*.txt"):
        found[file.stem] = "```\n" + file.read_text().strip("\n") + "\n```"
    messages = folder / "rpc.csv"
    if messages.exists():
        with messages.open(newline="") as file:
            rows = list(csv.DictReader(file))
        found["round-trips"] = round_trips(rows)
        found["notifications"] = notifications(rows)
        found["idle"] = idle(rows)
    return found


def fill(template, found):
    sections = []
    for section in re.split(r"(?m)^(?=## )", template):
        names = re.findall(r"(?m)^\{([\w-]+)\}$", section)
        if all(name in found for name in names):
            sections.append(re.sub(r"(?m)^\{([\w-]+)\}$", lambda match: found[match[1]], section))
    return "".join(sections)


def main():
    results, docs = map(pathlib.Path, sys.argv[1:3])
    template = (pathlib.Path(__file__).parent / "page.md").read_text()
    (docs / "benchmarks.md").write_text(fill(template, read_results(results)).rstrip() + "\n")


if __name__ == "__main__":
    main()
