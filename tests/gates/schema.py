#!/usr/bin/python3
"""Compares the schemas with those that were released, so that no change breaks what is in the cars.

schema.py DESCRIPTOR_SET            prints the baseline of it: a line for each field and value
schema.py DESCRIPTOR_SET BASELINE   fails with the name of each one that is not as released
"""
import sys
from google.protobuf import descriptor_pb2

FIELD = descriptor_pb2.FieldDescriptorProto


def describe(field):
    kind = field.type_name.lstrip(".") or FIELD.Type.Name(field.type)[5:].lower()
    words = [FIELD.Label.Name(field.label)[6:].lower(), kind]
    if field.json_name.replace("_", "").lower() != field.name.replace("_", "").lower():
        words.append("json=" + field.json_name)
    if field.HasField("oneof_index"):
        words.append("oneof")
    if field.options.HasField("packed"):
        words.append("packed=" + str(field.options.packed).lower())
    return " ".join(words)


def of_enum(enum, scope):
    return [(scope + enum.name, v.name, v.number, "value") for v in enum.value]


def of_message(message, scope):
    name = scope + message.name
    rows = [(name, f.name, f.number, describe(f)) for f in message.field]
    for nested in message.nested_type:
        rows += of_message(nested, name + ".")
    for enum in message.enum_type:
        rows += of_enum(enum, name + ".")
    return rows


def rows_of(path):
    files = descriptor_pb2.FileDescriptorSet()
    with open(path, "rb") as stream:
        files.ParseFromString(stream.read())
    rows = []
    for file in files.file:
        if file.name.startswith("google/"):
            continue
        scope = file.package + "." if file.package else ""
        for message in file.message_type:
            rows += of_message(message, scope)
        for enum in file.enum_type:
            rows += of_enum(enum, scope)
    return sorted(rows)


def rows_in(path):
    with open(path, encoding="utf-8") as stream:
        return [(owner, name, int(number), kind)
                for line in stream
                for full, number, kind in [line.rstrip("\n").split(" ", 2)]
                for owner, _, name in [full.rpartition(".")]]


def compare(released, present):
    """What differs, a sentence each."""
    by_name = {row[:2]: row for row in present}
    by_number = {(row[0], row[2]): row for row in present}
    for row in released:
        owner, name, number, kind = row
        same = by_name.get((owner, name))
        if same == row:
            continue
        if same is None:
            heir = by_number.get((owner, number))
            yield f"{owner}.{name}: " + (f"renamed to {heir[1]}" if heir else "lost")
        elif same[2] != number:
            yield f"{owner}.{name}: renumbered from {number} to {same[2]}"
        else:
            yield f"{owner}.{name}: changed from \"{kind}\" to \"{same[3]}\""
    known = {row[:2] for row in released} | {(row[0], row[2]) for row in released}
    for owner, name, number, _ in present:
        if (owner, name) not in known and (owner, number) not in known:
            yield f"{owner}.{name}: new; once it is released it has to stay: add it to the baseline"


def main():
    present = rows_of(sys.argv[1])
    if len(sys.argv) == 2:
        for owner, name, number, kind in present:
            print(f"{owner}.{name} {number} {kind}")
        return 0
    found = list(compare(rows_in(sys.argv[2]), present))
    for sentence in found:
        print("schema: " + sentence, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
