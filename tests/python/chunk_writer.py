"""Writes chunk files by docs/format.md, sound or damaged on purpose: every number can be given a wrong value."""
import struct

import xxhash

MARK = b"CVC1"


def checksum(data):
    return xxhash.xxh3_64_intdigest(data)


def entry(name, value, value_size=None, value_sum=None, name_size=None):
    """A field's entry in the directory. name and value as bytes."""
    return struct.pack("<IIQ", len(name) if name_size is None else name_size,
                       len(value) if value_size is None else value_size,
                       checksum(value) if value_sum is None else value_sum) + name


def raw_record(time, directory, values, size=None, directory_size=None, number=0, mark=MARK, directory_sum=None,
               head_sum=None):
    """A record of this directory and these values, as bytes. What is not given is right."""
    head = struct.pack("<4sIqIIQ", mark, 40 + len(directory) + len(values) if size is None else size, time,
                       len(directory) if directory_size is None else directory_size, number,
                       checksum(directory) if directory_sum is None else directory_sum)
    return head + struct.pack("<Q", checksum(head) if head_sum is None else head_sum) + directory + values


def record(time, fields=()):
    """A good record. fields: pairs or a dict of names and values (bytes), in any order."""
    ordered = sorted(dict(fields).items())
    directory = b"".join(entry(name, value) for name, value in ordered)
    return raw_record(time, directory, b"".join(value for _, value in ordered), number=len(ordered))


def image(records, version=2, count=None, fill=b""):
    """A file's bytes."""
    return struct.pack("<QQ", version, len(records) if count is None else count) + b"".join(records) + fill
