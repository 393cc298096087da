#!/usr/bin/env python3
"""Reads chunk files that hold records of the reference platform. docs/format.md describes their bytes.

    with ChunkFile("measure.chunks") as file:
        for record in file:
            print(record.position, record.size, time_text(record.time), record.fields["loadavg"])
        print(file.stop)

    python3 -m corvane_chunks FILE    prints a table

Needs the package xxhash, and numpy for to_numpy.
"""
import argparse
import array
import collections
import datetime
import enum
import os
import signal
import struct
import sys

import xxhash

HEADER = struct.Struct("<QQ")      # version, number of chunks
HEAD = struct.Struct("<4sIqIIQQ")  # mark, record size, time point, directory size, number of fields, two checksums
HEAD_SUMMED = 32                   # bytes of the head that its checksum covers
ENTRY = struct.Struct("<IIQ")      # name size, value size, checksum of the value; the name follows
MARK = b"CVC1"
MAX_RECORD_SIZE = 1 << 30          # bytes


class End(enum.Enum):
    """Why a walk ended."""
    ALL_READ = "all read"          # it gave the number of records that the header states
    BAD_RECORD = "bad record"      # no good record begins where it stands
    END_OF_FILE = "end of file"    # no byte is left, although the header states more records


Stop = collections.namedtuple("Stop", "end position flaw")
Stop.__doc__ = "An End, the byte position where the walk stands, and what is wrong with a bad record (otherwise '')."

Record = collections.namedtuple("Record", "position size time fields")
Record.__doc__ = """A good record.

position, size: in bytes; the position counts from the start of the file
time: nanoseconds since 1970-01-01 00:00 UTC; time_text makes text of it
fields: values (bytes) by name (str), in the file's order. Bytes of a name that are not UTF-8 become surrogates
"""


class BadRecord(ValueError):
    """No good record begins at a position. The text says what is wrong there."""


class ChunkFile:
    """A chunk file, open for reading until the end of its `with` block.

    version, count: the numbers of the header. Bytes that a file shorter than 16 bytes lacks are 0.
    size: length of the file in bytes when it was opened
    stop: Stop of the last walk; None while a walk goes on

    Disk: the constructor opens the file and reads the header. Nothing is written.
    Memory: one record at a time, or its directory and the fields that are asked for.
    Errors: OSError if the file can't be opened or read. A walk ends at a bad record; only read() raises BadRecord.
    Threads: an object serves one thread at a time.
    """

    def __init__(self, name):
        self._file = open(name, "rb")
        self.size = self._file.seek(0, os.SEEK_END)
        self._file.seek(0)
        self.version, self.count = HEADER.unpack(self._file.read(HEADER.size).ljust(HEADER.size, b"\0"))
        self.stop = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._file.close()

    def __iter__(self):
        return self.records()

    def records(self, names=None):
        """Walks the file: yields each Record up to the header's count or the first bad one, then sets stop.

        names: fields to read. The others are skipped, and damage in them goes unnoticed. None means all fields.
        """
        self.stop = None
        position = HEADER.size
        for _ in range(self.count):
            if position >= self.size:
                self.stop = Stop(End.END_OF_FILE, position, "")
                return
            try:
                record = self.read(position, names)
            except BadRecord as flaw:
                self.stop = Stop(End.BAD_RECORD, position, str(flaw))
                return
            yield record
            position += record.size
        self.stop = Stop(End.ALL_READ, position, "")

    def read(self, position, names=None):
        """Returns the Record at this byte position, or raises BadRecord. The header's count does not matter.

        Each checksum is verified before the bytes that it covers are used. names: as for records.
        """
        head = self._bytes(position, HEAD.size)
        mark, size, time, directory_size, number, directory_sum, head_sum = HEAD.unpack(head)
        _demand(mark == MARK, "no mark")
        _demand(head_sum == xxhash.xxh3_64_intdigest(head[:HEAD_SUMMED]), "wrong checksum of the head")
        _demand(size <= MAX_RECORD_SIZE, "longer than 1 GiB")
        _demand(size <= self.size - position, "longer than the rest of the file")
        _demand(directory_size <= size - HEAD.size, "directory longer than the record")
        directory = self._bytes(position + HEAD.size, directory_size)
        _demand(directory_sum == xxhash.xxh3_64_intdigest(directory), "wrong checksum of the directory")
        entries = _entries(directory, number)
        values_size = sum(value_size for _, value_size, _ in entries)
        _demand(HEAD.size + directory_size + values_size == size, "sizes do not add up")
        return Record(position, size, time, self._fields(position + size - values_size, entries, names))

    def to_numpy(self, fields):
        """Walks the file: returns an array of time points (datetime64[ns]) and a dict of float64 arrays by field name.

        fields: names of fields whose values are numbers in text, or a dict of functions by name. Such a function
        makes a number of a value (bytes), or raises ValueError.
        A record without the field has NaN. The earliest time point, -2^63, is numpy's NaT.
        Raises ValueError with the record's position if a value is no number. stop tells whether all records were read.
        """
        import numpy
        functions = dict(fields) if isinstance(fields, dict) else dict.fromkeys(fields, float)
        times, columns = array.array("q"), {name: array.array("d") for name in functions}
        for record in self.records(functions):
            times.append(record.time)
            for name, function in functions.items():
                columns[name].append(_number(record, name, function))
        return (numpy.array(times, dtype="int64").view("datetime64[ns]"),
                {name: numpy.array(column, dtype="float64") for name, column in columns.items()})

    def _fields(self, position, entries, names):
        fields = {}
        for name, size, checksum in entries:
            if names is None or name in names:
                value = self._bytes(position, size)
                _demand(checksum == xxhash.xxh3_64_intdigest(value), f"wrong checksum of field {shown(name)}")
                fields[name] = value
            position += size
        return fields

    def _bytes(self, position, size):
        self._file.seek(position)
        data = self._file.read(size)
        _demand(len(data) == size, "the file ends inside it")
        return data


def _demand(holds, flaw):
    if not holds:
        raise BadRecord(flaw)


def _entries(directory, number):
    """Name, value's size and value's checksum of each field. Entries must fill the directory, and names ascend."""
    entries, at, last = [], 0, None
    for _ in range(number):
        _demand(ENTRY.size <= len(directory) - at, "more fields than the directory holds")
        name_size, value_size, checksum = ENTRY.unpack_from(directory, at)
        at += ENTRY.size
        _demand(name_size <= len(directory) - at, "name longer than the directory")
        name = directory[at:at + name_size]
        at += name_size
        _demand(last is None or last < name, "names do not ascend")  # bytes: text would ascend otherwise
        entries.append((name.decode("utf-8", "surrogateescape"), value_size, checksum))
        last = name
    _demand(at == len(directory), "directory longer than its fields")
    return entries


def _number(record, name, function):
    if name not in record.fields:
        return float("nan")
    try:
        return function(record.fields[name])
    except ValueError as error:
        raise ValueError(f"record at position {record.position}, field {shown(name)}: {error}") from error


def time_text(time):
    """A time point in nanoseconds as text, such as 2026-11-21T19:55:03.390755684Z."""
    seconds, nanoseconds = divmod(time, 10**9)
    return f"{datetime.datetime(1970, 1, 1) + datetime.timedelta(seconds=seconds):%Y-%m-%dT%H:%M:%S}.{nanoseconds:09}Z"


def shown(text, width=24):
    """A name (str) or value (bytes) for a terminal: at most this many characters, none of which controls it."""
    if isinstance(text, bytes):
        text = text[:4 * width + 4].decode("utf-8", "surrogateescape")  # a character has at most 4 bytes
    text = "".join(char if char.isprintable() else ascii(char)[1:-1] for char in text[:width + 1])
    return text if len(text) <= width else text[:width - 3] + "..."


def print_table(file, names=None):
    """Prints a line for each record of a ChunkFile, and why the walk ended."""
    print(f"version {file.version}, number of chunks {file.count}, {file.size} bytes")
    print(f"{'position':>12} {'size':>10}  {'time':30}  fields")
    number = 0
    for number, record in enumerate(file.records(names), 1):
        fields = "  ".join(f"{shown(name)}={shown(value)}" for name, value in record.fields.items())
        print(f"{record.position:12} {record.size:10}  {time_text(record.time)}  {fields}".rstrip())
    end, position, flaw = file.stop
    print(f"{number} records; at position {position}: {end.value}{flaw and ', '}{flaw}")


def main():
    """Exit status: 0 if all records were read, 1 if the walk ended earlier, 2 if the file can't be read."""
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # in `... | head`, head ends first
    sys.stdout.reconfigure(errors="backslashreplace")
    parser = argparse.ArgumentParser(prog="corvane_chunks", description="Prints the records of a chunk file.")
    parser.add_argument("file", metavar="FILE")
    parser.add_argument("--field", action="append", metavar="NAME", help="reads only this field; may be repeated")
    arguments = parser.parse_args()
    try:
        with ChunkFile(arguments.file) as file:
            print_table(file, arguments.field)
            return 0 if file.stop.end is End.ALL_READ else 1
    except OSError as error:
        print(f"{arguments.file}: {error.strerror or error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
