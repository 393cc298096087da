#!/usr/bin/env python3
"""Checks the pages: links lead to files, and C++ that is shown is C++ that the build compiles.

usage: check_documents.py REPOSITORY
"""
import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\]\(([^)#\s]+)(?:#[^)]*)?\)")
CODE = re.compile(r"^```cpp\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def dead_links(page, text):
    targets = [target for target in LINK.findall(text) if "://" not in target]
    return [f"{page}: no file {target}" for target in targets if not (page.parent / target).exists()]


def uncompiled_code(page, text, compiled):
    blocks = [block for block in CODE.findall(text) if not any(block in source for source in compiled)]
    return [f"{page}: in no compiled file:\n{block}" for block in blocks]


def main():
    repository = pathlib.Path(sys.argv[1])
    listed = subprocess.run(["git", "ls-files"], cwd=repository, check=True, capture_output=True, text=True).stdout
    files = [repository / name for name in listed.splitlines()]
    pages = [file for file in files if file.suffix == ".md"]
    compiled = [file.read_text() for file in files if file.suffix in (".cpp", ".h") and file.exists()]
    findings = []
    for page in pages:
        text = page.read_text()
        findings += dead_links(page, text) + uncompiled_code(page, text, compiled)
    print(*findings, f"{len(pages)} pages, {len(findings)} findings", sep="\n")
    return 1 if findings or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
