#!/usr/bin/env python3
"""Breaks the library in many small ways, one at a time; each time a test must fail.

A mutant is the library with one operator, constant, literal, flag, statement or branch changed. It is found when a
test program fails with it, plainly built or, should it survive that, under sanitizers. survivors.txt must give a reason
for each mutant that is not found: "the same: ..." if no caller can tell it from the library. Of the others at least
98 % must be found. What was found stays found as long as the library's sources do: an interrupted run goes on where it
was.
"""
import argparse
import concurrent.futures
import hashlib
import json
import os
import pathlib
import queue
import re
import resource
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[3]
SOURCES = ROOT / "Corvane/Common/libFile/Corvane/File"
WORK = ROOT / "build/mutants"
SURVIVORS = pathlib.Path(__file__).with_name("survivors.txt")
GOAL = 98.0  # percent

# The test programs for each source; first those that find the most in the least time.
APPENDER = ["appender_test", "reopen_test", "reopen_calls_test", "appender_calls_test", "appender_exceptions_test",
            "appender_collaborators_test", "reopen_walk_test", "costs_test", "collaborator_faults_test",
            "reopen_damage_test", "reopen_memory_test"]
READER = ["reader_test", "reader_calls_test", "reader_exceptions_test"]
ATTRIBUTES = ["attributes_failures_test", "attributes_races_test", "attributes_test"]
PROGRAMS = {
    "DataChunkFileAppender.cpp": APPENDER,
    "DataChunkFileReader.cpp": READER,
    "ExtendedAttributes.cpp": ATTRIBUTES,
    "WriteChunkFileDurably.cpp": ["durable_steps_test", "durable_states_test"],
    "FileImage.h": ["image_test", *APPENDER],
    "Descriptor.h": READER + APPENDER,
    "Log.h": ATTRIBUTES + READER + APPENDER,
    "ChunkFileLayout.h": READER + APPENDER,
    "XattrNames.h": ["attributes_names_test"],
}
# Programs that contain a header of the library, so they are built again for each mutant.
REBUILT = {"image_test": ROOT / "tests/image", "attributes_names_test": ROOT / "tests/attributes"}

# Operators and constants: a pattern and its replacement.
REPLACEMENTS = [
    (r" < ", [" <= ", " >= "]), (r" <= ", [" < ", " > "]), (r" > ", [" >= ", " <= "]), (r" >= ", [" > ", " < "]),
    (r" == ", [" != "]), (r" != ", [" == "]), (r" && ", [" || "]), (r" \|\| ", [" && "]),
    (r" \+ ", [" - "]), (r" - ", [" + "]), (r" \* ", [" / "]), (r" / ", [" * "]), (r" % ", [" * "]),
    (r" \+= ", [" -= "]), (r" -= ", [" += "]), (r"\+\+", ["--"]), (r"!(?=[\w(])", [""]), (r"-(?=[a-z])", [""]),
    (r"\btrue\b", ["false"]), (r"\bfalse\b", ["true"]), (r"std::min\b", ["std::max"]), (r"std::max\b", ["std::min"]),
    (r"\b\w+ \? ", [lambda text: "!" + text]),
    (r"\b[A-Z]+_[A-Z_]+ \| ", [""]), (r" \| [A-Z]+_[A-Z_]+\b", [""]),
    (r"(?<![\w.])\d+(?=U?\b)", [lambda text: oct(int(text, 8) + 1)[2:].zfill(4) if len(text) > 1 and text[0] == "0"
                                else str(int(text) + 1), lambda text: None if int(text) < 2 else str(int(text) - 1)]),
]
NO_STATEMENT = re.compile(
    r"(\}|if|for|while|do|else|const|constexpr|using|namespace|template|static|struct|class|explicit|auto|return .|"
    r"public|private|[\w:<>*&, ]+[ *&]\w+( = .*|\(.*\).*)?;$|virtual|friend|\w+\(const \w+&\)|\w+& operator=)")


def code_of(text):
    """The text with comments and the insides of literals blanked."""
    def blank(match):
        found = match.group()
        return found[0] + " " * (len(found) - 2) + found[-1] if found[0] in "'\"" else " " * len(found)
    return re.sub(r'//[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\])\'|#[^\n]*|static_assert[^\n]*', blank, text)


def closing(code, at):
    """The position after the bracket that closes the one at `at`."""
    depth = 0
    for i in range(at, len(code)):
        depth += {"(": 1, ")": -1}.get(code[i], 0)
        if depth == 0:
            return i + 1
    raise ValueError("no closing bracket")


def statements(code):
    """(begin, end) of each statement that can be left out: from after a statement or bracket to its semicolon."""
    begin, at, before = None, 0, ""
    for line in code.splitlines(keepends=True):
        words = line.strip()
        if words:
            if begin is None and before in (";", "{", "}", ":") and not NO_STATEMENT.match(words):
                begin = at + len(line) - len(line.lstrip())
            before = words[-1]
        so_far = code[begin:at + len(line)] if begin is not None else ""
        if so_far and so_far.count("(") == so_far.count(")"):
            if before == ";" and so_far.count("{") == so_far.count("}"):
                yield begin, at + len(line.rstrip())
            if before in ";{}":
                begin = None
        at += len(line)


def changes(text):
    """All (begin, end, new text) of a source."""
    code = code_of(text)
    for pattern, replacements in REPLACEMENTS:
        for match in re.finditer(pattern, code):
            line = code[code.rfind("\n", 0, match.start()) + 1:match.end()]
            if line.lstrip().startswith("template") or "operator" in line:
                continue
            for new in replacements:
                new = new(match.group()) if callable(new) else new
                if new is not None:
                    yield match.start(), match.end(), new
    for match in re.finditer(r'"(?:\\.|[^"\\\n])+"', text):
        if code[match.start()] == '"':
            shorter = re.sub(r'(\\.|[^\\])"$', '"', match.group())
            yield match.start(), match.end(), shorter
    for match in re.finditer(r"\b(if|while) \(", code):
        begin = match.end()
        end = closing(code, begin - 1) - 1
        for new in ["false"] + ["true"] * (match.group(1) == "if"):
            yield begin, end, new + "\n" * code.count("\n", begin, end)
    for begin, end in statements(code):
        yield begin, end, ";" + "\n" * code.count("\n", begin, end)


class Mutant:
    """One change of one source. Its name stays the same when lines above it come and go."""

    def __init__(self, source, text, begin, end, new):
        first = text.rfind("\n", 0, begin) + 1
        last = text.find("\n", end)
        line = " ".join(text[first:last].split())
        changed = " ".join((text[first:begin] + new + text[end:last]).split())
        self.source = source
        self.text = text[:begin] + new + text[end:]
        self.name = f"{source}: {line} -> {changed}"
        self.where = f"{source}:{text.count(chr(10), 0, begin) + 1}"


def all_mutants():
    names = {}
    for source in PROGRAMS:
        text = (SOURCES / source).read_text()
        for begin, end, new in sorted(changes(text)):
            mutant = Mutant(source, text, begin, end, new)
            names[mutant.name] = names.get(mutant.name, 0) + 1
            if names[mutant.name] > 1:
                mutant.name += f" ({names[mutant.name]})"
            yield mutant


def limit(seconds, memory):
    """Limits of the process about to start: ends a mutant that loops or allocates without end."""
    resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if memory:
        resource.setrlimit(resource.RLIMIT_DATA, (5 << 30, 5 << 30))


class Build:
    """The test programs, built once, and the library's two builds, made again for each mutant."""

    def __init__(self, name, flags, environment):
        self.folder = WORK / name
        self.environment = environment
        self.sanitized = "sanitize" in flags
        programs = sorted({program for list_ in PROGRAMS.values() for program in list_})
        subprocess.run(["cmake", "-S", ROOT, "-B", self.folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                        f"-DCMAKE_CXX_FLAGS=-w {flags}", "-DCORVANE_FILE_TESTS=ON", "-DCORVANE_FILE_EXAMPLES=OFF",
                        "-DCORVANE_FILE_INSTALL=OFF", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                        "-DBUILD_SHARED_LIBS=ON", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                        "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", self.folder, "-j2", "--target", *programs], check=True)
        self.programs = {program: next((self.folder / "tests").rglob(program)) for program in programs}
        self.needs = {program: program if program in REBUILT
                      else "corvane_file_scripted" if b"libcorvane_file_scripted" in path.read_bytes()
                      else "CorvaneFile" for program, path in self.programs.items()}
        self.commands = {"CorvaneFile": [], "corvane_file_scripted": [], **{program: [] for program in REBUILT}}
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            target = re.search(r"CMakeFiles/(\w+)\.dir", entry["command"]).group(1)
            if target in self.commands and (target in REBUILT or pathlib.Path(entry["file"]).parent == SOURCES):
                self.commands[target].append((pathlib.Path(entry["file"]).name, shlex.split(entry["command"])))
        self.links = {program: self.link_of(program) for program in REBUILT}
        self.limits = {}
        self.precompile()

    def link_of(self, program):
        """The link command of a program, without its own objects and the output."""
        command = subprocess.run(["ninja", "-t", "commands", "-s", self.programs[program].relative_to(self.folder)],
                                 cwd=self.folder, check=True, capture_output=True, text=True).stdout.split("&&")[1]
        words = [word for word in shlex.split(command) if f"{program}.dir" not in word]
        at = words.index("-o")
        return words[:at], words[at + 2:]

    def precompile(self):
        """Compiles the standard headers once: they take most of the time."""
        for target, commands in self.commands.items():
            texts = [source.read_text() for source in REBUILT.get(target, SOURCES).glob("*.[ch]*")]
            includes = {line for text in texts for line in text.splitlines() if line.startswith("#include <")}
            header = self.folder / f"{target}-standard.h"
            header.write_text("\n".join(sorted(includes)) + "\n")
            command = commands[0][1]
            flags = command[:command.index("-o")]
            subprocess.run([*flags, "-x", "c++-header", header, "-o", f"{header}.gch"], cwd=self.folder, check=True)
            for source, command in commands:
                command.insert(1, f"-include{header}")

    def compile(self, mutant, target, folder):
        """Builds one form of the mutant's library, or a program, in `folder`; false if it does not compile."""
        tree = folder / "Corvane/Common/libFile/Corvane/File"
        tree.mkdir(parents=True, exist_ok=True)
        for source in SOURCES.iterdir():
            changed = mutant and source.name == mutant.source
            (tree / source.name).write_text(mutant.text if changed else source.read_text())
        objects = []
        for source, command in self.commands[target]:
            if mutant and mutant.source.endswith(".cpp") and source != mutant.source:
                objects.append(self.folder / "unchanged" / f"{target}-{source}.o")
                continue
            objects.append(folder / f"{target}-{source}.o")
            at = command.index("-o")
            words = [word.replace(str(SOURCES.parents[1]), str(tree.parents[1]))
                     for word in command[:at] + command[at + 2:]]
            if subprocess.run([*words, f"-ffile-prefix-map={folder}/=", "-o", objects[-1]], cwd=self.folder,
                              stderr=subprocess.DEVNULL).returncode != 0:
                return False
        if target in REBUILT:
            before, behind = self.links[target]
            subprocess.run([*before, *objects, "-o", folder / target, *behind], cwd=self.folder, check=True)
            return True
        name = "libCorvaneFile.so.1" if target == "CorvaneFile" else f"lib{target}.so"
        sanitizers = ["-fsanitize=address,undefined"] if self.sanitized else []
        subprocess.run([command[0], "-shared", *sanitizers, f"-Wl,-soname,{name}", *objects, "-o", folder / name],
                       check=True)
        return True

    def run(self, program, folder):
        """Whether the program passes with the libraries in `folder`."""
        environment = {**os.environ, **self.environment, "LD_LIBRARY_PATH": str(folder), "GTEST_FAIL_FAST": "1",
                       "GTEST_BRIEF": "1"}
        try:
            path = folder / program if program in REBUILT else self.programs[program]
            return subprocess.run(path, cwd=folder, env=environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=300, preexec_fn=lambda: limit(
                                      self.limits.get(program, 300), not self.sanitized)).returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def measure(self):
        """Every program must pass with the unchanged library; a multiple of its processor time is its limit."""
        folder = self.folder / "unchanged"
        folder.mkdir(exist_ok=True)
        for target in self.commands:
            if not self.compile(None, target, folder):
                sys.exit("mutants: the library does not compile")
        for program in self.programs:
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            if not self.run(program, folder):
                sys.exit(f"mutants: {program} fails with the unchanged library")
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            self.limits[program] = round(3 + 5 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime))

    def judge(self, mutant, folder):
        """"invalid", "found by PROGRAM" or "survived"."""
        compiled = set()
        for program in PROGRAMS[mutant.source]:
            target = self.needs[program]
            if target not in compiled and not self.compile(mutant, target, folder):
                return "invalid"
            compiled.add(target)
            if not self.run(program, folder):
                return f"found by {program}"
        return "survived"


class Results:
    """The verdict on each mutant, kept between runs."""

    def __init__(self):
        self.path = WORK / "results.jsonl"
        sources = b"".join(source.read_bytes() for source in sorted(SOURCES.iterdir()))
        self.stamp = hashlib.sha256(sources).hexdigest()[:16]
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                entry = json.loads(line)
                if entry["stamp"] == self.stamp:
                    self.known[entry["name"], entry["build"]] = entry["verdict"]

    def get(self, mutant, build):
        verdict = self.known.get((mutant.name, build))
        return None if verdict == "survived" else verdict  # the tests may have become better

    def put(self, mutant, build, verdict):
        self.known[mutant.name, build] = verdict
        with self.path.open("a") as file:
            print(json.dumps({"stamp": self.stamp, "name": mutant.name, "build": build, "verdict": verdict}), file=file)


def judge_all(mutants, build, results, jobs):
    """Judges what is not yet known, and returns the survivors."""
    folders = queue.Queue()
    for i in range(jobs):
        folders.put(build.folder / f"job{i}")

    def judge(mutant):
        folder = folders.get()
        try:
            return mutant, build.judge(mutant, folder)
        finally:
            folders.put(folder)

    name = build.folder.name
    todo = [mutant for mutant in mutants if results.get(mutant, name) is None]
    print(f"{name}: {len(todo)} of {len(mutants)} mutants to judge", flush=True)
    if todo:
        build.measure()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        futures = [pool.submit(judge, mutant) for mutant in todo]
        for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
            mutant, verdict = future.result()
            results.put(mutant, name, verdict)
            if verdict == "survived" or done % 20 == 0:
                print(f"{done}/{len(todo)} {mutant.where} {verdict}: {mutant.name if verdict == 'survived' else ''}",
                      flush=True)
    return [mutant for mutant in mutants if results.known[mutant.name, name] == "survived"]


def reasons():
    """The reason given for each survivor: a line with its name, then an indented one."""
    lines = SURVIVORS.read_text().splitlines() if SURVIVORS.exists() else []
    return {line: lines[i + 1].strip() for i, line in enumerate(lines) if line and line[0] not in " #"}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--only", default="", help="only mutants whose name contains this text")
    parser.add_argument("--reasons", action="store_true", help="only check that every reason belongs to a mutant")
    parser.add_argument("--list", action="store_true", help="print the mutants, judge none")
    arguments = parser.parse_args()
    mutants = [mutant for mutant in all_mutants() if arguments.only in mutant.name]
    if not mutants:
        parser.error(f"no mutant's name holds {arguments.only}")
    if arguments.reasons:
        gone = set(reasons()) - {mutant.name for mutant in mutants}
        for name in sorted(gone):
            print(f"a reason is given for what is no mutant: {name}")
        return 1 if gone else 0
    if arguments.list:
        print("\n".join(f"{mutant.where} {mutant.name}" for mutant in mutants))
        return 0
    WORK.mkdir(parents=True, exist_ok=True)
    results = Results()
    plain = Build("plain", "-O0", {})
    survivors = judge_all(mutants, plain, results, arguments.jobs)
    if survivors:
        watched = Build("watched", "-O1 -fsanitize=address,undefined -fno-sanitize-recover=all",
                        {"ASAN_OPTIONS": "detect_leaks=1:allocator_may_return_null=1"})
        survivors = judge_all(survivors, watched, results, arguments.jobs)
    given = reasons()
    valid = [mutant for mutant in mutants if results.known[mutant.name, "plain"] != "invalid"]
    found = len(valid) - len(survivors)
    same = sum(given.get(mutant.name, "").startswith("the same: ") for mutant in survivors)
    share = 100.0 * found / (len(valid) - same)
    print(f"{len(valid)} mutants that compile, {found} found, {same} are the same to every caller, "
          f"{len(survivors) - same} survive: {share:.1f} %")
    unexplained = [mutant.name for mutant in survivors if mutant.name not in given]
    gone = [] if arguments.only else sorted(set(given) - {mutant.name for mutant in survivors})
    for text, names in (("no reason is given for", unexplained), ("a reason is given for what does not survive", gone)):
        for name in names:
            print(f"{text}: {name}")
    return 1 if unexplained or gone or share < GOAL else 0


if __name__ == "__main__":
    sys.exit(main())
