#!/usr/bin/env bash
# Runs a command under a condition that a service's process may have been given.
#
# Usage: hostile.sh comma|umask|stack LOCALES COMMAND...
set -euo pipefail
condition=$1 locales=$2
shift 2
# A billion ids are the same under all conditions.
skipped=*.MessageIdsStartAgainAtOne
case $condition in
    comma)
        [ -d "$locales/de_DE.UTF-8" ] || exit 77
        # The C library loses LOCPATH's own bytes; one test needs the C locale.
        export ASAN_OPTIONS=detect_leaks=0
        skipped+=:Logger.OnlyAMessageThatLeavesRoomEndsInANewline
        set -- env VYN_TEST_LOCALES="$locales" LOCPATH="$locales" LC_ALL=de_DE.UTF-8 \
            VYN_TEST_LOCALE=de_DE.UTF-8 "$@"
        ;;
    umask) umask 077 ;;
    stack) ulimit -s 128 ;;
esac
export GTEST_FILTER=-$skipped GLIBC_TUNABLES=glibc.malloc.tcache_count=0
exec "$@"
