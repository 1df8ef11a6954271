#!/usr/bin/env python3
"""CPU time of vynpkt on a file of 100,000 packets of about 1 KB, beside the goals.

Usage: tool.py VYNPKT PROTODIR
"""
import importlib
import os
import resource
import subprocess
import sys
import tempfile
import time

from google.protobuf.internal import api_implementation, encoder
from google.protobuf.json_format import MessageToJson

PACKETS = 100_000
BODY_LOOPS = 100  # how many bodies the shell loop and Python are measured with
TYPE = 21
BINARY = 2 << 14

vynpkt, protos = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
scratch = tempfile.TemporaryDirectory()
os.chdir(scratch.name)
subprocess.run(["protoc", "--python_out=.", "-I", protos, "telemetry.proto", "enums.proto",
                "vyn_header_v3.proto"], check=True)
sys.path.insert(0, ".")
telemetry_pb2 = importlib.import_module("telemetry_pb2")
vyn_header_v3_pb2 = importlib.import_module("vyn_header_v3_pb2")


def telemetry(number):
    message = telemetry_pb2.Telemetry()
    message.meta.vin = f"WVN{number:08}"
    for second in range(6):
        batch = message.telemetry.add(time=1700000000000 + second, event_type=4, periodicity=10)
        for signal in range(8):
            item = batch.data.add(id=signal, area=signal % 3)
            item.string_value.append(f"value {signal}") if signal % 3 == 0 else \
                item.float_array_value.extend((signal * 1.1, signal * 2.2))
    return message


def write_packets(path, binary):
    bodies = [telemetry(i).SerializeToString() if binary
              else (f"{i} of the lines that a service writes to its log. " * 20)[:800].encode()
              for i in range(100)]
    with open(path, "wb") as file:
        for i in range(PACKETS):
            header = vyn_header_v3_pb2.Header(
                message_id=f"{i:036}", version=3, device_id="device-17", time=1700000000000 + i,
                message_type=TYPE | (BINARY if binary else 0), body=bodies[i % len(bodies)])
            packet = header.SerializeToString()
            file.write(encoder._VarintBytes(len(packet)) + packet)
    return bodies


def cpu(*command, output="/dev/null", rounds=5):
    """The least of several rounds, in seconds, and the memory of the largest process in KiB."""
    least = float("inf")
    for _ in range(rounds):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        with open(output, "wb") as out:
            subprocess.run(command, stdout=out, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        least = min(least, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    return least


def row(name, spent, goal):
    print(f"{name:48} {spent * 1e6:9.0f} us  {spent / goal:5.2f} of the goal")


def measure(kind, path):
    verify = cpu(vynpkt, "verify", path)
    print(f"{kind}: verify {verify * 1e3:.0f} ms")
    show = cpu(vynpkt, "show", path, output="shown")
    row("  show: 3 x verify, and cat of its output", show,
        3 * verify + cpu("cat", "shown", output="copied"))
    row("  show --only that finds nothing: 1.3 x verify",
        cpu(vynpkt, "show", "--only", f"type={TYPE + 1}", path), 1.3 * verify)


write_packets("text.dat", False)
measure("text bodies", "text.dat")
bodies = write_packets("binary.dat", True)
measure("binary bodies", "binary.dat")

with open("types.txt", "w", encoding="ascii") as types:
    print(TYPE, "Telemetry", file=types)
each = cpu(vynpkt, "show", "--types", "types.txt", "binary.dat", output="shown") / PACKETS
with open("body", "wb") as file:
    file.write(bodies[0])
loop = cpu("sh", "-c", f'for i in $(seq {BODY_LOOPS}); do "{vynpkt}" decode -t Telemetry body; done',
           rounds=1) / BODY_LOOPS
start = time.process_time()
for body in bodies[:BODY_LOOPS]:
    MessageToJson(telemetry_pb2.Telemetry.FromString(body))
python = (time.process_time() - start) / BODY_LOOPS
print(f"a body of {len(bodies[0])} bytes: {each * 1e6:.0f} us; "
      f"a process for each {loop * 1e6:.0f} us; "
      f"Python ({api_implementation.Type()}) {python * 1e6:.0f} us")
row("  show --types: a 20th of the shell loop", each, loop / 20)
row("  show --types: 1.5 x a tenth of Python's time", each, 1.5 * python / 10)
print(f"most memory: {resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024:.0f} MiB "
      "(goal: 32), the largest of all these processes")
