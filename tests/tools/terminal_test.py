"""The tool on a real terminal: colours, width, progress, Ctrl-C, resizing, and nothing that controls the terminal."""
import os
import re
import shlex
import signal
import time
import unittest

import pexpect

from chunk_writer import record
from program import BEGIN, ProgramTest

ESCAPE = re.compile(r"\x1b\[[0-9;]*[A-Za-z]")


class Terminal(ProgramTest):
    def spawn(self, *arguments, columns=200, shell="", **environment):
        """The tool on a terminal of its own; `shell` is what follows it in a shell."""
        command = shlex.join([self.program, *arguments])
        inherited = {name: value for name, value in os.environ.items() if name not in ("NO_COLOR", "COLUMNS", "LC_ALL")}
        return pexpect.spawn("/bin/bash", ["-c", f"{command} {shell}" if shell else f"exec {command}"], cwd=self.folder,
                             dimensions=(24, columns), encoding="utf-8", timeout=60,
                             env={**inherited, "TERM": "xterm", "LC_ALL": "C.UTF-8", **environment})

    def shown(self, *arguments, code=0, **keywords):
        """All that the terminal gets."""
        child = self.spawn(*arguments, **keywords)
        text = child.read()
        child.close()
        self.assertEqual(child.exitstatus, code, text)
        return text

    def large(self):
        return self.chunks("large", [record(BEGIN + i, {b"a": b"x" * 1000}) for i in range(2000)])

    def test_colours_are_on_a_terminal_that_can_show_them(self):
        self.five()
        self.assertIn("\x1b[32msound\x1b[0m", self.shown("check", "five"))
        self.assertIn("\x1b[31mdamaged\x1b[0m", self.shown("check", self.damaged(), code=3))
        for plain in ({"TERM": "dumb"}, {"TERM": ""}, {"NO_COLOR": "1"}):
            self.assertNotIn("\x1b", self.shown("check", "five", **plain))
        self.assertIn("\x1b", self.shown("check", "five", NO_COLOR=""))
        self.assertNotIn("\x1b", self.shown("check", "--color", "never", "five"))
        self.assertIn("\x1b", self.shown("check", "--color", "always", "five", NO_COLOR="1", TERM="dumb"))

    def test_lines_fit_the_width(self):
        self.chunks("wide", [record(BEGIN, {b"name %d" % i: b"" for i in range(30)})])
        for columns in (40, 79, 120):
            lines = self.shown("list", "--color", "never", "wide", columns=columns).splitlines()
            self.assertEqual(len(lines[1]), columns)
            self.assertTrue(lines[1].endswith("…"))
        self.assertTrue(self.shown("list", "wide", columns=80, LC_ALL="C").splitlines()[1].endswith("..."))

    def test_wide_characters_take_two_columns(self):
        self.chunks("wide", [record(BEGIN, {"\u4e2d".encode() * 50: b""})])
        line = self.shown("list", "wide", columns=100).splitlines()[1]
        self.assertIn(len(line) + line.count("\u4e2d"), (99, 100))

    def test_resizing_counts_from_the_next_line_on(self):
        child = self.spawn("list", self.large(), columns=70)
        child.expect("\n {7}9 ")
        child.setwinsize(24, 50)
        widths = [len(line) for line in ESCAPE.sub("", child.read()).splitlines()]
        self.assertEqual(widths[-1], 50)

    def test_progress_comes_after_half_a_second_and_is_cleared(self):
        self.large()
        text = self.shown("cat", "large", shell="| (sleep 1; cat >/dev/null)")
        self.assertRegex(text, r"^(\r +\d+ % of large\x1b\[K)+\r\x1b\[K$")
        self.assertEqual(self.shown("cat", "large", shell=">/dev/null"), "")
        for silent in (("-q",), ("--quiet",)):
            self.assertEqual(self.shown("cat", *silent, "large", shell="| (sleep 1; cat >/dev/null)"), "")
        self.assertEqual(self.shown("cat", "large", shell="| (sleep 1; cat >/dev/null)", TERM="dumb"), "")

    def test_progress_fits_a_terminal_that_was_resized(self):
        os.rename(self.path(self.large()), self.path("l" * 100))
        child = self.spawn("cat", "l" * 100, shell="| (sleep 1; cat >/dev/null)")
        child.setwinsize(24, 30)
        for line in ESCAPE.sub("", child.read()).split("\r"):
            self.assertLess(len(line), 30)

    def test_interrupt_ends_it_at_once(self):
        child = self.spawn("cat", self.large())
        child.expect("x")  # it now waits for a reader
        started = time.monotonic()
        child.sendintr()
        child.read()
        child.close()
        self.assertEqual(child.signalstatus, signal.SIGINT)
        self.assertLess(time.monotonic() - started, 10)

    def test_rows_can_be_typed(self):
        row = '{"time":"2027-01-15"}'
        for end in (pexpect.spawn.sendintr, pexpect.spawn.sendeof):
            child = self.spawn("import", "-o", "out", "--force")
            child.sendline(row)
            child.expect(row)
            self.wait_for_poll(child)
            end(child)
            text = child.read()
            child.close()
            self.assertEqual(child.exitstatus, 0, text)
            self.assertIn("out: 1 record, 86 bytes\r\n", text)
            self.assertEqual("interrupted: the input ends here" in text, end is pexpect.spawn.sendintr)

    def test_interrupt_between_parts_keeps_the_finished_ones(self):
        child = self.spawn("copy", self.large(), "--split", "1ns", "-o", "p")
        while len(os.listdir(self.folder)) < 5:
            time.sleep(0.001)
        child.sendintr()
        text = ESCAPE.sub("", child.read())
        child.close()
        parts = sorted(name for name in os.listdir(self.folder) if name != "large")
        self.assertEqual(child.signalstatus, signal.SIGINT, text)
        self.assertEqual(re.findall(r"(p\.\d{4}): 1 record", text), parts)
        self.assertIn(f"chunkfile: p: interrupted; {len(parts)} files were written\r\n", text)

    def test_progress_of_an_input_of_unknown_size_is_in_bytes(self):
        rows = "".join('{"time":%d}\n' % i for i in range(64))
        self.write("rows", rows.encode())
        text = self.shown("import", "--time-unit", "s", "-q", "-o", "quiet", shell="< <(cat rows; sleep 1; cat rows)", code=1)
        self.assertNotIn("\r ", text)
        text = self.shown("import", "--time-unit", "s", "--on-equal-time", "shift", "-o", "out",
                          shell="< <(cat rows; sleep 1; cat rows)")
        self.assertRegex(text, r"^\r  0 MiB of standard input\x1b\[K\r\x1b\[Kout: 128 records")

    def test_raw_records_are_refused(self):
        self.assertEqual(self.shown("cat", "--format", "raw", self.five(), code=2),
                         "chunkfile: raw records do not go to a terminal: redirect standard output\r\n")

    def test_no_data_controls_the_terminal(self):
        hostile = b"\x1b]0;title\x07\xc2\x9b31m\xe2\x80\xae\xff\r"
        name = hostile[:-2].decode()
        self.chunks(name, [record(BEGIN, {hostile: hostile, b"j": b'["' + hostile + b'"]', hostile[:-2]: hostile[:-2]})])
        commands = [("cat",), ("cat", "--fields", name), ("cat", "--format", "csv")]
        for command in (("list",), ("info", "--fields"), ("check",)):
            commands += [command, (*command, "--format", "json"), (*command, "--format", "csv")]
        for command in commands:
            for locale in ("C.UTF-8", "C"):
                text = self.shown(*command, name, LC_ALL=locale, TERM="dumb")
                rest = set(re.sub("\r+\n|…", "", text))
                self.assertFalse({c for c in rest if not " " <= c <= "~" and c not in "▁▂▃▄▅▆▇█"}, (command, locale, text))

    def test_ascii_where_the_locale_is_not_utf8(self):
        self.chunks("file", [record(BEGIN + i * i, {"\u00e9".encode(): b""}) for i in range(50)])
        for command in ("info", "list", "check", "cat"):
            self.assertTrue(self.shown(command, "file", LC_ALL="C").isascii(), command)
        self.assertIn("\u00e9", self.shown("list", "file"))

    def test_value_of_an_attribute_is_escaped(self):
        try:
            os.setxattr(self.path(self.five()), "user.a", b"\x1b[31m")
        except OSError:
            self.skipTest("this file system keeps no user attributes")
        self.assertEqual(self.shown("attr", "get", "five", "user.a"), "\\x1b[31m\r\n")


class TabInBash(ProgramTest):
    """Tab in a live bash. There, chunkfile prints its arguments."""
    def shell(self, *commands):
        child = pexpect.spawn("/bin/bash", ["--norc", "--noprofile", "-i"], cwd=self.folder, encoding="utf-8",
                              dimensions=(40, 160), timeout=60,
                              env={**os.environ, "TERM": "dumb", "LC_ALL": "C.UTF-8", "HISTFILE": "", "INPUTRC": "/dev/null"})
        self.addCleanup(child.close)
        completion = shlex.quote(os.path.join(os.environ["TOOLS"], "chunkfile.bash"))
        for line in ("bind 'set show-all-if-ambiguous on'; bind 'set bell-style none'", *commands, f". {completion}",
                     "chunkfile() { printf '<%s>' \"$@\"; }", "PS1='REA''DY>'"):
            child.sendline(line)
        child.expect("READY>$")
        return child

    def completed(self, child, typed):
        """The arguments that the program gets after Tab and Enter."""
        child.sendline(f"chunkfile {typed}\t")
        child.expect(r"\n<(.*)>READY>$")
        return child.match[1].split("><")

    def offered(self, child, typed):
        """The words below the line after Tab."""
        child.send(f"chunkfile {typed}\t\x15")
        child.sendline("echo E''ND")
        child.expect("END\r\n.*READY>$")
        lines = child.before.split("\r\n")
        return set(" ".join(line for line in lines[1:] if "READY>" not in line).split())

    def files(self):
        for name in ("with space", "-dash", "\u00fc", "a'b", "one", "onetwo"):
            self.five(name)
        os.mkdir(self.path("folder"))
        self.five("folder/inner")

    def check(self, child):
        for typed, arguments in (
                ("in", ["info"]), ("info --fi", ["info", "--fields"]), ("info --format j", ["info", "--format", "json"]),
                ("info --format=j", ["info", "--format=json"]), ("attr ge", ["attr", "get"]),
                ("info wi", ["info", "with space"]), ("info 'with s", ["info", "with space"]),
                ("cat --limit 1 with\\ ", ["cat", "--limit", "1", "with space"]), ("info \u00fc", ["info", "\u00fc"]),
                ("info a", ["info", "a'b"]), ("info -- -", ["info", "--", "-dash"]), ("info ./-", ["info", "./-dash"]),
                ("check fol", ["check", "folder/"]), ("check folder/", ["check", "folder/inner"]),
                ("attr list wi", ["attr", "list", "with space"]), ("list --from o", ["list", "--from", "o"])):
            self.assertEqual(self.completed(child, typed), arguments, typed)

    def test_one_word_is_completed(self):
        self.files()
        self.check(self.shell())

    def test_the_package_bash_completion_changes_nothing(self):
        package = "/usr/share/bash-completion/bash_completion"
        if not os.path.exists(package):
            self.skipTest("the package bash-completion is not installed")
        self.files()
        self.check(self.shell(f". {package}"))

    def test_several_words_are_offered(self):
        self.files()
        child = self.shell()
        self.assertLessEqual({"cat", "check"}, self.offered(child, "c"))
        self.assertEqual(self.offered(child, "info --format "), {"table", "json", "csv"})
        self.assertEqual(self.offered(child, "info --format="), {"table", "json", "csv"})
        self.assertEqual(self.offered(child, "check o"), {"one", "onetwo"})
        self.assertEqual(self.offered(child, "list --from "), set())
        self.assertLessEqual({"--from", "--to", "-q"}, self.offered(child, "list -"))


if __name__ == "__main__":
    unittest.main()
