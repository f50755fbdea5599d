#!/bin/sh
# A translated message table in the data archive beside the library replaces the built-in
# texts; a damaged one is ignored. Checked for the tool, which carries the library inside
# its own file (the archive is tessel.dat beside it, or appended to it), and for the shared
# library loaded by a host (libtessel_link.dat beside libtessel_link.so).
#
# Usage: replaced_table.sh WORKDIR TESSEL LIBRARY HOST MSGTABLE_PY ROWS
set -eu
work=$1 tessel=$2 library=$3 host=$4 msgtable=$5 rows=$6

rm -rf "$work"
mkdir -p "$work/tables" "$work/tool" "$work/appended" "$work/lib"
cd "$work"

# The translation: row 13 in another language, everything else as built.
sed 's/^13\tAccess is denied\.$/13\tZugriff verweigert./' "$rows" > tables/rows.txt
grep -q 'Zugriff' tables/rows.txt
python3 "$msgtable" tables/rows.txt tables/unused.cpp tables/good.msg

# Archives of the good table and of two damaged ones: a size word that is off, and an
# index entry that leads outside the block while size and signature are right.
python3 - tables <<'PY'
import struct, sys, zipfile, os
d = sys.argv[1]
good = open(os.path.join(d, "good.msg"), "rb").read()
bad_size = struct.pack("<I", len(good) + 4) + good[4:]
entry = 8 + 4 * 13
bad_index = good[:entry] + struct.pack("<i", len(good) * 2) + good[entry + 4:]
for name, block in (("good", good), ("bad_size", bad_size), ("bad_index", bad_index)):
    with zipfile.ZipFile(os.path.join(d, name + ".dat"), "w", zipfile.ZIP_DEFLATED) as z:
        z.writestr("tessel_link.msg", block)
PY

expect() {  # expect WHAT TEXT COMMAND...
    what=$1 text=$2
    shift 2
    got=$("$@")
    if [ "$got" != "$text" ]; then
        echo "FAIL $what: got '$got', expected '$text'" >&2
        exit 1
    fi
    echo "ok   $what"
}

builtin="Access is denied."
translated="Zugriff verweigert."

cp "$tessel" tool/tessel
expect "tool without a data archive" "$builtin" tool/tessel message 13
cp tables/good.dat tool/tessel.dat
expect "tool with tessel.dat" "$translated" tool/tessel message 13
expect "other rows stay" "Creation has failed." tool/tessel message 17
cp tables/bad_size.dat tool/tessel.dat
expect "tool with a wrong size word" "$builtin" tool/tessel message 13
cp tables/bad_index.dat tool/tessel.dat
expect "tool with an index entry outside the table" "$builtin" tool/tessel message 13

cat "$tessel" tables/good.dat > appended/tessel
chmod +x appended/tessel
expect "tool with the archive appended to itself" "$translated" appended/tessel message 13

cp "$library" lib/libtessel_link.so
expect "library without a data archive" "$builtin" "$host" "$work/lib/libtessel_link.so" 13
cp tables/good.dat lib/libtessel_link.dat
expect "library with libtessel_link.dat" "$translated" "$host" "$work/lib/libtessel_link.so" 13
cp tables/bad_index.dat lib/libtessel_link.dat
expect "library with a damaged table" "$builtin" "$host" "$work/lib/libtessel_link.so" 13
