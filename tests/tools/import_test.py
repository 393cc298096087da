"""chunkfile import: every option, every exit code, through the real program; and what is written comes out again."""
import base64
import json
import os
import random
import resource
import signal
import subprocess
import time
import unittest

from chunk_writer import record
from program import BEGIN, SECOND, ProgramTest, time_text

ROWS = '{"time":"%s","i":0}\n{"time":"%s","i":1}\n' % (time_text(BEGIN), time_text(BEGIN + SECOND))


class ImportTest(ProgramTest):
    def imported(self, rows, *options, code=0, note=None):
        """Imports the rows, as text or bytes, and returns what cat prints. `note` is what stderr says."""
        data = rows.encode() if isinstance(rows, str) else rows
        err = self.run_tool("import", "--force", "-o", "out", *options, stdin=data, code=code)[1].decode()
        if note is not None:
            self.assertEqual(err.replace("chunkfile: standard input: ", ""), note)
        return [json.loads(line) for line in self.out("cat", "--strings", "out").splitlines()]

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def fields(self, rows, *options, **keywords):
        return [row["fields"] for row in self.imported(rows, *options, **keywords)]

    def value(self, text):
        """What becomes of one value of JSON."""
        fields, = self.fields('{"time":"2027-01-15","a":%s}\n' % text, "--drop-time", "--time", "time")
        return fields["a"]

    def time(self, text, *options):
        line, = self.imported(json.dumps({"time": text}) if isinstance(text, str) else '{"time":%s}' % text[0], *options)
        return line["time"].replace("000000000Z", "Z").replace(".Z", "Z")

    def refused(self, rows, *options, code=1):
        """The error, without the name of the input; nothing may be written."""
        data = rows.encode() if isinstance(rows, str) else rows
        before = sorted(os.listdir(self.folder))
        err = self.run_tool("import", "-o", "refused", *options, stdin=data, code=code)[1].decode()
        self.assertEqual(sorted(os.listdir(self.folder)), before)
        return err.replace("chunkfile: ", "").replace("standard input: ", "").rstrip("\n")


class Ndjson(ImportTest):
    def test_members_become_fields(self):
        self.assertEqual(self.fields(ROWS, note="NDJSON; times: RFC 3339\n"),
                         [{"i": "0", "time": time_text(BEGIN)}, {"i": "1", "time": time_text(BEGIN + SECOND)}])

    def test_numbers_stay_the_text_that_they_were(self):
        for text in ("1.50", "-0", "1E+05", "123456789012345678901234567890", "0.1000000000000000055511151231257827"):
            self.assertEqual(self.value(text), text)

    def test_strings_become_their_bytes(self):
        for text in ("", "text", "\u00e9\U0001f600", "\n\t\"\\/", "\x00\x1f\x7f\x85", "12", '{"a":1}'):
            self.assertEqual(self.value(json.dumps(text)), text)
            self.assertEqual(self.value(json.dumps(text, ensure_ascii=False)), text)

    def test_other_values_become_compact_json(self):
        for text, value in (("null", "null"), (" true ", "true"), ("{ }", "{}"), ('[ 1 , "a  b\\n" ,\t{"x" : []}]',
                            '[1,"a  b\\n",{"x":[]}]'), ('["\x7f\u0085"]', '["\x7f\u0085"]'),
                            ("[" * 64 + "]" * 64, "[" * 64 + "]" * 64)):
            self.assertEqual(self.value(text), value)

    def test_base64_becomes_its_bytes(self):
        for data in (b"", b"\x00", b"\xff\xfe", b"abc", os.urandom(1000)):
            text = base64.b64encode(data).decode()
            value = self.value('{"base64":"%s"}' % text)
            self.assertEqual(value.encode() if isinstance(value, str) else base64.b64decode(value["base64"]), data)
        for other in ('{"base64":"/x="}', '{"base64":"QR=="}', '{"base64":"QQ="}', '{"base64":"Q Q="}', '{"base64":1}',
                      '{"base64":"","a":1}'):
            self.assertEqual(json.loads(self.value(other)), json.loads(other))

    def test_names_in_base64_are_decoded(self):
        self.imported('{"time":"2027-01-15","base64:/w==":1,"base64:@":2}\n')
        self.assertIn("base64:/w==", self.imported('{"time":"2027-01-15","base64:/w==":1}\n')[0]["fields"])
        out = self.out("list", "--format", "json", "out")
        self.assertIn('"base64:/w=="', out)

    def test_lines_of_cat_are_taken_back(self):
        fields = {b"a": b"1.50", b"b": b"\xff", b"c": b'{"base64":"/w=="}', b"\xfe": b"x", b"base64:": b"", b"t": b"[1,2]"}
        self.chunks("in", [record(BEGIN + i, {**fields, b"i": b"%d" % i}) for i in range(3)], version=2)
        for options in ((), ("--strings",)):
            self.imported(self.run_tool("cat", *options, "in")[0])
            self.assertEqual(self.read("out"), self.read("in"))

    def test_lines_of_cat_are_rows_if_a_time_is_named(self):
        line = '{"time":"2027-01-15T08:00:00Z","fields":{"at":5}}\n'
        self.assertEqual(self.imported(line)[0]["fields"], {"at": "5"})
        self.assertEqual(self.imported(line, "--time", "/fields/at", "--time-unit", "s")[0],
                         {"time": "1970-01-01T00:00:05.000000000Z",
                          "fields": {"time": "2027-01-15T08:00:00Z", "fields": '{"at":5}'}})

    def test_the_first_row_decides_whether_lines_are_those_of_cat(self):
        cat = '{"time":"2027-01-15","fields":{}}\n'
        self.assertEqual(self.refused(cat + ROWS), "line 2, column 1: not a line of cat, as the first row is")
        self.assertEqual(len(self.imported(ROWS + cat)), 3)

    def test_spaces_blank_lines_and_carriage_returns_are_allowed(self):
        rows = "\ufeff\n  \r\n" + ROWS.replace("{", " { ").replace("\n", " \r\n\n") + '{"time":"2027-01-16"}'
        self.assertEqual(len(self.imported(rows)), 3)

    def test_empty_input_makes_an_empty_file(self):
        self.assertEqual(self.imported("", note=""), [])
        self.assertEqual(len(self.read("out")), 16)

    def test_what_does_not_parse_is_named_by_line_and_column(self):
        for line, column, reason in (
                ("{", 2, "the JSON ends too early"), ('{"a":1', 7, "the JSON ends too early"),
                ('{"a":tru}', 6, "not JSON"), ('{"a":1,}', 8, "not JSON"), ('{"a":01}', 7, "not JSON"),
                ('{"a":1}}', 8, "not JSON"), ('{"a":1} {}', 9, "not JSON"), ('{"a" 1}', 6, "not JSON"),
                ('{"a":[1}}', 8, "not JSON"), ('{"a":"\\x"}', 7, "not JSON"), ('{"a":"\t"}', 7, "not JSON"),
                ('{"a":"\\ud800"}', 13, "not JSON"), ('{"a":"\\ud800"b"}', 13, "not JSON"), ('{a:1}', 2, "not JSON"), ("NaN", 1, "not JSON"),
                ('{"a":{"b":[1,2,{]}}', 17, "not JSON"), ('{"a":"b', 8, "the JSON ends too early"),
                ('{"a":"b":[1,{"c" 2],"d":3}', 9, "not JSON"),
                ("[1]", 1, "a row is an object"), (' "a"', 2, "a row is an object"),
                ('{"a":%s1%s}' % ("[" * 65, "]" * 65), 70, "too many levels of JSON")):
            self.assertEqual(self.refused(ROWS + line + "\n", "--format", "ndjson"), f"line 3, column {column}: {reason}", line)
        self.assertEqual(self.refused(b'{"a":"\xff"}\n'), "line 1, column 7: not UTF-8")
        self.assertEqual(self.refused(b'{"a":"\xc3'), "line 1, column 7: not UTF-8")
        self.assertEqual(self.refused(b'\x00\n', "--format", "ndjson"), "line 1, column 1: not JSON")

    def test_a_name_may_not_come_twice(self):
        self.assertEqual(self.refused('{"time":"2027-01-15", "a":1,"b":2,"a":3}'),
                         "line 1, column 35: a second field of the name a")
        self.assertEqual(self.refused('{"a":1,"\\u0061":3}'), "line 1, column 8: a second field of the name a")
        self.assertEqual(self.refused('{"\u00ff":1,"base64:w78=":3}'), "line 1, column 9: a second field of the name \u00ff")
        many = ",".join('"%d":1' % i for i in range(1000))
        self.assertTrue(self.refused('{%s,"7":2}' % many).endswith("a second field of the name 7"))

    def test_an_empty_name_is_one_too(self):
        row = '{"time":"2027-01-15","a":1,"":2}\n'
        self.assertEqual(self.fields(row, "--drop-time"), [{"a": "1", "": "2"}])
        self.assertEqual(self.refused(row + '{"a":1,"":2,"":3}\n', "--drop-time"),
                         "line 2, column 13: a second field of the name ")

    def test_rows_may_change_their_members(self):
        rows = [{"time": time_text(BEGIN + i), **{str(n): n for n in names}}
                for i, names in enumerate(([1, 2, 3], [1, 2], [], [3, 2, 1], range(40), [5], range(39, 0, -1), [1, 2, 3]))]
        text = "".join(json.dumps(row) + "\n" for row in rows)
        expected = [{name: str(value) for name, value in row.items()} for row in rows]
        self.assertEqual(self.fields(text), expected)
        for row in expected:
            del row["time"]
        self.assertEqual(self.fields(text, "--drop-time"), expected)
        self.assertIn("a second field", self.refused(text.replace('"3": 3, "2": 2,', '"3": 3, "3": 2,')))


class Json(ImportTest):
    def test_an_array_of_objects_is_read(self):
        rows = "[" + ",".join(ROWS.splitlines()) + "]"
        self.assertEqual([row["i"] for row in self.fields(rows, note="JSON; times: RFC 3339\n")], ["0", "1"])
        self.assertEqual(len(self.imported(json.dumps(json.loads(rows), indent=4))), 2)
        self.assertEqual(self.imported(" [ ] "), [])

    def test_rows_names_an_array_in_a_document(self):
        rows = [json.loads(line) for line in ROWS.splitlines()]
        for document, pointer in (({"rows": rows}, "/rows"), ({"a": [1, {"b/~c": rows, "z": 0}]}, "/a/1/b~1~0c"),
                                  ({"": {"\u00e9": rows}, "x": {"\u00e9": 1}}, "//\u00e9"), ([[], rows], "/1"), (rows, "")):
            for indent in (None, 2):
                text = json.dumps(document, indent=indent)
                self.assertEqual([row["i"] for row in self.fields(text, "--rows", pointer)], ["0", "1"])

    def test_a_pointer_that_leads_nowhere_is_refused(self):
        for document, pointer in (('{"a":1}', "/b"), ('{"a":1}', "/a"), ("[1,2]", "/2"), ("[]", "/0"), ("{}", "/a/b"),
                                  ('{"a"', "/a/b"), ("1", "/a"), ("", "/a")):
            self.assertRegex(self.refused(document, "--rows", pointer), r"^line 1, column \d+: --rows names no array$")
        self.assertEqual(self.refused(ROWS, "--rows", "rows", code=2), "--rows: rows is no JSON pointer")
        self.assertEqual(self.refused(ROWS, "--rows", "/a~2", code=2), "--rows: /a~2 is no JSON pointer")
        self.assertEqual(self.refused(ROWS, "--rows", "/a", "--format", "csv", code=2),
                         "--rows has a meaning for --format json only")

    def test_a_document_that_is_no_array_is_refused(self):
        self.assertEqual(self.refused('{\n "a": []\n}'),
                         "line 1, column 1: the document is no array; --rows names one in it")

    def test_the_line_and_column_are_those_of_the_document(self):
        for document, place in (('[\n{"time":"2027-01-15"},\n {"a":1,}]', "line 3, column 9: not JSON"),
                                ("[1]", "line 1, column 2: a row is an object"),
                                ('[{"time":"2027-01-15"},]', "line 1, column 24: not JSON"),
                                ('[{"time":"2027-01-15"}', "line 1, column 23: the JSON ends too early"),
                                ('[{"time":"2027-01-15"}\n,{"a', "line 2, column 5: the JSON ends too early"),
                                ('[{"time":"2027-01-15"}\nx]',
                                 "line 2, column 1: not JSON; the rest of the document is not read"),
                                ('[{"time":"2027-01-15"}]\n x', "line 2, column 2: not JSON")):
            self.assertEqual(self.refused(document), place)
        self.assertEqual(self.refused('{"a":[{"time":"2027-01-15"}],\n"b":tru}', "--rows", "/a"),
                         "line 2, column 5: not JSON")
        self.assertEqual(self.refused('{"x":01,"a":[{"time":"2027-01-15"}]}', "--rows", "/a"),
                         "line 1, column 7: not JSON")

    def test_bad_rows_do_not_hide_the_others(self):
        rows = '[{"time":1},{"time":tru},{"a":[]],{"time":"\\x"},7,,{"time":2},\n{"time":3'
        self.assertEqual(len(self.imported(rows, "--time-unit", "s", "--skip-bad", code=3)), 2)

    def test_cat_lines_in_an_array_are_taken_back(self):
        lines = self.out("cat", self.five()).splitlines()
        self.imported("[" + ",\n".join(lines) + "]")
        self.assertEqual(self.out("cat", "out"), self.out("cat", "five"))


class Csv(ImportTest):
    def rows(self, text, *options, **keywords):
        return self.fields(text, "--drop-time", *options, **keywords)

    def test_columns_become_fields(self):
        self.assertEqual(self.rows("time,a,b\n2027-01-15,1,x y\n2027-01-16,,\u00e9\n",
                                   note="CSV; times: ISO 8601, date only, no offset: taken as UTC\n"),
                         [{"a": "1", "b": "x y"}, {"a": "", "b": "\u00e9"}])

    def test_quotes_line_ends_and_the_mark_are_read(self):
        for end in ("\n", "\r\n"):
            text = end.join(["\ufefftime,\"a,\"\"b\"", '2027-01-15,"x\r\ny\n""z"""', '"2027-01-16",""', "2027-01-17,' \t"])
            for last in ("", end):
                self.assertEqual([row['a,"b'] for row in self.rows(text + last)], ['x\r\ny\n"z"', "", "' \t"])

    def test_one_byte_order_mark_is_none_of_the_text(self):
        self.assertEqual(self.fields("\ufeff\ufeffa\nx\n", "--time", "now"), [{"\ufeffa": "x"}])
        self.assertEqual(self.refused("\ufeff \ufeff{}\n", "--format", "ndjson"), "line 1, column 2: not JSON")

    def test_values_may_be_any_bytes(self):
        self.imported(b"time,a\xff\n2027-01-15,\xff\x00\xfe\n")
        self.assertIn('"base64:Yf8=":{"base64":"/wD+"}', self.out("cat", "out"))

    def test_base64_is_what_cat_writes(self):
        self.assertEqual(self.rows("time,base64:YQ==,b\n2027-01-15,base64:Yg==,base64:x\n"), [{"a": "b", "b": "base64:x"}])
        fields = {b"\xff": b"\xfe", b"base64:": b"base64:Yg==", b"a": b'x,"\r\n'}
        self.chunks("in", [record(BEGIN, fields), record(BEGIN + 1, fields)], version=2)
        self.imported(self.run_tool("cat", "--format", "csv", "in")[0], "--drop-time")
        self.assertEqual(self.read("out"), self.read("in"))

    def test_what_does_not_parse_is_named_by_line_and_column(self):
        begin = 'time,"a\nb"\n2027-01-15,"\n\n"\n'
        for rest, place, reason in (
                ("2027-01-16", "line 6, column 11", "1 column instead of 2"), ("\n", "line 6, column 1", "1 column instead of 2"),
                ("2027-01-16,1,2\n", "line 6, column 14", "more than 2 columns"),
                ('2027-01-16,"\n"x\n', "line 7, column 2", "text after a closed quote"),
                ('2027-01-16,a"b"\n', "line 6, column 13", "a quote in a value that does not begin with one"),
                ('2027-01-16,"a\n\nb', "line 6, column 12", "this quote is not closed"),
                ("2027-01-16,a\rb\n", "line 6, column 13", "a carriage return without line feed"),
                ("2027-01-16,a\r", "line 6, column 13", "a carriage return without line feed")):
            self.assertEqual(self.refused(begin + rest), f"{place}: {reason}", rest)

    def test_names_are_needed_and_differ(self):
        self.assertEqual(self.refused("", "--format", "csv"), "line 1, column 1: no line of names")
        self.assertEqual(self.refused("time,b,,b,a\n"), "line 1, column 9: a second column of the name b")
        self.assertEqual(self.refused("time,,a,\n", "--skip-bad"), "line 1, column 9: a second column of the name ")
        self.assertEqual(self.rows("time,a\n"), [])

    def test_other_separators_get_a_hint(self):
        hint = "; commas separate columns, not semicolons or tabs"
        for text, error in (("time;a\n2027-01-15;1\n", "column 1: there is no field time"),
                            ("time\ta\n2027-01-15\t1,5\n", "column 14: more than 1 column")):
            self.assertEqual(self.refused(text), f"line 2, {error}{hint}")
        self.assertEqual(self.refused("a\n1\n"),
                         "line 2, column 1: there is no field time; --time names the one that holds the time")
        self.assertEqual(self.rows("time;a\n2027-01-15\n", "--time", "time;a"), [{}])

    def test_one_column_may_be_empty(self):
        self.assertEqual(self.fields("a\n\nx\n", "--time", "now"), [{"a": ""}, {"a": "x"}])

    def test_bad_rows_do_not_hide_the_others(self):
        text = 'time,a\n2027-01-15,1\nbad\n2027-01-16,"x"y"\n2027-01-17,2\n2027-01-18,1,2\n\n2027-01-19,3\n2027-01-20,"open\n'
        self.assertEqual([row["a"] for row in self.rows(text, "--skip-bad", code=3)], ["1", "2", "3"])


class Times(ImportTest):
    def test_common_forms_are_read(self):
        for text in ("2027-01-15T08:00:00Z", "2027-01-15 08:00", "2027-01-15T08:00:00,0", "2027-01-15 09:00:00 +0100",
                     "2027-01-15T09:00:00+01", "@1800000000"):
            self.assertEqual(self.time(text), "2027-01-15T08:00:00Z")

    def test_forms_are_reported(self):
        for text, forms in (("2027-01-15T08:00:00Z", "RFC 3339"), ("@5", "RFC 3339"),
                            ("2027-01-15T08:00:00", "ISO 8601, no offset: taken as UTC"),
                            ("2027-01-15 08:00:00,5+0100", "ISO 8601, comma, offset such as +0100"),
                            ("2027-01-15 08:00Z", "ISO 8601, no seconds")):
            self.imported(json.dumps({"time": text}), note=f"NDJSON; times: {forms}\n")
        self.imported('{"time":1}\n{"time":"2027-01-15"}', "--time-unit", "us",
                      note="NDJSON; times: numbers of us and ISO 8601, date only, no offset: taken as UTC\n")
        self.imported(ROWS, "-q", note="")

    def test_numbers_need_a_unit(self):
        for unit, number in (("s", "1800000000"), ("ms", "1800000000000.0"), ("us", "1.8e15"), ("ns", "1800000000000000000")):
            self.assertEqual(self.time([number], "--time-unit", unit), "2027-01-15T08:00:00Z")
            self.assertEqual(self.time(number, "--time-unit", unit), "2027-01-15T08:00:00Z")
        self.assertEqual(self.time(["0.000000001"], "--time-unit", "s"), "1970-01-01T00:00:00.000000001Z")
        self.assertEqual(self.refused('{"time":5}'), "line 1, column 1: 5 is a number: --time-unit says of what")

    def test_what_is_no_time_is_refused(self):
        for value, text in (("1.5", "1.5"), ("1e40", "1e40"), ('"noon"', "noon"), ("null", "null"), ("{}", "{}"),
                            ('"%s"' % ("x" * 50), "x" * 40 + "...")):
            self.assertEqual(self.refused('{"time":%s}' % value, "--time-unit", "ns"), f"line 1, column 1: no time: {text}")
        self.assertEqual(self.refused('{"date":1}'),
                         "line 1, column 1: there is no field time; --time names the one that holds the time")

    def test_the_field_can_be_named(self):
        self.assertEqual(self.imported('{"at":"2027-01-15T08:00:00Z"}', "--time", "at")[0]["time"], time_text(BEGIN))
        self.assertEqual(self.imported("at\n2027-01-15T08:00:00Z\n", "--time", "/at")[0]["time"], time_text(BEGIN))
        row = '{"a":{"b":[0,{"\u00e9":"2027-01-15T08:00:00Z","x":1800000000.5}]}}'
        self.assertEqual(self.imported(row, "--time", "/a/b/1/\u00e9")[0]["time"], time_text(BEGIN))
        self.assertEqual(self.imported(row, "--time", "/a/b/1/x", "--time-unit", "s")[0]["time"],
                         time_text(BEGIN + SECOND // 2))
        for pointer in ("/a/b/2", "/a/c", "/a/b/1/x/y"):
            self.assertEqual(self.refused(row, "--time", pointer), "line 1, column 1: --time leads to no value")

    def test_now_is_the_time_of_the_import(self):
        before = time.time_ns()
        lines = self.imported('{"a":1}\n' * 1000, "--time", "now", note="NDJSON; times: the time of the import\n")
        times = [line["time"] for line in lines]
        self.assertEqual(sorted(set(times)), times)
        self.assertLess(before, time.time_ns())
        self.assertTrue(times[0].startswith(time.strftime("%Y-%m-%dT%H:", time.gmtime(before / SECOND)))
                        or times[-1].startswith(time.strftime("%Y-%m-%dT%H:", time.gmtime())))

    def test_options_that_do_not_go_together_are_wrong_usage(self):
        self.assertEqual(self.refused(ROWS, "--time", "/a/b", "--drop-time", code=2),
                         "--drop-time needs a time that is a field of its own")
        self.assertEqual(self.refused(ROWS, "--time", "/~", code=2), "--time: /~ is no JSON pointer")
        for option in (("--drop-time",), ("--time-unit", "s")):
            self.assertEqual(self.refused(ROWS, "--time", "now", *option, code=2),
                             "--drop-time and --time-unit have no meaning with --time now")
        self.assertIn("--time-unit: h is none of s|ms|us|ns", self.refused(ROWS, "--time-unit", "h", code=2))


class Bad(ImportTest):
    ROWS = '{"time":1,"i":0}\n{"time":}\n{"time":2,"i":1}\n{"i":7}\n'

    def test_the_first_bad_row_ends_it_and_nothing_is_written(self):
        self.assertEqual(self.refused(self.ROWS, "--time-unit", "s"), "line 2, column 9: not JSON")
        self.write("rows", self.ROWS.encode())
        self.assertEqual(self.error("import", "rows", "-o", "out", "--time-unit", "s", code=1),
                         "rows: line 2, column 9: not JSON")

    def test_skip_bad_leaves_them_out_and_counts_them(self):
        rows = self.fields(self.ROWS, "--time-unit", "s", "--skip-bad", code=3, note=
                           "line 2, column 9: not JSON\n"
                           "line 4, column 1: there is no field time; --time names the one that holds the time\n"
                           "NDJSON; times: numbers of s\n2 bad rows are left out\n")
        self.assertEqual([row["i"] for row in rows], ["0", "1"])
        self.assertEqual(len(self.imported(ROWS, "--skip-bad", note="NDJSON; times: RFC 3339\n")), 2)

    def test_ten_bad_rows_are_named_or_all(self):
        rows = "{\n" * 20
        for options, lines in (((), 11), (("-v",), 21)):
            err = self.run_tool("import", "-o", "out", "--force", "--skip-bad", *options, "--format", "ndjson",
                                stdin=rows.encode(), code=3)[1].decode()
            self.assertEqual(err.count("standard input: "), lines, err)
            self.assertIn("20 bad rows are left out\n", err)


class Output(ImportTest):
    def series(self, number, step=SECOND):
        return "".join('{"time":%d,"i":%d}\n' % (BEGIN + i * step, i) for i in range(number))

    def write_out(self, *options, code=0, stdin=None):
        out, err = self.run_tool("import", "-o", "out.chunks", "--time-unit", "ns", *options,
                                 stdin=(stdin or self.series(10)).encode(), code=code)
        return out.decode(), err.decode().replace("chunkfile: ", "")

    def numbers(self, name):
        return [json.loads(line)["fields"]["i"] for line in self.out("cat", name).splitlines()]

    def test_a_file_that_exists_stays_without_force(self):
        self.write("out.chunks", b"old")
        self.assertIn("out.chunks", self.write_out(code=1)[1])
        self.assertEqual(self.read("out.chunks"), b"old")
        self.write_out("--force")
        self.assertEqual(self.numbers("out.chunks"), list(range(10)))

    def test_the_source_is_never_written(self):
        self.write("rows", ROWS.encode())
        os.symlink("rows", self.path("link"))
        os.link(self.path("rows"), self.path("hard"))
        for name in ("rows", "link", "hard", "./rows"):
            self.error("import", "rows", "-o", name, "--force", code=1)
        for source in ([], ["-"], ["/proc/self/fd/0"]):
            with open(self.path("rows"), "rb") as rows:
                done = subprocess.run([self.program, "import", *source, "-o", "rows", "--force"], stdin=rows,
                                      cwd=self.folder, capture_output=True, check=False)
            self.assertEqual(done.returncode, 1, source)
        self.assertEqual(self.read("rows"), ROWS.encode())

    def test_dry_run_writes_nothing(self):
        self.assertEqual(self.write_out("--dry-run")[0], "out.chunks: 10 records, 986 bytes, not written\n")
        self.assertEqual(os.listdir(self.folder), [])
        self.assertIn("line 11", self.write_out("--dry-run", stdin=self.series(10) + "{}\n", code=1)[1])

    def test_max_size_is_the_size_of_the_file(self):
        self.write_out("--max-size", "10000")
        self.assertEqual(len(self.read("out.chunks")), 10000)
        self.assertEqual(self.numbers("out.chunks"), list(range(10)))

    def test_what_does_not_fit_stops_it_with_a_count(self):
        err = self.write_out("--max-size", "500", code=1)[1]
        self.assertIn("standard input: line 5: a record of 97 bytes does not fit into a file of at most 500 bytes that has "
                      "4 records", err)
        self.assertEqual(os.listdir(self.folder), [])

    def test_split_goes_on_in_the_next_part(self):
        self.write_out("--max-size", "500", "--split", "1MiB")
        parts = [self.numbers(f"out.{part:04}.chunks") for part in (1, 2, 3)]
        self.assertEqual(parts, [[0, 1, 2, 3], [4, 5, 6, 7], [8, 9]])
        self.assertEqual([len(self.read(f"out.{part:04}.chunks")) for part in (1, 2, 3)], [500] * 3)

    def test_split_by_time(self):
        self.write_out("--split", "3s")
        self.assertEqual([self.numbers(f"out.{part:04}.chunks") for part in (1, 2, 3, 4)],
                         [[0, 1, 2], [3, 4, 5], [6, 7, 8], [9]])

    def test_finished_parts_stay(self):
        self.write_out("--split", "500B", stdin=self.series(6) + "bad\n", code=1)
        self.assertEqual(os.listdir(self.folder), ["out.0001.chunks"])
        self.assertEqual(self.numbers("out.0001.chunks"), [0, 1, 2, 3])

    def test_equal_times_stop_are_left_out_or_shifted(self):
        rows = self.series(6, step=0) + self.series(2)
        self.assertIn("standard input: line 2: an earlier record has the same time", self.write_out(stdin=rows, code=1)[1])
        out, _ = self.write_out("--on-equal-time", "skip", stdin=rows, code=3)
        self.assertIn("out.chunks: 6 records left out: an earlier one has the same time\n", out)
        self.assertEqual(self.numbers("out.chunks"), [0, 1])
        out, _ = self.write_out("--on-equal-time", "shift", "--force", stdin=rows)
        self.assertIn("out.chunks: 6 records shifted to a later time: an earlier one has the same\n", out)
        lines = [json.loads(line) for line in self.out("cat", "out.chunks").splitlines()]
        self.assertEqual([line["fields"]["i"] for line in lines], [0, 1, 2, 3, 4, 5, 0, 1])
        self.assertEqual([line["time"] for line in lines],
                         [time_text(BEGIN + i) for i in range(7)] + [time_text(BEGIN + SECOND)])

    def test_skipped_and_shifted_rows_are_proved_in_every_part(self):
        rows = "".join(self.series(5) for _ in range(3))
        for choice, records in (("skip", 5), ("shift", 15)):
            self.write_out("--on-equal-time", choice, "--split", "200B", "--force", stdin=rows, code=3 if choice == "skip" else 0)
            names = sorted(name for name in os.listdir(self.folder))
            self.assertEqual(sum(len(self.numbers(name)) for name in names), records)
            for name in names:
                os.remove(self.path(name))

    def test_late_times_keep_their_place(self):
        self.imported("".join('{"time":%d}\n' % t for t in (5, 1, 3)), "--time-unit", "s")
        times = [json.loads(line)["time"][17:19] for line in self.out("cat", "out").splitlines()]
        self.assertEqual(times, ["05", "01", "03"])

    def test_a_full_disk_leaves_nothing(self):
        rows = self.series(1000).encode()

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))
        done = subprocess.run([self.program, "import", "--time-unit", "ns", "-o", "out"], input=rows, cwd=self.folder,
                              capture_output=True, check=False, preexec_fn=limit, restore_signals=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.decode(), "^chunkfile: out: write: (short write: 5000 of|File too large)")
        self.assertEqual(os.listdir(self.folder), [])

    def test_files_that_cannot_be_read_are_named(self):
        self.assertEqual(self.error("import", "nowhere", "-o", "out", code=1), "nowhere: No such file or directory")
        self.assertEqual(self.error("import", ".", "-o", "out", code=1), ".: Is a directory")
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_fifo_and_files_of_proc_are_read(self):
        os.mkfifo(self.path("fifo"))
        process = subprocess.Popen([self.program, "import", "fifo", "-o", "out"], cwd=self.folder, stderr=subprocess.PIPE)
        with open(self.path("fifo"), "w", encoding="utf-8") as fifo:
            fifo.write(ROWS)
        self.assertEqual(process.communicate()[1], b"chunkfile: fifo: NDJSON; times: RFC 3339\n")
        self.run_tool("import", "/proc/self/cmdline", "--format", "csv", "--time", "now", "-o", "proc")

    def test_the_platform_must_make_chunks(self):
        err = self.error("import", "-o", "out", stdin=ROWS.encode(), code=2, program=os.environ["CHUNKFILE_MINIMAL"])
        self.assertEqual(err, "import needs a platform that makes chunks of times and fields, and shows them")
        self.assertEqual(os.listdir(self.folder), [])


class Interrupt(ImportTest):
    def interrupted(self, data, *options, signals=1, source="-"):
        """What a run leaves and says that waits for more input after `data`: (returncode, stderr)."""
        process = subprocess.Popen([self.program, "import", source, "-o", "out", *options], cwd=self.folder,
                                   stdin=subprocess.PIPE, stderr=subprocess.PIPE, stdout=subprocess.DEVNULL)
        process.stdin.write(data.encode())
        process.stdin.flush()
        self.wait_for_poll(process)
        for _ in range(signals):
            process.send_signal(signal.SIGINT)
        code = process.wait(timeout=60)
        err = process.stderr.read().decode().replace("chunkfile: ", "").replace("standard input: ", "")
        process.stdin.close()
        process.stderr.close()
        return code, err

    def records(self):
        return len(self.out("cat", "out").splitlines())

    def test_it_ends_standard_input_and_writes_what_there_is(self):
        for rows, note in ((ROWS, "NDJSON; times: RFC 3339\n"),
                           ("[" + ROWS.replace("\n", ","), "JSON; times: RFC 3339\n"),
                           ("time\n2027-01-15\n2027-01-16\n", "CSV; times: ISO 8601, date only, no offset: taken as UTC\n")):
            code, err = self.interrupted(rows, "--force")
            self.assertEqual((code, err), (0, "out: interrupted: the input ends here\n" + note))
            self.assertEqual(self.records(), 2)

    def test_a_row_that_was_cut_is_left_out(self):
        for rows in (ROWS + '{"time":"2027-01-16"}', "[" + ROWS.replace("\n", ",") + '{"time":"2027-01-16"',
                     "time\n2027-01-15\n2027-01-16\n2027-01-17", 'time\n2027-01-15\n2027-01-16\n"2027-01-17\n'):
            code, err = self.interrupted(rows, "--force")
            self.assertEqual(code, 3)
            self.assertIn("out: interrupted: the input ends here\n", err)
            self.assertIn("the last row was not whole and is left out\n", err)
            self.assertEqual(self.records(), 2)

    def test_before_the_first_row_it_writes_nothing(self):
        self.write("out", b"old")
        for rows in ("", "time\n", "[", '{"time":'):
            code, err = self.interrupted(rows, "--force")
            self.assertEqual((code, err), (-signal.SIGINT, "out: interrupted; 0 files were written\n"))
            self.assertEqual((os.listdir(self.folder), self.read("out")), (["out"], b"old"))

    def test_of_a_file_it_writes_nothing(self):
        os.mkfifo(self.path("fifo"))
        with open(self.path("fifo"), "r+b", buffering=0) as fifo:
            fifo.write(ROWS.encode())
            code, err = self.interrupted("", source="fifo")
        self.assertEqual(code, -signal.SIGINT)
        self.assertIn("interrupted", err)
        self.assertEqual(os.listdir(self.folder), ["fifo"])


class Hostile(ImportTest):
    def test_deep_nesting_is_a_bad_row(self):
        for number in (66, 1000, 1_000_000):
            rows = ROWS + '{"time":"2027-01-16","a":' + "[" * number + "]" * number + "}\n"
            self.assertEqual(self.refused(rows), "line 3, column 90: too many levels of JSON")
            self.assertEqual(len(self.imported(rows, "--skip-bad", code=3)), 2)
            self.assertIn("column", self.refused("[" * number))
            self.assertIn("column", self.refused('{"a":' * number, "--format", "ndjson"))

    def test_long_lines_are_rows(self):
        for rows, size in (('{"time":"2027-01-15","a":"%s"}', 100_000_000), ('time,a\n2027-01-15,"%s"\n', 3_000_000),
                           ('time,a\n2027-01-15,%s\n', 3_000_000), ('[{"time":"2027-01-15","a":"%s"}]', 3_000_000)):
            self.run_tool("import", "--drop-time", "--force", "-o", "out", stdin=(rows % ("x" * size)).encode())
            self.assertEqual(len(self.read("out")), 16 + 40 + 17 + size)

    @unittest.skipUnless("MEMORY" in os.environ, "sanitizers take memory of their own")
    def test_rows_that_memory_does_not_suffice_for_are_not_bad(self):
        self.write("rows", (ROWS + '{"time":"2027-01-16","a":"%s"}\n' % ("x\\n" * 15_000_000)).encode())
        codes = set()
        for mebibytes in range(32, 512, 32):
            def limit(size=mebibytes << 20):
                resource.setrlimit(resource.RLIMIT_AS, (size, size))
            done = subprocess.run([self.program, "import", "rows", "--skip-bad", "-o", "out", "--force"], cwd=self.folder,
                                  capture_output=True, check=False, preexec_fn=limit)
            codes.add(done.returncode)
            if done.returncode == 1:
                self.assertEqual(done.stderr, b"chunkfile: out of memory\n")
                self.assertEqual(os.listdir(self.folder), ["rows"])
            elif done.returncode == 0:
                self.assertEqual(len(self.out("list", "out").splitlines()), 4)
                os.remove(self.path("out"))
        self.assertTrue({0, 1} <= codes <= {0, 1, 127}, codes)  # 127: the program does not even start

    def test_many_names_and_columns(self):
        names = [f"n{i}" for i in range(100_000)]
        row = {"time": "2027-01-15", **{name: "" for name in names}}
        self.assertEqual(len(self.imported(json.dumps(row), "--drop-time")[0]["fields"]), len(names))
        text = ",".join(["time", *names]) + "\n2027-01-15" + "," * len(names) + "\n"
        self.assertEqual(len(self.imported(text, "--drop-time")[0]["fields"]), len(names))
        self.assertEqual(self.refused("a,b\n" + "," * 1_000_000 + "\n"), "line 2, column 3: more than 2 columns")
        self.assertEqual(self.refused("," * 2_000_000 + "\n"), "line 1, column 1000001: more than 1000000 columns")

    def test_random_bytes_do_no_harm(self):
        random.seed(1)
        alphabet = ['"', ",", "\n", "\r", "{", "}", "[", "]", ":", "\\", "time", "2027-01-15", "\0", "\xff", "1", " "]
        for i in range(300):
            text = "".join(random.choices(alphabet, k=random.randrange(60))).encode("latin-1")
            done = subprocess.run([self.program, "import", "--force", "-o", "out", *random.choice(((), ("--skip-bad",),
                                   ("--format", "csv"), ("--format", "json"), ("--time", "now")))], input=text,
                                  cwd=self.folder, capture_output=True, check=False)
            self.assertIn(done.returncode, (0, 1, 3), (i, text, done))

    def test_texts_of_rows_do_not_control_the_terminal(self):
        err = self.refused(b'{"time":"\\u001b[31m"}')
        self.assertEqual(err, r"line 1, column 1: no time: \x1b[31m")


if __name__ == "__main__":
    unittest.main()
