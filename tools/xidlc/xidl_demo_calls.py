#!/usr/bin/env python3
"""xidl_demo_calls: writes, for the example host, one call per remote component: the
component's interface is asked for by type and its simplest method (fewest parameters,
the first in slot order among equals) is called with default-constructed arguments; and
the same kind of call for every method of every component.

    xidl_demo_calls.py --order xidl/modules.txt --components xidl/components --out FILE

The host is compiled against the public headers only, so this is what lets it reach all
components without one hand-written line per interface.
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import xidl_components  # noqa: E402

BANNER = "// Generated from the component definitions by tools/xidlc; edit the definitions instead."


def simplest(component):
    return min(component.methods, key=lambda m: len(m.params)) if component.methods else None


def call_function(c, m=None, name=None):
    m = m or simplest(c)
    name = name or "Call_%d" % c.id
    lines = ["Common::Error %s(Common::DynamicCaster& component, bool& found) {" % name,
             "    auto* target = Common::QueryInterface<::%s>(component);" % c.full_name,
             "    found = target != nullptr;",
             "    if (!found) {",
             "        return Common::ErrorSuccess;",
             "    }"]
    for i, p in enumerate(m.params):
        lines.append("    %s arg%d{};" % (p.cpp.text, i))
    lines.append("    return target->%s(%s);" % (m.name, ", ".join("arg%d" % i for i in range(len(m.params)))))
    lines += ["}", ""]
    return lines


def demo_calls(comps):
    lines = [BANNER, "", '#include "demo_calls.h"', "",
             "#include <tessel_link/components/components.h>", "",
             "namespace Demo {", "", "namespace {", ""]
    callable_components = [c for c in comps.components if simplest(c) is not None]
    for c in callable_components:
        lines += call_function(c)
    for c in comps.components:
        for m in c.methods:
            lines += call_function(c, m, "Every_%d_%d" % (c.id, m.number))
    lines += ["}  // namespace", "", "const std::vector<DemoCall>& DemoCalls() {",
              "    static const std::vector<DemoCall> calls{"]
    for c in comps.components:
        m = simplest(c)
        lines.append('        {%d, "%s", "%s", %s},' % (c.id, c.full_name, m.name if m else "",
                                                     "&Call_%d" % c.id if m else "nullptr"))
    lines += ["    };", "    return calls;", "}", "",
              "const std::vector<DemoCall>& EveryMethodCall() {",
              "    static const std::vector<DemoCall> calls{"]
    for c in comps.components:
        for m in c.methods:
            lines.append('        {%d, "%s", "%s", &Every_%d_%d},' % (c.id, c.full_name, m.name, c.id, m.number))
    lines += ["    };", "    return calls;", "}", "", "}  // namespace Demo"]
    return "\n".join(lines) + "\n"


def main():
    return xidl_components.generate_one_file("xidl_demo_calls", __doc__, demo_calls)


if __name__ == "__main__":
    sys.exit(main())
