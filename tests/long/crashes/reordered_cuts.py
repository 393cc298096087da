"""Power cuts that reorder: a disk may lose or tear each write that no flush has followed. On ext4 and xfs.

logging_disk logs the writes and flushes of a file system while chunk_writer replaces a file again and again. Then each
state that a power cut can leave is built from the log, mounted and looked at: every prefix of the log, and random
subsets of the writes since the last flush. The file must be the old one or the new one, whole, and the new one once
the replacement has returned. Replacements that leave out a sync must fail, or this proves nothing.
"""
import collections
import concurrent.futures
import contextlib
import itertools
import os
import random
import re
import struct
import subprocess
import sys
import time

import disks

BLOCK = 4096  # bytes that a disk writes as a whole or not at all; ext4's superblock would not survive less than 1024
SIZES = (4_096, 50_000, 400_000, 3_000_000)  # bytes of the file that is replaced
REPLACEMENTS = 16
REPLAYS = 4  # at once, because a mount mostly waits
LEFTOVER = re.compile(r"\.corvane\.[0-9a-f]{16}|file\.new")  # durable or not: beside the file during a replacement
HOWS = ("durable", "in-place", "no-file-sync", "no-folder-sync")

FileSystem = collections.namedtuple("FileSystem", "name kind size mounting")
FILE_SYSTEMS = (
    FileSystem("ext4", "ext4", 32 << 20, []),
    FileSystem("ext4 data=writeback", "ext4", 32 << 20, ["data=writeback", "noauto_da_alloc"]),
    FileSystem("xfs", "xfs", 300 << 20, []),
)

Entry = collections.namedtuple("Entry", "kind position bytes")  # of the log


class LoggedDisk:
    """A file system on a logging disk, and the log when it is unmounted."""

    def __init__(self, system, folder, build):
        self.system = system
        self.image = folder / "image"  # as the disk was before the log
        self.log = folder / "log"
        self.served = folder / "served"
        self.mounted = folder / "mounted"
        self.program = build / "tests/long/crashes/logging_disk"
        disks.make(system.kind, self.image, system.size)
        subprocess.run(["fallocate", "--dig-holes", self.image], check=True)

    @contextlib.contextmanager
    def running(self):
        self.served.mkdir()
        self.mounted.mkdir()
        working = self.image.with_name("working")
        copy(self.image, working)
        with subprocess.Popen([self.program, working, self.log, self.served]):
            try:
                wait_for(self.served / "disk")
                disks.mount(self.system.kind, self.served / "disk", self.mounted, *self.system.mounting)
                try:
                    yield
                finally:
                    disks.unmount(self.mounted)
            finally:
                # Lazily, because the kernel may give the loop device back a moment later.
                subprocess.run(["umount", "--lazy", self.served], check=True)

    def mark(self, text):
        descriptor = os.open(self.served / "mark", os.O_WRONLY)
        os.write(descriptor, text.encode())
        os.close(descriptor)

    def entries(self):
        """The log's entries."""
        with open(self.log, "rb") as log:
            while head := log.read(17):
                kind, position, size = struct.unpack("=cQQ", head)
                yield Entry(kind, position, log.read(size))


def wait_for(path):
    end = time.monotonic() + 10
    while not path.exists():
        if time.monotonic() > end:
            sys.exit(f"{path} does not appear")
        time.sleep(0.01)


def copy(source, target):
    """Makes a new file, so that no loop device knows its bytes from before."""
    subprocess.run(["cp", "--sparse=auto", "--remove-destination", source, target], check=True)


def replace_repeatedly(logged, writer, how):
    """Replaces a file again and again, marks begin and return of each replacement, and returns all its contents."""
    contents = [b"The first file is no chunk file."]
    expected = logged.image.with_name("expected")
    with logged.running():
        path = logged.mounted / "file"
        disks.synced(path, contents[0])
        for number in range(1, REPLACEMENTS + 1):
            task = [str(number), str(SIZES[number % len(SIZES)])]
            subprocess.run([writer, "replace", "in-place", expected, *task], check=True)
            contents.append(expected.read_bytes())
            expected.unlink()
            logged.mark("begin")
            subprocess.run([writer, "replace", how, path, *task], check=True)
            logged.mark("return")
            if number % 3 == 0:
                subprocess.run(["sync", "-f", path], check=True)
    return contents


class Replay:
    """Builds the states that a power cut can leave, and counts what is found in them."""

    def __init__(self, logged, contents):
        self.system = logged.system
        self.contents = contents
        self.flushed = logged.image.with_name("flushed")  # the writes up to the last flush
        self.state = logged.image.with_name("state")
        self.folder = logged.image.with_name("state_mounted")
        self.folder.mkdir()
        copy(logged.image, self.flushed)
        self.entries = list(logged.entries())
        self.found = collections.Counter()
        self.random = random.Random(20)  # the same states of the same log
        self.begun = 0  # replacements
        self.returned = 0

    def run(self, subsets):
        """Looks at each prefix, and at random subsets at this many positions of the log."""
        chosen = collections.Counter(self.random.choices(self.positions(), k=subsets))
        pending = []
        for number, entry in enumerate(self.entries):
            if entry.kind == b"F":
                write_all(self.flushed, pending)
                pending = []
                continue
            if entry.kind == b"W":
                pending.append(entry)
            else:
                self.begun += entry.bytes == b"begin"
                self.returned += entry.bytes == b"return"
            if self.begun:
                self.look(pending)
                for _ in range(chosen[number]):
                    self.look(self.subset(pending))
        return self.found

    def positions(self):
        """The positions of the log at which the disk may lose a write."""
        begun, pending, positions = False, 0, []
        for number, entry in enumerate(self.entries):
            begun = begun or entry.kind == b"M"
            pending = 0 if entry.kind == b"F" else pending + (entry.kind == b"W")
            if begun and pending and entry.kind != b"F":
                positions.append(number)
        return positions

    def subset(self, writes):
        """Some of the writes, some of them torn: what a disk may hold that has got them all and no flush."""
        share = self.random.choice((0.1, 0.5, 0.9))
        kept = []
        for write in writes:
            if self.random.random() < share:
                kept.append(write)
            elif self.random.random() < 0.2:
                kept += [block for block in blocks(write) if self.random.random() < share]
        return kept

    def look(self, writes):
        """Counts what a power cut leaves if the disk holds these writes besides the flushed ones."""
        copy(self.flushed, self.state)
        write_all(self.state, writes)
        try:
            disks.mount(self.system.kind, self.state, self.folder, *self.system.mounting)
        except subprocess.CalledProcessError:
            self.found["not mountable"] += 1
            return
        try:
            self.found[self.outcome()] += 1
        except OSError as error:
            self.found[os.strerror(error.errno)] += 1
        finally:
            disks.unmount(self.folder)

    def outcome(self):
        odd = [name for name in os.listdir(self.folder) if not LEFTOVER.fullmatch(name)]
        if set(odd) - {"file", "lost+found"}:
            return "other names"
        *older, old, new = self.contents[:self.begun + 1]
        kind = disks.state(self.folder / "file", old, new)
        if kind == "old" and self.returned == self.begun or kind == "mixed" and self.content() in older:
            return "lost"
        return kind

    def content(self):
        return (self.folder / "file").read_bytes()


def blocks(write):
    """The parts of a write that a disk does not tear."""
    end = write.position + len(write.bytes)
    starts = [write.position, *range(write.position - write.position % BLOCK + BLOCK, end, BLOCK)]
    for start, stop in zip(starts, [*starts[1:], end]):
        yield Entry(write.kind, start, write.bytes[start - write.position:stop - write.position])


def write_all(image, writes):
    descriptor = os.open(image, os.O_WRONLY)
    for write in writes:
        os.pwrite(descriptor, write.bytes, write.position)
    os.close(descriptor)


def replay(build, system, how, subsets):
    with disks.scratch_folder() as folder:
        logged = LoggedDisk(system, folder, build)
        contents = replace_repeatedly(logged, build / "tests/long/crashes/chunk_writer", how)
        return Replay(logged, contents).run(subsets)


def run(build, states):
    """Looks at this many random states of each file system besides the prefixes, and at fewer without durability."""
    cases = list(itertools.product(FILE_SYSTEMS, HOWS))
    subsets = [states if how == "durable" else states // 10 for _, how in cases]
    # Processes, because a thread's new child would keep the files of the others open and their file systems busy.
    with concurrent.futures.ProcessPoolExecutor(REPLAYS) as pool:
        results = pool.map(replay, itertools.repeat(build), *zip(*cases), subsets)
        for (system, how), found in zip(cases, results):
            counts = dict(sorted(found.items()))
            print(f"{system.name}: reordered, {how}: {sum(found.values())} states: {counts}", flush=True)
            whole = set(found) <= {"old", "new"}
            if whole != (how == "durable"):
                sys.exit(f"{system.name}: a {how} replacement {'never fails' if whole else 'fails'}")
