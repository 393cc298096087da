"""chunkfile list, cat and attr: every option, every exit code, through the real program."""
import base64
import csv
import io
import json
import os
import signal
import subprocess
import unittest

from chunk_writer import record
from program import BEGIN, SECOND, ProgramTest, minimal_record, time_text


class Cat(ProgramTest):
    def lines(self, *arguments, **keywords):
        return [json.loads(line) for line in self.out("cat", *arguments, **keywords).splitlines()]

    def numbers(self, *arguments):
        return [line["fields"]["i"] for line in self.lines(self.five(), *arguments)]

    def fields(self, fields, *options):
        return self.lines(self.chunks("file", [record(BEGIN, fields)]), *options)[0]["fields"]

    def test_line_is_time_and_fields(self):
        self.assertEqual(self.out("cat", self.five(), "--limit", "1"),
                         '{"time":"2027-01-15T08:00:00.000000000Z","fields":{"i":0,"name":"n0"}}\n')

    def test_names_after_two_dashes_may_begin_with_a_dash(self):
        for name in ("-b", "--help", "--"):
            self.five(name)
            self.assertEqual(len(self.lines("--", name)), 5)
            self.assertEqual(len(self.lines(self.five(), "--limit", "2", "--", name, name)), 6)
        self.assertIn("no such file or directory", self.error("cat", "--", "a", "-c", code=1).lower())
        self.assertEqual(len(self.out("list", "--", "-b").splitlines()), 6)

    def test_files_follow_each_other(self):
        self.assertEqual(len(self.lines(self.five("a"), self.five("b"))), 10)

    def test_chosen_fields_come_in_the_order_of_the_option(self):
        self.assertIn('"fields":{"name":"n0","i":0}}', self.out("cat", self.five(), "--fields", "name,i"))
        self.assertEqual(self.fields({b"a,b": b"1", b"a": b"2"}, "--fields", r"a\,b"), {"a,b": 1})

    def test_fields_that_no_record_has_are_said_once(self):
        self.five("a")
        self.chunks("b", [record(BEGIN + i, {b"other": b""}) for i in range(1, 3)])
        text = "chunkfile: --fields: none of the chosen records has the field {}\n"
        for command in (("cat",), ("cat", "--format", "csv"), ("copy", "--dry-run", "-o", "out")):
            err = self.run_tool(*command, "--fields", "none,i,i\x1b,none", "a", "b")[1].decode()
            self.assertEqual(err, text.format(r"i\x1b") + text.format("none"), command)
            self.assertEqual(self.run_tool(*command, "-q", "--fields", "none", "a")[1], b"")
            self.assertEqual(self.run_tool(*command, "--fields", "other,i", "a", "b")[1], b"")
        self.assertEqual(self.run_tool("cat", "--fields", "none", "--limit=0", "a")[1], b"")
        self.assertNotIn("--fields", self.error("copy", "--fields", "none", "--index=9:", "a", "-o", "out", code=3))
        self.assertEqual(self.error("cat", "--fields", "other", "--limit", "1", "a", code=0), text.format("other")[11:-1])
        self.assertEqual(self.run_tool("cat", "--fields", "none", "a")[0].count(b'"fields":{}'), 5)

    def test_json_stays_json_and_other_text_is_a_string(self):
        fields = {b"number": b"21.50", b"object": b'{"a":[1,null]}', b"text": b"a\n\xc3\xa9", b"empty": b""}
        line = self.out("cat", self.chunks("file", [record(BEGIN, fields)]))
        self.assertIn('"number":21.50,', line)
        self.assertEqual(json.loads(line)["fields"],
                         {"number": 21.5, "object": {"a": [1, None]}, "text": "a\n\u00e9", "empty": ""})

    def test_strings_turns_that_off(self):
        self.assertEqual(self.fields({b"number": b"21.50"}, "--strings"), {"number": "21.50"})

    def test_other_bytes_are_base64(self):
        self.assertEqual(self.fields({b"a": b"\xff\x00", b"\xfe": b"1"}),
                         {"a": {"base64": base64.b64encode(b"\xff\x00").decode()}, "base64:/g==": 1})

    def test_index_is_half_open(self):
        self.assertEqual(self.numbers("--index", "1:3"), [1, 2])
        self.assertEqual(self.numbers("--index", "3:"), [3, 4])
        self.assertEqual(self.numbers("--index", ":2"), [0, 1])
        self.assertEqual(self.numbers("--index", "2:2"), [])
        self.assertEqual(self.numbers("--index", "7:9"), [])

    def test_limit_bounds_the_records_of_each_file(self):
        self.assertEqual(self.numbers("--limit", "2"), [0, 1])
        self.assertEqual(self.numbers("--limit", "0"), [])
        self.assertEqual(self.numbers("--index", "1:", "--limit", "2"), [1, 2])
        self.assertEqual(len(self.lines(self.five("a"), self.five("b"), "--limit", "2")), 4)

    def test_times_are_half_open(self):
        one, three = time_text(BEGIN + SECOND), time_text(BEGIN + 3 * SECOND)
        self.assertEqual(self.numbers("--from", one, "--to", three), [1, 2])
        self.assertEqual(self.numbers("--from", f"@{BEGIN // SECOND + 3}.5"), [4])
        self.assertEqual(self.numbers("--from", "2027-01-15T10:00:03+02:00"), [3, 4])

    def test_date_alone_is_its_midnight_in_utc(self):
        self.assertEqual(self.numbers("--from", "2027-01-15"), [0, 1, 2, 3, 4])
        self.assertEqual(self.numbers("--from", "2027-01-14", "--to", "2027-01-15"), [])
        self.assertEqual(self.numbers("--to", "2027-01-16"), [0, 1, 2, 3, 4])

    def test_times_count_from_the_first_or_the_last_record(self):
        self.assertEqual(self.numbers("--from", "+1s", "--to", "+3s"), [1, 2])
        self.assertEqual(self.numbers("--from", "-1s"), [3, 4])
        self.assertEqual(self.numbers("--from", "+500ms", "--to", "-1.5s"), [1, 2])

    def test_csv_has_a_column_for_each_name(self):
        file = self.chunks("file", [record(BEGIN, {b"a": b'x,"y"\r\n', b"b": b"\xff"}), record(BEGIN + 1, {b"c": b"3"})])
        rows = list(csv.reader(io.StringIO(self.out("cat", "--format", "csv", file), newline="")))
        self.assertEqual(rows, [["time", "a", "b", "c"], [time_text(BEGIN), 'x,"y"\r\n', "base64:/w==", ""],
                                [time_text(BEGIN + 1), "", "", "3"]])

    def test_names_of_fields_are_bounded(self):
        self.chunks("names", [record(BEGIN + i, {b"%d" % i + b"n" * 1_500_000: b""}) for i in range(3)])
        out, err = self.run_tool("info", "--fields", "--format", "json", "names")
        self.assertEqual(len(json.loads(out)["fields"]), 2)
        self.assertEqual(err, b"chunkfile: names: it has more fields than the 2 that are counted\n")
        self.assertIn("choose some with --fields", self.error("cat", "--format", "csv", "names", code=1))
        self.chunks("many", [record(BEGIN + i, {b"%d" % j: b"" for j in range(i * 4000, i * 4000 + 4000)}) for i in range(3)])
        self.assertIn(b"than the 10000 that", self.run_tool("info", "--fields", "many")[1])
        self.assertIn("choose some with --fields", self.error("cat", "--format", "csv", "many", code=1))

    def test_csv_of_several_files_has_the_named_columns_once(self):
        out = self.out("cat", "--format", "csv", "--fields", "name", "--limit", "1", self.five("a"), self.five("b"))
        self.assertEqual(out, f"time,name\r\n{time_text(BEGIN)},n0\r\n{time_text(BEGIN)},n0\r\n")
        self.assertIn("needs --fields", self.error("cat", "--format", "csv", "a", "b", code=2))

    def test_raw_gives_the_bytes_of_the_records(self):
        records = [record(BEGIN + i, {b"a": os.urandom(70_000)}) for i in range(3)]
        file = self.chunks("file", records)
        self.assertEqual(self.run_tool("cat", "--format", "raw", file)[0], b"".join(records))
        self.assertEqual(self.run_tool("cat", "--format", "raw", "--index", "1:2", file)[0], records[1])
        self.assertIn("--fields", self.error("cat", "--format", "raw", "--fields", "a", file, code=2))

    def test_standard_input_is_a_file_too(self):
        with open(self.path(self.five()), "rb") as file:
            data = file.read()
        self.assertEqual(len(self.lines("-", stdin=data)), 5)
        self.assertEqual(len(self.lines("--from", "-1s", "--format", "ndjson", "-", stdin=data)), 2)
        self.assertEqual(self.out("cat", "--format", "csv", "--limit", "0", "-", stdin=data), "time,i,name\r\n")

    def test_damage_ends_the_records_with_3(self):
        out, err = self.run_tool("cat", self.damaged(), code=3)
        self.assertEqual(len(out.splitlines()), 2)
        self.assertRegex(err.decode(), r"^chunkfile: damaged: byte \d+ \(record 2\): not a good record\n$")

    def test_scan_goes_on_after_damage(self):
        out = self.run_tool("cat", "--scan", self.damaged(), code=3)[0]
        self.assertEqual([json.loads(line)["fields"]["i"] for line in out.splitlines()], [0, 1, 3, 4])
        rows = self.run_tool("cat", "--scan", "--format", "csv", self.damaged(), code=3)[0].split(b"\r\n")
        self.assertEqual(len(rows), 6)

    def test_scan_leaves_doubtful_records_and_their_fields_out(self):
        def series(first, last, **fields):
            return [record(BEGIN + i * SECOND, {b"i": b"%d" % i, **{name.encode(): b"" for name in fields}}) for i in range(first, last)]
        records = [*series(5, 7), b"\xff" * 40, *series(0, 4, stale=1), b"\xff" * 40, *series(9, 11, late=1)]
        file = self.chunks("file", records, count=8)
        def cat(*arguments):
            return self.run_tool("cat", "--fields", "i", *arguments, file, code=3)[0].decode().count("\n")
        self.assertEqual([cat(), cat("--scan"), cat("--scan", "--limit", "3"), cat("--scan", "--index", ":4")], [2, 4, 3, 3])
        for options, names in (((), "time,i"), (("--scan",), "time,i,late")):
            out = self.run_tool("cat", *options, "--format", "csv", file, code=3)[0].decode()
            self.assertEqual(out.split("\r\n")[0], names)
        out, err = self.run_tool("list", "--scan", "-v", "--format", "csv", file, code=3)
        self.assertEqual(out.decode().count("doubtful"), 4)
        self.assertTrue(err.endswith(b": 8 records selected\n"), err)

    def test_file_that_changes_while_it_is_read_says_so(self):
        file = self.chunks("large", [record(BEGIN + i, {b"a": b"x" * 1000}) for i in range(1000)])
        for command in (("cat",), ("list", "--format", "json")):
            with subprocess.Popen([self.program, *command, file], cwd=self.folder, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE) as process:
                process.stdout.read(10)  # it now waits for a reader
                os.utime(self.path(file))
                self.assertEqual(process.communicate()[1], b"chunkfile: large: the file changed while it was read\n")

    def test_what_ends_before_the_damage_is_fine(self):
        self.assertEqual(len(self.lines(self.damaged(), "--limit", "2")), 2)
        self.assertEqual(len(self.lines(self.damaged(), "--index", "1:2")), 1)

    def test_the_gravest_code_counts_and_other_files_are_read(self):
        out, err = self.run_tool("cat", self.damaged(), "nowhere", self.five(), code=1)
        self.assertEqual(len(out.splitlines()), 7)
        self.assertIn(b"chunkfile: nowhere: No such file or directory\n", err)

    def test_short_file_is_found(self):
        self.assertEqual(self.error("cat", self.write("short", b"12345"), code=3),
                         "short: shorter than the header of a chunk file")

    def test_folder_and_fifo_are_refused(self):
        os.mkfifo(self.path("fifo"))
        self.assertEqual(self.error("cat", ".", code=1), ".: is a folder")
        self.assertEqual(self.error("cat", "fifo", code=1), "fifo: not a regular file")

    def test_verbose_says_how_many(self):
        err = self.run_tool("cat", "-v", self.five())[1]
        self.assertEqual(err, b"chunkfile: five: 5 records selected\n")

    def test_full_disk_is_an_error(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([self.program, "cat", self.path(self.five())], stdout=full, stderr=subprocess.PIPE,
                                  check=False)
        self.assertEqual((done.returncode, done.stderr), (1, b"chunkfile: standard output: No space left on device\n"))

    def test_reader_that_goes_away_ends_it_silently(self):
        file = self.chunks("large", [record(BEGIN + i, {b"a": b"x" * 1000}) for i in range(1000)])
        for ignored in (False, True):
            process = subprocess.Popen([self.program, "cat", self.path(file)], stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE, restore_signals=not ignored)
            process.stdout.read(10)
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")
            process.stderr.close()
            self.assertEqual(process.wait(), -signal.SIGPIPE)

    def test_hostile_names_do_not_control_the_terminal(self):
        self.assertEqual(self.error("cat", "a\x1b[31m\n\u202eb", code=1),
                         r"a\x1b[31m\x0a\xe2\x80\xaeb: No such file or directory")
        self.assertEqual(self.error("cat", "\u00e9", code=1, environment={"LC_ALL": "C"}),
                         r"\xc3\xa9: No such file or directory")


class List(ProgramTest):
    def test_table_has_a_line_for_each_record(self):
        out = self.out("list", self.five(), "--limit", "1")
        self.assertEqual(out, "   index  position      size  time                            fields\n"
                              f"       0        16        80  {time_text(BEGIN)}  i, name\n")

    def test_json_has_a_line_for_each_record(self):
        lines = self.out("list", "--format", "json", self.five(), "--index", "1:2").splitlines()
        self.assertEqual(lines, ['{"schema":"chunkfile.list/1","index":1,"position":96,"size":80,'
                                 f'"time":"{time_text(BEGIN + SECOND)}","standing":"counted","fields":["i","name"]}}'])

    def test_csv_has_a_line_for_each_record(self):
        self.assertEqual(self.out("list", "--format", "csv", self.five(), "--limit", "1"),
                         f"index,position,size,time,standing,fields\r\n0,16,80,{time_text(BEGIN)},counted,i name\r\n")

    def test_records_after_damage_are_marked(self):
        out = self.run_tool("list", "--scan", self.damaged(), code=3)[0].decode()
        self.assertEqual([line.split()[0] for line in out.splitlines()], ["index", "0", "1", "+3", "+4"])
        old = [record(BEGIN + i, {}) for i in (7, 0)]
        self.chunks("old", [record(BEGIN, {}), b"\xff" * 40, *old], count=3)
        out = self.run_tool("list", "--scan", "--format", "json", "old", code=3)[0].decode()
        self.assertEqual([json.loads(line)["standing"] for line in out.splitlines()], ["counted", "doubtful", "doubtful"])

    def test_selection_is_the_same_as_for_cat(self):
        self.assertEqual(len(self.out("list", self.five(), "--from", "+1s", "--to", "+3s").splitlines()), 3)

    def test_names_do_not_control_the_terminal(self):
        self.assertIn(r"a\x1b[31m, b\xff", self.out("list", self.chunks("file", [record(BEGIN, {b"a\x1b[31m": b"", b"b\xff": b""})])))

    def test_colours_only_if_wanted(self):
        self.assertNotIn("\x1b", self.out("list", self.five()))
        self.assertNotIn("\x1b", self.out("list", "--color", "never", self.five()))
        self.assertIn("\x1b[1m", self.out("list", "--color", "always", self.five()))
        self.assertIn("\x1b[1m", self.out("list", "--color=always", self.five(), environment={"NO_COLOR": "1"}))


class Attr(ProgramTest):
    def setUp(self):
        super().setUp()
        self.write("file", b"")
        try:
            os.setxattr(self.path("file"), "user.try", b"")
            os.removexattr(self.path("file"), "user.try")
        except OSError:
            self.skipTest("this file system keeps no user attributes")

    def test_set_get_list_remove(self):
        self.assertEqual(self.out("attr", "set", "file", "user.b", "1 2\n"), "")
        self.assertEqual(self.out("attr", "set", "file", "user.a", ""), "")
        self.assertEqual(self.out("attr", "list", "file"), "user.a\nuser.b\n")
        self.assertEqual(self.out("attr", "get", "file", "user.b"), "1 2\n")
        self.assertEqual(self.out("attr", "remove", "file", "user.b"), "")
        self.assertEqual(self.out("attr", "list", "file"), "user.a\n")

    def test_value_comes_out_byte_by_byte(self):
        os.setxattr(self.path("file"), "user.a", b"\x00\xff\x1b")
        self.assertEqual(self.run_tool("attr", "get", "file", "user.a")[0], b"\x00\xff\x1b")

    def test_failures_end_with_1_and_the_reason(self):
        self.assertEqual(self.error("attr", "get", "file", "user.none", code=1), "file: get user.none: No data available")
        self.assertEqual(self.error("attr", "remove", "file", "user.none", code=1),
                         "file: remove user.none: No data available")
        self.assertEqual(self.error("attr", "list", "nowhere", code=1), "nowhere: list: No such file or directory")
        self.assertEqual(self.error("attr", "set", "file", "none", "1", code=1),
                         "file: set none: Operation not supported")

    def test_verbose_prints_the_log_entry(self):
        err = self.run_tool("attr", "get", "-v", "file", "user.none", code=1)[1].decode()
        self.assertRegex(err, r"^chunkfile: log entry, level 10: .*user\.none.*: No data available\n"
                              r"chunkfile: file: get user\.none: No data available\n$")

    def test_wrong_number_of_arguments_is_wrong_usage(self):
        self.assertEqual(self.error("attr", "get", "file", code=2), "attr get takes PATH NAME")
        self.assertEqual(self.error("attr", "set", "file", "user.a", code=2), "attr set takes PATH NAME VALUE")
        self.assertEqual(self.error("attr", "list", "file", "user.a", code=2), "attr list takes PATH")


class Usage(ProgramTest):
    def refused(self, *arguments):
        err = self.run_tool(*arguments, code=2)[1].decode().splitlines()
        self.assertRegex(err[1], "^Try: chunkfile.* --help$")
        return err[0]

    def test_everything_wrong_ends_with_2(self):
        self.assertEqual(self.refused(), "chunkfile: COMMAND is required")
        self.assertEqual(self.refused("dump", "a"), "chunkfile: dump: no such command")
        self.assertEqual(self.refused("cat"), "chunkfile: FILE is required")
        self.assertEqual(self.refused("list", "a", "b"), "chunkfile: FILE: takes one, not 2")
        self.assertEqual(self.refused("list", "--limit", "1", "--limit", "2", "a"), "chunkfile: --limit: takes one, not 2")
        self.assertEqual(self.refused("list", "a", "--limit"), "chunkfile: --limit: N missing")
        self.assertEqual(self.refused("info", "-dash"), "chunkfile: unexpected option -dash")
        self.assertEqual(self.refused("info", "a", "--formt", "json"), "chunkfile: unexpected option --formt")
        self.assertEqual(self.refused("--format", "csv", "info", "a"), "chunkfile: unexpected option --format")
        self.assertEqual(self.refused("attr", "put", "a"), "chunkfile: ACTION: put is none of list|get|set|remove")
        self.assertEqual(self.refused("cat", "--from", "noon", "a"), "chunkfile: --from: cannot understand noon")
        self.assertEqual(self.refused("cat", "--to", "+1", "a"), "chunkfile: --to: cannot understand +1")
        for text in ("5", "a:b", "1:-2", "1:2:3", " 1:2"):
            self.assertEqual(self.refused("list", "--index", text, "a"), f"chunkfile: --index: cannot understand {text}")
        for text in ("-1", "x", "", "99999999999999999999"):
            self.assertEqual(self.refused("cat", f"--limit={text or ' '}", "a"),
                             f"chunkfile: --limit: cannot understand {text or ' '}")
        self.assertEqual(self.refused("cat", "--format", "json", "a"), "chunkfile: --format: json is none of ndjson|csv|raw")
        self.assertEqual(self.refused("info", "--format", "raw", "a"), "chunkfile: --format: raw is none of table|json|csv")
        self.assertEqual(self.refused("list", "--color", "red", "a"), "chunkfile: --color: red is none of auto|always|never")
        for text in ("1k", "1KB", "1kib", "KiB", "-1B", "1.5MiB", "1 MiB", "1MiB ", "17179869184GiB", "18446744073709551616"):
            for command in (("check", "a"), ("copy", "a", "-o", "b")):
                self.assertEqual(self.refused(*command, f"--max-size={text}"), f"chunkfile: --max-size: cannot understand {text}")
        self.assertIn("--scan", self.refused("info", "--scan", "a"))

    def test_standard_input_is_read_only_once(self):
        for command in (("info", "-", "-"), ("check", "-", "five", "-"), ("cat", "-", "--", "-"), ("copy", "-", "-", "-o", "out")):
            self.assertEqual(self.error(*command, code=2), "standard input can be read only once")

    def test_closed_descriptors_are_no_files(self):
        """Nor does a file that the tool opens get the number of one."""
        self.five()
        for command in ("info - <&-", "list five >&-", "cat - <five >&-"):
            done = subprocess.run(["bash", "-c", f'"$CHUNKFILE" {command}'], cwd=self.folder, capture_output=True, check=False)
            self.assertEqual((done.returncode, done.stdout), (1, b""), command)
            self.assertRegex(done.stderr, b"^chunkfile: standard (input|output): Bad file descriptor\n$", command)

    def test_version_and_help_end_with_0(self):
        self.assertRegex(self.out("--version"), r"^chunkfile \d+\.\d+\.\d+ \(reference platform\)\n$")
        self.assertIn("Commands:", self.out("--help"))
        for command in ("info", "list", "cat", "check", "recover", "copy", "attr"):
            self.assertEqual(self.out(command, "--version"), self.out("--version"))
            self.assertIn(f"Examples:\n  chunkfile {command} ", self.out(command, "--help"))

    def test_help_fits_a_terminal(self):
        for command in ((), ("info",), ("list",), ("cat",), ("check",), ("recover",), ("copy",), ("attr",)):
            for line in self.out(*command, "--help").splitlines():
                self.assertLessEqual(len(line), 100, line)


class WithoutGlue(ProgramTest):
    """A tool whose platform declines everything."""
    program = os.environ["CHUNKFILE_MINIMAL"]

    def setUp(self):
        super().setUp()
        self.records = [minimal_record(i, b"text %d" % i) for i in range(3)]
        self.chunks("file", self.records)

    def test_list_prints_times_as_the_platform_does(self):
        lines = [line.split() for line in self.out("list", "file").splitlines()]
        self.assertEqual([line[:3] for line in lines[1:]], [["0", "16", "30"], ["1", "46", "30"], ["2", "76", "30"]])
        self.assertEqual([line[3:] for line in lines[1:]], [["tick", "0"], ["tick", "1"], ["tick", "2"]])

    def test_list_json_has_no_fields(self):
        line = json.loads(self.out("list", "--format", "json", "--limit", "1", "file"))
        self.assertEqual((line["index"], line["size"], "fields" in line), (0, 30, False))

    def test_raw_gives_the_records(self):
        self.assertEqual(self.run_tool("cat", "--format", "raw", "file")[0], b"".join(self.records))

    def test_fields_are_not_shown(self):
        self.assertIn("--format raw", self.error("cat", "file", code=1))

    def test_times_cannot_be_chosen(self):
        for time in ("+1s", "@0"):
            self.assertIn("--from and --to need", self.error("list", "--from", time, "file", code=2).splitlines()[-1])

    def test_damage_is_damage(self):
        self.chunks("file", [self.records[0], b"\xff" * 30, self.records[2]])
        out, err = self.run_tool("cat", "--scan", "--format", "raw", "file", code=3)
        self.assertEqual(out, self.records[0] + self.records[2])
        self.assertEqual(err, b"chunkfile: file: byte 46 (record 1): not a good record\n")

    def test_version_names_no_platform(self):
        self.assertRegex(self.out("--version"), r"^chunkfile \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
