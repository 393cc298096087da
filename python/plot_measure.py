#!/usr/bin/env python3
"""Plots the file of `./dev demo`: how many processors were busy, and how much memory was available.

usage: plot_measure.py FILE PICTURE    needs matplotlib, numpy and xxhash
"""
import re
import sys

import matplotlib

matplotlib.use("agg")
from matplotlib import pyplot  # noqa: E402: the backend comes first

from corvane_chunks import ChunkFile  # noqa: E402

TICKS = 100  # in a second
WINDOW = 20  # measurements over which ticks are counted: one is about as short as a tick
STYLE = {"svg.fonttype": "none", "svg.hashsalt": "measure", "font.family": "sans-serif", "font.size": 9,
         "axes.spines.top": False, "axes.spines.right": False, "axes.titlesize": 9, "axes.titlelocation": "left",
         "axes.grid": True, "grid.color": "#d8dee4", "axes.axisbelow": True}


def busy_ticks(stat):
    """Ticks since the start that all processors together spent busy, from a value of the field stat."""
    user, nice, system, _, _, interrupts, soft_interrupts, stolen = map(int, stat.split()[1:9])
    return user + nice + system + interrupts + soft_interrupts + stolen


def memory_available(meminfo):
    """GiB, from a value of the field meminfo."""
    return int(re.search(rb"^MemAvailable: +(\d+) kB", meminfo, re.M)[1]) / 1024 ** 2


def draw(seconds, ticks, memory):
    pyplot.rcParams.update(STYLE)
    figure, (above, below) = pyplot.subplots(2, 1, sharex=True, figsize=(9, 3.6), layout="constrained")
    busy = (ticks[WINDOW:] - ticks[:-WINDOW]) / TICKS / (seconds[WINDOW:] - seconds[:-WINDOW])
    above.plot(seconds[WINDOW:], busy, color="#0969da")
    above.set(title="busy processors", ylim=(0, None))
    below.plot(seconds, memory, color="#bc4c00")
    below.set(title="available memory, GiB", xlabel="seconds since the first measurement")
    return figure


def main(name, picture):
    with ChunkFile(name) as file:
        times, values = file.to_numpy({"stat": busy_ticks, "meminfo": memory_available})
        print(f"{len(times)} measurements: {file.stop.end.value}")
    figure = draw((times - times[0]).astype("int64") / 1e9, values["stat"], values["meminfo"])
    metadata = {"Title": "The demo's measurements", "Date": None, "Creator": None} if picture.endswith("svg") else None
    figure.savefig(picture, facecolor="white", metadata=metadata)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(*sys.argv[1:])
