"""File systems of their own, mounted from images, and what a crash made of a file there."""
import bisect
import contextlib
import os
import pathlib
import subprocess
import tempfile

MAKERS = {"ext4": ["mkfs.ext4", "-q", "-F"], "xfs": ["mkfs.xfs", "-q", "-f"], "btrfs": ["mkfs.btrfs", "-q", "-f"]}

SCRATCH = "/mnt"


def enter_namespaces(program):
    """Starts the program again in mount and process namespaces of its own, where SCRATCH is a file system in memory.

    However the program ends, the kernel takes away every mount, loop device, process and file.
    """
    if os.environ.get("CORVANE_INSIDE") != "1":
        os.environ["CORVANE_INSIDE"] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", *program])
    subprocess.run(["mount", "-t", "tmpfs", "tmpfs", SCRATCH], check=True)


def make(kind, image, size, *options):
    """Makes a file system in a new image of this many bytes."""
    with open(image, "wb") as file:
        file.truncate(size)
    subprocess.run([*MAKERS[kind], *options, image], check=True, stdout=subprocess.DEVNULL)


def mount(kind, image, folder, *options):
    """Mounts an image, or without one a file system in memory."""
    source = ["-o", ",".join(["loop", *options]), image] if image else ["none"]
    subprocess.run(["mount", "-t", kind, *source, folder], check=True)


def unmount(folder):
    subprocess.run(["umount", folder], check=True)


@contextlib.contextmanager
def scratch_folder():
    """A folder for images in memory."""
    with tempfile.TemporaryDirectory(dir=SCRATCH) as folder:
        yield pathlib.Path(folder)


def synced(path, content):
    """Writes a file so that no power cut can take it."""
    path.write_bytes(content)
    sync(path)
    sync(path.parent)


def sync(path):
    descriptor = os.open(path, os.O_RDONLY)
    os.fsync(descriptor)
    os.close(descriptor)


def state(path, old, new):
    """What a crash left of a file with bytes `old` that should get bytes `new`; None for no file."""
    found = path.read_bytes() if path.exists() else None
    if found in (old, new):
        return "new" if found == new else "old"
    if not found:
        return "absent" if found is None else "empty"
    length = bisect.bisect_left(range(len(found)), True, key=lambda end: found[:end + 1] != new[:end + 1])
    return "torn" if found[length:] == (old or b"")[length:] else "mixed"
