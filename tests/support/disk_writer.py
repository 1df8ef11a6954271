#!/usr/bin/python3
"""Writes files with the library: disk_writer.py LIBRARY COMMAND PATH, where the command is

atomic, stream  write standard input, then fsync_parent_dir()
store           a packet for each character of standard input; prints those that were stored
read            print the characters of the packets, "?" for one that nobody stored

The exit code is 0, or the errno or the result."""
import ctypes
import sys

library = ctypes.CDLL(sys.argv[1], use_errno=True)
command, path = sys.argv[2], sys.argv[3].encode()


def packet(character):
    """A Header with this message id and a body of 10000 bytes."""
    return b"\x0A\x01" + character + b"\x62\x90\x4E" + b"x" * 10000


if command == "store":
    for character in sys.stdin.read().strip():
        one = packet(character.encode())
        code = library.store_proto_msg_to_file(one, len(one), path)
        print(character if code == 0 else "", end="", flush=True)
    sys.exit(code)
if command == "read":
    rooms = [ctypes.create_string_buffer(11000) for _ in range(100)]
    count, lengths = ctypes.c_uint32(), (ctypes.c_uint32 * 100)()
    library.read_proto_msg_from_file((ctypes.c_void_p * 101)(*map(ctypes.addressof, rooms)),
                                     ctypes.byref(count), lengths, path)
    found = [room.raw[:length] for room, length in zip(rooms, lengths)][:count.value]
    print("".join(chr(one[2]) if one == packet(one[2:3]) else "?" for one in found), end="")
    sys.exit(0)
write = {"atomic": library.write_to_file_using_mmap_atomic, "stream": library.write_to_file_using_fop}
text = sys.stdin.buffer.read()
if write[command](path, text, len(text)) != 1 or library.fsync_parent_dir(path) != 0:
    sys.exit(ctypes.get_errno())
