#!/bin/sh
# The tool's watch command on real directories: each change is reported for its own
# directory, the watch goes on after each report, and --count and --timeout end it.
#
# Usage: check_watch_command.sh WORKDIR TESSEL
set -eu
work=$1 tessel=$2
rm -rf "$work"
mkdir -p "$work/a" "$work/b"
cd "$work"

fail() { echo "FAIL $*" >&2; exit 1; }

# Waits up to ten seconds for FILE to have N lines.
lines() {
    i=0
    while [ "$(wc -l < "$1")" -lt "$2" ]; do
        i=$((i + 1))
        [ $i -le 1000 ] || fail "waited for $2 lines in $1: $(cat "$1")"
        sleep 0.01
    done
}

: > out.txt
"$tessel" watch --count 3 --timeout 20 a b > out.txt &
pid=$!
sleep 0.5  # let the watches start
mkdir a/one
lines out.txt 1
mkdir b/two
lines out.txt 2
rmdir a/one
wait $pid || fail "watch exited with $?"
printf 'a\nb\na\n' | diff -u - out.txt || fail "watch reports"
echo "ok   watch --count"

start=$(date +%s)
"$tessel" watch --timeout 1 a > quiet.txt || fail "watch --timeout"
[ ! -s quiet.txt ] || fail "changes reported without changes: $(cat quiet.txt)"
[ $(($(date +%s) - start)) -le 5 ] || fail "watch --timeout ran long"
echo "ok   watch --timeout"

status=0
"$tessel" watch missing 2> err.txt || status=$?
[ $status -eq 1 ] && grep -qF "0x00040011" err.txt || fail "watch of a missing directory"
echo "ok   watch errors"
