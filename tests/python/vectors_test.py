#!/usr/bin/env python3
"""The files in vectors/: python/corvane_chunks.py finds in them what they say, and they show every state of the page.

usage: PYTHONPATH=python python3 tests/python/vectors_test.py; CHUNKFILE names the tool
"""
import json
import os
import pathlib
import re
import tempfile
import unittest

from facts import check_by_tool, facts_by_reader, list_by_tool, listed, tool_differs

TOP = pathlib.Path(__file__).resolve().parents[2]
VECTORS = {path.stem: json.loads(path.read_text()) for path in sorted((TOP / "vectors").glob("*.json"))}
NO_CONTENT = {  # states of the page that are no file's content, and contents that another state has
    "Absent", "Folder", "No permission to read", "Another user's", "Read error in the header",
    "Read error in a record", "Longer than `maxSize`", "Records without length, endless count",
    "Written by two appenders"}


class Vectors(unittest.TestCase):
    def test_the_reader_finds_what_each_says(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, vector in VECTORS.items():
                facts = facts_by_reader(TOP / "vectors" / f"{name}.chunks", os.path.join(folder, "padded"))
                expected = {key: value for key, value in vector.items() if key in facts}
                self.assertEqual(facts, expected, name)
        self.assertGreater(len(VECTORS), 80)

    @unittest.skipUnless("CHUNKFILE" in os.environ, "CHUNKFILE does not name the tool")
    def test_the_tool_finds_what_each_says(self):
        paths = [TOP / "vectors" / f"{name}.chunks" for name in VECTORS]
        checks = check_by_tool(os.environ["CHUNKFILE"], paths)
        for (name, vector), path, check in zip(VECTORS.items(), paths, checks):
            self.assertEqual(list_by_tool(os.environ["CHUNKFILE"], path), listed(vector), name)
            findings = [f"{finding['code']} {finding['begin']}-{finding['end']}" for finding in check["findings"]]
            after = check["after"]
            self.assertEqual({"verdict": check["verdict"], "findings": findings, "found": after["found"],
                              "doubtful": after["doubtful"]}, vector["check"], name)

    @unittest.skipUnless("CHUNKFILE" in os.environ, "CHUNKFILE does not name the tool")
    def test_the_tool_foresees_each_reopening(self):
        names = {}
        for name, vector in VECTORS.items():
            for reopening in vector["reopening"]:
                names.setdefault(reopening["max_size"], []).append(name)
        for max_size, some in names.items():
            paths = [TOP / "vectors" / f"{name}.chunks" for name in some]
            for name, check in zip(some, check_by_tool(os.environ["CHUNKFILE"], paths, max_size)):
                self.assertIsNone(tool_differs(VECTORS[name], check), f"{name}, {max_size}")

    def test_every_state_of_the_page_that_is_a_content_has_one(self):
        page = (TOP / "docs" / "format.md").read_text()
        table = re.search(r"\n\| State \|.*?\n\n", page, re.S)[0]
        states = set(re.findall(r"^\| ([^|]+) \|", table, re.M)) - {"State"}
        headings = set(re.findall(r"^##+ (.*)", page, re.M))
        shown = {vector["state"] for vector in VECTORS.values()}
        self.assertEqual(states - shown, NO_CONTENT)
        self.assertEqual(shown - states - headings, set())

    def test_all_together_are_below_1_mib(self):
        self.assertLess(sum(path.stat().st_size for path in (TOP / "vectors").iterdir()), 1 << 20)


if __name__ == "__main__":
    unittest.main()
