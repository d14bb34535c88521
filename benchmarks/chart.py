"""Draws what `benchmark.py --save` wrote, a panel for each file: `python chart.py FILE… PICTURE`."""

import json
import statistics
import sys
from pathlib import Path

import matplotlib
from matplotlib import pyplot

# The same figures give the same bytes, and text stays text.
matplotlib.rcParams |= {"svg.hashsalt": "benchmarks", "svg.fonttype": "none"}
matplotlib.rcParams |= {"axes.spines.top": False, "axes.spines.right": False}
SERIES = {
    "plain": ("plain Python", "#c3c9d0"),
    "cython": ("the same, compiled with Cython", "#e8a33d"),
    "native": ("this module", "#1f6feb"),
}
GROUPS = {
    "all without files": ("own work", "forwards, constructs", "refuses"),
    **{kind: (kind,) for kind in ("own work", "forwards, constructs", "refuses", "with files", "import")},
}


def relative_time(result, module, kinds):
    """The geometric mean of the module's time over plain Python's, in rows of these kinds."""
    times = [row["microseconds"] for row in result["rows"] if row["kind"] in kinds]
    return statistics.geometric_mean(each[module] / each["plain"] for each in times)


def draw(axes, result):
    series = [name for name in SERIES if name in result["rows"][0]["microseconds"]]
    width = 0.84 / len(series)
    for i, name in enumerate(series):
        label, colour = SERIES[name]
        heights = [relative_time(result, name, kinds) for kinds in GROUPS.values()]
        places = [group + (i - (len(series) - 1) / 2) * width for group in range(len(GROUPS))]
        axes.bar_label(axes.bar(places, heights, 0.94 * width, label=label, color=colour), fmt="%.2f", fontsize=8.5)
    counts = [sum(row["kind"] in kinds for row in result["rows"]) for kinds in GROUPS.values()]
    axes.set_xticks(range(len(GROUPS)), [f"{group}\n({count})" for group, count in zip(GROUPS, counts)])
    axes.tick_params(axis="x", length=0)
    axes.margins(y=0.08)
    axes.axvline(0.5, color="#c3c9d0", linewidth=0.8)
    axes.set_title(result["system"], loc="left", fontsize=11, fontweight="bold", pad=10)
    axes.set_ylabel("time, plain Python = 1")


*files, picture = map(Path, sys.argv[1:])
results = [json.loads(file.read_text()) for file in files]
size = 9, 0.8 + 3.1 * len(results)
figure, panels = pyplot.subplots(len(results), figsize=size, sharey=True, squeeze=False, layout="constrained")
for axes, result in zip(panels.flat, results):
    draw(axes, result)
note = "in brackets: how many operations the geometric mean is of; less is better"
panels[-1, 0].set_xlabel(note, fontsize=9, color="#57606a")
figure.legend(*panels[0, 0].get_legend_handles_labels(), loc="outside upper center", ncols=3, frameon=False)
figure.savefig(picture, metadata={"Date": None})
