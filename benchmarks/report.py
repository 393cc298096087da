#!/usr/bin/python3
"""Writes the tables of docs/performance.md and the pictures in docs/pictures from benchmarks/results/*.jsonl.

usage: report.py [--check]

--check writes nothing and needs no matplotlib. It fails if the page differs from the results, or if the page or the
README has a figure of its own.
"""
import itertools
import json
import os
import pathlib
import re
import sys
import textwrap

TOP = pathlib.Path(__file__).resolve().parent.parent
PICTURES = TOP / "docs" / "pictures"
PAGE = TOP / "docs" / "performance.md"
TIME_POINT = 9  # bytes of memory for a time point of 8 bytes in order, with the blocks' own
HUGE_PAGE = 2 << 20
BLUE, ORANGE, GREY, RED = "#0969da", "#bc4c00", "#6e7781", "#cf222e"
STYLE = {  # text stays text, and ids come from the salt: the same results give the same bytes
    "svg.fonttype": "none", "svg.hashsalt": "benchmarks", "font.family": "sans-serif", "font.size": 9,
    "axes.spines.top": False, "axes.spines.right": False, "axes.edgecolor": GREY, "axes.titlesize": 9,
    "axes.grid": True, "axes.axisbelow": True, "grid.color": "#d8dee4", "xtick.major.size": 0, "ytick.major.size": 0,
    "errorbar.capsize": 2, "lines.markersize": 5, "legend.frameon": False}


def read(name):
    path = TOP / "benchmarks" / "results" / name
    return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []


def number(value):
    """Three digits: a measurement is no more exact."""
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def workloads(rows):
    """The rows of each workload together, in their order."""
    groups = {}
    for row in rows:
        if "ratio" in row:
            groups.setdefault((row["workload"], row["what"]), []).append(row)
    return groups


def find(rows, contender):
    return next((row for row in rows if row["contender"] == contender), None)


def start_drawing():
    """Loads matplotlib, which only the pictures need."""
    global pyplot
    import matplotlib
    matplotlib.use("svg")
    from matplotlib import pyplot
    pyplot.rcParams.update(STYLE)


def save(figure, name, title):
    PICTURES.mkdir(parents=True, exist_ok=True)
    figure.savefig(PICTURES / name, facecolor="white", metadata={"Title": title, "Date": None, "Creator": None})
    pyplot.close(figure)


def spread(rows, field):
    """How far the quartiles lie from the median, as error bars take it."""
    return [[row[field] - row.get(field + "_low", row[field]) for row in rows],
            [row.get(field + "_high", row[field]) - row[field] for row in rows]]


def dot(axes, row, y, **style):
    return axes.errorbar(row["ratio"], y, xerr=spread([row], "ratio"), fmt="o", **style)


def multiples(axes, ticks):
    """A logarithmic axis of multiples with a bold line at 1."""
    axes.set_xscale("log")
    axes.set_xticks(ticks, [f"{tick:g}" for tick in ticks])
    axes.minorticks_off()
    axes.axvline(1, color="black", linewidth=2, zorder=1.5)


def draw_ratios(rows):
    groups = [(key, group) for key, group in workloads(rows).items() if find(group, "limit")]
    figure, axes = pyplot.subplots(figsize=(9, 0.24 * len(groups) + 0.9), layout="constrained")
    multiples(axes, [0.5, 1, 2, 5, 10, 20, 50, 100])
    handles = {}
    for y, (_, group) in enumerate(groups):
        ours, other = find(group, "ours"), beside(group)
        handles["ours"] = dot(axes, ours, y - 0.1 * bool(other), color=BLUE, zorder=3)
        if other:
            color = ORANGE if other["contender"] == "straightforward" else GREY
            handles[other["contender"]] = dot(axes, other, y + 0.1, color=color, markerfacecolor="white")
        if "goal" in ours:
            goal = ours["goal"] * find(group, ours["goal_against"])["ratio"]
            handles["goal"], = axes.plot(goal, y, "|", color=RED, markersize=11, markeredgewidth=2)
    for _, rows_of_id in itertools.groupby(enumerate(groups), lambda item: item[1][0][0]):
        axes.axhline(next(rows_of_id)[0] - 0.5, color=GREY, linewidth=0.5)
    axes.set_yticks(range(len(groups)), [f"{name} {what}" for (name, what), _ in groups])
    axes.set_ylim(len(groups) - 0.5, -0.5)
    axes.set_xlabel("time as a multiple of the limit: median and quartiles")
    axes.legend(handles.values(), handles.keys(), loc="lower left", bbox_to_anchor=(0, 1), ncols=len(handles))
    save(figure, "ratios.svg", "Time as a multiple of the limit")


def draw_growth(rows):
    points = [row for row in rows if row["workload"] == "growth"]
    figure, panels = pyplot.subplots(1, 2, figsize=(9, 3.6), layout="constrained")
    fields = {"append_ns": "nanoseconds for an append", "memory_bytes": "bytes of memory for each chunk"}
    for axes, (field, title) in zip(panels, fields.items()):
        for (name, what), style in zip(itertools.product(("ours", "straightforward"), ("bounded", "unbounded")),
                                       ("o-", "o--", "s-", "s--")):
            mine = [row for row in points if row["contender"] == name and row["what"] == what]
            axes.errorbar([row["operations"] for row in mine], [row[field] for row in mine], spread(mine, field),
                          fmt=style, label=f"{name}, {what}", color=BLUE if name == "ours" else ORANGE)
        axes.set(xscale="log", yscale="log", xlabel="chunks of 64 bytes in the file")
        axes.set_title(title, loc="left")
        axes.set_xticks([10 ** power for power in range(3, 8)], [f"{10 ** power:,}" for power in range(3, 8)])
        axes.set_yticks([100, 200, 500], ["100", "200", "500"])
        axes.minorticks_off()
    panels[0].legend(loc="lower left", bbox_to_anchor=(0, 1.08), ncols=2)
    save(figure, "growth.svg", "Time and memory of each chunk while a file grows")


def draw_peers(rows):
    """A panel for each store: where its dots lie right of the line, ours is faster."""
    groups = by_stores(rows)
    figure, grid = pyplot.subplots(len(groups), max(len(names) for names in groups), sharex=True, squeeze=False,
                                   figsize=(9, 4.4), layout="constrained",
                                   height_ratios=[len(works) + 1.5 for works in groups.values()])
    for line, (names, works) in zip(grid, groups.items()):
        for axes, name in itertools.zip_longest(line, names):
            if name is None:
                axes.set_visible(False)
                continue
            multiples(axes, [0.01, 1, 100])
            axes.tick_params(axis="x", labelbottom=True)
            for y, (_, group) in enumerate(works):
                row = find(group, name)
                if row is None:
                    continue
                dot(axes, row, y, color=BLUE if row["ratio_low"] > 1 else ORANGE if row["ratio_high"] < 1 else GREY)
            axes.set_title(textwrap.fill(name, 12))
            axes.set_yticks(range(len(works)), [what for what, _ in works] if name == names[0] else [""] * len(works))
            axes.set_ylim(len(works) - 0.5, -0.5)
    figure.supxlabel("time as a multiple of ours; blue: ours is faster, orange: slower, grey: neither", fontsize=9)
    save(figure, "peers.svg", "Time of other stores as a multiple of ours")


def table(head, lines):
    rule = ["---"] + ["---:"] * (len(head) - 1)
    return "\n".join("| " + " | ".join(cells) + " |" for cells in [head, rule, *lines])


def machine_text(rows):
    row = next(row for row in rows if row["workload"] == "machine")
    rounds = [other["rounds"] for other in rows if "rounds" in other]
    largest = min(row["bytes"], max(other["bytes"] for other in rows if "ratio" in other))
    kind = "virtual, " if row["virtual"] else ""
    return (f"{row['processor']}, {row['processors']} processors, {row['memory_mib'] / 1024:.0f} GiB ({kind}Linux "
            f"{row['kernel']}), {row['file_system']}, files of up to {largest >> 20} MiB, {min(rounds)} "
            f"to {max(rounds)} rounds, measured in {row['clock']}.")


def reopening_memory(rows):
    """The peak memory of reopening as a multiple of the file, which is read and written."""
    lines, holds = [], True
    for row in rows:
        if row["workload"] == "W5" and row["contender"] == "ours":
            file = row["bytes"] / 2
            lines.append([row["what"], number(row["peak"] / file)])
            holds = holds and row["peak"] - HUGE_PAGE - TIME_POINT * row["operations"] <= 1.01 * file
    return (table(["Peak memory (W5)", "× file"], lines) +
            f"\n\nGoal: at most 1.01 × the file, {TIME_POINT} bytes for each chunk and one huge page: "
            f"{'holds' if holds else 'missed'}.")


def beside(group):
    """The contender besides ours and the limit: the straightforward appender, or the reader beside the scanner."""
    return find(group, "straightforward") or find(group, "reader")


def with_quartiles(row, field):
    return f"{number(row[field])} ({number(row[field + '_low'])}–{number(row[field + '_high'])})"


def goal_text(row):
    return f"{row['goal']:g} × {row['goal_against']}"


def limits_table(rows):
    lines = []
    for (name, what), group in workloads(rows).items():
        ours, other, limit = find(group, "ours"), beside(group), find(group, "limit")
        lines.append([f"{name} {what}", number(ours["seconds"] / ours["operations"] * 1e9),
                      with_quartiles(ours, "ratio") if limit else "",
                      f"{other['contender']} {number(other['ratio'])}" if limit and other else "",
                      goal_text(ours), f"{ours['verdict']} ({number(ours['value'])})",
                      str(sum(ours["calls"].values())), str(ours["faults"]), number(ours["peak"] / 2 ** 20)])
    return table(["Workload", "ns each", "× limit (quartiles)", "Another way × limit", "Goal at most", "Verdict",
                  "Calls", "Faults", "MiB peak"], lines)


def in_one(texts):
    """Writes the words that all texts begin with only once: "in order, 64 B; 1 KiB"."""
    start = os.path.commonprefix(texts)
    start = start[:start.rfind(" ") + 1] if len(texts) > 1 else ""
    return start + "; ".join(text[len(start):] for text in texts)


def goals_table(rows):
    """Each goal once, with its reason and the workloads that have it."""
    goals = {}
    for (name, what), group in workloads(rows).items():
        ours = find(group, "ours")
        names = goals.setdefault((goal_text(ours), ours["goal_reason"]), {})
        names.setdefault(name, []).append(what)
    every = {name: [what for other, what in workloads(rows) if other == name] for name, _ in workloads(rows)}
    lines = []
    for (goal, reason), names in goals.items():
        texts = [name if whats == every[name] else f"{name} {in_one(whats)}" for name, whats in names.items()]
        lines.append([". ".join(texts), goal, reason])
    return table(["Workload", "Goal at most", "Because on any machine"], lines).replace("| ---: |\n", "| --- |\n", 1)


def growth_table(rows):
    points = [row for row in rows if row["workload"] == "growth"]
    lines = []
    for count, what in itertools.product(sorted({row["operations"] for row in points}), ("bounded", "unbounded")):
        mine = [row for row in points if row["operations"] == count and row["what"] == what]
        ours, straightforward = find(mine, "ours"), find(mine, "straightforward")
        lines.append([f"{count:,} {what}", number(ours["append_ns"]), number(ours["all_ns"]),
                      number(ours["memory_bytes"]), number(straightforward["append_ns"]),
                      number(straightforward["memory_bytes"])])
    goals = [[row["what"], with_quartiles(row, "value"), f"{row['goal']:g}", row["verdict"]]
             for row in rows if row["workload"] == "growth-goal"]
    return table(["Chunks of 64 B", "append, ns", "in all, ns", "memory, B", "straightforward: append, ns",
                  "straightforward: memory, B"], lines) + "\n\n" + table(
        ["Chunks of 64 B in order", "Value (quartiles)", "Goal at most", "Verdict"], goals)


def by_stores(rows):
    """The works (what, rows) by the names of all stores that do some of them: one group of chunks, one of attributes."""
    groups = []  # (names, works)
    for (_, what), group in workloads(rows).items():
        names = [row["contender"] for row in group if row["contender"] != "ours"]
        known = next((item for item in groups if set(item[0]) & set(names)), None)
        if known is None:
            known = ([], [])
            groups.append(known)
        known[0][:] = max(known[0], names, key=len)
        known[1].append((what, group))
    return {tuple(names): works for names, works in groups}


def peers_table(rows):
    tables = []
    for names, works in by_stores(rows).items():
        lines = []
        for what, group in works:
            ours = find(group, "ours")
            each = ours["seconds"] / ours["operations"] * 1e9
            peers = [find(group, name) for name in names]
            lines.append([what, number(each), *(number(peer["ratio"]) if peer else "" for peer in peers)])
        tables.append(table(["Work", "ours, ns each", *names], lines))
    return "\n\n".join(tables)


def renew(page, marker, text):
    pattern = re.compile(f"(<!-- {marker} begin -->\n).*?(<!-- {marker} end -->)", re.DOTALL)
    if not pattern.search(page):
        raise SystemExit(f"report: {PAGE} has no place for {marker}")
    return pattern.sub(lambda match: match[1] + text + "\n" + match[2], page)


def renewed(page, limits, peers):
    for marker, text in (("machine", machine_text), ("limits", limits_table), ("goals", goals_table),
                         ("reopening", reopening_memory), ("growth", growth_table)):
        page = renew(page, marker, text(limits))
    page = renew(page, "peers machine", machine_text(peers))
    return renew(page, "peers", peers_table(peers))


def own_figures(page):
    """Figures of time and ratios outside code and the places that are written from the results."""
    prose = re.sub(r"<!-- ([\w ]+) begin -->.*?<!-- \1 end -->|```.*?```", "", page, flags=re.DOTALL)
    return re.findall(r"\d[\d.,]*\s*(?:ns|µs|ms|%|times|×)|× \d[\d.,]*", prose)


def check(page, limits, peers):
    findings = [f"{file.name}: a figure that no result gives: {figure}"
                for file in (PAGE, TOP / "README.md") for figure in own_figures(file.read_text())]
    if renewed(page, limits, peers) != page:
        findings.append(f"{PAGE.name}: differs from benchmarks/results: run benchmarks/report.py")
    print(*findings, f"{len(findings)} findings", sep="\n")
    return 1 if findings else 0


def main():
    limits, peers = read("bench.jsonl"), read("peers.jsonl")
    page = PAGE.read_text()
    if sys.argv[1:] == ["--check"]:
        return check(page, limits, peers)
    start_drawing()
    draw_ratios(limits)
    draw_growth(limits)
    draw_peers(peers)
    PAGE.write_text(renewed(page, limits, peers))
    return 0


if __name__ == "__main__":
    sys.exit(main())
