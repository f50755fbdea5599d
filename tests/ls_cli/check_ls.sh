#!/bin/sh
# Lists a tree of odd names in every form and checks that each name comes back exactly.
set -eu
tool=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
printf 'abc' > "$dir/a b"
touch "$dir/$(printf 'new\nline')" "$dir/$(printf '\377\376')" "$dir/back\\slash"
ln -s "a b" "$dir/link"
mkdir "$dir/sub"
fail() { echo "FAIL: $*" >&2; exit 1; }

plain=$("$tool" ls "$dir" | LC_ALL=C sort | od -An -c | tr -s ' \n' ' ')
expected=$(printf 'a b\nback\\\\slash\nlink\nnew\\x0aline\nsub\n\377\376\n' | LC_ALL=C sort | od -An -c | tr -s ' \n' ' ')
[ "$plain" = "$expected" ] || fail "plain listing: $plain"

"$tool" ls --long "$dir" | grep -q '^link .* link -> a b$' || fail "long form of the link"
"$tool" ls --long "$dir" | grep -q '^file  *3 .* a b$' || fail "long form of the file"

"$tool" ls --json "$dir" | python3 -c '
import json, sys
rows = json.load(sys.stdin)
names = sorted(r["name"].encode("utf-8", "surrogateescape") for r in rows)
want = sorted([b"a b", b"back\\slash", b"link", b"new\nline", b"sub", b"\xff\xfe"])
assert names == want, names
link = [r for r in rows if r["name"] == "link"][0]
assert link["type"] == "link" and link["target"] == "a b", link
f = [r for r in rows if r["name"] == "a b"][0]
assert f["type"] == "file" and f["size"] == 3 and f["links"] == 1, f
assert set(f) == {"name", "type", "size", "allocated", "links", "mode", "uid", "mtime_ms", "target"}, f
' || fail "json listing"

if "$tool" ls "$dir/missing" 2>"$dir.err" >/dev/null; then fail "missing path listed"; fi
grep -q '^tessel: 0x00040011 ' "$dir.err" || fail "missing path error: $(cat "$dir.err")"
grep -q 'caused by: 0x0000fff1 errno 2' "$dir.err" || fail "missing path cause"
rm -f "$dir.err"

"$tool" ls | head -1 | grep -qx '/' || fail "the roots begin with /"
if "$tool" ls --as nobody "$dir" 2>/dev/null; then fail "--as accepted"; fi
"$tool" ls --help | grep -q 'usage: tessel ls' || fail "help"
echo ok
