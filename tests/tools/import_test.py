"""chunkfile import: every option, every exit code, through the real program; and what is written comes out again."""
import base64
import csv
import io
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


if __name__ == "__main__":
    unittest.main()
