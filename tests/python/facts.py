"""What python/corvane_chunks.py finds in a file, in the form of vectors/NAME.json, and what chunkfile says of it."""
import base64
import json
import subprocess

from corvane_chunks import ChunkFile, time_text


def hexadecimal(name):
    return name.encode("utf-8", "surrogateescape").hex()


def walk_facts(file, names=None):
    records = sum(1 for _ in file.records(names))
    return {"records": records, "end": file.stop.end.value, "position": file.stop.position}


def refusal(file, max_size):
    """Why a reopening refuses the file; None if it does not."""
    if file.size < 16:
        return "shorter than 16 bytes"
    if 0 < max_size < file.size:
        return "longer than the maximum size"
    return None if file.version == 2 else "version"


def reopening_facts(file, content, padded, max_size):
    """What a reopening does by docs/format.md: it walks the content with zeros up to the maximum size."""
    refused = refusal(file, max_size)
    if refused:
        return {"max_size": max_size, "refused": refused}
    with open(padded, "wb") as copy:
        copy.write(content.ljust(max_size, b"\0"))
    with ChunkFile(padded) as image:
        walk = walk_facts(image)
    return {"max_size": max_size, "kept": walk["records"], "next": walk["position"]}


def facts_by_reader(path, padded):
    """The facts; padded is the name of a file that may be overwritten."""
    with ChunkFile(path) as file, open(path, "rb") as bare:
        content = bare.read()
        size = file.size
        max_sizes = [0, 64] if size < 2 else [0, size - 1, size, size + 64]
        return {
            "size": size, "version": str(file.version), "count": str(file.count),
            "records": [{"position": record.position, "size": record.size, "time": str(record.time),
                         "fields": {hexadecimal(name): value.hex() for name, value in record.fields.items()}}
                        for record in file],
            "walk": walk_facts(file), "walk_of_load": walk_facts(file, ["load"]),
            "reopening": [reopening_facts(file, content, padded, max_size) for max_size in max_sizes]}


def check_by_tool(program, paths, max_size=0):
    """What `chunkfile check` says of each file, and of reopening it with this maximum size."""
    sized = ["--max-size", str(max_size)] if max_size else []
    done = subprocess.run([program, "check", "--format", "json", *sized, *paths], capture_output=True, text=True)
    checks = [json.loads(line) for line in done.stdout.splitlines()]
    assert len(checks) == len(paths), done.stderr
    return checks


def list_by_tool(program, path):
    """What `chunkfile list` says of each record."""
    done = subprocess.run([program, "list", "--format", "json", path], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL)
    records = [json.loads(line) for line in done.stdout.splitlines()]
    return [{key: record[key] for key in ("position", "size", "time", "fields")} for record in records]


def json_name(name):
    """A field's name (bytes) as the tool writes it."""
    try:
        text = name.decode()
    except UnicodeDecodeError:
        text = "base64:"
    return "base64:" + base64.b64encode(name).decode() if text.startswith("base64:") else text


def listed(facts):
    """What a list must say."""
    return [{"position": record["position"], "size": record["size"], "time": time_text(int(record["time"])),
             "fields": [json_name(bytes.fromhex(name)) for name in record["fields"]]} for record in facts["records"]]


def tool_differs(facts, check):
    """What a check says otherwise than the facts; None if it agrees."""
    said = check["reopening"]
    reopening = next(fact for fact in facts["reopening"] if fact["max_size"] == said["maxSize"])
    pairs = {"version": (facts["version"], check["version"]), "count": (facts["count"], check["count"]),
             "records": (facts["walk"]["records"], check["records"]),
             "accepted": ("refused" not in reopening, said["accepted"]),
             "kept": (reopening.get("kept"), said.get("records")),
             "next": (reopening.get("next"), said.get("position"))}
    return next((f"{key}: {ours}, chunkfile: {tools}" for key, (ours, tools) in pairs.items() if ours != tools), None)
