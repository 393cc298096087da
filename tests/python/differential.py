#!/usr/bin/env python3
"""Random files, sound and damaged: python/corvane_chunks.py, the library and chunkfile must agree on each.

usage: PYTHONPATH=python differential.py LIBRARY_FACTS CHUNKFILE [NUMBER [SEED]]

Makes NUMBER files (100) of SEED (the clock). A file on which they differ stays in the working folder.
"""
import json
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time

from chunk_writer import entry, image, raw_record, record
from facts import check_by_tool, facts_by_reader, list_by_tool, listed, tool_differs

BATCH = 100  # files for each run of the library
NAMES = [b"load", b"mem", b"", b"a", b"a\0", b"aa", b"\x7f", b"\x80", b"\xff", "grün".encode(), b"\x1b[0m"]
TIMES = [-2**63, 2**63 - 1, -1, 0, 1]
NUMBERS = [0, 1, 39, 40, 41, 255, 2**30, 2**30 + 1, 2**31, 2**32 - 1]


class Maker:
    """Makes files that the seed decides."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def file(self):
        content = self.image()
        for _ in range(self.random.choice((0, 0, 1, 1, 2, 3))):
            content = self.random.choice((self.flip, self.cut, self.blank, self.tear, self.insert, self.recount,
                                          self.forge))(content)
        return content

    def image(self):
        records = [self.record() for _ in range(self.random.choice((0, 1, 2, 3, 5, 12)))]
        if records and self.random.random() < 0.2:
            records.append(records[0])
        fill = self.random.choice((b"", b"", bytes(self.random.randrange(200)), self.bytes(100), self.record()))
        return image(records, self.random.choice((2, 2, 2, 2, 0, 3, 2**64 - 1)), fill=fill)

    def record(self):
        now = 1800000000000000000 + self.random.randrange(10**10)
        return record(self.random.choice((now, now, now, *TIMES)), self.fields())

    def fields(self):
        names = self.random.sample(NAMES, self.random.randrange(5))
        return {name: self.value() for name in names}

    def value(self):
        return self.random.choice((b"", b"1", b"0.25 %", self.bytes(20), self.bytes(300), self.bytes(5) + bytes(30),
                                   image([record(7, {b"load": b"inner"})])))

    def bytes(self, most):
        return bytes(self.random.randrange(256) for _ in range(self.random.randrange(most)))

    def place(self, content):
        """A position in the content, often in the header or in the head of the first record."""
        return self.random.randrange(min(len(content), self.random.choice((16, 56, len(content) + 1))) + 1)

    def flip(self, content):
        if not content:
            return content
        at = min(self.place(content), len(content) - 1)
        return content[:at] + bytes([content[at] ^ 1 << self.random.randrange(8)]) + content[at + 1:]

    def cut(self, content):
        return content[:self.place(content)]

    def blank(self, content):
        at, size = self.place(content), self.random.randrange(100)
        return content[:at] + bytes(min(size, len(content) - at)) + content[at + size:]

    def tear(self, content):
        at = self.place(content)
        return content[:at] + self.image()[at:]

    def insert(self, content):
        at = self.place(content)
        return content[:at] + self.random.choice((self.bytes(50), self.record(), content)) + content[at:]

    def recount(self, content):
        count = self.random.choice((0, 1, 4, 13, 2**32, 2**63, 2**64 - 1))
        return content[:8] + struct.pack("<Q", count) + content[16:] if len(content) >= 16 else content

    def forge(self, content):
        """A record with right checksums, before the others: one number, byte or order may be wrong."""
        fields = list(self.fields().items())
        self.random.shuffle(fields)
        entries, values, wrong = [entry(*field) for field in fields], b"".join(value for _, value in fields), {}
        flaw = self.random.randrange(8)
        if flaw == 0 and fields:
            name = self.random.choice(("value_size", "name_size", "value_sum"))
            entries[0] = entry(*fields[0], **{name: self.random.choice(NUMBERS)})
        elif flaw == 1:
            entries.append(b"\0")
        elif flaw == 2:
            values += b"\0"
        elif flaw == 3:
            wrong["mark"] = b"CVC2"
        elif flaw == 4:
            name = self.random.choice(("size", "directory_size", "directory_sum", "head_sum"))
            wrong[name] = self.random.choice(NUMBERS)
        number = max(0, len(fields) + (self.random.choice((1, -1)) if flaw == 5 else 0))
        return content[:16] + raw_record(1, b"".join(entries), values, number=number, **wrong) + content[16:]


def facts_by_library(program, paths):
    return json.loads(subprocess.run([program, *paths], capture_output=True, check=True).stdout)


def difference(facts, library, check, records):
    """What differs first; None if nothing does."""
    for key, value in facts.items():
        if library[key] != value:
            return f"{key}: Python {value}, library {library[key]}"
    if records != listed(facts):
        return f"list: Python {listed(facts)}, chunkfile {records}"
    return tool_differs(facts, check)


def compare(folder, numbers, seed, programs):
    """Compares files of these numbers. Returns the number of those that are sound to their end."""
    library, tool = programs
    paths = [os.path.join(folder, f"{number}.chunks") for number in numbers]
    for number, path in zip(numbers, paths):
        with open(path, "wb") as file:
            file.write(Maker(f"{seed} {number}").file())
    whole = 0
    for path, found, check in zip(paths, facts_by_library(library, paths), check_by_tool(tool, paths)):
        facts = facts_by_reader(path, os.path.join(folder, "padded"))
        differs = difference(facts, found, check, list_by_tool(tool, path))
        if differs:
            kept = shutil.copy(path, f"differential-{seed}-{os.path.basename(path)}")
            sys.exit(f"differential: {kept}: {differs}")
        whole += facts["walk"]["end"] == "all read"
    return whole


def main(library, tool, number="100", seed=None):
    seed = seed or str(int(time.time()))
    whole = 0
    for start in range(0, int(number), BATCH):
        with tempfile.TemporaryDirectory() as folder:
            whole += compare(folder, range(start, min(start + BATCH, int(number))), seed, (library, tool))
    print(f"{number} files of seed {seed}: no difference; {whole} are read to their count")


if __name__ == "__main__":
    main(*sys.argv[1:])
