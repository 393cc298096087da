#!/usr/bin/env python3
"""A page as Doxygen 1.9 wants it. Usage: page.py PAGE.md

The pages are written for a code host. Doxygen 1.9 numbers their headings, so here each gets the name that the code host
gives it, and links to sections use it. A broken one is then an error, as is a missing picture. A link to an example
leads to its page; a link to any other source, or to the vectors, becomes text, because they are not on the site.
"""
import re
import sys
from pathlib import Path

HEADING = re.compile(r"^(##+ )(.*)")
LINK_TO_SECTION = re.compile(r"\]\((?:[\w./-]*?(\w+)\.md)?#([\w-]+)\)")
PICTURE = re.compile(r"!\[([^]]*)\]\([\w./-]*?([\w-]+\.(?:svg|png))\)")
LINK_TO_EXAMPLE = re.compile(r"\]\((?:\.\./)?examples/(\w+)\.cpp\)")
LINK_TO_SOURCE = re.compile(r"\[([^][]+)\]\([\w./-]+(?:\.h|\.cpp|\.py|vectors/README\.md)\)")


def named(heading, page):
    """The heading with the name that a code host makes of it. Names of all pages share one space: the page begins it."""
    name = re.sub(r"[^\w -]", "", heading[2].lower()).replace(" ", "-")
    return f"{heading[0]} {{#{page}-{name}}}"


def main(path):
    page, in_code = path.stem, False
    for line in path.read_text(encoding="utf-8").splitlines():
        in_code ^= line.startswith("```")
        if not in_code:
            if page != "README":  # its sections would stand among the pages in the navigation
                line = HEADING.sub(lambda heading: named(heading, page), line)
            line = line.replace("# Corvane ", "# %Corvane ")  # the system, not the namespace
            line = LINK_TO_SECTION.sub(lambda link: f"](@ref {link[1] or page}-{link[2]})", line)
            line = PICTURE.sub(r'@image html \2 "\1"', line)
            line = LINK_TO_EXAMPLE.sub(r"](\1_8cpp-example.html)", line)
            line = LINK_TO_SOURCE.sub(r"\1", line)
        print(line)


if __name__ == "__main__":
    main(Path(sys.argv[1]))
