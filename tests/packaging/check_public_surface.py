#!/usr/bin/env python3
"""Checks the split between the API and the headers that only the library and its generated
code use (include/tessel_link/impl/).

    check_public_surface.py SOURCE_DIR

- No hand-written header outside impl/ includes one inside it: the API must not lean on
  what a host is told not to use.
- Every impl/ header says near its top that it is not API.
- Every other hand-written header starts with a comment that says what it is for; without
  it the API reference leaves out the header's free functions and constants.
- The umbrella header includes every hand-written header outside impl/ and none inside,
  except the helpers for a host's own tests (testing/), which are included on their own,
  and the headers of the network companion (net/), which belong to a library of their own.
- The example hosts include nothing from impl/ (they show what a host may use).
Prints every fault and exits 1 if there is any.
"""
import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"](tessel_link/[^>"]+)[>"]', re.M)


def headers(root):
    for directory, _, files in os.walk(root):
        for name in files:
            if name.endswith(".h"):
                yield os.path.join(directory, name)


def main(source):
    include_dir = os.path.join(source, "include")
    faults = []
    public = set()
    for path in headers(os.path.join(include_dir, "tessel_link")):
        name = os.path.relpath(path, include_dir)
        text = open(path, encoding="utf-8").read()
        if name.startswith("tessel_link/impl/"):
            head = "\n".join(text.splitlines()[:6])
            if "Not API" not in head:
                faults.append(f"{name}: no 'Not API' comment at its top")
            continue
        public.add(name)
        first = next((line for line in text.splitlines()[1:] if line.strip()), "")
        if not first.startswith("//"):
            faults.append(f"{name}: does not start with a comment that says what it is for")
        for included in INCLUDE.findall(text):
            if included.startswith("tessel_link/impl/"):
                faults.append(f"{name}: includes {included}")

    umbrella_name = "tessel_link/tessel_link.h"
    umbrella = set(INCLUDE.findall(open(os.path.join(include_dir, umbrella_name)).read()))
    alone = {umbrella_name, "tessel_link/export.h"}
    for name in sorted(n for n in public - umbrella - alone
                       if not n.startswith(("tessel_link/testing/", "tessel_link/net/"))):
        faults.append(f"{umbrella_name}: does not include {name}")
    for name in sorted(umbrella):
        if name.startswith("tessel_link/impl/"):
            faults.append(f"{umbrella_name}: includes {name}")

    for path in sorted(p for d in ("examples",) for p in
                       (os.path.join(dp, f) for dp, _, fs in os.walk(os.path.join(source, d))
                        for f in fs if f.endswith((".h", ".cpp")))):
        for included in INCLUDE.findall(open(path, encoding="utf-8").read()):
            if included.startswith("tessel_link/impl/"):
                faults.append(f"{os.path.relpath(path, source)}: includes {included}")

    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
