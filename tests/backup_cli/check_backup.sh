#!/bin/sh
# Backs files of every kind up with the tool, restores them, and compares everything a
# backup must keep; damaged chunk files must be refused before the target is touched.
set -eu
tool=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# Everything compared of a file: type, mode, owner, size, last write time in milliseconds,
# allocated blocks, extended attributes (ACLs among them), and a link's target.
describe() {
    python3 - "$1" <<'PY'
import os, stat, sys
p = sys.argv[1]
st = os.lstat(p)
out = [stat.filemode(st.st_mode), str(st.st_uid), str(st.st_gid), str(st.st_mtime_ns // 1000000)]
if stat.S_ISREG(st.st_mode):
    out += [str(st.st_size), str(st.st_blocks // 8)]
if stat.S_ISLNK(st.st_mode):
    out.append(os.readlink(p))
else:
    for name in sorted(os.listxattr(p)):
        out.append(name + "=" + os.getxattr(p, name).hex())
print(" ".join(out))
PY
}

roundtrip() {
    name=$1
    shift
    "$tool" backup "$@" "$dir/$name" "$dir/$name.chunks" || fail "backup of $name"
    "$tool" restore "$@" "$dir/$name.chunks" "$dir/$name.copy" || fail "restore of $name"
    [ "$(describe "$dir/$name")" = "$(describe "$dir/$name.copy")" ] ||
        fail "$name differs: $(describe "$dir/$name") / $(describe "$dir/$name.copy")"
    if [ -f "$dir/$name" ] && [ ! -L "$dir/$name" ]; then
        cmp -s "$dir/$name" "$dir/$name.copy" || fail "content of $name"
    fi
}

head -c 300000 /dev/urandom > "$dir/random"
chmod 640 "$dir/random"
python3 -c "import os,sys; [os.setxattr(sys.argv[1], 'user.n%d' % i, os.urandom(20 + i)) for i in range(10)]" "$dir/random"
setfacl -m u:nobody:r-x,g:daemon:rw "$dir/random"
roundtrip random

truncate -s 64M "$dir/sparse"
for at in 0 20 50; do
    head -c 100000 /dev/urandom | dd of="$dir/sparse" bs=1M seek="$at" conv=notrunc status=none
done
roundtrip sparse
[ "$(du -k "$dir/sparse.copy" | cut -f1)" -lt 2048 ] || fail "the holes were filled"

: > "$dir/empty"
roundtrip empty
ln -s "no such target" "$dir/link"
roundtrip link
mkdir "$dir/tree"
chmod 2750 "$dir/tree"
setfacl -d -m u:nobody:rx "$dir/tree"
roundtrip tree

# The listing: chunks, and the stream headers inside the backup stream.
"$tool" backup --list "$dir/random.chunks" > "$dir/list"
grep -qx 'chunk 1 4' "$dir/list" || fail "attributes chunk listed: $(cat "$dir/list")"
grep -qx '  stream 1 0x00000000 300000 ' "$dir/list" || fail "data stream listed"
grep -qx '  stream 4 0x00000000 20 user.n0' "$dir/list" || fail "named stream listed"
grep -q '^  stream 3 0x00000002 ' "$dir/list" || fail "security stream listed"
[ "$(tail -1 "$dir/list")" = 'chunk 5 16' ] || fail "times chunk last"
# Three runs as sparse blocks, and an empty one that gives the length.
[ "$("$tool" backup --list "$dir/sparse.chunks" | grep -c '^  stream 9 0x00000008 ')" = 4 ] ||
    fail "sparse blocks listed"
"$tool" backup --options 8 "$dir/random" "$dir/data.chunks"
[ "$("$tool" backup --list "$dir/data.chunks" | grep -c stream)" = 1 ] || fail "option 8"

# Damaged files: refused with the corruption code, and no target is made.
expect_refused() {
    what=$1
    if "$tool" restore "$dir/bad" "$dir/bad.copy" 2>"$dir/err"; then fail "$what restored"; fi
    grep -q '^tessel: 0x0004000d ' "$dir/err" || fail "$what: $(cat "$dir/err")"
    [ ! -e "$dir/bad.copy" ] || fail "$what left a target"
}
size=$(wc -c < "$dir/random.chunks")
head -c $((size - 5)) "$dir/random.chunks" > "$dir/bad"
expect_refused "a length past the end"
head -c 20 "$dir/random.chunks" > "$dir/bad"
expect_refused "a short record"
cp "$dir/random.chunks" "$dir/bad"
printf 'c' | dd of="$dir/bad" bs=1 seek=16 conv=notrunc status=none
expect_refused "an unknown type"
cp "$dir/random.chunks" "$dir/bad"
printf '\012' | dd of="$dir/bad" bs=1 seek=28 conv=notrunc status=none
expect_refused "a broken stream header"
grep -q 'caused by: 0x0004000d .*stream header' "$dir/err" || fail "the reason: $(cat "$dir/err")"
"$tool" backup --list "$dir/bad" >/dev/null 2>&1 && fail "a damaged file listed"

if "$tool" backup "$dir/missing" "$dir/missing.chunks" 2>"$dir/err"; then fail "missing backed up"; fi
grep -q 'GetFileAttributesExW' "$dir/err" || fail "missing: $(cat "$dir/err")"
[ ! -e "$dir/missing.chunks" ] || fail "a failed backup left its file"
"$tool" backup --help | grep -q 'usage: tessel backup' || fail "backup help"
"$tool" restore --help | grep -q 'usage: tessel restore' || fail "restore help"
echo ok
