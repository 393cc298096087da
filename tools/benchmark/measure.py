#!/usr/bin/env python3
"""Measures chunkfile beside other programs: measure.py BUILD_FOLDER FOLDER [MEBIBYTES]

Each round runs every program once, on files in the page cache. The ratios are medians over the rounds, with quartiles.
"""
import json
import os
import sqlite3
import statistics
import subprocess
import sys
import time

ROUNDS = 9
FIELDS = 5  # in the records of 1 KiB


def run(command):
    """The seconds that the shell command takes."""
    start = time.perf_counter()
    subprocess.run(command, shell=True, check=True, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def measure(commands):
    """The seconds of each command in each round."""
    seconds = {name: [] for name in commands}
    for command in commands.values():
        run(command)  # warms the cache
    for _ in range(ROUNDS):
        for name, command in commands.items():
            seconds[name].append(run(command))
    return seconds


def report(what, seconds, over, under, goal):
    """Prints the ratio of two programs, and returns whether the goal is met."""
    ratios = [a / b for a, b in zip(seconds[over], seconds[under])]
    low, middle, high = statistics.quantiles(ratios, n=4)
    met = goal is None or middle <= goal
    print(f'{what:10} {over:>28} / {under:28} {middle:7.3f}  ({low:.3f} to {high:.3f})  '
          f'{"" if goal is None else f"goal {goal}: " + ("met" if met else "MISSED")}')
    return met


def make_database(lines, path):
    """The same records as rows of a table."""
    database = sqlite3.connect(path)
    columns = [chr(ord('a') + i) for i in range(FIELDS)]
    database.execute(f'create table chunks (time text primary key, {", ".join(columns)}) without rowid')
    with open(lines, encoding='utf-8') as records:
        rows = (json.loads(line) for line in records)
        database.executemany(f'insert into chunks values (?{", ?" * FIELDS})',
                             ([row['time'], *(row['fields'][c] for c in columns)] for row in rows))
    database.commit()
    database.close()


def main():
    build, folder = sys.argv[1:3]
    size = int(sys.argv[3] if len(sys.argv) > 3 else 256) << 20
    tool, writer, walker, importer = (os.path.join(build, *path) for path in (
        ('tools', 'chunkfile'), ('tools', 'benchmark', 'write_file'), ('tools', 'benchmark', 'walk_file'),
        ('tools', 'benchmark', 'import_lines')))
    files = {s: os.path.join(folder, f'tool_benchmark_{s}') for s in (64, 1024, 65536)}
    lines, database, copy = files[1024] + '.ndjson', files[1024] + '.db', files[1024] + '.copy'
    page = files[1024] + '.html'
    good = True
    try:
        for record, path in files.items():
            subprocess.run([writer, path, str(size), str(record), str(FIELDS if record == 1024 else 1)], check=True,
                           stderr=subprocess.DEVNULL)
        run(f'{tool} cat {files[1024]} >{lines}')
        make_database(lines, database)
        for record, path in files.items():
            commands = {'check': f'{tool} check -q {path}', 'the bare walk': f'{walker} {path}',
                        'cat | xxhsum -H3': f'cat {path} | xxhsum -H3',
                        'view': f'{tool} view -q {path} -o {page} --force'}
            if record != 65536:
                commands |= {'cp, sync': f'rm -f {copy}; cp {path} {copy} && sync {copy}',
                             'recover': f'rm -f {copy}; {tool} recover -q {path} -o {copy}'}
            if record == 1024:
                commands |= {'cat as NDJSON': f'{tool} cat {path}', 'jq -c .': f'jq -c . {lines}',
                             'import of NDJSON': f'rm -f {copy}; {tool} import -q {lines} -o {copy}',
                             'simdjson, appends, sync': f'rm -f {copy}; {importer} {lines} {copy}',
                             'SQLite integrity_check': f"sqlite3 {database} 'pragma integrity_check'",
                             'SQLite -json': f"sqlite3 -json {database} 'select * from chunks'"}
            seconds = measure(commands)
            what = f'{record} B'
            if record != 65536:
                seconds['check, cp, sync'] = [sum(both) for both in zip(seconds['check'], seconds['cp, sync'])]
                good &= report(what, seconds, 'recover', 'check, cp, sync', 2.5)
            good &= report(what, seconds, 'check', 'the bare walk', None if record == 1024 else 1.15)
            good &= report(what, seconds, 'check', 'cat | xxhsum -H3', 1.2 if record == 1024 else None)
            good &= report(what, seconds, 'view', 'check', None if record == 64 else 1.5)
            if record == 1024:
                good &= report(what, seconds, 'cat as NDJSON', 'check', 4)
                good &= report(what, seconds, 'cat as NDJSON', 'jq -c .', 0.1)
                good &= report(what, seconds, 'import of NDJSON', 'simdjson, appends, sync', 1.5)
                report(what, seconds, 'check', 'SQLite integrity_check', None)
                report(what, seconds, 'cat as NDJSON', 'SQLite -json', None)
    finally:
        for path in [*files.values(), lines, database, copy, page]:
            if os.path.exists(path):
                os.remove(path)
    print('No goal was missed.' if good else 'Some goals were missed.')


if __name__ == '__main__':
    main()
