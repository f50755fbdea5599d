#!/usr/bin/env python3
"""Checks what the shared library shows the dynamic linker: its SONAME, and that every
symbol it defines for others is one of the two C entry points or lies in a namespace that
the public headers open. Anything else (an instantiation of a standard template, a helper
in the global namespace) is a leak that hosts could come to depend on.

Usage: check_dynamic_symbols.py LIBRARY SONAME HEADER_DIR...
"""
import re
import subprocess
import sys
from pathlib import Path

ENTRY_POINTS = {"CreateProxy", "CheckInXIDLTypes"}


def header_namespaces(dirs):
    names = set()
    for d in dirs:
        for header in Path(d).rglob("*.h"):
            for m in re.finditer(r"^namespace ([A-Za-z_]\w*)", header.read_text(), re.M):
                names.add(m.group(1))
    names.discard("std")  # opened to specialize standard templates, never the library's
    return names


def first_name(mangled):
    """The outermost name of the entity a mangled symbol stands for: the namespace of a
    nested name, or the name itself at global scope. None when it is not understood."""
    s = mangled[2:]
    # Special names: typeinfo, its name, vtable, VTT, construction vtable, guard variable,
    # thread-local init and wrapper functions, thunks.
    m = re.match(r"(T[IVST]|TC|GV|TH|TW|Thn?\d+_|Tvn?\d+_n?\d+_|Tc)", s)
    if m:
        s = s[m.end():]
    if s.startswith("Z"):  # an entity local to a function: judged by that function
        s = s[1:]
    if s.startswith("St") or s.startswith("NSt") or re.match(r"N[rVKRO]*St", s):
        return "std"
    m = re.match(r"N[rVKRO]*(\d+)", s) or re.match(r"(\d+)", s)
    if not m:
        return None
    length = int(m.group(1))
    return s[m.end():m.end() + length]


def main():
    library, soname, *header_dirs = sys.argv[1:]
    failures = []

    dynamic = subprocess.run(["readelf", "-d", library], check=True, capture_output=True,
                             text=True).stdout
    m = re.search(r"\(SONAME\)\s+Library soname: \[([^\]]+)\]", dynamic)
    if not m or m.group(1) != soname:
        failures.append(f"SONAME is {m.group(1) if m else 'missing'}, expected {soname}")

    namespaces = header_namespaces(header_dirs)
    listing = subprocess.run(["nm", "-D", "--defined-only", library], check=True,
                             capture_output=True, text=True).stdout
    symbols = []
    for line in listing.splitlines():
        parts = line.split()
        if len(parts) < 3 or parts[1] == "A":  # version definitions are not symbols
            continue
        symbols.append(parts[2].split("@")[0])

    leaks = []
    for sym in symbols:
        if sym in ENTRY_POINTS:
            continue
        if not sym.startswith("_Z") or first_name(sym) not in namespaces:
            leaks.append(sym)
    missing = ENTRY_POINTS - set(symbols)
    if missing:
        failures.append("entry points not exported: " + ", ".join(sorted(missing)))
    if leaks:
        shown = subprocess.run(["c++filt"], input="\n".join(leaks), capture_output=True,
                               text=True).stdout.splitlines() or leaks
        shown = [s if len(s) <= 200 else s[:197] + "..." for s in shown]
        failures.append(f"{len(leaks)} symbols outside the library's namespaces:\n  " +
                        "\n  ".join(shown[:40]) + ("\n  ..." if len(shown) > 40 else ""))

    if failures:
        print("\n".join(failures), file=sys.stderr)
        return 1
    print(f"{len(symbols)} dynamic symbols, all in {len(namespaces)} namespaces of the "
          f"public headers or C entry points; SONAME {soname}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
