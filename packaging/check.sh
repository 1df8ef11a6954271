#!/usr/bin/env bash
# check.sh PACKAGES ROOT: installs the packages in folder PACKAGES into a copy of the root folder
# ROOT, builds and runs services against them there, and removes them again. Packages for another
# architecture than this machine's are tried with the cross compiler and the emulator. As root.
set -euo pipefail
packages=$(realpath "$1") root=$(realpath "$2")
consumer=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../tests/consumer")
scratch=$(mktemp -d -p "$(dirname "$root")")
trap 'rm -rf --one-file-system "$scratch"' EXIT
cp -a "$root/." "$scratch"
files() { find "$scratch" -not -type d -not -path "$scratch/var/*" \
    -not -path "$scratch/tmp/*" -not -name ld.so.cache | sort; }
before=$(files)

export LC_ALL=C CMAKE_GENERATOR=Ninja
dpkg=(dpkg --root="$scratch" --log=/dev/null)
architecture=$(dpkg-deb -f "$packages"/libvyn-proto1_*.deb Architecture)
if [ "$architecture" = "$(dpkg --print-architecture)" ]; then
    mkdir "$scratch/tmp/tests"
    cp -a "$consumer" "$scratch/tmp/tests"
    cp -a "$consumer/../../examples" "$scratch/tmp"
    services=(chroot "$scratch" /tmp/tests/consumer/services.sh)
    tool=(chroot "$scratch" /usr/bin/vynpkt)
else
    # dpkg gets an empty database for this root. The root's ldconfig does not run on this machine,
    # and this machine's ldconfig must not touch the root.
    mkdir -p "$scratch"/var/lib/dpkg/{info,updates}
    : >"$scratch/var/lib/dpkg/status"
    dpkg+=(--force-architecture --force-depends --no-triggers --force-script-chrootless)
    mkdir "$scratch/tmp/bin"
    ln -s /bin/true "$scratch/tmp/bin/ldconfig"
    PATH=$scratch/tmp/bin:$PATH
    services=("$consumer/services.sh" qemu-arm -L "$scratch")
    tool=(qemu-arm -L "$scratch" "$scratch/usr/bin/vynpkt")
    export CC="arm-linux-gnueabihf-gcc --sysroot=$scratch" VYN_SYSROOT=$scratch
    export CXX="arm-linux-gnueabihf-g++ --sysroot=$scratch" PKG_CONFIG_SYSROOT_DIR=$scratch
    export PKG_CONFIG_LIBDIR=$scratch/usr/lib/arm-linux-gnueabihf/pkgconfig
    export CMAKE_TOOLCHAIN_FILE=$consumer/../../cmake/toolchain/arm-linux-gnueabihf.cmake
fi
quietly() { "$@" >"$scratch/tmp/said" 2>&1 || { cat "$scratch/tmp/said" >&2; exit 1; }; }
quietly "${dpkg[@]}" --install "$packages"/*.deb
"${services[@]}"
"${tool[@]}" --version
quietly "${dpkg[@]}" --purge libvynutils1-standin libvyn-proto1 libvyn-proto-dev vyn-proto-tools
diff <(echo "$before") <(files) || { echo "check: not all is removed again" >&2; exit 1; }
echo "ok  installed and removed"
