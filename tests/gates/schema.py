#!/usr/bin/python3
"""schema.py DESCRIPTOR_SET: prints a line for each field of a message and each value of an enum."""
import sys
from google.protobuf.descriptor_pb2 import FieldDescriptorProto, FileDescriptorSet


def kind(field):
    words = [FieldDescriptorProto.Label.Name(field.label)[6:].lower(),
             field.type_name.lstrip(".") or FieldDescriptorProto.Type.Name(field.type)[5:].lower()]
    if field.json_name.replace("_", "").lower() != field.name.replace("_", "").lower():
        words.append("json=" + field.json_name)
    if field.HasField("oneof_index"):
        words.append("oneof")
    if field.options.HasField("packed"):
        words.append("packed=" + str(field.options.packed).lower())
    return " ".join(words)


def lines(scope, messages, enums):
    for enum in enums:
        for value in enum.value:
            yield f"{scope}{enum.name}.{value.name} {value.number} value"
    for message in messages:
        inside = scope + message.name + "."
        for field in message.field:
            yield f"{inside}{field.name} {field.number} {kind(field)}"
        yield from lines(inside, message.nested_type, message.enum_type)


with open(sys.argv[1], "rb") as stream:
    files = FileDescriptorSet.FromString(stream.read()).file
found = [line for file in files if not file.name.startswith("google/")
         for line in lines(file.package and file.package + ".", file.message_type, file.enum_type)]
print(*sorted(found, key=lambda line: line.split()[0].rpartition(".")), sep="\n")
