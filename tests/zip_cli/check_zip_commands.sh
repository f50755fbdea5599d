#!/bin/sh
# The tool's zip commands against an archive that Python's zipfile writes, with one member
# whose checksum is wrong.
#
# Usage: check_zip_commands.sh WORKDIR TESSEL
set -eu
work=$1 tessel=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"

python3 - <<'PY'
import json, struct, zipfile
members = [("readme.txt", b"read me\n" * 50, zipfile.ZIP_STORED),
           ("docs/Guide.txt", b"".join(b"line %d\n" % i for i in range(5000)), zipfile.ZIP_DEFLATED),
           ("empty", b"", zipfile.ZIP_STORED),
           ("caf\u00e9.txt", b"coffee", zipfile.ZIP_DEFLATED),
           ("broken.bin", bytes(range(256)) * 40, zipfile.ZIP_DEFLATED)]
with zipfile.ZipFile("a.zip", "w") as z:
    for name, data, method in members:
        z.writestr(zipfile.ZipInfo(name), data, compress_type=method)
for i, (name, data, method) in enumerate(members):
    open("member_%d" % i, "wb").write(data)
with zipfile.ZipFile("a.zip") as z:
    infos = z.infolist()
# Spoil the checksum of broken.bin in its central record and its local header.
data = bytearray(open("a.zip", "rb").read())
broken = infos[-1]
broken.CRC ^= 0xffffffff
wrong = struct.pack("<I", broken.CRC)
data[broken.header_offset + 14:broken.header_offset + 18] = wrong
central = data.rfind(b"PK\x01\x02")
data[central + 16:central + 20] = wrong
open("a.zip", "wb").write(bytes(data))
lines = ["%s\t%d\t%d\t%d\t%08x" % (i.filename, i.compress_type, i.compress_size, i.file_size, i.CRC)
         for i in infos]
open("expected_list.txt", "w", encoding="utf-8").write("\n".join(lines) + "\n")
json.dump([{"name": i.filename, "method": i.compress_type, "compressed": i.compress_size,
            "size": i.file_size, "crc32": "%08x" % i.CRC} for i in infos],
          open("expected_list.json", "w"))
PY

fail() { echo "FAIL $*" >&2; exit 1; }

# The listing shows the checksum as the directory has it.
"$tessel" zip list a.zip | diff -u expected_list.txt - || fail "zip list"
"$tessel" zip list a.zip --json > list.json
python3 - <<'PY' || fail "zip list --json"
import json
got, want = json.load(open("list.json")), json.load(open("expected_list.json"))
assert got == want, (got, want)
PY
echo "ok   zip list, zip list --json"

"$tessel" zip cat a.zip readme.txt | cmp - member_0 || fail "zip cat stored"
"$tessel" zip cat a.zip 'DOCS\guide.TXT' | cmp - member_1 || fail "zip cat deflated, folded"
"$tessel" zip cat a.zip empty | cmp - member_2 || fail "zip cat empty"
"$tessel" zip cat a.zip "café.txt" | cmp - member_3 || fail "zip cat UTF-8 name"
echo "ok   zip cat"

status=0
"$tessel" zip cat a.zip missing.txt > out 2> err || status=$?
[ "$status" = 1 ] || fail "missing member exits $status"
grep -qx 'tessel: 0x00040002 The end of the file has been reached.' err || fail "missing member: $(cat err)"
status=0
"$tessel" zip cat a.zip broken.bin > out 2> err || status=$?
[ "$status" = 1 ] || fail "wrong checksum exits $status"
grep -qx 'tessel: 0x0004000d The file is corrupted.' err || fail "wrong checksum: $(cat err)"
cmp out member_4 || fail "the data before the checksum"
status=0
"$tessel" zip list expected_list.txt > out 2> err || status=$?
[ "$status" = 1 ] && grep -qx 'tessel: 0x0004000d The file is corrupted.' err || fail "not an archive"
status=0
"$tessel" zip list no-such.zip > out 2> err || status=$?
[ "$status" = 1 ] && grep -q '^tessel: 0x00040011 ' err || fail "no file: $(cat err)"
echo "ok   errors"
