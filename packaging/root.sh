#!/usr/bin/env bash
# root.sh FOLDER ARCHITECTURE PACKAGE...: makes a root folder of Debian packages, taken from where
# this machine takes its own. For another architecture they are unpacked only: a sysroot, to build
# against and to run under an emulator, which needs nothing to be known to this machine's dpkg.
set -euo pipefail
root=$1 architecture=$2
shift 2
# The line of the main suite alone: the index of another may be out of step.
# shellcheck disable=SC2016 # apt-get's own variables
read -r mirror suite < <(apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' | awk '$2 !~ /-/ && $3 == "main" { print $1, $2 }')
variant=minbase hooks=()
if [ "$architecture" != "$(dpkg --print-architecture)" ]; then
    variant=extract
    # Which package and release brings which symbol, in the place where dpkg-shlibdeps -S reads it.
    # shellcheck disable=SC2016 # a script for mmdebstrap, which gives it the folder
    hooks=(--extract-hook='mkdir "$1/DEBIAN"
        for package in "$1"/var/cache/apt/archives/*.deb; do
            for list in shlibs symbols; do
                dpkg-deb --info "$package" "$list" >>"$1/DEBIAN/$list" 2>/dev/null || true
            done
        done')
fi
rm -rf --one-file-system "$root.new"
include=$(IFS=,; echo "$*")
mmdebstrap --quiet --mode=root --variant="$variant" --architectures="$architecture" \
    --aptopt='APT::Install-Recommends "false"' --include="$include" "${hooks[@]}" \
    "$suite" "$root.new" "deb [arch=$architecture] $mirror $suite main"
if [ "$variant" = extract ]; then
    # Absolute links would lead out of it.
    find "$root.new" -type l -lname '/*' -not -path '*/dev/*' | while read -r link; do
        ln -sfn --relative "$root.new$(readlink "$link")" "$link"
    done
fi
rm -rf --one-file-system "$root"
mv "$root.new" "$root"
