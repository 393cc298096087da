#!/usr/bin/python3
"""Looks at the pages of chunkfile view in a real browser: pages.py BUILD_FOLDER [PICTURE]

The numbers that the browser shows are those of check and info, at two widths, in light and dark, on screen and on paper.
The console says nothing, and nothing is asked for. Screenshots stay in BUILD_FOLDER/pages. PICTURE is for the
documentation.
"""
import math
import os
import random
import re
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
TESTS = os.path.dirname(os.path.dirname(HERE))
BUILD = os.path.abspath(sys.argv[1])
SHOTS = os.path.join(BUILD, "pages")
PICTURE = sys.argv[2] if len(sys.argv) > 2 else None
os.environ.update(CHUNKFILE=os.path.join(BUILD, "tools", "chunkfile"), VECTORS=os.path.join(TESTS, "..", "vectors"),
                  CHUNKFILE_MINIMAL=os.path.join(BUILD, "tests", "tools", "chunkfile_minimal"))
sys.path[:0] = [os.path.join(TESTS, "python"), os.path.join(TESTS, "tools")]

import view_test  # noqa: E402, pylint: disable=wrong-import-position
from browser import Browser  # noqa: E402, pylint: disable=wrong-import-position
from chunk_writer import image, record  # noqa: E402, pylint: disable=wrong-import-position

# Texts whose colour has too little contrast with what is under them, and pictures.
CONTRAST = """(() => {
  const parts = text => text.match(/[\\d.]+/g).map(Number);
  const light = color => { const [r, g, b] = parts(color).map(part => part / 255)
    .map(part => part <= .04045 ? part / 12.92 : ((part + .055) / 1.055) ** 2.4);
    return .2126 * r + .7152 * g + .0722 * b; };
  const ratio = (a, b) => (Math.max(light(a), light(b)) + .05) / (Math.min(light(a), light(b)) + .05);
  const under = element => { for (; element; element = element.parentElement) {
    const color = getComputedStyle(element).backgroundColor;
    if ((parts(color)[3] ?? 1) === 1) return color; } return "rgb(255, 255, 255)"; };
  const bad = [];
  for (const element of document.body.querySelectorAll("*")) {
    const style = getComputedStyle(element);
    const texts = [...element.childNodes].some(node => node.nodeType === 3 && node.data.trim());
    const fill = /^(path|rect)$/.test(element.tagName) && element.closest(".map, .plot, .legend")
      && /^rgb\\(/.test(style.fill) ? style.fill : null;
    if (texts && !element.closest("svg, style") && ratio(style.color, under(element)) < 4.5)
      bad.push([element.outerHTML.slice(0, 80), style.color, under(element)]);
    if (fill && ratio(fill, under(element.closest("section"))) < 3) bad.push([element.outerHTML.slice(0, 80), fill]);
  }
  return bad; })()"""
UNNAMED = """[...document.querySelectorAll("svg:not([aria-hidden])")]
  .filter(svg => svg.getAttribute("role") !== "img" || !svg.querySelector(":scope > title").textContent).length"""


def damaged_file():
    """A file of a machine's load, damaged in three places, and written over an older one."""
    chance, second = random.Random(7), 10**9

    def fields(i):
        return {b"load": b"%.2f" % (0.7 + 0.5 * math.sin(i / 300) + chance.random() * 0.2),
                b"memory": b"%d" % (8_000_000 + 2_000_000 * math.sin(i / 900) + chance.randrange(90_000)),
                b"temperature": b"%.1f" % (45 + 9 * math.sin(i / 410) + chance.gauss(0, 1)),
                b"host": b"alpha", b"log": b"x" * int(chance.expovariate(1 / 60))}
    times = [1_795_249_800 * second + i * second // 4 + (400 * second if i >= 3500 else 0) for i in range(5000)]
    records = [record(time, fields(i)) for i, time in enumerate(times)]
    ends = [16]
    for one in records:
        ends.append(ends[-1] + len(one))
    older = b"".join(record(times[0] - (400 - i) * second, fields(i)) for i in range(300))
    data = bytearray(image(records, fill=bytes(30_000) + older + bytes(160_000)))
    data[ends[2100]:ends[2210]] = chance.randbytes(ends[2210] - ends[2100])
    for at in (3000, 4400):
        data[ends[at] + 50] ^= 0xFF
    return bytes(data)


class Pages(view_test.Numbers):
    @classmethod
    def setUpClass(cls):
        os.makedirs(SHOTS, exist_ok=True)
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def page(self, path, width=1280, scheme="light"):
        """What the browser has made of the page."""
        self.browser.open(path, width, scheme)
        self.assertEqual(self.browser.complaints(), [])
        text = self.browser.value("new XMLSerializer().serializeToString(document)")
        return view_test.Page(re.sub(r' xmlns="[^"]*"', "", text))

    def shoot(self, name, *arguments, **keywords):
        """Screenshots of the page of a file, and what holds in all of them."""
        self.view(*arguments, **keywords)
        for width in (360, 1280):
            for scheme in ("light", "dark"):
                with self.subTest(name, width=width, scheme=scheme):
                    self.page(self.path("page.html"), width, scheme)
                    self.browser.screenshot(os.path.join(SHOTS, f"{name}-{width}-{scheme}.png"))
                    self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), width)
                    self.assertEqual(self.browser.value(CONTRAST), [])
                    self.assertEqual(self.browser.value(UNNAMED), 0)

    def test_damaged_file(self):
        self.write("damaged.chunks", damaged_file())
        self.shoot("damaged", "damaged.chunks", code=3)
        self.expect_the_numbers_of_check_and_info("damaged.chunks", self.program)
        if PICTURE:
            self.page(self.path("page.html"), 1000)
            self.browser.screenshot(PICTURE, height=1072)

    def test_hostile_names_run_nothing(self):
        names = [b"<script>document.title = 1</script>", b'"><img src=x onerror="document.title = 1">', b"</title></style>",
                 "\u202e\u0639\u0631".encode(), b"\xff" * 100, b"a" * 70000]
        self.shoot("hostile", self.chunks("<b>&.chunks", [record(i, dict.fromkeys(names, b"%d" % i)) for i in range(40)]))
        self.assertEqual(self.browser.value("document.title"), "<b>&.chunks, chunkfile")

    def test_platform_that_declines_everything(self):
        name = self.write("minimal.chunks", image([view_test.minimal_record(i, b"x" * (i * 37 % 400))
                                                   for i in range(3000)], fill=bytes(90_000)))
        self.shoot("minimal", name, program=view_test.MINIMAL)

    def test_paper_is_white_and_has_no_table_that_must_be_opened(self):
        self.write("damaged.chunks", damaged_file())
        self.view("damaged.chunks", code=3)
        self.browser.open(self.path("page.html"), 1280, "dark", media="print")
        self.assertEqual(self.browser.value("getComputedStyle(document.body).backgroundColor"), "rgba(0, 0, 0, 0)")
        self.assertEqual(self.browser.value("getComputedStyle(document.querySelector('details')).display"), "none")
        self.browser.print(os.path.join(SHOTS, "damaged.pdf"))
        with open(os.path.join(SHOTS, "damaged.pdf"), "rb") as file:
            self.assertTrue(file.read().startswith(b"%PDF"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], "Pages"])
