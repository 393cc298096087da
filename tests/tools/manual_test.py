"""The pages: their samples are what the tool prints, and the options are those of help and completion.

usage: manual_test.py [update]   update writes what the tool prints into the pages, and the completion into its file
"""
import contextlib
import dataclasses
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import typing
import unittest

import chunk_writer

TOOLS = os.environ["TOOLS"]  # the folder of the page and the completion
PAGE = os.path.join(TOOLS, "chunkfile.1")
GUIDE = os.path.join(TOOLS, "..", "docs", "chunkfile.md")
README = os.path.join(TOOLS, "..", "README.md")
COMPLETION = os.path.join(TOOLS, "chunkfile.bash")
PROGRAM = os.environ["CHUNKFILE"]
COMMANDS = ("info", "list", "cat", "check", "recover", "copy", "import", "attr", "view")

HELP_OPTION = re.compile(r"^  ((?:-\w,)?--[\w-]+)(?: ([A-Z][A-Z,:]*|\w+\|\S+))?\s+\S", re.MULTILINE)
PAGE_OPTION = re.compile(r"^\.It Fl (?:(\w) , )?-([\w-]+)(?: Ar (\S+))?$", re.MULTILINE)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def printed(*arguments):
    return subprocess.run([PROGRAM, *arguments], check=True, capture_output=True, text=True).stdout


def write_samples(folder):
    second, begin = 10**9, 1795249800 * 10**9  # 2026-11-21T08:30:00Z
    records = [chunk_writer.record(begin + i * second, {b"load": b"0.%d" % (50 + 7 * i), b"host": b"alpha"})
               for i in range(4)]
    image = chunk_writer.image(records)
    sound = bytearray(image.ljust(4096, b"\0"))
    damaged = bytearray(sound)
    damaged[16 + len(records[0]) + 50] ^= 0xFF
    for name, data in (("a.chunks", sound), ("damaged.chunks", damaged)):
        with open(os.path.join(folder, name), "wb") as file:
            file.write(data)


def shell(command, folder, locale):
    """Runs the command as a reader of the page would. The folder bin comes first on the path."""
    return subprocess.run(["bash", "-c", command], cwd=folder, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, text=True,
                          env={**os.environ, "LC_ALL": locale, "COLUMNS": "80", "PATH": f"{folder}/bin:{os.environ['PATH']}"})


@contextlib.contextmanager
def reader():
    """A folder with the files of the manual page, and the program in bin."""
    with tempfile.TemporaryDirectory() as folder:
        write_samples(folder)
        os.mkdir(os.path.join(folder, "bin"))
        os.symlink(os.path.abspath(PROGRAM), os.path.join(folder, "bin", "chunkfile"))
        yield folder


@dataclasses.dataclass
class Samples:
    """How a page shows commands and what they print. A command begins with "$ ", each further line of it with "> "."""
    block: re.Pattern
    locale: str
    quoted: typing.Callable = lambda text: text
    unquoted: typing.Callable = lambda text: text

    def shown(self, commands, folder):
        typed = re.findall(r"^\$ .*\n(?:> .*\n)*", commands, re.MULTILINE)
        return "".join(lines + self.quoted(shell(self.unquoted(re.sub("^[$>] ", "", lines, flags=re.MULTILINE)),
                                                 folder, self.locale).stdout.replace("\r\n", "\n")) for lines in typed)

    def renewed(self, page):
        """The page with what its commands print now."""
        with reader() as folder:
            return self.block.sub(lambda sample: sample[1] + self.shown(sample[2], folder) + sample[3], read(page))


MDOC = Samples(re.compile(r"(^\.Bd -literal -offset indent\n)(.*?)(^\.Ed$)", re.MULTILINE | re.DOTALL), "C",
               lambda text: re.sub(r"^(?=\.)", r"\\&", text.replace("\\", "\\e"), flags=re.MULTILINE),
               lambda text: text.replace("\\e", "\\"))
MARKDOWN = Samples(re.compile(r"(^```console\n)(.*?)(^```$)", re.MULTILINE | re.DOTALL), "C.UTF-8")
PAGES = {PAGE: MDOC, GUIDE: MARKDOWN}

TOUR = re.compile(r"^## Looking into files\n.*?^```sh\n(.*?)^```$", re.MULTILINE | re.DOTALL)
UNIT = re.compile(r"^```ini\n# /etc/systemd/system/(\S+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
STARTED = re.compile(r"^ExecStart=/usr/bin/(chunkfile .*)$", re.MULTILINE)
CRON = re.compile(r"^17 \* \* \* \* (.*)$", re.MULTILINE)
SSH = "#!/bin/sh\nshift\nexec \"$@\"\n"  # in place of the real one: the host is this one


def options_of_help(command):
    return {(names, argument) for names, argument in HELP_OPTION.findall(printed(command, "--help"))}


def options_of_page(section):
    """Those of the section with this heading."""
    text = read(PAGE)
    begin = text.index(f"\n.Ss {section}\n")
    end = re.compile(r"^\.S[sh] ", re.MULTILINE).search(text, begin + 5).start()
    return {(f"-{short},--{name}" if short else f"--{name}", argument)
            for short, name, argument in PAGE_OPTION.findall(text[begin:end])}


def steady(text):
    """Without what depends on the file system."""
    return re.sub(r"\d+ allocated", "allocated", text)


class Manual(unittest.TestCase):
    maxDiff = None

    def test_samples_are_what_the_tool_prints(self):
        for page, samples in PAGES.items():
            with self.subTest(os.path.basename(page)):
                self.assertTrue(samples.block.search(read(page)))
                self.assertEqual(steady(samples.renewed(page)), steady(read(page)))

    def test_tour_in_the_readme_works(self):
        """Each line prints something or makes a file. Those about damage end with 3, the others with 0."""
        with reader() as folder:
            os.mkdir(os.path.join(folder, "folder"))
            shutil.copy(os.path.join(folder, "a.chunks"), os.path.join(folder, "folder"))
            with open(os.path.join(folder, "bin", "ssh"), "w", encoding="utf-8") as file:
                os.fchmod(file.fileno(), 0o755)
                file.write(SSH)
            try:
                os.setxattr(os.path.join(folder, "a.chunks"), "user.a", b"1")
            except OSError:
                self.skipTest("this file system keeps no user attributes")
            for line in TOUR.search(read(README))[1].splitlines():
                with self.subTest(line):
                    before = set(os.listdir(folder))
                    done = shell(line, folder, "C.UTF-8")
                    self.assertEqual(done.returncode, 3 if "damaged" in line else 0, done.stdout)
                    self.assertTrue(done.stdout or set(os.listdir(folder)) - before)

    def test_options_are_those_of_help(self):
        for command in COMMANDS:
            with self.subTest(command):
                common = options_of_page("Options of all commands")
                self.assertEqual(options_of_page(f"chunkfile {command}") | common, options_of_help(command))

    def test_all_members_of_json_are_described(self):
        text = read(PAGE)
        words = re.findall(r"^\.(?:It |Pq )?Li (.*)", text[text.index(".Sh JSON"):text.index(".Sh FINDINGS")], re.MULTILINE)
        described = set(re.findall(r"\w+", " ".join(words).replace("(dq", '"')))
        with reader() as folder:
            for command in ("info --fields", "check", "check --max-size 1", "list --scan"):
                shown = shell(f"chunkfile {command} --format json damaged.chunks 2>/dev/null", folder, "C").stdout
                members = set(re.findall(r'"(\w+)":', shown))
                self.assertIn("schema", members)
                self.assertEqual(members - described, set(), command)

    @unittest.skipUnless(shutil.which("mandoc"), "no mandoc here")
    def test_page_is_clean(self):
        done = subprocess.run(["mandoc", "-T", "lint", PAGE], capture_output=True, check=False, text=True)
        self.assertEqual((done.returncode, done.stdout), (0, ""))


class FolderCheck(unittest.TestCase):
    """The recipes for a timer and for cron."""
    def recipes(self):
        return [pattern.search(read(GUIDE))[1] for pattern in (STARTED, CRON)]

    def test_recipes_print_what_is_not_fine_and_nothing_else(self):
        for recipe in self.recipes():
            with self.subTest(recipe), reader() as folder:
                store = os.path.join(folder, "store")
                os.mkdir(store)
                for name in ("a.chunks", "damaged.chunks"):
                    os.rename(os.path.join(folder, name), os.path.join(store, name))
                    os.utime(os.path.join(store, name), (0, 0))
                command = recipe.replace("/srv/chunks", store)
                found = shell(command, folder, "C")
                self.assertNotEqual(found.returncode, 0)
                self.assertTrue(found.stdout.startswith(f"{store}/damaged.chunks: damaged\n"), found.stdout)
                self.assertNotIn("a.chunks", found.stdout)
                os.remove(os.path.join(store, "damaged.chunks"))
                fine = shell(command, folder, "C")
                self.assertEqual((fine.returncode, fine.stdout), (0, ""))

    def test_systemd_takes_the_units(self):
        if not shutil.which("systemd-analyze"):
            self.skipTest("no systemd-analyze here")
        units = dict(UNIT.findall(read(GUIDE)))
        with tempfile.TemporaryDirectory() as folder:
            program = os.path.join(folder, "chunkfile")  # a path without spaces, which would need quotes in a unit
            os.symlink(os.path.abspath(PROGRAM), program)
            for name, text in units.items():
                with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                    file.write(text.replace("/usr/bin/chunkfile", program))
            done = subprocess.run(["systemd-analyze", "verify", *units], cwd=folder, capture_output=True, check=False,
                                  text=True)
            self.assertEqual((len(units), done.returncode, done.stdout + done.stderr), (3, 0, ""))


class Completion(unittest.TestCase):
    def completed(self, *words):
        """What bash offers after these words, the last of which is being typed."""
        script = f"source {shlex.quote(str(COMPLETION))}; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _chunkfile; echo \"${{COMPREPLY[*]}}\""
        done = subprocess.run(["bash", "-c", script, "bash", "chunkfile", *words], cwd=TOOLS, check=True,
                              capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        return set(done.stdout.split())

    def test_file_is_made_of_the_tables(self):
        self.assertEqual(read(COMPLETION), printed("--bash-completion"))

    def test_commands_are_those_of_help(self):
        listed = re.findall(r"^  (\w+) {5,}\S", printed("--help"), re.MULTILINE)
        self.assertEqual(listed, list(COMMANDS))
        self.assertEqual(self.completed(""), {*COMMANDS, "--help", "--version"})
        self.assertEqual(self.completed("c"), {"cat", "check", "copy"})

    def test_options_are_those_of_help(self):
        for command in COMMANDS:
            names = {name for names, _ in options_of_help(command) for name in names.split(",")}
            self.assertEqual(self.completed(command, "-"), names - {"-h"}, command)

    def test_choices_are_those_of_help(self):
        for command in COMMANDS:
            for names, argument in options_of_help(command):
                if "|" in argument:
                    self.assertEqual(self.completed(command, names, ""), set(argument.split("|")), (command, names))
                    self.assertEqual(self.completed(command, names, "="), set(argument.split("|")), (command, names))
                    begin = argument.split("|")[0][:3]
                    self.assertEqual(self.completed(command, names, "=", begin),
                                     {choice for choice in argument.split("|") if choice.startswith(begin)})

    def test_files_and_actions(self):
        self.assertIn("chunkfile.1", self.completed("cat", "chunk"))
        self.assertIn("chunkfile.1", self.completed("cat", "--limit", "5", "chunk"))
        self.assertIn("chunkfile.1", self.completed("cat", "--", "chunk"))
        self.assertEqual(self.completed("cat", "--", "--"), set())
        self.assertEqual(self.completed("attr", ""), {"list", "get", "set", "remove"})
        self.assertIn("chunkfile.1", self.completed("attr", "list", "chunk"))


def update():
    for page, samples in PAGES.items():
        text = samples.renewed(page)
        with open(page, "w", encoding="utf-8") as file:
            file.write(text)
    with open(COMPLETION, "w", encoding="utf-8") as file:
        file.write(printed("--bash-completion"))


if __name__ == "__main__":
    if sys.argv[1:] == ["update"]:
        update()
    else:
        unittest.main()
