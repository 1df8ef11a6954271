#!/usr/bin/env bash
# installed.sh BUILD: installs what was built, moves it elsewhere, and builds services against it
# there.
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
pkgconfig=$(dirname "$(find "$work/moved" -name vyn_proto.pc)")
libraries=$(dirname "$pkgconfig")
export PKG_CONFIG_PATH=$pkgconfig LD_LIBRARY_PATH=$libraries vyn_proto_DIR=$libraries/cmake/vyn_proto
"$(dirname "${BASH_SOURCE[0]}")/services.sh"
