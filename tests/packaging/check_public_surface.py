#!/usr/bin/env python3
"""Checks the split between the API and the headers that only the library and its generated
code use (include/tessel_link/impl/).

    check_public_surface.py SOURCE_DIR

- No hand-written header outside impl/ opens a Detail namespace: what a host must not touch
  lives under impl/ (or in src/), so that the public headers show only the API.
- A header outside impl/ includes from impl/ only headers that declare nothing outside a
  Detail namespace (forward declarations of classes aside): the API may lean on the pieces
  its inline code and templates need, but a host that includes it gets no other name.
- The namespace is spelt `Detail` everywhere (headers, sources, the tool, the interface
  compiler's templates), never `detail`.
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
# `namespace Detail {`, `namespace Por::Util::Detail {` and the lower-case spelling.
DETAIL_NAMESPACE = re.compile(r"\bnamespace\s+(?:\w+\s*::\s*)*[Dd]etail\b")
LOWER_DETAIL = re.compile(r"\bnamespace\s+(?:\w+\s*::\s*)*detail\b|\bdetail::")
# Comments, string and character literals, and preprocessor lines (with their continuations).
NOISE = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|'
                   r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.S | re.M)
TOKEN = re.compile(r"namespace\s+([\w:\s]*?)\s*\{|[{};]")
FORWARD = re.compile(r"^(?:class|struct)\s+\w+$")


def outside_detail(text):
    """The declarations of a header that stand at namespace scope outside every Detail
    namespace, forward declarations of classes aside."""
    text = NOISE.sub(" ", text)
    found = []
    stack = []  # per open brace: "detail", "namespace" or "block"
    start = 0
    for token in TOKEN.finditer(text):
        exposed = all(kind == "namespace" for kind in stack)
        statement = " ".join(text[start:token.start()].split())
        if token.group(0).startswith("namespace"):
            if exposed and statement:
                found.append(statement)
            last = token.group(1).replace(" ", "").split("::")[-1]
            stack.append("detail" if last == "Detail" else "namespace")
        elif token.group(0) == "{":
            if exposed:
                found.append(statement + " {...}")
            stack.append("block")
        elif token.group(0) == "}":
            if exposed and statement:
                found.append(statement)
            if stack:
                stack.pop()
        elif exposed and statement and not FORWARD.match(statement):
            found.append(statement)
        start = token.end()
    rest = " ".join(text[start:].split())
    if rest:
        found.append(rest)
    return found


def read(path):
    with open(path, encoding="utf-8") as source:
        return source.read()


def headers(root):
    for directory, _, files in os.walk(root):
        for name in files:
            if name.endswith(".h"):
                yield os.path.join(directory, name)


def main(source):
    include_dir = os.path.join(source, "include")
    faults = []
    public = set()
    leaned_on = {}  # impl/ header -> a public header that includes it
    for path in headers(os.path.join(include_dir, "tessel_link")):
        name = os.path.relpath(path, include_dir)
        text = read(path)
        if name.startswith("tessel_link/impl/"):
            head = "\n".join(text.splitlines()[:6])
            if "Not API" not in head:
                faults.append(f"{name}: no 'Not API' comment at its top")
            continue
        public.add(name)
        first = next((line for line in text.splitlines()[1:] if line.strip()), "")
        if not first.startswith("//"):
            faults.append(f"{name}: does not start with a comment that says what it is for")
        if DETAIL_NAMESPACE.search(NOISE.sub(" ", text)):
            faults.append(f"{name}: opens a Detail namespace outside impl/")
        for included in INCLUDE.findall(text):
            if included.startswith("tessel_link/impl/"):
                leaned_on.setdefault(included, name)

    for included, name in sorted(leaned_on.items()):
        path = os.path.join(include_dir, included)
        if not os.path.isfile(path):
            faults.append(f"{name}: includes {included}, which does not exist")
            continue
        for declaration in outside_detail(read(path)):
            faults.append(f"{included} (included by {name}) declares outside Detail: "
                          f"{declaration[:70]}")

    for directory in ("include", "src", "cli", "tools/xidlc", "tests", "bench", "fuzz", "examples"):
        for dirpath, _, files in os.walk(os.path.join(source, directory)):
            for file in files:
                path = os.path.join(dirpath, file)
                # The check and its own test spell it wrong on purpose.
                if (not file.endswith((".h", ".cpp", ".py"))
                        or os.path.samefile(dirpath, os.path.dirname(os.path.abspath(__file__)))):
                    continue
                if LOWER_DETAIL.search(read(path)):
                    faults.append(f"{os.path.relpath(path, source)}: spells Detail 'detail'")

    umbrella_name = "tessel_link/tessel_link.h"
    umbrella = set(INCLUDE.findall(read(os.path.join(include_dir, umbrella_name))))
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
        for included in INCLUDE.findall(read(path)):
            if included.startswith("tessel_link/impl/"):
                faults.append(f"{os.path.relpath(path, source)}: includes {included}")

    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
