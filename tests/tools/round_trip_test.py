"""import, then cat: rows of real programs come back with their names, the bytes of their values and their order."""
import base64
import csv
import glob
import io
import json
import os
import random
import subprocess
import unittest

from program import ProgramTest

ROWS = int(os.environ["ROWS"])  # of the long series


class Text(str):
    """A number, as it is written."""


def bytes_of(value):
    """What a JSON value becomes in a chunk."""
    if isinstance(value, str):
        return value.encode()
    if isinstance(value, dict) and list(value) == ["base64"]:
        return base64.b64decode(value["base64"])
    return compact(value).encode()


def compact(value):
    """Compact JSON with numbers as they are written."""
    if isinstance(value, Text):
        return str(value)
    if isinstance(value, dict):
        return "{" + ",".join(json.dumps(name, ensure_ascii=False) + ":" + compact(v) for name, v in value.items()) + "}"
    if isinstance(value, list):
        return "[" + ",".join(map(compact, value)) + "]"
    return json.dumps(value, ensure_ascii=False)


def name_of(name):
    return base64.b64decode(name[7:]) if name.startswith("base64:") else name.encode()


def bytes_of_csv(value):
    """The bytes that base64 stands for, if it is written in the one right way."""
    try:
        data = base64.b64decode(value[7:], validate=True)
    except ValueError:
        return value.encode()
    marked = value.startswith("base64:") and base64.b64encode(data).decode() == value[7:]
    return data if marked else value.encode()


def unescaped(rows):
    """The rows with nested values whose strings are written in one way: escapes stay as they are."""
    def one(value):
        try:
            nested = json.loads(value, parse_int=Text, parse_float=Text) if value[:1] in (b"{", b"[") else None
        except ValueError:
            nested = None
        return value if nested is None else compact(nested).encode()
    return [{name: one(value) for name, value in row.items()} for row in rows]


def rows_of_json(lines):
    rows = (json.loads(line, parse_int=Text, parse_float=Text) for line in lines)
    return [{name_of(name): bytes_of(value) for name, value in row.items()} for row in rows]


class RoundTrip(ProgramTest):
    def there_and_back(self, data, *options, code=0):
        """The fields of the records that the rows become, as bytes; (rows, what the tool says)."""
        said = b"".join(self.run_tool("import", "--force", "-o", "out", *options, stdin=data, code=code)).decode()
        self.assertEqual(self.out("check", "-q", "out"), "")
        back = [json.loads(line)["fields"] for line in self.out("cat", "--strings", "out").splitlines()]
        return [{name_of(name): bytes_of(value) for name, value in fields.items()} for fields in back], said

    def check_ndjson(self, lines, *options, **keywords):
        rows, err = self.there_and_back(("\n".join(lines) + "\n").encode(), *options, **keywords)
        self.assertEqual(unescaped(rows), unescaped(rows_of_json(lines)))
        document, _ = self.there_and_back(("[" + ",\n ".join(lines) + "]").encode(), *options, **keywords)
        self.assertEqual(document, rows)
        return err

    def check_csv(self, names, rows, *options, **keywords):
        text = io.StringIO()
        csv.writer(text).writerows([names, *rows])
        found, err = self.there_and_back(text.getvalue().encode(), *options, **keywords)
        self.assertEqual(found, [{name.encode(): bytes_of_csv(value) for name, value in zip(names, row)} for row in rows])
        return err

    def output(self, *command):
        return subprocess.run(command, cwd=self.folder, check=True, capture_output=True, text=True,
                              env={**os.environ, "LC_ALL": "C.UTF-8", "TZ": "UTC-1"}).stdout

    def test_packages(self):
        names = ["Package", "Version", "Installed-Size", "Description"]
        form = "\x1f".join("${%s}" % name for name in names) + "\x1e"
        rows = [row.split("\x1f") for row in self.output("dpkg-query", "-W", "-f", form).split("\x1e")[:-1]]
        self.assertGreater(len(rows), 50)
        self.check_csv(names, rows, "--time", "now")  # descriptions have several lines
        self.check_ndjson([json.dumps(dict(zip(names, row)), ensure_ascii=len(row[0]) % 2 == 0) for row in rows],
                          "--time", "now")

    def test_listings(self):
        lines = self.output("ls", "-l", "--time-style=full-iso", "/usr/bin").splitlines()[1:]
        rows = [[" ".join(words[5:8]), words[4], words[8]] for words in (line.split(None, 8) for line in lines)]
        err = self.check_csv(["changed", "size", "name"], rows, "--time", "changed", "--on-equal-time", "shift")
        self.assertIn("CSV; times: ISO 8601, offset such as +0100\n", err)
        times = {}
        for row in rows:
            times.setdefault(row[0], row)
        text = io.StringIO()
        csv.writer(text).writerows([["changed", "size", "name"], *rows])
        code = 0 if len(times) == len(rows) else 3
        found, err = self.there_and_back(text.getvalue().encode(), "--time", "changed", "--on-equal-time", "skip", code=code)
        self.assertEqual([row[b"name"].decode() for row in found], [row[2] for row in times.values()])
        if code:
            self.assertRegex(err, fr"\b{len(rows) - len(times)} records? left out: an earlier one has the same time\n")

    def test_processes(self):
        rows = []
        for folder in glob.glob("/proc/[0-9]*")[:200]:
            row = {"pid": int(os.path.basename(folder))}
            for name in ("cmdline", "stat", "status", "io", "limits"):
                try:
                    with open(os.path.join(folder, name), encoding="utf-8", newline="") as file:
                        row[name] = file.read()  # arguments end with zero bytes
                except OSError:
                    pass
            rows.append(row)
        self.assertTrue(any("\0" in row.get("cmdline", "") for row in rows))
        self.check_ndjson([json.dumps(row) for row in rows], "--time", "now")

    def test_commits(self):
        git = ["git", "-c", "user.name=J\u00f6rg \"x\", y", "-c", "user.email=a@b"]
        self.output("git", "init", "-q", ".")
        for i in range(20):
            os.environ["GIT_COMMITTER_DATE"] = f"{1800000000 + i} +0{i % 9}30"
            self.output(*git, "commit", "-q", "--allow-empty", "-m", f"Title {i}: \"\u00e9\"\n\n\tbody, {'x' * i}\n- y\n")
        for style, form in (("iso", "offset such as +0100"), ("iso-strict", "RFC 3339"), ("unix", "numbers of s")):
            log = self.output("git", "log", f"--date={style}", "--format=%H%x1f%cd%x1f%an%x1f%B%x1e")
            rows = [row.lstrip("\n").split("\x1f") for row in log.split("\x1e")[:-1]]
            self.assertEqual(len(rows), 20)
            options = ("--time", "date", "--time-unit", "s")
            self.assertIn(form, self.check_csv(["commit", "date", "author", "text"], rows, *options))
            self.assertIn(form, self.check_ndjson([json.dumps(dict(zip(("commit", "date", "author", "text"), row)))
                                                   for row in rows], *options))

    def test_any_json_and_any_csv(self):
        random.seed(15)
        pieces = ["a", "\u00e9", "\U0001f600", '"', "\\", "\n", "\r", "\t", ",", "\0", "\x7f", "\x85", "{", "}", "1", "base64:",
                  " ", "'"]

        def text():
            return "".join(random.choices(pieces, k=random.randrange(8)))

        def value(depth=0):
            return random.choice((text, text, lambda: random.randrange(-10**20, 10**20), random.random, lambda: None,
                                  lambda: True, lambda: {text(): value(depth + 1) for _ in range(2 if depth < 4 else 0)},
                                  lambda: [value(depth + 1) for _ in range(2 if depth < 4 else 0)]))()
        lines = [json.dumps({text().replace("base64:", ""): value() for _ in range(4)}, ensure_ascii=i % 2 == 0, indent=None,
                            separators=random.choice(((",", ":"), (" , ", " :  ")))) for i in range(500)]
        self.check_ndjson(lines, "--time", "now")
        names = sorted({text().replace("base64:", "") for _ in range(20)})
        self.check_csv(names, [[text() for _ in names] for _ in range(500)], "--time", "now")

    def test_a_long_series_on_standard_input_takes_one_image(self):
        def rows():  # made as they are needed: a child's peak begins with its parent's memory
            for i in range(ROWS):
                yield f'{{"host":"h{i % 7}","load":{i % 13}.{i % 100:02},"text":"the load of a machine"'
        command = [self.program, "import", "-q", "--time-unit", "ns", "--drop-time", "-o", "out"]
        process = subprocess.Popen(command, cwd=self.folder, stdin=subprocess.PIPE)
        for i, row in enumerate(rows()):
            process.stdin.write(b'%s,"time":%d}\n' % (row.encode(), 10**18 + i * 1000))
        process.stdin.close()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(process.returncode, 0)
        with subprocess.Popen([self.program, "cat", self.path("out")], stdout=subprocess.PIPE, text=True) as back:
            for row, line in zip(rows(), back.stdout, strict=True):
                self.assertEqual(line.split(',"fields":')[1], row + "}}\n")
        if "MEMORY" in os.environ:
            # Of each record, two time points and a hash are kept.
            self.assertLess(usage.ru_maxrss * 1024, os.path.getsize(self.path("out")) + 26 * ROWS + (16 << 20))


if __name__ == "__main__":
    unittest.main()
