#!/usr/bin/env python3
"""Crashes on file systems of their own, mounted from images: killed writers and power cuts. For root.

usage: crashes.py BUILD_FOLDER [KILLS [CUTS [STATES]]]

Kills      A writer is killed while it overwrites a file. The file must begin with new bytes and go on with old ones,
           and reopening must keep the good chunks. On ext4, xfs, btrfs and tmpfs.
Cuts       The file system is shut down, which drops what it has not written: shutdown_cuts.py. On ext4 and xfs.
Reordered  The disk drops any of the writes since the last flush: reordered_cuts.py. On ext4 and xfs.
"""
import os
import pathlib
import random
import re
import subprocess
import sys

import disks
import reordered_cuts
import shutdown_cuts

IMAGE_SIZE = 512 << 20  # bytes


def kill(build, kind, kills):
    with disks.scratch_folder() as folder:
        image = None if kind == "tmpfs" else folder / "image"
        if image:
            disks.make(kind, image, IMAGE_SIZE)
        mounted = folder / "mounted"
        mounted.mkdir()
        disks.mount(kind, image, mounted)
        try:
            environment = {**os.environ, "CORVANE_TEST_FOLDER": str(mounted), "CORVANE_KILLS": str(kills)}
            test = subprocess.run([build / "tests/long/crashes/killed_writer_test"], env=environment, text=True,
                                  stdout=subprocess.PIPE, check=False)
        finally:
            disks.unmount(mounted)
    if test.returncode != 0:
        sys.exit(f"{kind}: {test.stdout}")
    for line in re.findall(r".* writers killed .*", test.stdout):
        print(f"{kind}: {line}", flush=True)
    # On btrfs a kill seldom stops a write in its middle.
    if kind != "btrfs" and " 0 torn" in test.stdout:
        sys.exit(f"{kind}: no kill fell into a write")


def main():
    disks.enter_namespaces(sys.argv)
    build = pathlib.Path(sys.argv[1]).resolve()
    numbers = [int(argument) for argument in sys.argv[2:]]
    kills, cuts, states = numbers + [200, 50, 1000][len(numbers):]
    random.seed(20)
    for kind in ("ext4", "xfs", "btrfs", "tmpfs"):
        kill(build, kind, kills)
    for kind in ("ext4", "xfs"):
        shutdown_cuts.run(build, kind, cuts)
    reordered_cuts.run(build, states)


if __name__ == "__main__":
    main()
