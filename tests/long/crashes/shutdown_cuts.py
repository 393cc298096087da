"""Power cuts by the file system's own shutdown call: it drops whatever it has not written. On ext4 and xfs.

plain    An appender overwrites a file, or makes a new one, and is destroyed. Any state may follow.
durable  A durable replacement has returned: the new file must be there, whole.
during   The power fails while a durable replacement runs: the old file or the new one must be there, whole.
"""
import collections
import contextlib
import fcntl
import os
import random
import struct
import subprocess
import sys
import tempfile
import time

import disks

SHUTDOWN = 0x8004587D  # _IOR('X', 125, u32), of ext4 and xfs
WITHOUT_FLUSHING_THE_LOG = struct.pack("I", 2)
IMAGE_SIZE = 512 << 20  # bytes
FILE_SIZE = 4_000_000  # bytes


class Disk:
    """A mounted file system that can lose its power."""

    def __init__(self, kind, folder, writer):
        self.kind = kind
        self.writer = writer
        self.image = folder / "image"
        self.path = folder / "mounted"
        self.path.mkdir()
        disks.make(kind, self.image, IMAGE_SIZE)
        disks.mount(kind, self.image, self.path)

    def cut_power(self):
        folder = os.open(self.path, os.O_RDONLY)
        try:
            fcntl.ioctl(folder, SHUTDOWN, WITHOUT_FLUSHING_THE_LOG)
        finally:
            os.close(folder)

    def restart(self):
        disks.unmount(self.path)
        disks.mount(self.kind, self.image, self.path)

    def replacement(self, how, path, generation):
        return [self.writer, "replace", how, path, str(generation), str(FILE_SIZE)]

    def replace(self, how, path, generation):
        """Replaces a file and returns its new bytes."""
        subprocess.run(self.replacement(how, path, generation), check=True)
        return path.read_bytes()

    def chunks_in(self, path):
        """How many chunks reopening finds in a copy."""
        with tempfile.NamedTemporaryFile() as copy:
            copy.write(path.read_bytes())
            copy.flush()
            return int(subprocess.run([self.writer, "reopen", copy.name], check=True, stdout=subprocess.PIPE).stdout)

    def fail(self, cut, reason):
        sys.exit(f"{self.kind}: cut {cut}: {reason}")

    def progress(self, what, cut, cuts):
        if cut % 10 == 0 and cut < cuts:
            print(f"  {self.kind}: {what}: {cut} of {cuts}", file=sys.stderr, flush=True)


@contextlib.contextmanager
def mounted(kind, writer):
    with disks.scratch_folder() as folder:
        disk = Disk(kind, folder, writer)
        try:
            yield disk
        finally:
            disks.unmount(disk.path)


def cut_plain(disk, cuts):
    """Counts what a power cut leaves of a file whose appender was destroyed shortly before."""
    found = {"overwritten": collections.Counter(), "new": collections.Counter()}
    for cut in range(cuts):
        kind = ("overwritten", "new")[cut % 2]
        path = disk.path / f"plain{cut}"
        old = None
        if kind == "overwritten":
            old = disk.replace("durable", path, 2 * cut)
        new = disk.replace("in-place", path, 2 * cut + 1)
        # Every other pair of cuts falls into the disk's writing.
        flusher = subprocess.Popen(["sync", "-f", path], stderr=subprocess.DEVNULL) if cut % 4 >= 2 else None
        time.sleep(random.uniform(0, 0.01))
        disk.cut_power()
        if flusher:
            flusher.wait()
        disk.restart()
        found[kind][disks.state(path, old, new)] += 1
        path.unlink(missing_ok=True)
        disk.progress("plain", cut + 1, cuts)
    for kind, counts in found.items():
        print(f"{disk.kind}: plain, {kind} file: {dict(sorted(counts.items()))}", flush=True)


def cut_durable(disk, cuts):
    """A file that was replaced durably must survive every later cut."""
    path = disk.path / "durable"
    for cut in range(cuts):
        new = disk.replace("durable", path, cut)
        chunks = disk.chunks_in(path)
        disk.cut_power()
        disk.restart()
        if disks.state(path, None, new) != "new" or disk.chunks_in(path) != chunks:
            disk.fail(cut, "the file that was written durably is not whole")
        disk.progress("durable", cut + 1, cuts)
    print(f"{disk.kind}: durable: {cuts} of {cuts} files survived", flush=True)


def cut_during(disk, cuts, expected):
    """A cut during the replacement must leave the old file or the new one. `expected` gives a generation's bytes."""
    path = disk.path / "during"
    start = time.monotonic()
    old = disk.replace("durable", path, 0)
    duration = time.monotonic() - start
    found = collections.Counter()
    for cut in range(1, cuts + 1):
        new = expected(cut)
        program = subprocess.Popen(disk.replacement("durable", path, cut), stderr=subprocess.DEVNULL)
        time.sleep(random.uniform(0, duration))
        ended = program.poll()
        disk.cut_power()
        program.wait()
        disk.restart()
        kind = disks.state(path, old, new)
        if kind not in ("old", "new"):
            disk.fail(cut, f"the file is {kind}")
        if ended is not None and (ended != 0 or kind != "new"):
            disk.fail(cut, f"the program had ended with {ended}, and the file is {kind}")
        old = path.read_bytes()
        duration *= 0.8 if kind == "new" else 1.25  # the machine's speed changes
        found[kind] += 1
        disk.progress("during", cut, cuts)
    if cuts >= 20 and len(found) != 2:
        sys.exit(f"{disk.kind}: all cuts fall before or after the replacement: {dict(found)}")
    print(f"{disk.kind}: during: {dict(sorted(found.items()))}, none torn", flush=True)


def run(build, kind, cuts):
    writer = build / "tests/long/crashes/chunk_writer"
    with mounted(kind, writer) as disk, disks.scratch_folder() as elsewhere:

        def expected(generation):
            return disk.replace("in-place", elsewhere / "expected", generation)

        cut_plain(disk, cuts)
        cut_durable(disk, cuts)
        cut_during(disk, cuts, expected)
