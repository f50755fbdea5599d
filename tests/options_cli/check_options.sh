#!/bin/sh
# Usage: check_options.sh TESSEL
# What the subcommands ask of their options reaches the parser: required words, exact
# counts, ranges of both signs, conversions to each bound type, defaults and value names in
# --help, and whether an option was given. Usage errors exit with status 2 and print
# nothing on standard output.
set -u
tessel=$1
failures=0

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# expect STATUS TEXT ARGS...: exits with STATUS and prints TEXT on standard error.
expect() {
    status=$1
    text=$2
    shift 2
    "$tessel" "$@" > out 2> err < /dev/null
    got=$?
    [ "$got" -eq "$status" ] || fail "$*: status $got, not $status"
    grep -qF -- "$text" err || fail "$*: '$(cat err)' does not say '$text'"
    if [ "$status" -eq 2 ] && [ -s out ]; then fail "$*: a usage error printed on standard output"; fi
}

# expect_help TEXT ARGS...: --help exits with 0 and shows TEXT.
expect_help() {
    text=$1
    shift
    "$tessel" "$@" --help > out 2> err < /dev/null || fail "$* --help: status $?"
    grep -qF -- "$text" out || fail "$* --help does not show '$text'"
}

dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"

# Required positionals and options.
expect 2 "tessel: FILE is required (see --help)" alloc
expect 2 "COMPONENT METHOD [JSON] is required" call --connect x
expect 2 "--connect is required" call 145 GetMachineID

# Exact counts of values.
expect 2 "COMPONENT METHOD: At least 2 required but received 1" request 145
expect 2 "COMPONENT METHOD: At Most 2 required but received 3" request 145 GetMachineID extra
expect 2 "IMAGE FRN: At least 2 required but received 1" usn lookup image
expect 2 "--count: 1 required N missing" watch --count

# Ranges: a signed one and an unsigned one, both ends.
expect 2 "--threads: Value 0 not in range 1 to 256" serve --threads 0
expect 2 "--threads: Value 257 not in range 1 to 256" serve --threads 257
expect 2 "--threads: Value -1 not in range 1 to 256" serve --threads -1
expect 2 "--tick: Value 3600001 not in range 0 to 3600000" serve --tick 3600001
expect 2 "--tick: Value -5 not in range 0 to 3600000" serve --tick -5

# Conversions to 32- and 64-bit numbers.
expect 2 "Could not convert: --options = 4294967296" backup --options 4294967296 a b
expect 2 "Could not convert: --options = 99999999999" restore --options 99999999999 a b
expect 2 "Could not convert: --timeout = abc" call --timeout abc --connect x a b

# Words that no subcommand takes.
expect 2 "The following argument was not expected: --bogus" ls --bogus
expect 2 "The following argument was not expected: extra" guid new extra

# Whether an option was given, as the commands see it after parsing.
expect 2 "--list takes one chunk file" backup --list --options 3 a
expect 2 "--from takes a USN in decimal" usn read --from "" image
expect 2 "--silent is for the service in the process" events demo --silent --connect x

# Defaults, ranges and value names as --help shows them.
expect_help "--threads UINT:INT in [1 - 256]=4" serve
expect_help "--tick MS:UINT in [0 - 3600000]=1000" serve
expect_help "--listen TEXT=tcp://127.0.0.1:7450" serve
expect_help "--timeout UINT=30000" call
expect_help "--as USER" ls
expect_help "COMPONENT METHOD TEXT x 2 REQUIRED" request
expect_help "usage: tessel zip cat FILE MEMBER" zip cat

# Flags and a given value reach the command.
"$tessel" record ArchiveManagement::PagingOptions --members > out 2> err || fail "record --members: status $?"
grep -qx 'Position' out || fail "record --members printed no member names: $(cat out)"
"$tessel" message 11 > out 2> err || fail "message 11: status $?"
[ -s out ] || fail "message 11 printed nothing"

[ "$failures" -eq 0 ] || exit 1
echo ok
