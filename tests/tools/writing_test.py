"""chunkfile recover and copy as programs: options, exit codes, names, what is printed, and what stays."""
import os
import random
import signal
import subprocess
import time
import unittest

from chunk_writer import image, record
from program import BEGIN, SECOND, ProgramTest, minimal_record, time_text


def at(seconds, **fields):
    """A record of this time, in seconds from BEGIN."""
    return record(BEGIN + int(seconds * SECOND), {name.encode(): value for name, value in fields.items()})


class WritingTest(ProgramTest):
    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def names(self):
        return sorted(os.listdir(self.folder))

    def expect(self, name, records):
        """The file holds these records and nothing else."""
        self.assertEqual(self.read(name), image(records))

    def refused(self, *arguments, code, text):
        """The tool ends with this code and text, and writes nothing."""
        before = self.names()
        self.assertIn(text, self.run_tool(*arguments, code=code)[1].decode())
        self.assertEqual(self.names(), before)


class Recover(WritingTest):
    def test_sound_file_comes_out_as_it_is(self):
        self.five()
        self.assertEqual(self.out("recover", "five", "-o", "out"), f"out: 5 records, {len(self.read('five'))} bytes\n")
        self.assertEqual(self.read("out"), self.read("five"))

    def test_lost_bytes_and_the_times_around_them_are_printed(self):
        size = (os.path.getsize(self.path(self.damaged())) - 16) // 5
        out, err = self.run_tool("recover", "damaged", "-o", "out", code=3)
        begin, end = 16 + 2 * size, 16 + 3 * size
        self.assertEqual(err.decode(), f"chunkfile: damaged: byte {begin} (record 2): not a good record\n")
        self.assertEqual(out.decode(), f"damaged: lost bytes {begin} to {end}, after {time_text(BEGIN + SECOND)}, "
                                       f"before {time_text(BEGIN + 3 * SECOND)} (2.00 s)\n"
                                       "damaged: 4 records taken; the header counts 5\n"
                                       f"out: 4 records, {16 + 4 * size} bytes\n")

    def test_what_is_missing_at_the_end_is_printed(self):
        whole = self.read(self.five())
        for cut, text in ((1, "lost bytes"), ((len(whole) - 16) // 5, "the file ends at byte")):
            self.write("cut", whole[:-cut])
            out = self.run_tool("recover", "--force", "cut", "-o", "out", code=3)[0].decode()
            self.assertIn(f"cut: {text}", out)
            self.assertIn("cut: 4 records taken; the header counts 5\n", out)
        self.write("zeros", whole[:-cut] + bytes(500))
        self.assertIn("zeros: only zeros follow byte",
                      self.run_tool("recover", "--force", "zeros", "-o", "out", code=3)[0].decode())

    def test_doubtful_records_are_left_out_and_counted(self):
        old = self.read(self.five())
        self.write("torn", image([at(100), at(101)])[:60] + old[60:])
        out = self.run_tool("recover", "torn", "-o", "out", code=3)[0].decode()
        self.assertIn("doubtful ones left out", out)
        self.assertEqual(self.read("out"), image([at(100)]))
        self.assertIn("among them", self.run_tool("recover", "--doubtful", "torn", "-o", "all", code=3)[0].decode())
        self.assertGreater(os.path.getsize(self.path("all")), os.path.getsize(self.path("out")))

    def test_nothing_to_recover_writes_nothing(self):
        self.write("unknown", b"\2" + bytes(7) + b"\3" + bytes(7) + b"x" * 100)
        self.refused("recover", "unknown", "-o", "out", code=3, text="out: not written: there is no record to recover")
        self.refused("recover", self.write("short", b"x" * 15), "-o", "out", code=3, text="shorter than the header")

    def test_standard_input(self):
        whole = self.read(self.five())
        for program in (self.program, WithoutGlue.program):
            self.run_tool("recover", "-", "-o", "out", "--force", stdin=whole, program=program,
                          code=0 if program == self.program else 3)
        self.assertEqual(self.read("out"), whole)

    def test_quiet_prints_nothing(self):
        self.five()
        self.assertEqual(self.out("recover", "-q", "five", "-o", "out"), "")


class Output(WritingTest):
    def test_it_is_needed_and_is_a_file(self):
        self.five()
        self.refused("recover", "five", code=2, text="--output is required")
        self.refused("copy", "five", "-o", "-", code=2, text="-o takes the name of a file")
        self.refused("copy", "five", "-o", "", code=2, text="--output")
        self.refused("copy", "five", "-o", "absent/out", code=1, text="absent/out: open the folder: No such file")

    def test_only_a_regular_file_can_be_replaced(self):
        self.five()
        os.mkdir(self.path("folder"))
        os.symlink("folder", self.path("link"))
        for command in ("recover", "copy", "view"):
            for force in ((), ("--force",)):
                for name, text in (("folder", "is a folder"), ("link", "is a folder"), (".", "is a folder"),
                                   ("folder/", "is a folder"), ("/dev/null", "is not a regular file")):
                    self.refused(command, "five", *force, "-o", name, code=1, text=f"chunkfile: {name}: {text}\n")
        self.refused("copy", "five", "--split", "1s", "-o", "folder", code=1, text="folder: is a folder")
        self.assertEqual(os.listdir(self.path("folder")), [])

    def test_one_that_exists_needs_force(self):
        self.five()
        self.write("out", b"old")
        os.symlink("nowhere", self.path("dangling"))
        for command in ("recover", "copy"):
            for name in ("out", "dangling"):
                self.refused(command, "five", "-o", name, code=1, text=f"{name}: exists; --force replaces it")
            self.assertEqual(self.read("out"), b"old")
        self.out("copy", "five", "-o", "out", "--force")
        self.assertEqual(self.read("out"), self.read("five"))

    def test_a_source_is_refused_by_every_name(self):
        whole = self.read(self.five())
        self.chunks("other", [at(50)])
        os.link(self.path("five"), self.path("hard"))
        os.symlink("five", self.path("soft"))
        os.mkdir(self.path("folder"))
        for name in ("five", "./five", "folder/../five", self.path("five"), "hard", "soft"):
            for command in (("recover", "five"), ("copy", "other", "five"), ("copy", "hard")):
                self.refused(*command, "--force", "-o", name, code=1, text="is the same file as")
        with open(self.path("five"), "rb") as file:
            done = subprocess.run([self.program, "recover", "-", "--force", "-o", "hard"], stdin=file, cwd=self.folder,
                                  capture_output=True, check=False)
        self.assertEqual((done.returncode, self.read("five")), (1, whole))

    def test_dry_run_writes_nothing(self):
        self.damaged()
        for command in ("recover", "copy"):
            self.refused(command, "--dry-run", "damaged", "-o", "out", code=3, text="not a good record")
        self.five()
        self.assertIn("p.0002: 2 records, ",
                      self.out("copy", "--dry-run", "five", "--split", "2s", "-o", "p"))
        self.assertEqual(self.names(), ["damaged", "five"])

    def test_maximum_size_is_the_size(self):
        whole = self.read(self.five())
        self.out("copy", "five", "--max-size", "4000", "-o", "out")
        self.assertEqual(self.read("out"), whole.ljust(4000, b"\0"))
        self.out("copy", "five", "--max-size", str(len(whole)), "-o", "exact")
        self.out("copy", "five", "--max-size", "0", "-o", "none")
        self.assertEqual((self.read("exact"), self.read("none")), (whole, whole))
        self.refused("copy", "five", "--max-size", str(len(whole) - 1), "-o", "less", code=1,
                     text="does not fit into a file of at most")
        self.refused("recover", "five", "--max-size", "16", "-o", "less", code=1, text="that has 0 records")
        self.chunks("empty", [])
        self.out("copy", "empty", "--max-size", "16", "-o", "least")
        self.assertEqual(self.read("least"), image([]))
        for size in ("1", "15", "2147479553", str(2**64 - 1)):
            self.refused("copy", "empty", "--max-size", size, "-o", "no", code=2,
                         text=f"--max-size: {size} byte{'s' if size != '1' else ''}; a file has from 16 to 2147479552\n")

    def test_limit_of_the_system_is_an_error(self):
        self.chunks("large", [at(0, a=b"x" * 10000)])
        done = subprocess.run(["bash", "-c", 'ulimit -f 4; exec "$0" copy large -o out', self.program],
                              cwd=self.folder, capture_output=True, check=False, text=True)
        self.assertEqual((done.returncode, self.names()), (1, ["large"]))
        self.assertIn("out: write: short write: 4096 of", done.stderr)

    def test_disk_that_is_full_is_an_error(self):
        disk = self.path("disk")
        os.mkdir(disk)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", disk], check=False,
                          stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("a small disk needs root")
        self.addCleanup(subprocess.run, ["umount", disk], check=True)
        self.chunks("large", [at(i, a=b"x" * 10000) for i in range(10)])
        self.write("disk/old", b"old")
        for out in ("disk/out", "disk/old"):
            self.refused("recover", "large", "--force", "-o", out, code=1, text=": write: ")
            self.assertEqual((os.listdir(disk), self.read("disk/old")), (["old"], b"old"))
        self.assertIn("disk/p.0001: ", self.run_tool("copy", "large", "--split", "25KiB", "-o", "disk/p", code=1)[0].decode())
        self.assertEqual(sorted(os.listdir(disk)), ["old", "p.0001", "p.0002", "p.0003"])

    def test_sources_are_not_changed(self):
        before = os.stat(self.path(self.damaged()))
        self.run_tool("recover", "damaged", "-o", "out", code=3)
        self.run_tool("copy", "damaged", "-o", "out", "--force", code=3)
        after = os.stat(self.path("damaged"))
        self.assertEqual((before.st_mtime_ns, before.st_atime_ns), (after.st_mtime_ns, after.st_atime_ns))


class Parts(WritingTest):
    def test_names_are_numbered_before_the_extension(self):
        self.five()
        for out, parts in (("a.chunks", ["a.0001.chunks"]), (".hidden", [".hidden.0001"]), ("a.b.c", ["a.b.0001.c"])):
            self.out("copy", "five", "--split", "1MiB", "-o", out)
            self.assertEqual(self.names(), sorted(["five", *parts]))
            os.remove(self.path(parts[0]))

    def test_size_of_a_part_is_the_most(self):
        records = [at(i, a=b"x" * (i * 37 % 100)) for i in range(100)]
        self.chunks("file", records)
        self.out("copy", "file", "--split", "400B", "-o", "p")
        parts = [self.read(name) for name in self.names() if name.startswith("p.")]
        self.assertEqual(b"".join(part[16:] for part in parts), b"".join(records))
        self.assertTrue(all(len(part) <= 400 for part in parts))

    def test_record_that_is_longer_has_a_part_of_its_own(self):
        records = [at(0), at(1, a=b"x" * 1000), at(2)]
        self.chunks("file", records)
        self.out("copy", "file", "--split", "100B", "-o", "p")
        for number, one in enumerate(records, 1):
            self.expect(f"p.000{number}", [one])

    def test_time_of_a_part_is_less_than_the_span(self):
        parts = [[at(0), at(9.9)], [at(10)], [at(30)], [at(29), at(38.9)], [at(39)]]
        self.chunks("file", sum(parts, []))
        self.out("copy", "file", "--split", "10s", "-o", "p")
        for number, part in enumerate(parts, 1):
            self.expect(f"p.000{number}", part)
        self.assertEqual(len(self.names()), 1 + len(parts))

    def test_maximum_size_ends_parts_too(self):
        records = [at(i) for i in range(5)]
        self.chunks("file", records)
        self.out("copy", "file", "--split", "1d", "--max-size", "100", "-o", "p")
        for number, part in enumerate((records[:2], records[2:4], records[4:]), 1):
            self.assertEqual(self.read(f"p.000{number}"), image(part).ljust(100, b"\0"))

    def test_a_thousand_parts_and_back(self):
        records = [record(BEGIN + i * 10_000_000, {b"a": b"%d" % i}) for i in range(1001)]
        self.chunks("file", records)
        lines = self.out("copy", "file", "--split", "10ms", "-o", "p").splitlines()
        self.assertEqual((lines[0][:8], lines[-1][:8]), ("p.0001: ", "p.1001: "))
        parts = [name for name in self.names() if name.startswith("p.")]
        self.assertEqual(len(parts), 1001)
        for part, one in zip(parts, records):
            self.expect(part, [one])
        self.out("copy", *parts, "-o", "again")
        self.assertEqual(self.read("again"), self.read("file"))

    def test_part_that_exists_or_is_a_source_is_refused(self):
        self.five("p.0001")
        self.refused("copy", "p.0001", "--split", "1s", "--force", "-o", "p", code=1, text="is the same file as p.0001")
        os.rename(self.path("p.0001"), self.path("five"))
        self.write("p.0003", b"old")
        self.write("p.0020", b"old")
        for name in ("p", "./p", self.path("p")):
            self.refused("copy", "five", "--split", "1s", "-o", name, code=1, text="p.0003: exists; --force replaces it")
        self.refused("copy", "five", "p.0020", "--split", "1s", "--force", "-o", "p", code=1, text="p.0020: is the same file")
        self.assertEqual(self.read("p.0003"), b"old")

    def test_other_names_are_no_parts(self):
        self.five()
        others = ["p", "p.", "p.0000", "p.1", "p.001", "p.00001", "p.0001.b", "p.0001x", "p.000x", "q.0001", "p.0001.0001",
                  "p.18446744073709551616"]
        for name in others:
            self.write(name, b"")
        self.out("copy", "five", "--split", "1MiB", "-o", "p", "--force")
        self.assertEqual(self.names(), sorted(["five", "p.0001", *others]))
        self.write("a.10000.chunks", b"")
        self.refused("copy", "five", "--split", "1s", "-o", "a.chunks", code=1, text="a.10000.chunks: exists")

    def test_part_that_appears_meanwhile_stays(self):
        """It is made while the tool waits for the reader of its lines."""
        self.chunks("file", [at(i) for i in range(4000)])
        with subprocess.Popen([self.program, "copy", "file", "--split", "1s", "-o", "p" * 100], cwd=self.folder,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as child:
            while len(self.names()) < 100:
                time.sleep(0.001)
            self.write("p" * 100 + ".4000", b"old")
            err = child.communicate()[1].decode()
        self.assertEqual((child.returncode, err), (1, f"chunkfile: {'p' * 100}.4000: exists; --force replaces it\n"))
        self.assertEqual((len(self.names()), self.read("p" * 100 + ".4000")), (4001, b"old"))

    def test_parts_of_an_earlier_run_are_named(self):
        self.five()
        self.out("copy", "five", "--split", "1s", "-o", "p")
        err = self.run_tool("copy", "five", "--split", "2s", "--force", "-o", "p")[1].decode()
        self.assertEqual(err, "chunkfile: p.0004: is of an earlier run, and so are the parts after it\n")

    def test_what_is_no_span_is_wrong_usage(self):
        self.five()
        for span in ("", "0", "10", "0s", "0MiB", "MiB", "10mib", "-1s", "16777217TiB", "18446744073709551616B",
                     "17179869184GiB", "10 s", "1e3B"):
            self.refused("copy", "five", "--split", span, "-o", "p", code=2, text="--split")


class EqualTimes(WritingTest):
    def setUp(self):
        super().setUp()
        self.records = [at(0, a=b"0"), at(1, a=b"1"), at(0, a=b"2"), at(0, a=b"3"), at(1, a=b"1"), at(9)]
        self.chunks("file", self.records)

    def test_stop_names_both_and_writes_nothing(self):
        size = len(self.records[0])
        for command in (("recover",), ("copy",), ("copy", "--split", "1B"), ("copy", "--dry-run"), ("copy", "--sort"),
                        ("recover", "--on-equal-time", "stop")):
            self.refused(*command, "file", "-o", "out", code=1,
                         text=f"file: byte {16 + 2 * size} (record 2): file: byte 16 (record 0) has the same time")

    def test_skip_leaves_them_out(self):
        out = self.run_tool("recover", "--on-equal-time", "skip", "file", "-o", "out", code=3)[0].decode()
        self.assertIn("out: 1 record left out: equal to an earlier one, byte for byte\n", out)
        self.assertIn("out: 2 records left out: an earlier one has the same time\n", out)
        self.expect("out", [self.records[0], self.records[1], self.records[5]])

    def test_shift_gives_the_next_time_that_is_free(self):
        out = self.out("copy", "--on-equal-time", "shift", "file", "-o", "out")
        self.assertIn("out: 2 records shifted to a later time: an earlier one has the same\n", out)
        nanosecond = 1 / SECOND
        self.expect("out", [self.records[0], self.records[1], at(nanosecond, a=b"2"), at(2 * nanosecond, a=b"3"),
                            self.records[5]])

    def test_copies_alone_are_no_loss(self):
        self.five()
        self.assertIn("5 records left out: equal", self.out("copy", "five", "five", "-o", "out"))
        self.assertEqual(self.read("out"), self.read("five"))

    def test_last_nanosecond_has_no_later_one(self):
        self.chunks("end", [record(2**63 - 1, {b"a": b""}), record(2**63 - 1, {b"b": b""})])
        self.refused("copy", "--on-equal-time", "shift", "end", "-o", "out", code=1, text="no later time is left")

    def test_a_million_take_linear_time(self):
        same = record(BEGIN, {b"a": b"x"})
        self.write("file", image([])[:8] + (1_000_000).to_bytes(8, "little") + same * 1_000_000)
        self.assertIn("999999 records left out", self.out("copy", "file", "-o", "copies"))
        different = [record(BEGIN, {b"a": b"%d" % i}) for i in range(200_000)]
        self.chunks("file", different)
        self.run_tool("copy", "--on-equal-time", "skip", "file", "-o", "skipped", code=3)
        self.assertIn("199999 records shifted to a later time", self.out("copy", "--on-equal-time", "shift", "file", "-o", "out"))

    def test_times_that_a_search_would_pass_again_and_again_take_linear_time(self):
        held = [record(BEGIN + i, {}) for i in range(50_000)]
        hostile = [record(BEGIN - i // 2, {b"a": b"%d" % i}) for i in range(2, 50_000)]
        self.chunks("file", held + hostile)
        self.assertIn("shifted to a later time", self.out("copy", "--on-equal-time", "shift", "file", "-o", "out"))


class Copy(WritingTest):
    def setUp(self):
        super().setUp()
        self.records = [at(i, i=b"%d" % i, name=b"n") for i in range(5)]
        self.chunks("file", self.records)

    def test_slices(self):
        for options, chosen in ((("--index", "1:3"), slice(1, 3)), (("--from", "+2s"), slice(2, 5)),
                                (("--to", "-1s"), slice(0, 3)), (("--from", "+1s", "--to", "+2s"), slice(1, 2))):
            self.out("copy", *options, "file", "-o", "out", "--force")
            self.expect("out", self.records[chosen])

    def test_without_a_record_nothing_is_written(self):
        self.write("text", b"no chunk file, but longer than a header")
        for options in (("--index", "7:", "file"), ("--from", "+1h", "file"), ("--to", "+0s", "file", "file"), ("text",)):
            for more in ((), ("--dry-run",), ("--split", "1s")):
                self.refused("copy", *options, *more, "-o", "out", code=3, text="out: not written: there is no record to copy\n")
        self.refused("copy", "--from", "+1h", "file", "absent", "-o", "out", code=1, text="absent")

    def test_copy_of_an_empty_file_is_empty(self):
        self.chunks("empty", [])
        self.assertEqual(self.out("copy", "empty", "-o", "out"), "out: 0 records, 16 bytes\n")
        self.expect("out", [])

    def test_order_is_kept_unless_sorted(self):
        self.chunks("late", [at(7), at(6)])
        self.out("copy", "late", "file", "-o", "out")
        self.expect("out", [at(7), at(6), *self.records])
        self.out("copy", "--sort", "late", "file", "-o", "sorted")
        self.expect("sorted", [*self.records, at(6), at(7)])

    def test_many_interleaved_files_are_merged(self):
        shuffled = [at(i, a=b"x" * (i % 50)) for i in range(3000)]
        owners = [random.Random(i).randrange(20) for i in range(3000)]
        for owner in range(20):
            self.chunks(f"f{owner}", [one for one, its in zip(shuffled, owners) if its == owner])
        self.out("copy", "--sort", *[f"f{owner}" for owner in range(20)], "-o", "out")
        self.expect("out", shuffled)

    def test_fields_are_chosen(self):
        self.out("copy", "-q", "--fields", "name,absent", "file", "-o", "out")
        self.expect("out", [at(i, name=b"n") for i in range(5)])
        self.chunks("equal", [at(0, i=b"1", j=b"1"), at(0, i=b"1", j=b"2")])
        self.out("copy", "--fields", "i", "--on-equal-time", "shift", "equal", "-o", "shifted")
        self.expect("shifted", [at(0, i=b"1"), at(1 / SECOND, i=b"1")])

    def test_damaged_file_gives_its_first_records(self):
        self.damaged()
        self.assertIn("(record 2): not a good record", self.error("copy", "damaged", "-o", "out", code=3))
        self.assertEqual(self.read("out")[16:], self.read("damaged")[16:os.path.getsize(self.path("out"))])

    def test_file_that_cannot_be_read_stops_it(self):
        self.refused("copy", "file", "absent", "-o", "out", code=1, text="absent: No such file or directory")
        self.refused("copy", "file", ".", "-o", "out", code=1, text=".: is a folder")


class Signals(WritingTest):
    def test_program_that_is_ended_leaves_no_litter(self):
        self.chunks("file", [at(i / 1000, a=b"x" * 1000) for i in range(30_000)])
        ended = 0
        for number, sent in enumerate([signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT] * 5):
            with subprocess.Popen([self.program, "recover", "file", "-o", "out"], cwd=self.folder,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE) as child:
                time.sleep(number * 0.01)
                child.send_signal(sent)
                out, err = child.communicate()
            self.assertIn(child.returncode, (0, -sent), err)
            if child.returncode == 0 or out:  # a signal after the last line comes too late
                self.assertIn(b"out: 30000 records", out)
                self.assertEqual(self.read("out"), self.read("file"))
                os.remove(self.path("out"))
            ended += child.returncode != 0
            self.assertEqual(self.names(), ["file"])
        self.assertGreater(ended, 0)

    def test_interrupt_says_what_is_there(self):
        self.chunks("file", [at(i / 1000, a=b"x" * 100) for i in range(20_000)])
        with subprocess.Popen([self.program, "copy", "file", "--split", "1KiB", "-o", "p"], cwd=self.folder,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as child:
            while len(self.names()) < 5:
                time.sleep(0.001)
            child.send_signal(signal.SIGINT)
            err = child.communicate()[1].decode()
        self.assertEqual(child.returncode, -signal.SIGINT)
        parts = [name for name in self.names() if name != "file"]
        self.assertEqual(err, f"chunkfile: p: interrupted; {len(parts)} files were written\n")
        self.assertEqual(parts, [f"p.{number:04}" for number in range(1, len(parts) + 1)])

    def test_reader_that_goes_away_ends_it_silently(self):
        self.chunks("file", [at(i) for i in range(4000)])
        done = subprocess.run(["bash", "-c", f'"{self.program}" copy file --split 1s -o {"p" * 100} | true; echo ${{PIPESTATUS[0]}}'],
                              cwd=self.folder, capture_output=True, check=False, text=True)
        self.assertEqual((done.stdout, done.stderr), (f"{128 + signal.SIGPIPE}\n", ""))
        self.assertFalse([name for name in self.names() if name.startswith(".")])


class WithoutGlue(WritingTest):
    """A platform that declines everything: records are copied as they are."""
    program = os.environ["CHUNKFILE_MINIMAL"]

    def setUp(self):
        super().setUp()
        self.records = [minimal_record(i, b"text %d" % i) for i in range(4)]

    def test_damaged_file_is_recovered(self):
        self.chunks("file", [self.records[0], b"\xff" * 30, *self.records[2:]])
        out = self.run_tool("recover", "file", "-o", "out", code=3)[0].decode()
        self.assertIn("file: lost bytes 46 to 76, after tick 0, before tick 2\n", out)
        self.expect("out", [self.records[0], *self.records[2:]])

    def test_files_are_merged_sorted_and_split(self):
        self.chunks("b", self.records[2:])
        self.chunks("a", self.records[:2])
        self.out("copy", "--sort", "b", "a", "-o", "out")
        self.expect("out", self.records)
        self.out("copy", "out", "--split", "80B", "-o", "p")
        self.expect("p.0001", self.records[:2])

    def test_equal_times_are_skipped(self):
        self.chunks("file", [self.records[0], minimal_record(0, b"other"), self.records[0]])
        out = self.run_tool("copy", "--on-equal-time", "skip", "file", "-o", "out", code=3)[0].decode()
        self.assertIn("1 record left out: equal to an earlier one", out)
        self.expect("out", [self.records[0]])

    def test_what_needs_more_is_refused(self):
        self.chunks("file", self.records)
        for options in (("--fields", "a"), ("--on-equal-time", "shift"), ("--split", "10s"), ("--from", "+1s")):
            self.refused("copy", "file", *options, "-o", "out", code=2, text="a platform that")


if __name__ == "__main__":
    unittest.main()
