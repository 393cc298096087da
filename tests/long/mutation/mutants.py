#!/usr/bin/env python3
"""Breaks the library and its platform in many small ways, one at a time; each time a test must fail.

A mutant is a source with one operator, constant, literal, flag, statement or branch changed, or with one log entry that
names the line before it. by_hand.txt lists others, above all of costs. A mutant is found when a test program fails with
it, plainly built or, should it survive that, under sanitizers. survivors.txt must give a reason for each mutant that is
not found: "the same: ..." if no caller can tell it from the original. Of the others at least 98 % must be found.

With CORVANE_TEST_FOLDER=/dev/shm the test programs keep their files in memory, and finish sooner.

A verdict holds until what the mutant's compiler reads or the test programs of the verdict change. So an interrupted
run goes on where it was, and a weakened test runs its mutants again.
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
LIBRARY = ROOT / "Corvane/Common/libFile"
PLATFORM = ROOT / "platform"
WORK = ROOT / "build/mutants"
SURVIVORS = pathlib.Path(__file__).with_name("survivors.txt")
BY_HAND = pathlib.Path(__file__).with_name("by_hand.txt")
GOAL = 98.0  # percent

# The test programs for each source: all that could find a mutant of it, the quickest first.
APPENDER = ["appender_test", "appender_exceptions_test", "appender_collaborators_test", "appender_calls_test",
            "format_page_test", "format_states_test", "costs_test", "reopen_walk_test", "reopen_calls_test",
            "reopen_test", "durable_steps_test", "random_lives_test", "reopen_damage_test", "collaborator_faults_test",
            "limits_test", "reopen_memory_test", "system_faults_test"]
READER = ["reader_test", "reader_calls_test", "reader_exceptions_test", "format_states_test", "random_lives_test",
          "limits_test", "system_faults_test"]
SCANNER = ["scanner_calls_test", "scanner_test", "scanner_collaborators_test"]
ATTRIBUTES = ["attributes_failures_test", "attributes_races_test", "attributes_test", "system_faults_test"]
PROGRAMS = {
    "DataChunkFileAppender.cpp": APPENDER,
    "DataChunkFileReader.cpp": READER,
    "DataChunkFileScanner.cpp": SCANNER,
    "ExtendedAttributes.cpp": ATTRIBUTES,
    "WriteChunkFileDurably.cpp": ["durable_steps_test", "durable_states_test", "hostile_file_system_test"],
    "FileImage.h": ["image_test", *APPENDER],
    "TimePoints.h": ["appender_exceptions_test", *APPENDER],
    "Descriptor.h": [*READER, *APPENDER, "durable_states_test"],
    "Log.h": [*ATTRIBUTES, *READER, *APPENDER],
    "ChunkFileLayout.h": [*READER, *APPENDER],
    "XattrNames.h": ["attributes_names_test"],
    "DataChunk.cpp": ["data_chunk_reads_test", "data_chunk_damage_test", "data_chunk_test", "format_page_test",
                      "conformance_reference", "random_lives_test", "reopen_damage_test", "limits_test",
                      "system_faults_test"],
    "TimePoint.cpp": ["time_point_test", "logger_test", "format_page_test", "random_lives_test"],
    "Logging.cpp": ["logger_test", "random_lives_test", "system_faults_test"],
}
PROGRAMS = {source: list(dict.fromkeys(programs)) for source, programs in PROGRAMS.items()}
# Programs that contain a header of the library, so they are built again for each mutant.
REBUILT = {"image_test": ROOT / "tests/image", "attributes_names_test": ROOT / "tests/attributes"}

# Operators and constants: a pattern and its replacement.
REPLACEMENTS = [
    (r" < ", [" <= ", " >= "]), (r" <= ", [" < ", " > "]), (r" > ", [" >= ", " <= "]), (r" >= ", [" > ", " < "]),
    (r" == ", [" != "]), (r" < 0\b", [" == -1"]), (r" != ", [" == "]), (r" && ", [" || "]), (r" \|\| ", [" && "]),
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


def sources_of(tree):
    return sorted(tree.rglob("*.[ch]*"))


PATHS = {path.name: path for tree in (LIBRARY, PLATFORM) for path in sources_of(tree)}


def code_of(text):
    """The text with comments, what only fuzzers compile and the insides of literals blanked."""
    def blank(match):
        found = match.group()
        if found[0] in "'\"":
            return found[0] + " " * (len(found) - 2) + found[-1]
        return re.sub(r"[^\n]", " ", found)
    return re.sub(r'(?s:#ifdef FUZZING.*?#else)|//[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\])\'|#[^\n]*|static_assert[^\n]*', blank, text)


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


def misplaced_entries(text):
    """(begin, end, new text) of each statement that logs: its entry names the line before it."""
    code = code_of(text)
    for match in re.finditer(r"^ *(?=(Log|Fail|ThrowUnless)\()", code, re.M):
        begin = match.end()
        end = closing(code, code.index("(", begin)) + 1
        if not text[begin:end].endswith("where);"):
            line = text.count("\n", 0, begin) + 1
            last = line + text.count("\n", begin, end)
            yield begin, end, f"\n#line {line - 1}\n{text[begin:end]}\n#line {last}\n"


class Mutant:
    """One change of one source. Its name stays the same when lines above it come and go."""

    def __init__(self, source, text, begin, end, new, title=None):
        first = text.rfind("\n", 0, begin) + 1
        last = text.find("\n", end)
        line = " ".join(text[first:last].split())
        changed = " ".join((text[first:begin] + new + text[end:last]).split())
        self.source = source
        self.text = text[:begin] + new + text[end:]
        self.name = f"{source}: {line} -> {title or changed}"
        self.where = f"{source}:{text.count(chr(10), 0, begin) + 1}"


class MutantByHand:
    """One mutant of by_hand.txt."""

    def __init__(self, title, lines):
        self.source = title.partition(":")[0]
        self.text = PATHS[self.source].read_text()
        self.name = title.replace(":", ", by hand:", 1)
        self.where = BY_HAND.name
        for hunk in re.findall(r"((?:-.*\n)+)((?:\+.*\n)+)", lines):
            old, new = (re.sub(r"(?m)^[-+]", "", part) for part in hunk)
            if self.text.count(old) != 1:
                sys.exit(f"mutants: {BY_HAND.name}, {title}: these lines do not stand once in the source:\n{old}")
            self.text = self.text.replace(old, new)


def mutants_by_hand():
    text = re.sub(r"(?m)^#.*\n", "", BY_HAND.read_text())
    return [MutantByHand(title, lines) for title, lines in re.findall(r"(\w.*)\n((?:[-+].*\n)+)", text)]


def all_mutants(sources):
    names = {}
    by_hand = mutants_by_hand()
    for source in sources:
        yield from (mutant for mutant in by_hand if mutant.source == source)
        text = PATHS[source].read_text()
        for begin, end, new in misplaced_entries(text):
            yield Mutant(source, text, begin, end, new, "names the line before")
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


def tree_of(target):
    return PLATFORM if target == "CorvanePlatform" else LIBRARY


def digest(*texts):
    return hashlib.sha256(b"".join(texts)).hexdigest()[:16]


class Build:
    """The test programs, built once, and what holds the mutated source, built again for each mutant."""

    def __init__(self, name, flags, environment, sources):
        self.folder = WORK / name
        self.environment = environment
        self.sanitized = "sanitize" in flags
        programs = sorted({program for source in sources for program in PROGRAMS[source]})
        subprocess.run(["cmake", "-S", ROOT, "-B", self.folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                        f"-DCMAKE_CXX_FLAGS=-w {flags}", "-DCORVANE_FILE_TESTS=ON", "-DCORVANE_FILE_EXAMPLES=OFF",
                        "-DCORVANE_FILE_INSTALL=OFF", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                        "-DBUILD_SHARED_LIBS=ON", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                        "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", self.folder, "-j2", "--target", *programs], check=True)
        self.programs = {program: next(path for part in ("tests", "conformance")
                                       for path in (self.folder / part).rglob(program)) for program in programs}
        contents = {program: path.read_bytes() for program, path in self.programs.items()}
        self.hashes = {program: digest(content) for program, content in contents.items()}
        self.scripted = {program for program, content in contents.items() if b"libcorvane_file_scripted" in content}
        targets = {self.target(source, program) for source in sources for program in PROGRAMS[source]}
        self.commands = {target: self.commands_of(target) for target in sorted(targets)}
        self.links = {target: self.link_of(target) for target in targets}
        self.limits = {}
        self.precompile()

    def target(self, source, program):
        """What holds the source when this program runs: a library, or the program itself."""
        if PATHS[source].is_relative_to(PLATFORM):
            return "CorvanePlatform"
        if program in REBUILT:
            return program
        return "corvane_file_scripted" if program in self.scripted else "CorvaneFile"

    def commands_of(self, target):
        """Each source of the target and its compiler's command, without a launcher before it."""
        commands = []
        for entry in json.loads((self.folder / "compile_commands.json").read_text()):
            if f"CMakeFiles/{target}.dir/" in entry["command"]:
                words = shlex.split(entry["command"])
                compiler = next(i for i, word in enumerate(words) if word.endswith("++"))
                commands.append((pathlib.Path(entry["file"]).name, words[compiler:]))
        if target in REBUILT:
            return [(source, words) for source, words in commands if (REBUILT[target] / source).exists()]
        return [(source, words) for source, words in commands if source in PATHS]

    def link_of(self, target):
        """The name of what is linked, and the command without its own objects and the output."""
        path = self.programs.get(target) or next(
            path for path in self.folder.rglob(f"lib{target}.so*") if path.is_file() and not path.is_symlink()
            and "CMakeFiles" in os.listdir(path.parent))
        command = subprocess.run(["ninja", "-t", "commands", "-s", path.relative_to(self.folder)],
                                 cwd=self.folder, check=True, capture_output=True, text=True).stdout.split("&&")[1]
        words = [word for word in shlex.split(command) if f"/{target}.dir/" not in word]
        at = words.index("-o")
        soname = re.search(r"-soname,(\S+)", command)
        return soname.group(1) if soname else target, words[:at], words[at + 2:]

    def precompile(self):
        """Compiles the standard headers once, because they take most of the time."""
        for target, commands in self.commands.items():
            texts = [source.read_text() for source in REBUILT.get(target, tree_of(target)).rglob("*.[ch]*")]
            includes = {line for text in texts for line in text.splitlines() if line.startswith("#include <")}
            header = self.folder / f"{target}-standard.h"
            command = commands[0][1]
            flags = command[:command.index("-o")]
            text = "\n".join([f"// {shlex.join(flags)}", *sorted(includes), ""])
            compiled = pathlib.Path(f"{header}.gch")
            if not compiled.exists() or header.read_text() != text:
                header.write_text(text)
                subprocess.run([*flags, "-x", "c++-header", header, "-o", f"{header}.new"], cwd=self.folder, check=True)
                os.replace(f"{header}.new", compiled)  # whole, even if the run is interrupted
            for source, command in commands:
                command.insert(1, f"-include{header}")

    def compile(self, mutant, target, folder):
        """Builds the library or program that holds the mutant, in `folder`; false if it does not compile."""
        tree = tree_of(target)
        copy = folder / tree.relative_to(ROOT)
        for source in sources_of(tree):
            place = copy / source.relative_to(tree)
            place.parent.mkdir(parents=True, exist_ok=True)
            changed = mutant and source.name == mutant.source
            place.write_text(mutant.text if changed else source.read_text())
        objects = []
        for source, command in self.commands[target]:
            if mutant and mutant.source.endswith(".cpp") and source != mutant.source:
                objects.append(self.folder / "unchanged" / f"{target}-{source}.o")
                continue
            objects.append(folder / f"{target}-{source}.o")
            at = command.index("-o")
            words = [word.replace(str(tree), str(copy)) for word in command[:at] + command[at + 2:]]
            if subprocess.run([*words, f"-ffile-prefix-map={folder}/=", "-o", objects[-1]], cwd=self.folder,
                              stderr=subprocess.DEVNULL).returncode != 0:
                return False
        name, before, after = self.links[target]
        subprocess.run([*before, *objects, "-o", folder / name, *after], cwd=self.folder, check=True)
        return True

    def run(self, program, folder):
        """Whether the program passes with the libraries in `folder`."""
        environment = {**os.environ, **self.environment, "LD_LIBRARY_PATH": str(folder), "GTEST_FAIL_FAST": "1",
                       "GTEST_BRIEF": "1", "CORVANE_LIVES": "300"}
        try:
            path = folder / program if program in REBUILT else self.programs[program]
            return subprocess.run(path, cwd=folder, env=environment, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, timeout=1200, preexec_fn=lambda: limit(
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
            used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
            self.limits[program] = round(20 + 10 * used)  # a busy machine must not find a mutant

    def judge(self, mutant, folder):
        """"invalid", "found by PROGRAM" or "survived"."""
        for library in folder.glob("lib*.so*"):
            library.unlink()  # of the mutant before
        compiled = set()
        for program in PROGRAMS[mutant.source]:
            target = self.target(mutant.source, program)
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
        self.known = {}
        if self.path.exists():
            for line in self.path.read_text().splitlines():
                entry = json.loads(line)
                self.known[entry["name"], entry["build"]] = entry

    @staticmethod
    def stamp(mutant, build, verdict):
        """Changes with what the mutant's compiler reads, and with the test programs that led to the verdict."""
        read = [path.read_bytes() for name, path in sorted(PATHS.items())
                if path.suffix == ".h" or mutant.source.endswith(".h")]
        found_by = verdict.removeprefix("found by ")
        programs = {"invalid": [], "survived": PROGRAMS[mutant.source]}.get(verdict, [found_by])
        return digest(mutant.text.encode(), *read, *(build.hashes.get(program, "").encode() for program in programs))

    def get(self, mutant, build):
        entry = self.known.get((mutant.name, build.folder.name))
        fits = entry and entry["stamp"] == self.stamp(mutant, build, entry["verdict"])
        return entry["verdict"] if fits else None

    def put(self, mutant, build, verdict):
        entry = {"stamp": self.stamp(mutant, build, verdict), "name": mutant.name, "build": build.folder.name,
                 "verdict": verdict}
        self.known[mutant.name, build.folder.name] = entry
        with self.path.open("a") as file:
            print(json.dumps(entry), file=file)


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

    todo = [mutant for mutant in mutants if results.get(mutant, build) is None]
    print(f"{build.folder.name}: {len(todo)} of {len(mutants)} mutants to judge", flush=True)
    if todo:
        build.measure()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        futures = [pool.submit(judge, mutant) for mutant in todo]
        for done, future in enumerate(concurrent.futures.as_completed(futures), 1):
            mutant, verdict = future.result()
            results.put(mutant, build, verdict)
            if verdict == "survived" or done % 20 == 0:
                print(f"{done}/{len(todo)} {mutant.where} {verdict}: {mutant.name if verdict == 'survived' else ''}",
                      flush=True)
    return [mutant for mutant in mutants if results.get(mutant, build) == "survived"]


def reasons():
    """The reason given for each survivor: a line with its name, then an indented one."""
    lines = SURVIVORS.read_text().splitlines() if SURVIVORS.exists() else []
    return {line: lines[i + 1].strip() for i, line in enumerate(lines) if line and line[0] not in " #"}


def arguments_of(parser):
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--only", default="", help="only mutants whose name contains this text, such as \"by hand\"")
    parser.add_argument("--reasons", action="store_true", help="only check that every reason belongs to a mutant")
    parser.add_argument("--list", action="store_true", help="print the mutants, judge none")
    parser.add_argument("sources", nargs="*", metavar="SOURCE", help="only mutants of " + ", ".join(PROGRAMS))
    arguments = parser.parse_args()
    unknown = set(arguments.sources) - set(PROGRAMS)
    if unknown:
        parser.error(f"no mutants are made of {', '.join(sorted(unknown))}")
    return arguments


def judged(mutants, sources, jobs):
    """The mutants that compile, and those of them that survive."""
    WORK.mkdir(parents=True, exist_ok=True)
    results = Results()
    plain = Build("plain", "-O0", {}, sources)
    survivors = judge_all(mutants, plain, results, jobs)
    valid = [mutant for mutant in mutants if results.get(mutant, plain) != "invalid"]
    if survivors:
        watched = Build("watched", "-O1 -fsanitize=address,undefined -fno-sanitize-recover=all",
                        {"ASAN_OPTIONS": "detect_leaks=1:allocator_may_return_null=1"},
                        sorted({mutant.source for mutant in survivors}))
        survivors = judge_all(survivors, watched, results, jobs)
    return valid, survivors


def report(mutants, valid, survivors, given):
    """Prints the figures and what is wrong with the reasons given. Returns whether all is well."""
    found = len(valid) - len(survivors)
    same = sum(given.get(mutant.name, "").startswith("the same: ") for mutant in survivors)
    share = 100.0 * found / max(1, len(valid) - same)
    print(f"{len(mutants)} mutants, {len(mutants) - len(valid)} do not compile, {found} found, "
          f"{same} are the same to every caller, {len(survivors) - same} survive: {share:.1f} %")
    unexplained = [mutant.name for mutant in survivors if mutant.name not in given]
    gone = sorted(given.keys() & {mutant.name for mutant in mutants} - {mutant.name for mutant in survivors})
    for text, names in (("no reason is given for", unexplained), ("a reason is given for what does not survive", gone)):
        for name in names:
            print(f"{text}: {name}")
    return not unexplained and not gone and share >= GOAL


def main():
    arguments = arguments_of(argparse.ArgumentParser(description=__doc__.splitlines()[0]))
    sources = arguments.sources or list(PROGRAMS)
    mutants = [mutant for mutant in all_mutants(sources) if arguments.only in mutant.name]
    if arguments.reasons:
        gone = set(reasons()) - {mutant.name for mutant in mutants}
        for name in sorted(gone):
            print(f"a reason is given for what is no mutant: {name}")
        return 1 if gone else 0
    if arguments.list:
        print("\n".join(f"{mutant.where} {mutant.name}" for mutant in mutants))
        return 0
    valid, survivors = judged(mutants, sources, arguments.jobs)
    return 0 if report(mutants, valid, survivors, reasons()) else 1


if __name__ == "__main__":
    sys.exit(main())
