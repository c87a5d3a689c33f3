#!/usr/bin/env python3
"""Plots the figures that growth.py --json wrote.

    Tests/Bench/plot_growth.py FIGURES.json [IMAGE.svg]

Writes IMAGE.svg (default: docs/images/growth.svg). Needs python3-matplotlib.
"""

import json
import pathlib
import sys

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams["svg.hashsalt"] = "growth"  # reproducible element ids
from matplotlib import pyplot  # noqa: E402

IMAGE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "images" / "growth.svg"
PLOTS = [("ready", "ms to ready"), ("memory", "MB, proportional"), ("processor", "idle, ms/s"),
         ("wake-ups", "wake-ups per second"), ("publish", "ms to publish a change"),
         ("GET /status", "ms, GET /status")]


def value_of(case, program, name):
    """Returns a figure of a program, the median of two, or None if it was not measured."""
    value = case[program].get(name)
    return value[0] if isinstance(value, list) else value


def draw(axes, cases, name, label, by):
    """Plots one figure of both programs against `by`: "servers" or "folders"."""
    for program, style in (("tray", "o-"), ("bare", "s--")):
        points = [(case[by], value_of(case, program, name)) for case in cases
                  if value_of(case, program, name) is not None]
        if points:
            axes.plot(*zip(*points), style, label=program, markersize=3, linewidth=1)
    axes.set_xscale("log")
    axes.set_ylim(bottom=0)
    axes.set_title(label, fontsize=8)
    axes.set_xlabel(by, fontsize=7)
    axes.tick_params(labelsize=7)


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    cases = json.loads(pathlib.Path(sys.argv[1]).read_text())["cases"]
    image = pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else IMAGE
    fewest_folders = min(case["folders"] for case in cases)
    fewest_servers = min(case["servers"] for case in cases)
    figure, rows = pyplot.subplots(2, len(PLOTS), figsize=(2.1 * len(PLOTS), 4.2))
    for column, (name, label) in enumerate(PLOTS):
        by_servers = [case for case in cases if case["folders"] == fewest_folders]
        by_folders = [case for case in cases if case["servers"] == fewest_servers]
        draw(rows[0][column], by_servers, name, label, "servers")
        draw(rows[1][column], by_folders, name, label, "folders")
    rows[0][0].legend(fontsize=7)
    figure.tight_layout()
    image.parent.mkdir(exist_ok=True)
    figure.savefig(image, metadata={"Date": None})


if __name__ == "__main__":
    main()
