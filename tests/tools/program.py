"""The verbs of tests that run the real tool."""
import os
import struct
import subprocess
import tempfile
import time
import unittest

import chunk_writer

SECOND = 10**9
BEGIN = 1_800_000_000 * SECOND  # 2027-01-15T08:00:00Z


def time_text(nanoseconds):
    seconds = (nanoseconds - BEGIN) / SECOND
    assert 0 <= seconds < 60
    return f"2027-01-15T08:00:{int(seconds):02}.{(nanoseconds - BEGIN) % SECOND:09}Z"


def minimal_record(ticks, text):
    """A record of examples/minimal_platform."""
    return struct.pack("<QQq", 0x6C616D696E696D, 24 + len(text), ticks) + text


class ProgramTest(unittest.TestCase):
    """A test with a folder of its own. The tool runs there."""
    program = os.environ["CHUNKFILE"]

    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.folder = self.scratch.name
        self.addCleanup(self.scratch.cleanup)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)
        return name

    def chunks(self, name, records, **header):
        return self.write(name, chunk_writer.image(records, **header))

    def five(self, name="five"):
        """Five records, a second apart, with the fields i and name."""
        return self.chunks(name, [chunk_writer.record(BEGIN + i * SECOND, {b"i": b"%d" % i, b"name": b"n%d" % i})
                                  for i in range(5)])

    def damaged(self, name="damaged", at=2):
        """The same with a bad byte in one record."""
        with open(self.path(self.five(name)), "rb") as file:
            data = bytearray(file.read())
        size = (len(data) - 16) // 5
        data[16 + at * size + 50] ^= 0xFF
        return self.write(name, data)

    def wait_for_poll(self, process):
        """Until an import has read all and waits for more."""
        for _ in range(600):
            with open(f"/proc/{process.pid}/wchan", encoding="ascii") as wchan:
                if "poll" in wchan.read():
                    return
            time.sleep(0.05)

    def run_tool(self, *arguments, code=0, stdin=b"", environment=None, program=None):
        """Runs the tool, expects its exit code, and returns what it printed: (stdout, stderr) as bytes."""
        done = subprocess.run([program or self.program, *arguments], cwd=self.folder, input=stdin, capture_output=True,
                              check=False, env={**os.environ, "LC_ALL": "C.UTF-8", **(environment or {})})
        self.assertEqual(done.returncode, code, done)
        return done.stdout, done.stderr

    def out(self, *arguments, **keywords):
        """What the tool prints; nothing may be on stderr."""
        out, err = self.run_tool(*arguments, **keywords)
        self.assertEqual(err, b"")
        return out.decode()

    def error(self, *arguments, code, **keywords):
        """The one line on stderr, without the tool's name."""
        err = self.run_tool(*arguments, code=code, **keywords)[1].decode()
        self.assertTrue(err.startswith("chunkfile: "), err)
        return err[len("chunkfile: "):].rstrip("\n")
