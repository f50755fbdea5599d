#!/usr/bin/env bash
# `tessel serve` in one process and `tessel call` in others, over a Unix socket and over a
# loopback TCP port: one call for each form an argument takes, with the JSON that comes back
# checked. Usage: two_processes.sh TESSEL
set -euo pipefail
tessel=$1
work=$(mktemp -d)
server=
trap '[[ -n $server ]] && kill $server 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT

fail() { echo "FAIL: $*" >&2; exit 1; }

# Starts a server at $1 and sets $address to where it listens. It has four threads, as the
# tool has by default: the two event queues' fetches each hold one while they wait, and a
# removal's cancel must find one free to end its fetch at once (with two, it waited up to
# three fetch waits for one, about 730 ms, and more under load).
start() {
    "$tessel" serve --listen "$1" --threads 4 --tick 100 >"$work/serve.out" 2>"$work/serve.err" &
    server=$!
    for _ in $(seq 100); do
        if grep -q '^listening on ' "$work/serve.out"; then
            address=$(sed -n 's/^listening on //p' "$work/serve.out")
            return
        fi
        sleep 0.05
    done
    fail "the server did not start: $(cat "$work/serve.err")"
}

stop() {
    kill -TERM "$server"
    wait "$server" || fail "the server did not end cleanly on SIGTERM"
    server=
}

# call EXPECTED_STATUS COMPONENT METHOD [JSON]: runs the call, leaves its output in $work/out.
call() {
    local expected=$1
    shift
    local status=0
    "$tessel" call --connect "$address" "$@" >"$work/out" 2>"$work/err" || status=$?
    [[ $status == "$expected" ]] || fail "call $* exited $status, not $expected: $(cat "$work/out" "$work/err")"
}

# check PYTHON_EXPRESSION: true of the last reply, parsed as `r`.
check() {
    python3 -c '
import json, sys
r = json.load(open(sys.argv[1]))
if not eval(sys.argv[2]):
    print(json.dumps(r, indent=1)); sys.exit(1)' "$work/out" "$1" || fail "not true of the reply: $1"
}

exercise() {
    # Scalars in, an out argument named "result" back beside the call's own result.
    call 0 TestManager GetData '{"hostname": "h1", "size": 5}'
    check 'r["result"] == {"code": 0, "text": ""} and r["out"]["result"] == "5 bytes of test data from h1"'
    # No arguments at all; missing ones take their defaults.
    call 0 188 1
    check 'r["out"] == {}'

    # A record with nested records, a map and an enumeration; a logon; an optional given.
    call 0 ArchiveManager CreateArchive2 '{
        "locationUri": "loc", "type": 7,
        "locationCredential": {"UserName": "ann", "Password": "s3cret"},
        "settings": {"Name": "a1", "ProtectedByPassword": true,
                     "CleanupRules": {"Type": 1, "SimpleCleanup": {"BackupsToKeep": {"Type": 2, "Value": 9}}},
                     "Attributes": {"color": "blue", "size": "big"}},
        "security": {"OwnerName": "Ann", "MachineName": "m1"}}'
    check 'r["out"] == {"archiveUri": "loc/a1"}'
    # The optional left null.
    call 0 ArchiveManager CreateArchive2 '{"locationUri": "loc", "settings": {"Name": "a2"},
        "locationCredential": {"UserName": "ann", "Password": "s3cret"}, "security": null}'
    check 'r["out"]["archiveUri"] == "loc/a2"'

    # The record comes back whole, nested records and map included.
    call 0 ArchiveManager FindArchive '{"locationUri": "loc", "archive": "a1",
        "locationCredential": {"UserName": "ann", "Password": "s3cret"}}'
    check 'r["out"]["archiveInfo"]["OwnerName"] == "Ann" and r["out"]["archiveInfo"]["Type"] == 7'
    check 'r["out"]["archiveInfo"]["Settings"]["CleanupRules"]["SimpleCleanup"]["BackupsToKeep"] == {"Type": 2, "Value": 9}'
    check 'r["out"]["archiveInfo"]["Settings"]["Attributes"] == {"color": "blue", "size": "big"}'
    check 'r["out"]["archiveInfo"]["Settings"]["ProtectedByPassword"] is True'

    # A container of records.
    call 0 161 GetArchivesInfo '{"archivesUri": ["loc/a1", "loc/a2"],
        "locationCredential": {"UserName": "ann", "Password": "s3cret"}}'
    check '[i["ArchiveUri"] for i in r["out"]["archivesInfo"]] == ["loc/a1", "loc/a2"]'
    check 'r["out"]["archivesInfo"][1]["OwnerName"] == ""'

    # An obscured password: given as plain text, it reaches the service as it was given.
    call 0 ArchiveManager Validate '{"targets": ["loc/a1"], "archivePassword": "s3cret",
        "locationCredential": {"UserName": "ann", "Password": "s3cret"}}'
    call 1 ArchiveManager Validate '{"targets": ["loc/a1"], "archivePassword": "wrong",
        "locationCredential": {"UserName": "ann", "Password": "s3cret"}}'
    check 'r["result"]["code"] == 0x20000012 and "wrong archive password" in r["result"]["text"] and r["out"] == {}'
    # The credentials pair: a wrong password in the logon is refused.
    call 1 ArchiveManager FindArchive '{"locationUri": "loc", "archive": "a1",
        "locationCredential": {"UserName": "ann", "Password": "guess"}}'
    check 'r["result"]["code"] == 0x20000012'

    # GUIDs and containers of records through the instance manager.
    call 0 InstanceManager Add '{"item": {"FullPath": "/srv/one"}}'
    call 0 InstanceManager GetIDs
    check 'len(r["out"]["ids"]) == 1 and len(r["out"]["ids"][0]) == 36'
    local id
    id=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["out"]["ids"][0])' "$work/out")
    call 0 InstanceManager GetList "{\"ids\": [\"$id\"]}"
    check 'r["out"]["result"][0]["FullPath"] == "/srv/one"'

    # The event service: its ticks wait in a queue of their type until fetched.
    call 0 EventManager CreateQueue '{"type": 3}'
    local queue
    queue=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["out"]["result"])' "$work/out")
    for _ in $(seq 20); do
        call 0 EventManager AbsorbQueue "{\"id\": $queue}"
        python3 -c 'import json,sys; sys.exit(not json.load(open(sys.argv[1]))["out"]["result"])' "$work/out" && break
    done
    check 'r["out"]["result"][0]["Type"] == 3 and r["out"]["result"][0]["Message"].startswith("tick ")'
    call 0 EventManager DestroyQueue "{\"id\": $queue}"
    # A client's event proxy over the socket: its sinks receive the events raised through the
    # service's Dispatch, and each removal ends its fetch at once instead of waiting it out.
    "$tessel" events demo --connect "$address" --events 4 >"$work/out" 2>"$work/err" ||
        fail "events demo over the socket: $(cat "$work/out" "$work/err")"
    python3 - "$work/out" <<'PY' || fail "events over the socket: $(cat "$work/out")"
import re, sys
lines = open(sys.argv[1]).read().splitlines()
got = sorted(re.sub(r" time=\S+", "", l) for l in lines if l.startswith("deliver"))
want = sorted(["deliver  sink=console type=1 message=job 1 changed",
               "deliver  sink=console type=2 message=task 2 changed",
               "deliver  sink=agent type=2 message=task 2 changed",
               "deliver  sink=console type=1 message=job 3 changed",
               "deliver  sink=console type=2 message=task 4 changed",
               "deliver  sink=agent type=2 message=task 4 changed"])
assert got == want, got
took = [float(m.group(1)) for m in (re.search(r"^unsubscribe .* took=([0-9.]+) ms$", l) for l in lines) if m]
assert len(took) == 3 and max(took) < 1000, took
PY
    "$tessel" events demo --connect "$address" --silent >"$work/out" 2>&1 && fail "--silent taken with --connect"

    # Usage errors exit 2 and reach no service.
    call 2 TestManager GetData '{"nosuch": 1}'
    call 2 TestManager GetData '{"size": "five"}'
    call 2 TestManager GetData '[1, 2]'
}

start "unix:$work/tessel.sock"
[[ $address == "unix:$work/tessel.sock" ]] || fail "listening on $address"
exercise
stop
# Nobody listens any more: the call fails with the connection's error and exit status 1.
call 1 TestManager Test
check 'r["result"]["code"] == 0xb90040 and "cause" in r["result"]'

start "tcp://127.0.0.1:0"
[[ $address =~ ^tcp://127\.0\.0\.1:[0-9]+$ && $address != "tcp://127.0.0.1:0" ]] || fail "listening on $address"
exercise
stop
echo "two processes: all calls as expected"
