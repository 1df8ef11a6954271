#!/usr/bin/env bash
# installed.sh BUILD: installs what was built, moves it elsewhere, and builds services against it
# there. Programs find the libraries by their paths of search alone.
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
pkgconfig=$(dirname "$(find "$work/moved" -name vyn_proto.pc)")
libraries=$(dirname "$pkgconfig")
unset LD_LIBRARY_PATH
"$work/moved/bin/vynpkt" --version
export PKG_CONFIG_PATH=$pkgconfig vyn_proto_DIR=$libraries/cmake/vyn_proto
export CC="${CC:-cc} -Wl,-rpath,$libraries" CXX="${CXX:-c++} -Wl,-rpath,$libraries"
"$(dirname "${BASH_SOURCE[0]}")/services.sh"
