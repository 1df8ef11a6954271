#!/usr/bin/env bash
# What a full disk, a kill and a power cut in front of each system call leave of a file. A cut is a
# copy of the image that a file system is on, mounted again: a disk that loses what it acknowledged
# is not covered. Exits with 77 where loop devices cannot be mounted.
#
# Usage: disk_test.sh DISK_WRITER
set -Eeuo pipefail
skip() { echo "SKIPPED: $*"; exit 77; }
fail() { echo "FAILED $*" >&2; exit 1; }

export LC_ALL=C PATH=$PATH:/usr/sbin:/sbin
if [ -z "${DISK_MOUNTS:-}" ]; then
    unshare --mount true || skip "needs root, for mounts that end with the test"
    DISK_MOUNTS=own exec unshare --mount "$0" "$@"
fi
writer=$(realpath "$1")
work=$(mktemp -d)
trap 'cd /; umount -ql "$work"/{disk,copy} || true; rm -rf --one-file-system "$work"' EXIT
trap 'exit 143' HUP INT TERM
cd "$work"
mkdir disk copy
letters() { head -c "$1" /dev/zero | tr '\0' "$2"; }
letters 5000 o >old
truncate -s 400K small
truncate -s 4M base
{ mkfs.ext4 -q -F -b 1024 -m 0 -O ^has_journal small && mkfs.ext4 -q -F -b 1024 -J size=1 base; } ||
    skip "needs mkfs.ext4"
mount -o loop base disk || skip "needs loop devices and ext4"
cp old disk/target
umount disk

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
export skipped='' DISK_HOOK
skip_call='case " $skipped " in *" $call "*) exit 1 ;; esac'

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
        "$writer" "$1" disk/target "$(<new)" || status=$?
        echo "$status,$(state_of disk/target)$([ ! -e disk/target.tmp ] || echo ,temporary)"
        rm -f disk/target.tmp
        cp $before disk/target
    done | sort -u
}
# Until the disk is full, and once more when there is room again.
fill_packets() {
    rm -rf disk/*
    head -c 15000 /dev/zero >disk/taken
    "$writer" store disk/packets {a..z} {A..Z} >stored || echo $?
    rm disk/taken
    "$writer" store disk/packets 1 >>stored
    "$writer" read disk/packets | cmp -s stored && echo whole || echo torn
}
for mounting in "-t tmpfs -o size=64k tmpfs" "-o loop small"; do
    DISK_HOOK=$skip_call
    mount $mounting disk
    outcome "0,new 28,old " fill atomic 16384
    outcome "0,new 28,broken " fill stream 900  # fits the buffer: flushing it fails
    outcome "0,new (28,broken )?5,broken " fill stream 16384
    outcome "7 whole " fill_packets
    skipped=reserve
    outcome "0,new 135,old,temporary " fill atomic 16384  # SIGBUS
    outcome "7 torn " fill_packets
    skipped=
    umount disk
done

letters 20000 n >new
write_file() { "$writer" "$1" "disk/$2" "$(<new)"; }
store_6() {
    DISK_HOOK='' "$writer" store disk/packets 1 2 3
    sync disk/packets
    "$writer" store disk/packets 4 5 6
}
read_packets() { "$writer" read copy/packets; }
# cuts COMMAND-TO-SHOW COMMAND...: what it shows of each copy taken during the command. The file
# system is not to make up for missing syncs, nor to write unasked.
cuts() {
    local image
    cp base image
    mount -o loop,noauto_da_alloc,data=writeback,commit=300 image disk
    "${@:2}" >/dev/null
    umount disk
    for image in cut-*; do
        mount -o loop "$image" copy
        echo "$($1)"
        umount copy
        rm "$image"
    done
}
atomic=(cuts "state_of copy/target" write_file atomic target)
stream=(cuts "state_of copy/target" write_file stream target)
# At once; and after the file system has committed names and sizes, though not contents.
for commit in "" 'echo >>disk/other; sync disk/other; '; do
    DISK_HOOK="${commit}cp image cut-\$((100 + n)); $skip_call"
    outcome '(none )+(new )+' cuts "state_of copy/fresh" write_file atomic fresh
    outcome '.*new ' cuts "state_of copy/fresh" write_file stream fresh
    outcome '.*new new ' "${stream[@]}"
    outcome '(1234?5?6? )+' cuts read_packets store_6
    outcome '(old )+(new )+' "${atomic[@]}"
done
# On Linux msync does what fsync does as well and the other way round. Elsewhere it may not: each
# must be there on its own.
for skipped in msync fsync; do outcome '(old )+(new )+' "${atomic[@]}"; done
skipped="msync fsync"
outcome '!(old )+(new )+' "${atomic[@]}"
outcome '!.*new new ' "${stream[@]}"
DISK_HOOK="cp image cut-\$n; $skip_call" skipped=dirsync
outcome '!(old )+(new )+' "${atomic[@]}"

kill_atomic() {
    local n status
    for n in {1..7}; do
        status=0
        "$writer" atomic disk/target "$(<old)" && [ ! -e disk/target.tmp ] || echo temporary
        DISK_HOOK="[ \$n -ne $n ] || kill -9 \$PPID" write_file atomic target || status=$?
        echo "$status,$(state_of disk/target)"
    done 2>/dev/null
}
# Each prints its letter when it was stored; those of the killed may be read or not.
kill_store() {
    local n
    rm -f disk/packets
    for n in 1 2 3; do
        DISK_HOOK="[ \$n -ne $n ] || kill -9 \$PPID; $skip_call" \
            "$writer" store disk/packets k || true
        "$writer" store disk/packets $n
    done >stored 2>/dev/null
    echo "$("$writer" read disk/packets),$(<stored)"
}
DISK_HOOK='' skipped=''
outcome '(137,old )+(137,new )+0,new ' kill_atomic
outcome '1k?2k3,12k3 ' kill_store
skipped='write'
outcome '!.*1.*2.*3,.*' kill_store
