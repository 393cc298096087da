#!/usr/bin/env python3
"""Claims about python/corvane_chunks.py. Files come from chunk_writer.py, docs/format.md and the demo.

usage: PYTHONPATH=python python3 tests/python/chunks_test.py; MEASURE names the demo's program
"""
import math
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import tracemalloc
import unittest

from chunk_writer import checksum, entry, image, raw_record, record
from corvane_chunks import BadRecord, ChunkFile, End, Stop, shown, time_text

TOP = pathlib.Path(__file__).resolve().parents[2]
A, B, C = record(10, {b"load": b"0.5"}), record(20), record(30, {b"load": b"7", b"mem": b"71 %"})


class FileCase(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "file.chunks")

    def file(self, content):
        """The content's file, opened until the end of the test."""
        with open(self.path, "wb") as file:
            file.write(content)
        chunks = ChunkFile(self.path)
        self.addCleanup(chunks.__exit__)
        return chunks

    def store(self, position, byte):
        """Changes a byte of the file."""
        with open(self.path, "r+b") as file:
            file.seek(position)
            file.write(bytes([byte]))

    def walk(self, content, names=None):
        """The records of the content's file, and why the walk ended."""
        with self.file(content) as file:
            return list(file.records(names)), file.stop

    def expect(self, content, times, end, position, flaw=""):
        records, stop = self.walk(content)
        self.assertEqual([record.time for record in records], times)
        self.assertEqual(stop, Stop(end, position, flaw))

    def expect_flaw(self, bad, flaw):
        """A walk gives the record before this bad one, and says what is wrong."""
        self.expect(image([A, bad, C]), [10], End.BAD_RECORD, 16 + len(A), flaw)


def example_of_the_page():
    """The bytes of "A file of two records"."""
    page = (TOP / "docs" / "format.md").read_text()
    block = page.split("<!-- a file of two records -->")[1].split("```")[1]
    return b"".join(bytes.fromhex(match) for match in re.findall(r"^ +\d+  ((?:[0-9a-f]{2} )+) ", block, re.M))


class SoundFiles(FileCase):
    def test_the_pages_example_is_read_as_the_page_says(self):
        file = self.file(example_of_the_page())
        self.assertEqual((file.version, file.count, file.size), (2, 2, 172))
        self.assertEqual(list(file), [(16, 87, 1800000000000000000, {"load": b"0.42", "mem": b"71 %"}),
                                      (103, 63, 1800000000010000000, {"load": b"0.5"})])
        self.assertEqual(file.stop, Stop(End.ALL_READ, 166, ""))

    def test_the_tests_writer_makes_the_pages_example(self):
        first = record(1800000000000000000, {b"mem": b"71 %", b"load": b"0.42"})
        second = record(1800000000010000000, {b"load": b"0.5"})
        self.assertEqual(image([first, second], fill=bytes(6)), example_of_the_page())

    def test_the_page_states_the_checksum_of_no_bytes(self):
        page = (TOP / "docs" / "format.md").read_text()
        number = checksum(b"")
        self.assertIn(f"`{number:016x}`, stored as `{number.to_bytes(8, 'little').hex(' ')}`", page)

    def test_a_file_without_records_has_a_header(self):
        self.expect(image([]), [], End.ALL_READ, 16)

    def test_any_version_is_read(self):
        for version in (0, 1, 3, 2**64 - 1):
            self.assertEqual(self.file(image([A], version)).version, version)
            self.expect(image([A], version), [10], End.ALL_READ, 16 + len(A))

    def test_time_points_come_in_any_order_and_twice(self):
        self.expect(image([C, A, A]), [30, 10, 10], End.ALL_READ, 16 + len(C) + 2 * len(A))

    def test_names_and_values_are_any_bytes(self):
        fields = {b"": b"", b"\0": b"\xff", "grün".encode(): bytes(range(256)), b"\xff\xfe": b"not UTF-8"}
        (found,), _ = self.walk(image([record(0, fields)]))
        self.assertEqual({name.encode("utf-8", "surrogateescape"): value for name, value in found.fields.items()},
                         fields)

    def test_names_ascend_as_bytes_where_text_would_not(self):
        fields = {"\ue000".encode(): b"1", b"\xff": b"2"}  # decoded, the second is U+DCFF
        self.expect(image([record(1, fields)]), [1], End.ALL_READ, 16 + 40 + 16 + 3 + 16 + 1 + 2)

    def test_only_the_fields_asked_for_are_given(self):
        records, _ = self.walk(image([A, B, C]), ["mem", "none"])
        self.assertEqual([record.fields for record in records], [{}, {}, {"mem": b"71 %"}])

    def test_a_record_is_read_at_its_position_whatever_the_count(self):
        file = self.file(image([A, C], count=0))
        self.assertEqual(file.read(16 + len(A)).time, 30)
        self.assertEqual(list(file), [])

    def test_earliest_and_latest_time_points_have_a_text(self):
        (first, last), _ = self.walk(image([record(-2**63), record(2**63 - 1)]))
        self.assertEqual(time_text(first.time), "1677-09-21T00:12:43.145224192Z")
        self.assertEqual(time_text(last.time), "2262-04-11T23:47:16.854775807Z")

    def test_a_second_walk_gives_the_same(self):
        file = self.file(image([A, B]))
        self.assertEqual(list(file), list(file))


class Endings(FileCase):
    def test_missing_bytes_of_the_header_are_zero(self):
        for size in range(16):
            file = self.file(image([], version=0x0807060504030201, count=0x0807060504030201)[:size])
            expected = bytes([1, 2, 3, 4, 5, 6, 7, 8] * 2)[:size].ljust(16, b"\0")
            self.assertEqual(file.version.to_bytes(8, "little") + file.count.to_bytes(8, "little"), expected)
            self.assertEqual(list(file), [])
            self.assertIs(file.stop.end, End.END_OF_FILE if size > 8 else End.ALL_READ)

    def test_a_count_too_low_hides_records(self):
        self.expect(image([A, B, C], count=1), [10], End.ALL_READ, 16 + len(A))

    def test_a_count_too_high_leads_to_the_end_of_the_file(self):
        self.expect(image([A], count=2**64 - 1), [10], End.END_OF_FILE, 16 + len(A))

    def test_a_count_too_high_leads_into_the_fill(self):
        self.expect(image([A], count=2, fill=bytes(100)), [10], End.BAD_RECORD, 16 + len(A), "no mark")
        self.expect(image([A], count=2, fill=bytes(39)), [10], End.BAD_RECORD, 16 + len(A), "the file ends inside it")

    def test_older_records_after_the_image_come_back_with_a_count_too_high(self):
        self.expect(image([A], count=2, fill=C), [10, 30], End.ALL_READ, 16 + len(A) + len(C))

    def test_a_walk_that_goes_on_has_no_stop(self):
        file = self.file(image([A, B]))
        list(file)
        next(iter(file))
        self.assertIsNone(file.stop)

    def test_a_file_that_cannot_be_opened_is_an_os_error(self):
        self.assertRaises(FileNotFoundError, ChunkFile, self.path)
        self.assertRaises(IsADirectoryError, ChunkFile, os.path.dirname(self.path))


class BadRecords(FileCase):
    def test_every_flipped_bit_ends_the_walk_at_its_record(self):
        sound = image([A, C, B])
        starts = [16, 16 + len(A), 16 + len(A) + len(C)]
        self.file(sound)
        for bit in range(16 * 8, len(sound) * 8):
            self.store(bit // 8, sound[bit // 8] ^ 1 << bit % 8)
            with ChunkFile(self.path) as file:
                records = list(file)
            bad = max(start for start in starts if start <= bit // 8)
            self.assertEqual((file.stop.end, file.stop.position), (End.BAD_RECORD, bad), f"bit {bit}")
            self.assertEqual([record.position for record in records], starts[:starts.index(bad)])
            self.store(bit // 8, sound[bit // 8])

    def test_a_truncation_at_every_byte_keeps_the_whole_records(self):
        sound, ends = image([A, C, B]), [16 + len(A), 16 + len(A) + len(C), 16 + len(A) + len(C) + len(B)]
        for size in range(16, len(sound)):
            records, stop = self.walk(sound[:size])
            whole = [end for end in ends if end <= size]
            self.assertEqual([record.position + record.size for record in records], whole)
            self.assertIs(stop.end, End.END_OF_FILE if size in [16, *ends] else End.BAD_RECORD)

    def test_a_wrong_head_is_named(self):
        self.expect_flaw(raw_record(20, b"", b"", mark=b"CVC2"), "no mark")
        self.expect_flaw(raw_record(20, b"", b"", head_sum=1), "wrong checksum of the head")
        self.expect_flaw(raw_record(20, b"", b"", directory_sum=0), "wrong checksum of the directory")
        self.expect_flaw(raw_record(20, b"", b"", size=2**30 + 1), "longer than 1 GiB")
        self.expect_flaw(raw_record(20, b"", b"", size=2**30), "longer than the rest of the file")
        for size in (0, 39):
            self.expect_flaw(raw_record(20, b"", b"", size=size), "directory longer than the record")
        self.expect_flaw(raw_record(20, entry(b"a", b"v"), b"v", directory_size=19), "directory longer than the record")

    def test_a_wrong_directory_is_named(self):
        for directory, values, number, flaw in (
                (entry(b"a", b"v"), b"v", 2, "more fields than the directory holds"),
                (entry(b"a", b"v"), b"v", 0, "directory longer than its fields"),
                (entry(b"a", b"v") + b"\0", b"v", 1, "directory longer than its fields"),
                (entry(b"a", b"v", name_size=2), b"v", 1, "name longer than the directory"),
                (entry(b"a", b"v", name_size=2**32 - 1), b"v", 1, "name longer than the directory"),
                (entry(b"b", b"v") + entry(b"a", b"w"), b"vw", 2, "names do not ascend"),
                (entry(b"a", b"v") * 2, b"vv", 2, "names do not ascend"),
                (entry(b"", b"v") * 2, b"vv", 2, "names do not ascend"),
                (entry(b"\xff", b"v") + entry(b"a", b"w"), b"vw", 2, "names do not ascend")):
            self.expect_flaw(raw_record(20, directory, values, number=number), flaw)

    def test_a_wrong_value_is_named(self):
        self.expect_flaw(raw_record(20, entry(b"a", b"v", value_sum=7), b"v", number=1), "wrong checksum of field a")
        self.expect_flaw(raw_record(20, entry(b"a", b"", value_sum=0), b"", number=1), "wrong checksum of field a")
        self.expect_flaw(raw_record(20, entry(b"a", b"vv"), b"v", number=1), "sizes do not add up")
        self.expect_flaw(raw_record(20, entry(b"a", b"v"), b"v\0", number=1), "sizes do not add up")
        sum_wraps = entry(b"a", b"", value_size=2**32 - 1) + entry(b"b", b"", value_size=1)
        self.expect_flaw(raw_record(20, sum_wraps, b"", number=2), "sizes do not add up")

    def test_damage_in_a_field_not_asked_for_goes_unnoticed(self):
        damaged = image([A, C]).replace(b"71 %", b"17 %")
        self.assertIs(self.walk(damaged)[1].end, End.BAD_RECORD)
        self.assertEqual([record.fields for record in self.walk(damaged, ["load"])[0]],
                         [{"load": b"0.5"}, {"load": b"7"}])

    def test_a_field_not_asked_for_must_lie_within_the_file(self):
        self.assertIs(self.walk(image([A, C])[:-1], ["load"])[1].end, End.BAD_RECORD)

    def test_a_record_after_a_bad_one_can_be_read_at_its_position(self):
        file = self.file(image([A, b"x" * 50, C]))
        self.assertRaisesRegex(BadRecord, "no mark", file.read, 16 + len(A))
        self.assertEqual(file.read(16 + len(A) + 50).time, 30)

    def test_past_the_end_there_is_no_record(self):
        self.assertRaisesRegex(BadRecord, "the file ends inside it", self.file(image([A])).read, 10**9)


class Memory(FileCase):
    def peak(self, action):
        """The most bytes of memory that Python holds at once for the action."""
        tracemalloc.start()
        self.addCleanup(tracemalloc.stop)
        action()
        return tracemalloc.get_traced_memory()[1]

    def exhaust(self, file, names=None):
        for _ in file.records(names):
            pass

    def test_a_walk_holds_about_one_record(self):
        large = record(1, {b"load": b"1", b"text": bytes(1 << 20)})
        file = self.file(image([large] * 30))
        self.assertLess(self.peak(lambda: self.exhaust(file)), 3 << 20)
        self.assertIs(file.stop.end, End.ALL_READ)

    def test_a_skipped_field_takes_no_memory(self):
        file = self.file(image([record(1, {b"load": b"1", b"text": bytes(1 << 20)})] * 30))
        self.assertLess(self.peak(lambda: self.exhaust(file, ["load"])), 100 << 10)
        self.assertIs(file.stop.end, End.ALL_READ)

    def test_sizes_that_lie_take_no_memory(self):
        value = raw_record(1, entry(b"a", b"", value_size=2**30 - 57), b"", size=2**30, number=1)
        directory = raw_record(1, b"", b"", size=2**30, directory_size=2**30 - 40, number=2**32 - 1)
        fields = raw_record(1, entry(b"a", b""), b"", number=2**32 - 1)
        for bad in (value, directory, fields):
            file = self.file(image([bad]))
            self.assertLess(self.peak(lambda: self.exhaust(file)), 100 << 10)
            self.assertIs(file.stop.end, End.BAD_RECORD)


class Numbers(FileCase):
    def test_numbers_come_with_their_times(self):
        times, values = self.file(image([A, B, C])).to_numpy(["load"])
        self.assertEqual([str(time) for time in times], [f"1970-01-01T00:00:00.0000000{time}0" for time in (1, 2, 3)])
        self.assertEqual((values["load"][0], values["load"][2]), (0.5, 7))
        self.assertTrue(math.isnan(values["load"][1]))

    def test_a_function_makes_the_number(self):
        _, values = self.file(image([C])).to_numpy({"mem": lambda value: int(value.split()[0])})
        self.assertEqual(values["mem"].tolist(), [71])

    def test_a_value_that_is_no_number_is_named_with_its_record(self):
        file = self.file(image([A, C]))
        self.assertRaisesRegex(ValueError, f"record at position {16 + len(A)}, field mem: could not convert",
                               file.to_numpy, ["mem"])

    def test_numbers_before_the_damage_are_kept(self):
        file = self.file(image([A, b"x" * 40]))
        self.assertEqual(file.to_numpy(["load"])[1]["load"].tolist(), [0.5])
        self.assertEqual(file.stop, Stop(End.BAD_RECORD, 16 + len(A), "no mark"))

    def test_a_file_without_records_gives_empty_arrays(self):
        times, values = self.file(image([])).to_numpy(["load"])
        self.assertEqual((times.dtype, len(times), len(values["load"])), ("datetime64[ns]", 0, 0))


class Program(FileCase):
    def run_main(self, *options):
        """Exit status and lines of the program, run on the test's file."""
        command = [sys.executable, "-m", "corvane_chunks", self.path, *options]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, "PYTHONPATH": str(TOP / "python"), "PYTHONIOENCODING": "ascii"})
        return done.returncode, done.stdout.splitlines()

    def test_a_sound_file_is_a_table_and_status_0(self):
        self.file(image([A, B, C]))
        self.assertEqual(self.run_main(), (0, [
            "version 2, number of chunks 3, 203 bytes",
            "    position       size  time                            fields",
            "          16         63  1970-01-01T00:00:00.000000010Z  load=0.5",
            "          79         40  1970-01-01T00:00:00.000000020Z",
            "         119         84  1970-01-01T00:00:00.000000030Z  load=7  mem=71 %",
            "3 records; at position 203: all read"]))

    def test_damage_is_status_1_and_its_reason(self):
        self.file(image([A, b"x" * 40]))
        status, lines = self.run_main()
        self.assertEqual((status, lines[-1]), (1, f"1 records; at position {16 + len(A)}: bad record, no mark"))

    def test_a_missing_file_is_status_2(self):
        self.assertEqual(self.run_main(), (2, [f"{self.path}: No such file or directory"]))

    def test_a_pipe_is_status_2(self):
        os.mkfifo(self.path)
        self.addCleanup(os.close, os.open(self.path, os.O_RDWR))  # otherwise the program's open waits
        self.assertEqual(self.run_main(), (2, [f"{self.path}: File or stream is not seekable."]))

    def test_only_the_fields_asked_for_are_printed(self):
        self.file(image([C]))
        self.assertTrue(self.run_main("--field", "mem")[1][2].endswith("Z  mem=71 %"))

    def test_an_output_that_knows_ascii_only_gets_the_rest_escaped(self):
        self.file(image([record(1, {"grün".encode(): b"1"})]))
        self.assertTrue(self.run_main()[1][2].endswith("gr\\xfcn=1"))

    def test_nothing_shown_controls_a_terminal(self):
        self.assertEqual(shown(b"\x1b[2J\n\xff\xc2\x9b"), "\\x1b[2J\\n\\udcff\\x9b")
        self.assertEqual(shown("a\u202eb"), "a\\u202eb")

    def test_what_is_shown_has_a_limit(self):
        self.assertEqual([shown(b"x" * size, 5) for size in (5, 6, 10**6)], ["xxxxx", "xx...", "xx..."])
        self.assertEqual(shown("ü" * 6, 5), shown(("ü" * 6).encode(), 5))

    def test_a_closed_pipe_ends_it_silently(self):
        self.file(image([A] * 20000))
        command = f"{sys.executable} -m corvane_chunks {self.path} | head -1"
        done = subprocess.run(command, shell=True, capture_output=True, text=True,
                              env={**os.environ, "PYTHONPATH": str(TOP / "python")})
        self.assertEqual((done.stderr, done.stdout.count("\n")), ("", 1))


@unittest.skipUnless("MEASURE" in os.environ, "MEASURE does not name the demo's program")
class Demo(FileCase):
    def measure(self, seconds):
        """What the demo prints. Its file is the test's."""
        demo = subprocess.run([os.environ["MEASURE"], seconds, self.path], capture_output=True, text=True, check=True)
        return demo.stdout

    def test_the_demos_file_is_read_as_the_demo_reads_it(self):
        printed = self.measure("0.2")
        count, end, size = map(int, re.search(r"^ +(\d+) chunks in (\d+) of (\d+) bytes", printed, re.M).groups())
        with ChunkFile(self.path) as file:
            records = list(file)
        self.assertEqual((file.version, file.count, file.size, len(records)), (2, count, size, count))
        self.assertEqual(file.stop, Stop(End.ALL_READ, end, ""))
        load = re.search(r"last load: ([\d. ]+)", printed)[1]
        self.assertTrue(records[-1].fields["loadavg"].decode().startswith(load))

    def test_the_demos_file_is_plotted(self):
        self.measure("0.5")
        picture = os.path.join(os.path.dirname(self.path), "measure.svg")
        subprocess.run([sys.executable, TOP / "python" / "plot_measure.py", self.path, picture], check=True)
        self.assertIn("available memory, GiB", pathlib.Path(picture).read_text())


if __name__ == "__main__":
    unittest.main()
