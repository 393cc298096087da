#!/usr/bin/env python3
"""Doxygen's view of a source of the site. Usage: doxygen_filter.py HEADER.h | PAGE.md

Headers: the plain // comments in Doxygen's notation. A comment belongs to the declaration on the next line, and to all
that follow without an empty line between; one before a namespace is about the file. In it, "Word  text" opens a
labelled entry, an indented quotation one about that text of the library, and other indented columns stay as they are.

Pages: headings get names, so that links to sections work here as they do on a code host; a broken link and a missing
picture are errors. Links to examples lead to their pages. What else is a link into the source tree, which is not part
of the site, becomes text.
"""
import re
import sys
from pathlib import Path

LABEL = re.compile(r"(\w+) {2,}(.*)")
QUOTE = re.compile(r' {2}((?:throws )?)("[^"]*")\s*(.*)')
PAGE = re.compile(r"docs/(\w+)\.md")
HEADING = re.compile(r"##+ (.*)")
LINK_TO_EXAMPLE = re.compile(r"\]\((?:\.\./)?examples/(\w+)\.cpp\)")
LINK_TO_FILE = re.compile(r"(?<!!)\[([^][]+)\]\((?!https?:|@ref)[\w./-]+(?<!\.md)(?<!\.html)\)")
PICTURE = re.compile(r"!\[([^]]*)\]\([\w./-]*?([\w-]+\.svg)\)")
LINK_TO_SECTION = re.compile(r"\]\((?:[\w./-]*?(\w+)\.md)?#([\w-]+)\)")


def link_to_page(match):
    return f'\\ref md_docs_{match[1]} "{match[0]}"' if Path(match[0]).exists() else match[0]


def escape(text):
    """Text that means itself. Doxygen takes quotations as they are."""
    parts = re.split('("[^"]*")', text)
    parts[::2] = [re.sub(r"([\\@<>&#*])", r"\\\1", part) for part in parts[::2]]
    return PAGE.sub(link_to_page, "".join(parts))


def join_quotations(lines):
    """A quotation that goes on in the next line becomes one line, so that it can be told from text."""
    joined = []
    for line in lines:
        if joined and joined[-1].count('"') % 2 and line.strip():
            joined[-1] += " " + line.strip()
        else:
            joined.append(line)
    return joined


def markup(lines):
    """The text of one comment, in Doxygen's Markdown."""
    out = []
    in_entry = in_list = False
    for line in join_quotations(lines):
        if label := LABEL.fullmatch(line):
            in_entry = in_list = True
            out.append(f"- **{label[1]}** {escape(label[2])}")
        elif quote := QUOTE.fullmatch(line):
            in_list = True
            out.append(f"{'  ' if in_entry else ''}- {quote[1]}`{quote[2]}` {escape(quote[3])}")
        elif re.match(r" {2,}\S.* {2,}\S", line) and not in_entry:
            out += ["@verbatim", line.strip(), "@endverbatim"]
        elif line.startswith(" "):
            out.append(f"      {escape(line.strip())}")
        else:
            if in_list:
                out.append("")  # ends the list
            in_entry = in_list = False
            out.append(escape(line))
    return "\n".join(out).replace("@endverbatim\n@verbatim\n", "").split("\n")


def declarations(lines):
    """The lines up to the next empty one, comment or closing brace: what one comment is about."""
    count = 0
    while count < len(lines) and re.match(r"\s*[^\s/}]", lines[count]):
        count += 1
    return lines[:count]


def code(line):
    """A line of code, its trailing comment made one about what it declares."""
    line = re.sub(r"\s*// NOLINT.*", "", line)
    return re.sub(r"(?<=;)  // (.*)", lambda match: "  ///< " + escape(match[1]), line)


def header(lines):
    out = []
    while lines:
        count = 0
        while count < len(lines) and re.match(r"\s*//(?! NOLINT)", lines[count]):
            count += 1
        if not count:
            out.append(code(lines.pop(0)))
            continue
        comment = markup([re.sub(r"^\s*// ?", "", line) for line in lines[:count]])
        subject = declarations(lines[count:])
        del lines[: count + len(subject)]
        if subject and subject[0].startswith("namespace"):
            comment = ["@file", "", *comment]
        several = sum(line.endswith((";", "}")) for line in subject) > 1
        out += ["///@{"] * several
        out += ["/**", *comment, "*/"]
        out += map(code, subject)
        out += ["///@}"] * several
    return out


def section(page, heading):
    """The name of a section: what a code host makes of the heading, as an identifier."""
    words = re.sub(r"[^\w\s-]", "", heading.lower()).strip()
    return f"{page}_{re.sub(r'[ -]', '_', words)}"


def document(page, lines):
    out = []
    in_code = False
    for line in lines:
        in_code ^= line.startswith("```")
        if not in_code and (heading := HEADING.fullmatch(line)):
            line += f" {{#{section(page, heading[1])}}}"
        elif not in_code:
            line = re.sub(r"^# Corvane ", "# %Corvane ", line)  # the system, not the namespace
            line = LINK_TO_SECTION.sub(lambda link: f"](@ref {section(link[1] or page, link[2])})", line)
            line = PICTURE.sub(r'@image html \2 "\1"', line)
            line = LINK_TO_FILE.sub(r"\1", LINK_TO_EXAMPLE.sub(r"](\1_8cpp-example.html)", line))
        out.append(line)
    return out


def main(path):
    lines = path.read_text(encoding="utf-8").splitlines()
    print("\n".join(header(lines) if path.suffix == ".h" else document(path.stem, lines)))


if __name__ == "__main__":
    main(Path(sys.argv[1]))
