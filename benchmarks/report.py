#!/usr/bin/env python3
"""Writes the tables of docs/performance.md and the pictures in docs/pictures from benchmarks/results/*.jsonl."""
import json
import math
import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parent.parent
RESULTS = TOP / "benchmarks" / "results"
PICTURES = TOP / "docs" / "pictures"
PAGE = TOP / "docs" / "performance.md"
SET_NODE = 48  # bytes of memory that the set takes for a time point, with the allocator's own

# Colours are classes, so that a reader's dark mode can replace them.
STYLE = """
text { font: 12px sans-serif; fill: #24292f; }
.small { font-size: 11px; fill: #57606a; }
.grid { stroke: #d0d7de; stroke-width: 1; }
.spread { stroke: #24292f; stroke-width: 1.5; }
.goal { stroke: #cf222e; stroke-width: 2; }
.a { fill: #0969da; } .b { fill: #bf8700; } .c { fill: #8250df; } .d { fill: #1a7f37; }
.e { fill: #cf222e; } .f { fill: #57606a; } .g { fill: #bc4c00; } .h { fill: #1b7c83; }
.i { fill: #bf3989; } .j { fill: #116329; } .k { fill: #0a3069; }
.line { fill: none; stroke-width: 2; }
.line.a { stroke: #0969da; fill: none; } .line.b { stroke: #bf8700; fill: none; }
.line.c { stroke: #8250df; fill: none; } .line.d { stroke: #1a7f37; fill: none; }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3; } .small { fill: #9198a1; } .grid { stroke: #3d444d; } .spread { stroke: #e6edf3; }
  .goal { stroke: #ff7b72; }
  .a { fill: #58a6ff; } .b { fill: #e3b341; } .c { fill: #bc8cff; } .d { fill: #56d364; }
  .e { fill: #ff7b72; } .f { fill: #9198a1; } .g { fill: #ffa657; } .h { fill: #76e3ea; }
  .i { fill: #f778ba; } .j { fill: #aff5b4; } .k { fill: #cae8ff; }
  .line.a { stroke: #58a6ff; } .line.b { stroke: #e3b341; } .line.c { stroke: #bc8cff; }
  .line.d { stroke: #56d364; }
}
"""


def read(name):
    path = RESULTS / name
    if not path.exists():
        return []
    return [json.loads(line) for line in path.read_text().splitlines()]


def escape(text):
    return text.replace("&", "&amp;").replace("<", "&lt;")


def number(value):
    """Three digits are all that a measurement is good for."""
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}" if value >= 10 else f"{value:.2f}"


class Picture:
    """An SVG drawing: a list of elements with a style for light and dark."""

    def __init__(self, width, height, title):
        self.size = (width, height)
        self.parts = [f"<title>{escape(title)}</title>"]

    def text(self, x, y, text, anchor="start", kind=""):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" class="{kind}">{escape(text)}</text>')

    def line(self, x1, y1, x2, y2, kind="grid"):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>')

    def bar(self, x, y, width, height, kind):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{max(width, 1):.1f}" height="{height}" class="{kind}"/>')

    def dot(self, x, y, kind):
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="5" class="{kind}"/>')

    def curve(self, points, kind):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(f'<polyline points="{path}" class="line {kind}"/>')
        for x, y in points:
            self.dot(x, y, kind)

    def write(self, name):
        width, height = self.size
        head = f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}">'
        body = "\n".join([head, f"<style>{STYLE}</style>", *self.parts, "</svg>"])
        PICTURES.mkdir(parents=True, exist_ok=True)
        (PICTURES / name).write_text(body + "\n")


class Scale:
    """A logarithmic axis from left to right, or from bottom to top."""

    def __init__(self, low, high, start, end):
        self.low, self.high, self.start, self.end = low, high, start, end

    def at(self, value):
        clipped = min(max(value, self.low), self.high)
        part = math.log(clipped / self.low) / math.log(self.high / self.low)
        return self.start + part * (self.end - self.start)

    def ticks(self):
        steps = [m * 10.0 ** e for e in range(-3, 8) for m in (1, 2, 5)]
        return [step for step in steps if self.low <= step <= self.high]


def workloads(rows):
    """The rows of each workload together, in their order."""
    groups = {}
    for row in rows:
        if "ratio" in row:
            groups.setdefault((row["workload"], row["what"]), []).append(row)
    return groups


def find(rows, contender):
    return next((row for row in rows if row["contender"] == contender), None)


def legend(picture, x, y, entries):
    for text, kind in entries:
        picture.bar(x, y - 9, 12, 10, kind)
        picture.text(x + 17, y, text, kind="small")
        x += 36 + 6 * len(text)


def draw_ratios(rows):
    """Bars: how many times its limit each workload takes, ours above the literal implementation."""
    groups = {key: group for key, group in workloads(rows).items() if find(group, "limit")}
    left, right, top, step = 260, 860, 60, 30
    picture = Picture(900, top + step * len(groups) + 30, "Time as a multiple of the limit")
    highest = max(row["ratio_high"] for group in groups.values() for row in group)
    scale = Scale(0.2, max(100, highest), left, right)
    bottom = top + step * len(groups)
    legend(picture, left, 20, [("ours, with quartiles", "a"), ("literal", "f"), ("goal", "e")])
    for tick in scale.ticks():
        picture.line(scale.at(tick), top - 8, scale.at(tick), bottom)
        picture.text(scale.at(tick), top - 14, f"{tick:g} ×", "middle", "small")
    for i, ((name, what), group) in enumerate(groups.items()):
        y = top + i * step
        ours, literal = find(group, "ours"), find(group, "literal")
        picture.text(left - 8, y + 14, f"{name} {what}", "end")
        picture.bar(left, y + 2, scale.at(ours["ratio"]) - left, 12, "a")
        picture.line(scale.at(ours["ratio_low"]), y + 8, scale.at(ours["ratio_high"]), y + 8, "spread")
        if literal:
            picture.bar(left, y + 15, scale.at(literal["ratio"]) - left, 6, "f")
        goal_row = find([row for row in group if "goal" in row], "ours")
        if goal_row:
            goal = goal_row["goal"] * find(group, goal_row["goal_against"])["ratio"]
            picture.line(scale.at(goal), y, scale.at(goal), y + 22, "goal")
    picture.write("ratios.svg")


def draw_growth(rows):
    """Curves over the number of chunks: time of an append on the left, memory of a chunk on the right."""
    points = [row for row in rows if row["workload"] == "growth"]
    picture = Picture(900, 340, "Time and memory of each chunk of 64 bytes while a file grows")
    series = [("ours", "bounded", "a"), ("ours", "unbounded", "d"), ("literal", "bounded", "b"), ("literal", "unbounded", "c")]
    legend(picture, 70, 20, [(f"{name}, {what}", kind) for name, what, kind in series])
    panels = [("append_ns", "nanoseconds an append", 70), ("memory_bytes", "bytes of memory each chunk", 520)]
    for field, title, left in panels:
        values = [row[field] for row in points]
        across = Scale(1e3, 1e7, left, left + 340)
        up = Scale(min(values) / 1.5, max(values) * 1.5, 290, 60)
        picture.text(left, 45, title)
        for tick in up.ticks():
            picture.line(left, up.at(tick), left + 340, up.at(tick))
            picture.text(left - 6, up.at(tick) + 4, f"{tick:g}", "end", "small")
        for power in range(3, 8):
            picture.text(across.at(10 ** power), 310, f"{10 ** power:,}", "middle", "small")
        for name, what, kind in series:
            mine = [row for row in points if row["contender"] == name and row["what"] == what]
            picture.curve([(across.at(row["operations"]), up.at(row[field])) for row in mine], kind)
    picture.text(450, 332, "chunks in the file", "middle", "small")
    picture.write("growth.svg")


def draw_peers(rows):
    """Dots: each peer's time as a multiple of ours, which is the line at 1."""
    groups = workloads(rows)
    names = list(dict.fromkeys(row["contender"] for row in rows if "ratio" in row and row["contender"] != "ours"))
    kinds = {name: "abcdefghijk"[i % 11] for i, name in enumerate(names)}
    left, right, top, step = 240, 870, 80, 28
    bottom = top + step * len(groups)
    picture = Picture(900, bottom + 20, "Time of other stores as a multiple of ours")
    scale = Scale(0.005, 5000, left, right)
    legend(picture, 20, 20, [(name, kinds[name]) for name in names[:6]])
    legend(picture, 20, 40, [(name, kinds[name]) for name in names[6:]])
    for tick in (0.01, 0.1, 1, 10, 100, 1000):
        picture.line(scale.at(tick), top - 8, scale.at(tick), bottom, "spread" if tick == 1 else "grid")
        picture.text(scale.at(tick), top - 14, f"{tick:g} ×", "middle", "small")
    for i, ((_, what), group) in enumerate(groups.items()):
        y = top + i * step + 12
        picture.text(left - 8, y + 4, what, "end")
        for row in group:
            if row["contender"] != "ours":
                picture.dot(scale.at(row["ratio"]), y, kinds[row["contender"]])
    picture.write("peers.svg")


def table(head, lines):
    rule = ["---"] + ["---:"] * (len(head) - 1)
    return "\n".join("| " + " | ".join(cells) + " |" for cells in [head, rule, *lines])


def machine_text(rows):
    row = next((row for row in rows if row["workload"] == "machine"), None)
    if row is None:
        return "Nothing is recorded yet."
    rounds = [other["rounds"] for other in rows if "rounds" in other]
    largest = min(row["bytes"], max(other["bytes"] for other in rows if "ratio" in other))
    kind = "virtual, " if row["virtual"] else ""
    return (f"{row['processor']}, {row['processors']} processors, {row['memory_mib'] / 1024:.0f} GiB ({kind}Linux "
            f"{row['kernel']}), {row['file_system']}, files of up to {largest >> 20} MiB, {min(rounds)} "
            f"to {max(rounds)} rounds, measured in {row['clock']}.")


def calls_text(row):
    return str(sum(row["calls"].values()))


def reopening_memory(rows):
    """What reopening takes of memory, as a multiple of the file, which is read and written."""
    texts, holds = [], True
    for row in rows:
        if row["workload"] == "W5" and row["contender"] == "ours":
            file = row["bytes"] / 2
            texts.append(f"{number(row['peak'] / file)} ({row['what'].removeprefix('reopen ')})")
            holds = holds and row["peak"] - SET_NODE * row["operations"] <= 1.1 * file
    return (f"\n\nPeak memory of reopening (W5), as a multiple of the file:\n{', '.join(texts)}.\n"
            f"Goal: 1.1, and {SET_NODE} bytes of the set for each chunk: {'holds' if holds else 'missed'}.")


def limits_table(rows):
    lines = []
    for (name, what), group in workloads(rows).items():
        ours, literal, limit = (find(group, contender) for contender in ("ours", "literal", "limit"))
        goal, verdict = "", ""
        if "goal" in ours:
            unit = " ns" if ours["goal_against"] == "ns" else f" × {ours['goal_against']}"
            figure = number(ours["value"])
            if not ours["holds"] and figure == number(ours["goal"]):
                figure = f"{ours['value']:.3f}"
            goal, verdict = f"{ours['goal']:g}{unit}", ("holds" if ours["holds"] else "missed") + f" ({figure})"
        each = ours["seconds"] / ours["operations"] * 1e9
        lines.append([f"{name} {what}", number(each),
                      f"{number(ours['ratio'])} ({number(ours['ratio_low'])}–{number(ours['ratio_high'])})" if limit else "",
                      number(literal["ratio"]) if literal and limit else "", goal, verdict, calls_text(ours),
                      str(ours["faults"]), number(ours["peak"] / 2 ** 20)])
    head = ["Workload", "ns each", "× limit (quartiles)", "literal × limit", "Goal at most", "Verdict", "Calls", "Faults",
            "MiB peak"]
    return table(head, lines) + reopening_memory(rows)


def growth_table(rows):
    points = [row for row in rows if row["workload"] == "growth"]
    lines = []
    for count in sorted({row["operations"] for row in points}):
        for what in ("bounded", "unbounded"):
            mine = [row for row in points if row["operations"] == count and row["what"] == what]
            ours, literal = find(mine, "ours"), find(mine, "literal")
            lines.append([f"{count:,} {what}", number(ours["append_ns"]), number(ours["all_ns"]),
                          number(ours["memory_bytes"]), number(literal["append_ns"]), number(literal["memory_bytes"])])
    head = ["Chunks of 64 B", "append, ns", "in all, ns", "memory, B", "literal: append, ns", "literal: memory, B"]
    verdicts = [f"An append to a file of the most chunks costs {number(row['value'])} times one to a file of 10,000 "
                f"({row['what']}; goal "
                f"{row['goal']:g}: {'holds' if row['holds'] else 'missed'})."
                for row in rows if row["workload"] == "growth-goal"]
    return table(head, lines) + "\n\n" + "\n".join(verdicts)


def peers_table(rows):
    groups = workloads(rows)
    names = list(dict.fromkeys(row["contender"] for row in rows if "ratio" in row and row["contender"] != "ours"))
    lines = []
    for (_, what), group in groups.items():
        ours = find(group, "ours")
        cells = [find(group, name) for name in names]
        lines.append([what, number(ours["seconds"] / ours["operations"] * 1e9)] +
                     [number(cell["ratio"]) if cell else "" for cell in cells])
    return table(["Work", "ours, ns each", *names], lines)


def renew(page, marker, text):
    pattern = re.compile(f"(<!-- {marker} begin -->\n).*?(<!-- {marker} end -->)", re.DOTALL)
    if not pattern.search(page):
        raise SystemExit(f"report: {PAGE} has no place for {marker}")
    return pattern.sub(lambda match: match[1] + text + "\n" + match[2], page)


def main():
    limits, peers = read("bench.jsonl"), read("peers.jsonl")
    page = PAGE.read_text()
    if limits:
        draw_ratios(limits)
        draw_growth(limits)
        page = renew(page, "machine", machine_text(limits))
        page = renew(page, "limits", limits_table(limits))
        page = renew(page, "growth", growth_table(limits))
    if peers:
        draw_peers(peers)
        page = renew(page, "peers machine", machine_text(peers))
        page = renew(page, "peers", peers_table(peers))
    PAGE.write_text(page)


if __name__ == "__main__":
    main()
