#!/usr/bin/env python3
"""Fails unless every line, branch and condition of the library was taken or is named in exclusions.txt.

Reads what `llvm-cov export` says of the library's sources. The instantiations of a template count as one: what one of
them has taken is taken. A condition counts (MC/DC) when it was seen to decide the outcome alone, both ways.
"""
import collections
import json
import pathlib
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
LIBRARY = ROOT / "Corvane/Common/libFile"


def exclusions():
    """The guards that cannot fire: "function: first line", each followed by its reason, indented."""
    lines = pathlib.Path(__file__).with_name("exclusions.txt").read_text().splitlines()
    return [line for line in lines if line and line[0] not in " #"]


def excluded_lines(path):
    """The numbers of the lines of `path` that belong to guards named in exclusions.txt, and the guards found."""
    lines = path.read_text().splitlines()
    numbers, found, function = set(), set(), ""
    for i, line in enumerate(lines):
        if line.endswith(")") and line[0] != " ":
            function = line.split("(")[0].split("::")[-1]
        guard = f"{function}: {line.strip()}"
        if guard in exclusions():
            found.add(guard)
            closing = " " * (len(line) - len(line.lstrip())) + "}"
            numbers.update(range(i + 1, lines.index(closing, i) + 2))  # counted from 1
    return numbers, found


def line_counts(file):
    """How often each line with code was reached: the highest count of its segments."""
    counts, active = {}, None
    segments = file["segments"]
    for (line, _, count, has_count, _, gap), following in zip(segments, segments[1:] + [None]):
        active = count if has_count and not gap else None
        last = following[0] if following else line
        for number in range(line, last + 1):
            if active is not None and (number < last or (following and following[1] > 1)):
                counts[number] = max(counts.get(number, 0), active)
    return counts


def gaps_of(file, functions):
    """(line, what) of everything not taken, and the totals."""
    total, gaps = collections.Counter(), []
    for line, count in line_counts(file).items():
        total["lines"] += 1
        if count == 0:
            gaps.append((line, "line", "never reached"))
    branches, conditions = collections.defaultdict(lambda: [0, 0]), {}
    for function in functions:
        for branch in function.get("branches", []):
            taken = branches[tuple(branch[:4])]
            taken[0] += branch[4]
            taken[1] += branch[5]
        for decision in function.get("mcdc_records", []):
            seen = decision[-1]
            before = conditions.setdefault(tuple(decision[:4]), [False] * len(seen))
            conditions[tuple(decision[:4])] = [old or new for old, new in zip(before, seen)]
    for (line, column, *_), taken in branches.items():
        for value, count in zip(("true", "false"), taken):
            total["branches"] += 1
            if count == 0:
                gaps.append((line, "branch", f"condition at column {column} never {value}"))
    for (line, column, *_), seen in conditions.items():
        for number, decides in enumerate(seen, 1):
            total["conditions"] += 1
            if not decides:
                gaps.append((line, "MC/DC", f"condition {number} at column {column} never decides alone"))
    return total, gaps


def main():
    data = json.load(sys.stdin)["data"][0]
    total, open_gaps, excluded, guards = collections.Counter(), [], 0, set()
    for file in data["files"]:
        _, in_library, name = file["filename"].partition("Corvane/Common/libFile/")
        if not in_library:
            continue
        path = LIBRARY / name
        functions = [f for f in data["functions"] if f["filenames"][0] == file["filename"]]
        of_file, gaps = gaps_of(file, functions)
        total += of_file
        numbers, found = excluded_lines(path)
        guards |= found
        for line, kind, what in sorted(gaps):
            if line in numbers:
                excluded += 1
            else:
                open_gaps.append(f"{path.relative_to(ROOT)}:{line}: {kind}: {what}")
    print("\n".join(open_gaps))
    print(", ".join(f"{number} {name}" for name, number in total.items()) +
          f": {len(open_gaps)} not taken, and {excluded} in {len(guards)} guards that cannot fire")
    unknown = set(exclusions()) - guards
    for guard in unknown:
        print(f"excluded, but not in the library: {guard}")
    return 1 if open_gaps or unknown or not total else 0


if __name__ == "__main__":
    sys.exit(main())
