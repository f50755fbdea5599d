#!/usr/bin/env python3
"""xidlc: reads the interface definitions and writes the generated C++ of the library.

    xidlc.py --order xidl/modules.txt --out DIR        write every generated file under DIR
    xidlc.py --order xidl/modules.txt --list-outputs   print the paths it would write, relative to DIR
    xidlc.py --order xidl/modules.txt --json           print the resolved definitions as JSON

The order file lists the definition files, one per line, in the order in which their types
are registered; paths in it are relative to the file itself.
"""

import argparse
import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from xidl_parser import DefinitionError, parse_file  # noqa: E402
from xidl_model import Enum, Extern, Model, Polymorphic, Record  # noqa: E402
import xidl_cpp  # noqa: E402
import xidl_por  # noqa: E402


def read_order(path):
    base = os.path.dirname(os.path.abspath(path))
    files = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if line:
                files.append(os.path.join(base, line))
    return files


def outputs(model):
    result = ["tessel_link/xidl/records.h", "xidl/catalogue.cpp", xidl_por.OUTPUT]
    result += [xidl_cpp.module_header_path(m) for m in model.modules]
    for m in model.modules:
        result.append("xidl/%s.cpp" % m.stem)
        if m.hierarchies():
            result.append("xidl/%s_polytypes.cpp" % m.stem)
    return result


def write_if_changed(path, text):
    try:
        with open(path, encoding="utf-8") as f:
            if f.read() == text:
                return
    except FileNotFoundError:
        pass
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path + ".tmp", "w", encoding="utf-8") as f:
        f.write(text)
    os.replace(path + ".tmp", path)


def as_json(model):
    def member(m):
        return {"name": m.name, "type": m.type.text(), "form": m.type.form(), "chosen": m.chosen,
                "traits": [[n, v] for n, v in m.traits], "default": m.default}

    types = []
    for t in model.all_types():
        entry = {"name": t.full_name, "module": t.module.namespace, "file": os.path.basename(t.module.path)}
        if isinstance(t, Record):
            entry.update(kind="abstract record" if t.abstract else "record", version=t.version,
                         base=t.base.full_name if t.base else None,
                         members=[member(m) for m in t.members],
                         wire=[m.name for m in t.wire_members()],
                         overrides=[[n, v] for n, v, _ in t.overrides],
                         numbers=t.numbers, number_from=t.number_from, unhandled=t.unhandled)
        elif isinstance(t, Polymorphic):
            entry.update(kind="polymorphic", version=t.version, element=t.element, number=t.number,
                         unknown=t.unknown, fields=[member(f) for f in t.fields],
                         kinds=[k.full_name for k in t.kinds])
        elif isinstance(t, Enum):
            entry.update(kind="enum", values=t.values)
        elif isinstance(t, Extern):
            entry.update(kind="extern", header=t.header)
        types.append(entry)
    return {"types": types, "checked_in": [t.full_name for t in model.checked_in()]}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--order", required=True, help="the file that lists the definition files")
    parser.add_argument("--out", help="the directory to write into")
    parser.add_argument("--list-outputs", action="store_true")
    parser.add_argument("--json", action="store_true")
    args = parser.parse_args()
    try:
        model = Model([parse_file(p) for p in read_order(args.order)])
    except (DefinitionError, OSError) as e:
        print("xidlc: %s" % e, file=sys.stderr)
        return 1
    if args.list_outputs:
        print(";".join(outputs(model)))
        return 0
    if args.json:
        json.dump(as_json(model), sys.stdout, indent=1)
        print()
        return 0
    if not args.out:
        parser.error("--out is needed to write files")
    write_if_changed(os.path.join(args.out, "tessel_link/xidl/records.h"), xidl_cpp.header(model))
    write_if_changed(os.path.join(args.out, "xidl/catalogue.cpp"), xidl_cpp.catalogue_unit(model))
    write_if_changed(os.path.join(args.out, xidl_por.OUTPUT), xidl_por.types_unit(model))
    for m in model.modules:
        write_if_changed(os.path.join(args.out, xidl_cpp.module_header_path(m)), xidl_cpp.module_header(model, m))
        write_if_changed(os.path.join(args.out, "xidl/%s.cpp" % m.stem), xidl_cpp.module_unit(model, m))
        if m.hierarchies():
            write_if_changed(os.path.join(args.out, "xidl/%s_polytypes.cpp" % m.stem),
                             xidl_cpp.polytypes_unit(model, m))
    return 0


if __name__ == "__main__":
    sys.exit(main())
