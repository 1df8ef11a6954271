#!/usr/bin/env bash
# What a full disk leaves of a file, and a kill and a power cut in front of each system call. A power
# cut is a copy of the image that a file system is on, mounted again: a disk that loses what it
# acknowledged is not covered. Exits with 77 where loop devices cannot be mounted.
#
# Usage: disk_test.sh LIBRARY
set -Eeuo pipefail
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED $*" >&2; exit 1; }

export LC_ALL=C PATH=$PATH:/usr/sbin:/sbin
if [ -z "${DISK_MOUNTS:-}" ]; then
    unshare --mount true || skip "needs root, for mounts that end with the test"
    DISK_MOUNTS=own exec unshare --mount "$0" "$@"
fi
library=$(realpath "$1") program=$(dirname "$(realpath "$0")")/support/disk_writer.py
work=$(mktemp -d -p /dev/shm)
trap 'cd /; umount -ql "$work"/{disk,copy} || true; rm -rf --one-file-system "$work"' EXIT
trap 'exit 143' HUP INT TERM
cd "$work"
mkdir disk copy
letters() { head -c "$1" /dev/zero | tr '\0' "$2"; }
letters 5000 o >old
letters 20000 n >new
truncate -s 400K small
truncate -s 4M base
{ mkfs.ext4 -q -F -b 1024 -m 0 -O ^has_journal small && mkfs.ext4 -q -F -b 1024 -J size=1 base; } ||
    skip "needs mkfs.ext4"
mount -o loop base disk || skip "needs loop devices and ext4"
umount disk
strace -qq -o trace true || skip "needs strace"

# The writer, without the system calls in $skipped, and killed in front of the one in $killed_at:
# such as fsync:when=2, the second one.
skipped='' killed_at=''
writer() {
    local call inject=()
    for call in $skipped; do inject+=(-e "inject=$call:retval=0"); done
    [ -z "$killed_at" ] || inject+=(-e "inject=$killed_at:signal=KILL")
    [ ${#inject[@]} -eq 0 ] || inject=(strace -qq -o trace "${inject[@]}")
    "${inject[@]}" /usr/bin/python3 -SE "$program" "$library" "$@"
}
state_of() {
    if [ ! -e "$1" ]; then echo none; elif cmp -s "$1" old; then echo old
    elif cmp -s "$1" new; then echo new; else echo broken; fi
}
# outcome [!]EXPECTED COMMAND...: what it prints must match, or must not.
outcome() {
    local got matches='!'
    got=$("${@:2}" | tr '\n' ' ')
    echo "${skipped:+without $skipped: }${*:2}: $got"
    [[ ! $got =~ ^(${1#!})$ ]] || matches=
    [ "$matches" = "${1%"${1#!}"}" ] || fail "expected $1"
}

# fill WRITER LENGTH: the results of writing to a full disk, with more and more room.
fill() {
    exec 2>/dev/null
    local taken status before=old
    [ "$1" = atomic ] || before=/dev/null
    rm -rf disk/*
    letters "$2" n >new
    head -c 40K /dev/zero >disk/taken
    cp $before disk/target
    # Twice: ext4 reckons with more than it then takes.
    for _ in 1 2; do
        dd if=/dev/zero bs=1K oflag=append conv=notrunc of=disk/filler || sync -f disk
    done
    for taken in {40..0..4}; do
        truncate -s "${taken}K" disk/taken
        status=0
        writer "$1" disk/target <new || status=$?
        echo "$status,$(state_of disk/target)$([ ! -e disk/target.tmp ] || echo ,temporary)"
        rm -f disk/target.tmp
        cp $before disk/target
    done | sort -u
}
# Stores packets until the disk is full, and once more when there is room again.
fill_packets() {
    rm -rf disk/*
    head -c 15000 /dev/zero >disk/taken
    printf %s {a..z} {A..Z} | writer store disk/packets >stored || echo $?
    rm disk/taken
    writer store disk/packets <<<1 >>stored
    writer read disk/packets | cmp -s stored && echo whole || echo torn
}
mount -o loop small disk
outcome "0,new 28,old " fill atomic 16384
outcome "0,new 28,broken " fill stream 900  # fits the buffer: flushing it fails
outcome "0,new (28,broken )?5,broken " fill stream 16384
outcome "7 whole " fill_packets
skipped=fallocate
outcome "0,new 135,old,temporary " fill atomic 16384  # SIGBUS
outcome "7 torn " fill_packets
skipped=
umount disk

# cuts WRITER FILE INPUT STATE CALL...: two states of the file, after a kill in front of each system
# call, and of its copy after a power cut there; last those behind the end. The file system is not to
# make up for missing syncs, nor to write unasked.
cuts() {
    local call
    cp base image
    mount -o loop,noauto_da_alloc,data=writeback,commit=300 image disk
    for call in "${@:5}" ''; do
        rm -f disk/fresh* disk/packets
        writer atomic disk/target <old && [ ! -e disk/target.tmp ] || echo temporary
        writer store disk/packets <<<123 >/dev/null
        sync -f disk
        killed_at=$call writer "$1" "disk/$2" <"$3" >/dev/null 2>&1 || true
        if $commit; then echo >>disk/other; sync disk/other; fi
        cp image cut
        mount -o loop cut copy
        echo "$($4 "disk/$2"),$($4 "copy/$2")"
        umount copy
    done
    umount disk
}
atomic() { cuts atomic "$1" new state_of ftruncate fallocate msync "${@:2}"; }
stream() { cuts stream "$1" new state_of write "${@:2}"; }
# The writes in between print what is stored.
store() {
    echo 456 >more
    cuts store packets more "writer read" {fallocate:when=1,write:when=1} \
        {fallocate:when=2,write:when=3} {fallocate:when=3,write:when=5}
}
syncs=(fsync:when=1 rename fsync:when=2)
kept='(old,old )+(new,old )?(new,new )+'
any='1234?5?6?'
# At once; and after the file system has committed names and sizes, though not contents.
for commit in false true; do
    outcome "${kept//old/none}" atomic fresh "${syncs[@]}"
    outcome "$kept" atomic target "${syncs[@]}"
    outcome '.* new,new ' stream fresh "${syncs[@]}"
    outcome '.* new,new new,new ' stream target "${syncs[@]}"
    outcome "(123,$any ){2}(1234,$any ){2}(12345,$any ){2}123456,$any " store
done
# On Linux msync does what fsync does as well and the other way round. Elsewhere it may not: each
# must be there on its own. Without either, or without the last one, the rig sees the loss.
for skipped in msync fsync:when=1; do outcome "$kept" atomic target rename; done
skipped="msync fsync:when=1"
outcome "!$kept" atomic target rename
outcome '!.* new,new ' stream target
skipped=fsync:when=2 commit=false
outcome "!$kept" atomic target rename
