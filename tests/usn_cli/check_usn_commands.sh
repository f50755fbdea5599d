#!/bin/sh
# The tool's journal commands against images that Python writes: a journal whose oldest
# records are gone, and the same journal with a damaged record.
#
# Usage: check_usn_commands.sh WORKDIR TESSEL
set -eu
work=$1 tessel=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

python3 - <<'PY'
import struct

def record(frn, parent, usn, name, reason, attributes):
    data = name.encode("utf-16-le")
    length = (60 + len(data) + 7) // 8 * 8
    r = struct.pack("<IHHQQqqIIIIHH", length, 2, 0, frn, parent, usn, 0, reason, 0, 0,
                    attributes, len(data), 60) + data
    return r + b"\0" * (length - len(r))

first = 8192
entries = [(300, 5, "report.docx", 0x100, 0x20), (301, 5, "", 0x2, 0x20),
           (302, 300, "caf\u00e9 \u00e0 la cr\u00e8me.txt", 0x80000100, 0x10),
           (300, 7, "report final.docx", 0x2000, 0x20)]
usn, body, lines = first, b"", []
for frn, parent, name, reason, attributes in entries:
    r = record(frn, parent, usn, name, reason, attributes)
    lines.append("%d\t%d\t%d\t0x%x\t0x%x\t%s" % (usn, frn, parent, reason, attributes, name))
    body += r
    usn += len(r)
head = struct.pack("<QqqqqQQ", 99, first, usn, first, 1 << 40, 1 << 25, 1 << 23)
open("journal.img", "wb").write(head + body)
open("all.txt", "w", encoding="utf-8").write("\n".join(lines) + "\nnext USN\t%d\n" % usn)
second = first + len(record(*entries[0][:2], first, *entries[0][2:]))
open("from_second.txt", "w", encoding="utf-8").write(
    "\n".join(lines[1:]) + "\nnext USN\t%d\n" % usn)
open("second_usn", "w").write(str(second))
open("next_usn", "w").write(str(usn))
# The third record's name runs past its record.
damaged = bytearray(head + body)
third = 56 + second - first + len(record(301, 5, 0, "", 0, 0))
damaged[third + 56:third + 58] = struct.pack("<H", 2000)
open("damaged.img", "wb").write(bytes(damaged))
open("short.img", "wb").write(head[:40])
PY

fail() { echo "FAIL $*" >&2; exit 1; }
expect_error() {  # STATUS TEXT COMMAND...
    want=$1 text=$2
    shift 2
    status=0
    "$@" > out.txt 2> err.txt || status=$?
    [ "$status" = "$want" ] || fail "$* exited with $status, not $want"
    grep -qF -e "$text" err.txt || fail "$*: $(cat err.txt)"
}

"$tessel" usn read journal.img | diff -u all.txt - || fail "usn read"
"$tessel" usn read --from 0 journal.img | diff -u all.txt - || fail "usn read --from 0"
"$tessel" usn read --from "$(cat second_usn)" journal.img | diff -u from_second.txt - ||
    fail "usn read --from"
printf 'next USN\t%s\n' "$(cat next_usn)" > at_end.txt
"$tessel" usn read --from="$(cat next_usn)" journal.img | diff -u at_end.txt - ||
    fail "usn read at the end"
echo "ok   usn read"

expect_error 1 "0x0004002b The USN journal does not have the requested data." \
    "$tessel" usn read --from 8191 journal.img
expect_error 1 "0x0004002a The requested USN journal entry is not found." \
    "$tessel" usn read --from 8200 journal.img
expect_error 1 "0x0004000d The file is corrupted." "$tessel" usn read damaged.img
# The fetch that meets the damage fails whole: nothing of it is printed.
[ ! -s out.txt ] || fail "records of a damaged fetch: $(cat out.txt)"
expect_error 1 "0x0004000d The file is corrupted." "$tessel" usn read short.img
expect_error 1 "0x00040011 The specified file does not exist." "$tessel" usn read missing.img
expect_error 2 "--from takes a USN" "$tessel" usn read --from x journal.img
echo "ok   usn read errors"

[ "$("$tessel" usn lookup journal.img 300)" = "$(printf '7\treport final.docx')" ] ||
    fail "usn lookup of a renamed file"
[ "$("$tessel" usn lookup journal.img 301)" = "$(printf '5\t')" ] || fail "usn lookup, empty name"
expect_error 1 "0x0004002a" "$tessel" usn lookup journal.img 303
expect_error 1 "0x0004000d" "$tessel" usn lookup damaged.img 300
echo "ok   usn lookup"
