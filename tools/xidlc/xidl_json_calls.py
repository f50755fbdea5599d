#!/usr/bin/env python3
"""xidl_json_calls: writes, for the tessel tool, the JSON side of every remote method and
record: one function per method that takes the in arguments from a JSON object by name,
calls the method through its proxy and puts the out arguments into a JSON object by name;
one function per record that writes a default record as JSON; and the names of the
enumeration types. The values themselves go through the generated codecs, so JSON follows
the same definitions as the packets.

    xidl_json_calls.py --order xidl/modules.txt --components xidl/components --out FILE
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import xidl_components  # noqa: E402
import xidl_model  # noqa: E402

BANNER = "// Generated from the definitions by tools/xidlc; edit the definitions instead."


def call_function(c, m):
    lines = ["Common::Error Call_%d_%d(const Core::ChannelPointer& channel, JsonReader& in, JsonWriter& out) {" % (c.id, m.number),
             "    Core::ComponentSlot slot;",
             "    auto* target = Open<::%s>(channel, %d, slot);" % (c.full_name, c.id),
             "    if (target == nullptr) {",
             "        return NoInterface(%d);" % c.id,
             "    }"]
    for i, p in enumerate(m.params):
        lines.append("    %s arg%d{};" % (p.cpp.text, i))
    written = [(i, p) for i, p in enumerate(m.params) if p.written]
    for i, p in written:
        lines.append('    in.Take("%s", arg%d);' % (p.name, i))
    if not written:
        lines.append("    (void)in;")
    lines.append("    const Common::Error result = target->%s(%s);" % (
        m.name, ", ".join("arg%d" % i for i in range(len(m.params)))))
    back = [(i, p) for i, p in enumerate(m.params) if p.read_back]
    if back:
        lines.append("    if (result.Succeeded()) {")
        for i, p in back:
            lines.append('        out.Put("%s", arg%d);' % (p.name, i))
        lines.append("    }")
    else:
        lines.append("    (void)out;")
    lines += ["    return result;", "}", ""]
    return lines


def json_calls(comps):
    model = comps.model
    records = [r for r in model.checked_in()]
    enums = sorted({t.short_name for t in model.all_types() if isinstance(t, xidl_model.Enum)})
    lines = [BANNER, "", '#include "json_calls.h"', "",
             "#include <tessel_link/components/components.h>",
             "#include <tessel_link/xidl/records.h>", "",
             "namespace tessel_cli {", "", "namespace {", ""]
    for c in comps.components:
        for m in c.methods:
            lines += call_function(c, m)
    lines += ["}  // namespace", "",
              "const std::vector<JsonCall>& JsonCalls() {",
              "    static const std::vector<JsonCall> calls{"]
    for c in comps.components:
        for m in c.methods:
            lines.append("        {%d, %d, &Call_%d_%d}," % (c.id, m.number, c.id, m.number))
    lines += ["    };", "    return calls;", "}", "",
              "const std::vector<JsonRecord>& JsonRecords() {",
              "    static const std::vector<JsonRecord> records{"]
    for r in records:
        lines.append('        {"%s", &DescribeDefault<%s>},' % (r.full_name, r.cpp_name))
    lines += ["    };", "    return records;", "}", "",
              "namespace {", "",
              "// The enumerations' names, known to the writer before main runs.",
              "const bool kEnumerationsKnown = [] {",
              "    for (const char* name : {"]
    for e in enums:
        lines.append('             "%s",' % e)
    lines += ["         }) {",
              "        EnumerationNames().insert(name);",
              "    }",
              "    return true;",
              "}();", "",
              "}  // namespace", "",
              "}  // namespace tessel_cli"]
    return "\n".join(lines) + "\n"


def main():
    return xidl_components.generate_one_file("xidl_json_calls", __doc__, json_calls)


if __name__ == "__main__":
    sys.exit(main())
