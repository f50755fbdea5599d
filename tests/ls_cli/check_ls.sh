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
# Another user's listing: a directory only its owner may read is refused to nobody with
# access denied beneath, and listed without the token (when root, who may act for others).
if [ "$(id -u)" = 0 ]; then
    chmod 700 "$dir/sub"
    if "$tool" ls --as nobody "$dir/sub" 2>"$dir.err" >/dev/null; then fail "nobody listed a private directory"; fi
    grep -q 'errno 13' "$dir.err" || fail "--as refusal: $(cat "$dir.err")"
    "$tool" ls "$dir/sub" >/dev/null || fail "the owner's own listing"
    "$tool" ls --as nobody / | grep -qx 'tmp' || fail "--as nobody lists a public directory"
    rm -f "$dir.err"
fi
if "$tool" ls --as no-such-user-here "$dir" 2>"$dir.err" >/dev/null; then fail "unknown user accepted"; fi
grep -q '^tessel: 0x00040025 ' "$dir.err" || fail "unknown user error: $(cat "$dir.err")"
rm -f "$dir.err"
"$tool" ls --help | grep -q 'usage: tessel ls' || fail "help"
echo ok
