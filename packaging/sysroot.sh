#!/usr/bin/env bash
# sysroot.sh FOLDER PACKAGE...: makes a folder with the armhf headers and libraries of Debian
# packages, to build against and to run under qemu-arm. Takes them from where this machine takes its
# own. Needs no other architecture to be known to dpkg.
set -euo pipefail
sysroot=$1
shift
# The line of the main suite alone: an armhf index of another may be out of step.
read -r mirror suite < <(apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' | awk '$2 !~ /-/ && $3 == "main" { print $1, $2; exit }')
rm -rf "$sysroot.new"
include=$(IFS=,; echo "$*")
mmdebstrap --quiet --mode=root --variant=extract --architectures=armhf \
    --aptopt='APT::Install-Recommends "false"' --include="$include" \
    "$suite" "$sysroot.new" "deb [arch=armhf] $mirror $suite main"
# Absolute links would lead out of it.
find "$sysroot.new" -type l -lname '/*' -not -path '*/dev/*' | while read -r link; do
    ln -sfn --relative "$sysroot.new$(readlink "$link")" "$link"
done
rm -rf "$sysroot"
mv "$sysroot.new" "$sysroot"
