#!/usr/bin/env python3
"""Crashes on file systems of their own, mounted from images: writers killed, and the power cut. For root.

usage: crashes.py BUILD_FOLDER [KILLS [CUTS]]

Kills  A writer is killed while it overwrites a file: new bytes, then old ones, must be found, and reopening must keep
       the good chunks. On ext4, xfs, btrfs and tmpfs.
Cuts   The file system is shut down as if the power failed: what it has not written is lost. On ext4 and xfs.
         plain    an appender overwrites a file, or makes a new one, and is destroyed. Anything may be found.
         durable  examples/replace_file has ended: its file must be found, whole.
         during   the power fails while it runs: the old file or the new one must be found, whole.
"""
import collections
import contextlib
import fcntl
import os
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import time

SHUTDOWN = 0x8004587D  # _IOR('X', 125, u32), of ext4 and xfs
WITHOUT_FLUSHING_THE_LOG = struct.pack("I", 2)
MAKERS = {"ext4": ["mkfs.ext4", "-q", "-F"], "xfs": ["mkfs.xfs", "-q", "-f"], "btrfs": ["mkfs.btrfs", "-q", "-f"]}
IMAGE_SIZE = 512 << 20  # bytes


class Disk:
    """A file system that can lose its power."""

    def __init__(self, kind, folder):
        self.kind = kind
        self.image = folder / f"{kind}.image"
        self.path = folder / kind
        self.path.mkdir()
        if kind in MAKERS:
            with open(self.image, "wb") as image:
                image.truncate(IMAGE_SIZE)
            subprocess.run([*MAKERS[kind], self.image], check=True, stdout=subprocess.DEVNULL)
        self.mount()

    def mount(self):
        source = ["-o", "loop", self.image] if self.kind in MAKERS else ["none"]
        subprocess.run(["mount", "-t", self.kind, *source, self.path], check=True)

    def unmount(self):
        subprocess.run(["umount", self.path], check=True)

    def cut_power(self):
        folder = os.open(self.path, os.O_RDONLY)
        try:
            fcntl.ioctl(folder, SHUTDOWN, WITHOUT_FLUSHING_THE_LOG)
        finally:
            os.close(folder)

    def restart(self):
        self.unmount()
        self.mount()


@contextlib.contextmanager
def mounted(kind):
    with tempfile.TemporaryDirectory(prefix="crashes-") as folder:
        disk = Disk(kind, pathlib.Path(folder))
        try:
            yield disk
        finally:
            disk.unmount()


def kill(build, kind, kills):
    with mounted(kind) as disk:
        environment = {**os.environ, "CORVANE_TEST_FOLDER": str(disk.path), "CORVANE_KILLS": str(kills)}
        test = subprocess.run([build / "tests/long/crashes/killed_writer_test"], env=environment, text=True,
                              stdout=subprocess.PIPE, check=False)
    if test.returncode != 0:
        sys.exit(f"{kind}: {test.stdout}")
    print(kind + ": " + next(line for line in test.stdout.splitlines() if "while overwriting" in line), flush=True)


def synced(path, content):
    """Writes a file so that no power cut can take it."""
    path.write_bytes(content)
    for target in (path, path.parent):
        descriptor = os.open(target, os.O_RDONLY)
        os.fsync(descriptor)
        os.close(descriptor)


def state(path, old, new):
    """What became of a file that was old and should be new."""
    if not path.exists():
        return "absent"
    found = path.read_bytes()
    if found in (b"", old, new):
        return {b"": "empty", old: "old", new: "new"}[found]
    length = next(i for i in range(len(found)) if i >= len(new) or found[i] != new[i])
    return "torn" if found[length:] == old[length:] else "mixed"


def cut_plain(build, disk, cuts):
    """Counts what is found where an appender was destroyed at its ease and the power failed soon after."""
    writer = build / "tests/long/crashes/chunk_writer"
    found = {"overwritten": collections.Counter(), "new": collections.Counter()}
    for cut in range(cuts):
        kind = ("overwritten", "new")[cut % 2]
        path = disk.path / f"plain{cut}"
        subprocess.run([writer, "write", path, str(2 * cut)], check=True)
        old = path.read_bytes() if kind == "overwritten" else b""
        if old:
            synced(path, old)
        else:
            path.unlink()
        subprocess.run([writer, "write", path, str(2 * cut + 1)], check=True)
        new = path.read_bytes()
        # Half of the time the disk is being written to when the power fails.
        sync = subprocess.Popen(["sync", "-f", path], stderr=subprocess.DEVNULL) if cut % 4 >= 2 else None
        time.sleep(random.uniform(0, 0.01))
        disk.cut_power()
        if sync:
            sync.wait()
        disk.restart()
        found[kind][state(path, old, new)] += 1
        path.unlink(missing_ok=True)
        progress(disk, "plain", cut + 1, cuts)
    for kind, counts in found.items():
        print(f"{disk.kind}: plain, {kind} file: {dict(sorted(counts.items()))}", flush=True)


def texts(cut):
    return [f"cut {cut:04} text {i:02}" for i in range(50)]


def is_whole(path, cut):
    """Whether the file is the one that replace_file made before this cut."""
    content = path.read_bytes()
    return len(content) == 65536 and all(text.encode() in content for text in texts(cut))


def cut_durable(build, disk, cuts):
    """The recipe's file must survive every cut that comes when it has ended."""
    path = disk.path / "durable"
    for cut in range(cuts):
        subprocess.run([build / "examples/replace_file", path, *texts(cut)], check=True)
        disk.cut_power()
        disk.restart()
        if not is_whole(path, cut) or chunks_in(build, path) != 50:
            sys.exit(f"{disk.kind}: after cut {cut} the file is not what was written durably")
        progress(disk, "durable", cut + 1, cuts)
    print(f"{disk.kind}: durable: {cuts} of {cuts} files survived", flush=True)


def chunks_in(build, path):
    """How many good chunks reopening finds in a copy."""
    with tempfile.NamedTemporaryFile() as copy:
        copy.write(path.read_bytes())
        copy.flush()
        tool = [build / "tests/long/crashes/chunk_writer", "reopen", copy.name]
        return int(subprocess.run(tool, check=True, text=True, stdout=subprocess.PIPE).stdout)


def cut_during(build, disk, cuts):
    """Cuts while the recipe is at work must leave the old file or the new one."""
    path = disk.path / "during"
    replace = [build / "examples/replace_file", path]
    start = time.monotonic()
    subprocess.run([*replace, *texts(0)], check=True)
    duration = time.monotonic() - start
    found = collections.Counter()
    there = 0
    for cut in range(1, cuts + 1):
        program = subprocess.Popen([*replace, *texts(cut)], stderr=subprocess.DEVNULL)
        time.sleep(random.uniform(0, duration))
        ended = program.poll()
        disk.cut_power()
        program.wait()
        disk.restart()
        kind = "new" if is_whole(path, cut) else "old" if is_whole(path, there) else "lost"
        if kind == "lost" or chunks_in(build, path) != 50:
            sys.exit(f"{disk.kind}: cut {cut} left neither the old file nor the new one")
        if ended is not None and (ended != 0 or kind != "new"):
            sys.exit(f"{disk.kind}: before cut {cut} the program ended with {ended}, and the file is {kind}")
        there = cut if kind == "new" else there
        duration *= 0.8 if kind == "new" else 1.25  # how fast the machine is changes
        found[kind] += 1
        progress(disk, "during", cut, cuts)
    if cuts >= 20 and len(found) != 2:
        sys.exit(f"{disk.kind}: the cuts do not fall into the program's work: {dict(found)}")
    print(f"{disk.kind}: during: {dict(sorted(found.items()))}, none torn", flush=True)


def progress(disk, what, cut, cuts):
    if cut % 10 == 0 and cut < cuts:
        print(f"  {disk.kind}: {what}: {cut} of {cuts}", file=sys.stderr, flush=True)


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    kills = int(sys.argv[2]) if len(sys.argv) > 2 else 200
    cuts = int(sys.argv[3]) if len(sys.argv) > 3 else 50
    random.seed(20)
    for kind in ("ext4", "xfs", "btrfs", "tmpfs"):
        kill(build, kind, kills)
    for kind in ("ext4", "xfs"):
        with mounted(kind) as disk:
            cut_plain(build, disk, cuts)
            cut_durable(build, disk, cuts)
            cut_during(build, disk, cuts)


if __name__ == "__main__":
    main()
