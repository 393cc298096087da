"""chunkfile view: the page's numbers are those of check and info, and nothing in a file can harm the page."""
import glob
import json
import os
import resource
import signal
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree
from pathlib import Path

from chunk_writer import record
from program import BEGIN, SECOND, ProgramTest, minimal_record

MINIMAL = os.environ["CHUNKFILE_MINIMAL"]
VECTORS = os.environ["VECTORS"]
VECTORS_STEP = int(os.environ.get("VECTORS_STEP", "1"))  # above 1: not all of them


def text_of(element):
    return "".join(element.itertext())


class Page:
    """A page, as a reader of XML sees it."""

    def __init__(self, text):
        self.text = text
        self.root = ElementTree.fromstring(text)

    def all(self, path):
        return self.root.findall(f".//{path}")

    def number(self, identifier):
        found = self.all(f"*[@id='{identifier}']")
        return int(text_of(found[0])) if found else 0

    def table(self, title):
        """The rows of the table with this title, as texts. No such table: no rows."""
        for details in self.all("details"):
            if details.find("summary").text == title:
                return [[text_of(cell) for cell in row] for row in details.findall(".//tbody/tr")]
        return []

    def sums(self, title):
        """The sums of all columns but the first."""
        columns = list(zip(*self.table(title)))[1:]
        return [sum(map(int, column)) for column in columns]

    def findings(self):
        return [(text_of(item.find("span")), text_of(item.find("code")), int(item.get("data-begin")),
                 int(item.get("data-end")), text_of(item.findall("span")[1])) for item in self.all("li[@data-begin]")]

    def legend(self):
        """Bytes by kind."""
        items = [item for item in self.all("section[@id='map']//li")]
        return {item.find("svg").tail.strip(): int(text_of(item.find("small")).removesuffix(" B")) for item in items}


class View(ProgramTest):
    def view(self, name, *options, code=0, **keywords):
        """The page of a file. The tool prints nothing but the verdict of a file that is not sound."""
        out, err = self.run_tool("view", name, "-o", "page.html", "--force", *options, code=code, **keywords)
        page = self.page(self.path("page.html"))
        verdict = text_of(page.all("*[@id='verdict']")[0])
        self.assertEqual((out, err.decode()), (b"", f"chunkfile: {name}: {verdict}\n" if code else ""))
        return page

    def page(self, path):
        return Page(Path(path).read_text(encoding="utf-8"))

    def document(self, command, name, program):
        done = subprocess.run([program, command, "--format", "json", name], cwd=self.folder, capture_output=True,
                              check=False, env={**os.environ, "LC_ALL": "C.UTF-8"})
        return done.returncode, json.loads(done.stdout)

    def fields(self, *records):
        return self.view(self.chunks("file", [record(BEGIN + i * SECOND, fields) for i, fields in enumerate(records)]))


class Numbers(View):
    def expect_the_numbers_of_check_and_info(self, name, program):
        code, check = self.document("check", name, program)
        _, info = self.document("info", name, program)
        page = self.view(name, code=code, program=program)
        after = check["after"]
        self.assertEqual(text_of(page.all("*[@id='verdict']")[0]), check["verdict"])
        self.assertEqual((page.number("records"), page.number("count"), page.number("size")),
                         (check["records"], int(check["count"]), check["size"]))
        self.assertEqual((page.number("found"), page.number("doubtful")), (after["found"], after["doubtful"]))
        self.assertEqual(page.findings(), [(finding["severity"], finding["code"], finding["begin"], finding["end"],
                                            finding["text"]) for finding in check["findings"]])
        self.assertEqual([list(map(int, row[:3])) + row[3:]
                          for row in page.table("Runs of good records after the end or damage")],
                         [[run["begin"], run["end"], run["records"], run["doubt"]] for run in after["runs"]])
        self.expect_whole_map(page, check)
        total = info.get("sizes", {}).get("sum", 0)
        if check["records"] + after["found"]:
            self.assertEqual(page.sums("Numbers of records and bytes")[:3], [check["records"], total, after["found"]])
            self.assertEqual(page.sums("Numbers of the sizes")[1], check["records"] + after["found"])

    def expect_whole_map(self, page, check):
        """The map's parts follow each other, from the first byte to the last, and the records are where check says."""
        parts = [(kind, int(begin), int(end), int(size)) for kind, begin, end, size in page.table("Numbers of the map")]
        at, sums = 0, {}
        for kind, begin, end, size in parts:
            self.assertEqual((begin, end - begin), (at, size))
            at, sums[kind] = end, sums.get(kind, 0) + size
        self.assertEqual((at, sums), (check["size"], page.legend()))
        self.assertEqual([(kind, begin, end) for kind, begin, end, _ in parts if kind in ("header", "records")],
                         [part for part in (("header", 0, 16), ("records", 16, check["end"])) if part[1] < part[2]
                          and check["size"] >= 16])
        found = sum(run["end"] - run["begin"] for run in check["after"]["runs"] if not run["doubt"])
        self.assertEqual(sums.get("records after damage", 0), found)

    def test_of_all_vectors(self):
        for path in sorted(glob.glob(os.path.join(VECTORS, "*.chunks")))[::VECTORS_STEP]:
            for program in (self.program, MINIMAL):
                with self.subTest(os.path.basename(path), program=os.path.basename(program)):
                    self.expect_the_numbers_of_check_and_info(path, program)

    def test_of_damaged_files(self):
        records = [record(BEGIN + i * SECOND, {b"i": b"%d" % i}) for i in range(12)]
        sound = Path(self.path(self.chunks("sound", records, fill=b"\0" * 300))).read_bytes()
        size = len(records[0])
        cases = [sound[:cut] for cut in range(0, len(sound), 97 * VECTORS_STEP)]
        for at in range(0, len(sound), 89 * VECTORS_STEP):
            cases.append(sound[:at] + bytes([sound[at] ^ 0xFF]) + sound[at + 1:])
            cases.append(sound[:at] + bytes(size) + sound[at + size:])
            cases.append(sound[:at] + b"x" * 10 + sound[at:])
        cases.append(sound + sound)
        for number, case in enumerate(cases):
            with self.subTest(number):
                self.expect_the_numbers_of_check_and_info(self.write("case", case), self.program)

    def test_of_a_platform_that_declines_everything(self):
        name = self.write("file", b"\2" + bytes(7) + b"\x64" + bytes(7)
                          + b"".join(minimal_record(i, b"x" * i) for i in range(100)))
        self.expect_the_numbers_of_check_and_info(name, MINIMAL)
        page = self.view(name, program=MINIMAL)
        self.assertEqual([row[0] for row in page.table("Numbers of records and bytes")][:3], ["0", "2", "4"])
        self.assertEqual(page.all("section[@id='fields']"), [])

    def test_of_fields_are_digit_by_digit(self):
        page = self.fields({b"a": b"1.10", b"b": b"18446744073709551615"}, {b"a": b"1.1e0", b"b": b"18446744073709551614"},
                           {b"a": b"-0.50", b"b": b"text"}, {b"a": b"01", b"b": b"1e999"})
        self.assertEqual(page.table("Names of fields"), [["a", "4", "0", "3"], ["b", "4", "0", "2"]])
        rows = [[[text_of(cell) for cell in row][1:3] for row in article.findall(".//tbody/tr")]
                for article in page.all("article")]
        self.assertEqual(rows, [[["1.10", "1.10"], ["1.1e0", "1.1e0"], ["-0.50", "-0.50"]],
                                [["18446744073709551615"] * 2, ["18446744073709551614"] * 2]])
        limits = [[item.text for item in article.findall(".//*[@class='limit']")] for article in page.all("article")]
        self.assertEqual(limits, [["1.10", "-0.50"], ["18446744073709551615", "18446744073709551614"]])

    def test_of_fields_are_those_of_info(self):
        name = self.damaged()
        fields = json.loads(self.run_tool("info", "--fields", "--format", "json", name, code=3)[0])["fields"]
        rows = self.view(name, code=3).table("Names of fields")
        self.assertEqual([[row[0], int(row[1])] for row in rows], [[field["name"], field["records"]] for field in fields])
        self.assertEqual([row[2] for row in rows], ["2", "2"])


class Harmless(View):
    def test_page_asks_for_nothing_and_runs_nothing(self):
        page = self.view(self.five())
        self.assertIn("default-src 'none'; style-src 'unsafe-inline'", page.text)
        tags = {element.tag for element in page.root.iter()}
        self.assertFalse(tags & {"script", "link", "img", "iframe", "object", "embed", "form", "a", "use", "image"})
        self.assertNotRegex(page.text, r"(?i)https?:|@import|@font-face|\bon\w+=|url\((?!#k\d\)|#cells\))")

    def test_names_and_values_stay_text(self):
        names = [b"<script>alert(1)</script>", b'"><b onload="x', b"]]>-->", b"&amp;", b"\x1b[31m\x00", b"\xff\xfe",
                 "\u202e\u2066\u200b\ufeff\U000e0041\ufffe".encode(), "\u0639\u0631\u0628\u064a".encode()]
        shown = ["<script>alert(1)</script>", '"><b onload="x', "]]>-->", "&amp;", r"\x1b[31m\x00", r"\xff\xfe",
                 "".join(rf"\x{byte:02x}" for byte in names[6]), "\u0639\u0631\u0628\u064a"]
        self.assertEqual({row[0] for row in self.fields(dict.fromkeys(names, b"1")).table("Names of fields")}, set(shown))
        name = self.chunks('<i>&"\'\x1b\u202e', [record(BEGIN, {b"a": b"<i>"})])
        page = self.view(name)
        self.assertEqual(text_of(page.all("h1")[0]), '<i>&"\'' + r"\x1b\xe2\x80\xae")
        self.assertNotRegex(page.text, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202a-\u202e]")

    def test_long_names_are_cut(self):
        row = self.fields({b"a" * 70000: b"1"}).table("Names of fields")[0]
        self.assertEqual(row[0], "a" * 120 + "\u2026 and 69880 bytes more")

    def test_size_does_not_depend_on_the_number_of_records(self):
        def page_of(number):
            fields = {b"field %02d" % i: b"%d" for i in range(40)}
            return self.view(self.chunks("file", [record(BEGIN + i * SECOND // 100 + i * i, {
                name: value % (i * 7919 % 1000) for name, value in fields.items()}) for i in range(number)]))
        few, many = page_of(500), page_of(5000)
        self.assertLess(len(many.text), 1.2 * len(few.text))
        self.assertLess(len(many.text), 700_000)
        self.assertEqual(len(many.all("article")), 24)
        self.assertIn("16 more fields with numbers are not shown.", text_of(many.root))

    def test_times_can_be_anywhere(self):
        times = [-2**63, -1, 0, 1, 2**63 - 1]
        page = self.view(self.chunks("file", [record(time, {b"a": b"1"}) for time in times]))
        self.assertEqual(page.sums("Numbers of records and bytes")[0], 5)
        self.assertEqual(self.view(self.chunks("file", [])).table("Numbers of records and bytes"), [])


class Writing(View):
    def code(self, *arguments, code, **keywords):
        return self.error("view", *arguments, code=code, **keywords)

    def test_exit_codes(self):
        self.view(self.five())
        self.view(self.damaged(), code=3)
        self.assertEqual(self.code("absent", "-o", "new.html", code=1), "absent: No such file or directory")
        self.run_tool("view", "five", code=2)
        self.run_tool("view", "five", "five", "-o", "new.html", code=2)
        self.assertEqual(self.code("five", "-o", "-", code=2), "-o takes the name of a file")
        self.assertIn("no/new.html: create a file beside it: No such file", self.code("five", "-o", "no/new.html", code=1))
        self.assertFalse(os.path.exists(self.path("new.html")))

    def test_page_that_exists_stays_without_force(self):
        self.write("page.html", b"old")
        self.assertEqual(self.code(self.five(), "-o", "page.html", code=1), "page.html: exists; --force replaces it")
        self.assertEqual(Path(self.path("page.html")).read_bytes(), b"old")

    def test_source_is_never_replaced(self):
        before = Path(self.path(self.five())).read_bytes()
        os.symlink("five", self.path("symbolic"))
        os.link(self.path("five"), self.path("hard"))
        for name in ("five", "symbolic", "hard"):
            self.assertIn("is the same file as five", self.code("five", "-o", name, "--force", code=1))
        self.assertEqual(Path(self.path("five")).read_bytes(), before)

    def test_same_file_makes_the_same_page(self):
        self.assertEqual(self.view(self.five()).text, self.view("five").text)
        self.assertEqual(self.view("five", environment={"LC_ALL": "C"}).text, self.view("five").text)

    def test_standard_input(self):
        data = Path(self.path(self.five())).read_bytes()
        page = self.view("-", stdin=data)
        self.assertEqual((text_of(page.all("h1")[0]), page.number("records")), ("standard input", 5))

    def test_mode_follows_the_umask(self):
        self.view(self.five())
        mask = os.umask(0)
        os.umask(mask)
        self.assertEqual(os.stat(self.path("page.html")).st_mode & 0o777, 0o666 & ~mask)

    def test_replaced_page_keeps_its_mode_and_its_links(self):
        page = self.view(self.five()).text
        self.write("other", b"old")
        os.chmod(self.path("other"), 0o640)
        os.remove(self.path("page.html"))
        os.symlink("other", self.path("page.html"))
        self.assertEqual(self.view("five").text, page)
        self.assertEqual((os.readlink(self.path("page.html")), os.stat(self.path("other")).st_mode & 0o777), ("other", 0o640))
        os.remove(self.path("other"))
        self.view("five")
        self.assertEqual(sorted(os.listdir(self.folder)), ["five", "page.html"])

    def test_full_disk_leaves_the_old_page_and_no_litter(self):
        self.write("page.html", b"old")
        self.five()
        files = sorted(os.listdir(self.folder))

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        done = subprocess.run([self.program, "view", "five", "-o", "page.html", "--force"], cwd=self.folder, check=False,
                              capture_output=True, preexec_fn=limit, env={**os.environ, "LC_ALL": "C"})
        self.assertEqual((done.returncode, done.stderr), (1, b"chunkfile: page.html: write: File too large\n"))
        self.assertEqual(Path(self.path("page.html")).read_bytes(), b"old")
        self.assertEqual(sorted(os.listdir(self.folder)), files)

    def test_interrupt_leaves_nothing(self):
        with subprocess.Popen([self.program, "view", "-", "-o", "page.html"], cwd=self.folder,
                              stdin=subprocess.PIPE) as process:
            process.stdin.write(b"\2")
            process.stdin.flush()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.wait(), -signal.SIGINT)
        self.assertEqual(os.listdir(self.folder), [])


if __name__ == "__main__":
    unittest.main()
