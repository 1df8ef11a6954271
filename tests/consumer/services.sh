#!/usr/bin/env bash
# services.sh [EMULATOR...]: builds and runs services against the installed library that pkg-config
# and CMake find: the example in C99, in C++ by pkg-config, in C++ by find_package.
set -euo pipefail
source=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# The compilers may bring arguments of their own.
read -ra cc <<<"${CC:-cc}"
read -ra cxx <<<"${CXX:-c++}"
read -ra flags <<<"$(pkg-config --cflags --libs vyn_proto)"
"${cc[@]}" -std=c99 -pedantic -Wall -Wextra -Werror "$source/../../examples/hello/hello.c" \
    -o in_c "${flags[@]}"
"${cxx[@]}" -std=c++17 -Wall "$source/consumer.cpp" -o by_pkg_config "${flags[@]}"
cmake -S "$source" -B . >configured || { cat configured; exit 1; }
cmake --build . >built || { cat built; exit 1; }

# A packet for the example: a frame of three bytes, the message id.
printf '\x28\xb5\x2f\xfd\x20\x03\x19\0\0\x0a\x01m' >received
for service in in_c by_pkg_config by_cmake; do
    "$@" "./$service" <received >"$service.packet"
done
grep -qF '"message_id": "m"' in_c.packet
# What the service sent is readable with nothing but the installed schemas, or their set.
protodir=$(pkg-config --variable=protodir vyn_proto)
set=$(pkg-config --variable=descriptor_set vyn_proto)
version=$(pkg-config --modversion vyn_proto)
for schemas in "-I$protodir $protodir/heartbeat.proto" "--descriptor_set_in=$set"; do
    # shellcheck disable=SC2086 # two arguments
    protoc --decode=DeviceInfoHB $schemas <by_cmake.packet | grep -qF "\"$version\""
done
