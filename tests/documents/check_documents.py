#!/usr/bin/env python3
"""Checks the pages: links lead to files, shown C++ and Python is in a source, and named tests exist.

usage: check_documents.py REPOSITORY
"""
import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")
CODE = re.compile(r"^```(?:cpp|python)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
NAMED_TEST = re.compile(r"`((?:[A-Z]\w*|library|packaging)\.[A-Z]\w*|documents\.\w+)`")
TEST = re.compile(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", re.MULTILINE)
SCRIPT = re.compile(r"^add_test\(NAME ([\w.]+)$", re.MULTILINE)
CLAIM = re.compile(r"^([A-Z]\w*)\(\) \{$", re.MULTILINE)  # of tests/delivery/*.sh
DAMAGE = re.compile(r"\n\n\| State \|[^\n]*\n\|-[^\n]*\n(.*?)\n\n", re.DOTALL)


def dead_links(page, text):
    targets = [target for target in LINK.findall(text) if "://" not in target]
    return [f"{page}: no file {target}" for target in targets if not (page.parent / target).exists()]


def invented_code(page, text, sources):
    blocks = [block for block in CODE.findall(text) if not any(block in source for source in sources)]
    return [f"{page}: in no source:\n{block}" for block in blocks]


def missing_tests(page, text, tests):
    return [f"{page}: no test {name}" for name in NAMED_TEST.findall(text) if name not in tests]


def untested_states(page, text):
    """The rows of the format page's damage table that name no test."""
    if page.name != "format.md":
        return []
    table = DAMAGE.search(text)
    rows = table[1].split("\n") if table else ["no table of states"]
    return [f"{page}: without a test: {row}" for row in rows if not NAMED_TEST.search(row)]


def all_tests(files, compiled):
    """Tests as "Suite.Name", scripts by their name, claims of scripts as "script.Name"."""
    tests = {f"{suite}.{name}" for source in compiled for suite, name in TEST.findall(source)}
    for file in files:
        if file.name == "CMakeLists.txt":
            tests |= set(SCRIPT.findall(file.read_text()))
        elif file.suffix == ".sh":
            tests |= {f"{file.stem}.{claim}" for claim in CLAIM.findall(file.read_text())}
    return tests


def main():
    repository = pathlib.Path(sys.argv[1])
    listed = subprocess.run(["git", "ls-files"], cwd=repository, check=True, capture_output=True, text=True).stdout
    files = [file for name in listed.splitlines() if (file := repository / name).exists()]
    pages = [file for file in files if file.suffix == ".md"]
    compiled = [file.read_text() for file in files if file.suffix in (".cpp", ".h")]
    sources = compiled + [file.read_text() for file in files if file.suffix == ".py"]
    tests = all_tests(files, compiled)
    findings = []
    for page in pages:
        text = page.read_text()
        findings += dead_links(page, text) + invented_code(page, text, sources)
        findings += missing_tests(page, text, tests) + untested_states(page, text)
    print(*findings, f"{len(pages)} pages, {len(findings)} findings", sep="\n")
    return 1 if findings or not pages or not tests else 0


if __name__ == "__main__":
    sys.exit(main())
