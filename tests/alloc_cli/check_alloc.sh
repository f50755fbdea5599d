#!/bin/sh
# Usage: check_alloc.sh WORKDIR TESSEL
set -eu
dir=$1
tessel=$2
rm -rf "$dir"
mkdir -p "$dir"
cd "$dir"

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Two blocks of data, 64 KiB apart, in a file of 1 MiB.
truncate -s 1M sparse
printf 'a' | dd of=sparse bs=1 seek=8192 conv=notrunc 2>/dev/null
printf 'b' | dd of=sparse bs=1 seek=77824 conv=notrunc 2>/dev/null
"$tessel" alloc sparse > out || fail "alloc exited with $?"
printf '8192\t4096\n77824\t4096\n' > expected
cmp -s out expected || { cat out >&2; fail "sparse ranges"; }

# A file without data prints nothing; a missing file is an error with its code.
truncate -s 1M empty
"$tessel" alloc empty > out || fail "alloc of a hole"
[ ! -s out ] || fail "a hole has no ranges"
if "$tessel" alloc missing > out 2> err; then fail "a missing file succeeded"; fi
grep -q '0x00040011' err || fail "missing file: $(cat err)"
"$tessel" alloc --help > out || fail "--help"
grep -q 'OFFSET\|offset' out || fail "help text"
echo ok
