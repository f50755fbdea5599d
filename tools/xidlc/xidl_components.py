#!/usr/bin/env python3
"""xidl_components: reads the component definitions and writes the generated C++ of every
remote component: interfaces, proxies, request makers, component information, the factory
table, the catalogue of methods and the service-side dispatchers. The files are read by the
shared front end (xidl_parser); this module resolves parameter types and emits.

    xidl_components.py --order xidl/modules.txt --components xidl/components --out DIR
    xidl_components.py --order xidl/modules.txt --components xidl/components --list-outputs
    xidl_components.py --order xidl/modules.txt --components xidl/components --json

The record definitions (the order file) are read first, so that parameter types resolve
against them. See xidl/README.md for the syntax of a component.
"""

import argparse
import glob
import json
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from xidl_parser import DefinitionError, parse_component_file, parse_file  # noqa: E402
from xidl_model import Model  # noqa: E402
import xidl_cpp  # noqa: E402
import xidlc  # noqa: E402

BANNER = "// Generated from the component definitions by tools/xidlc; edit the definitions instead."

# How many units each kind of generated code is spread over: enough for two cores to share
# the work, few enough that the header of all records is not parsed over and over.
PROXY_UNITS = 4
SIGNATURE_UNITS = 4  # the tables of argument types


# --- resolving --------------------------------------------------------------------------------

class CppType:
    """A parameter's C++ type without reference: its text, whether it is passed by value
    when it is sent only, and whether it holds a POR unit."""

    def __init__(self, text, by_value=False, unit=False, record=None):
        self.text, self.by_value, self.unit, self.record = text, by_value, unit, record


SCALARS = {
    "wstring": CppType("std::u16string"),
    "string": CppType("std::string"),
    "Guid": CppType("::Common::Guid"),
    "ulong": CppType("std::uint32_t", True),
    "uint": CppType("std::uint32_t", True),
    "uint64": CppType("std::uint64_t", True),
    "ushort": CppType("std::uint16_t", True),
    "bool": CppType("bool", True),
}
SEQUENCES = {"list": "std::list", "vector": "std::vector", "set": "std::set"}
MAPS = {"map", "std::map"}


def fail(where, message):
    raise DefinitionError("%s: %s" % (where, message))


class Resolver:
    def __init__(self, model):
        self.model = model
        self.ordered = {}  # records that sets and map keys order: full name -> Record

    def resolve(self, s, namespace, pointee=False):
        if s.name in SCALARS and not s.args:
            return SCALARS[s.name]
        if s.name == "byte" and not s.args:
            return CppType("unsigned char")
        if s.name == "Por::View::Unit" and s.const and pointee:
            return CppType("const ::Por::View::Unit", unit=True)
        if s.name in SEQUENCES:
            if len(s.args) != 1:
                fail(s.where, "%s takes one argument" % s.name)
            item = self.resolve(s.args[0], namespace)
            if s.name == "set":
                self.order(item)
            return CppType("%s<%s>" % (SEQUENCES[s.name], item.text), unit=item.unit)
        if s.name in MAPS:
            # the comparator and allocator of a fully spelled std::map are the defaults
            if len(s.args) not in (2, 4):
                fail(s.where, "%s takes a key and a value" % s.name)
            key, value = (self.resolve(a, namespace) for a in s.args[:2])
            self.order(key)
            return CppType("std::map<%s, %s>" % (key.text, value.text))
        if s.name == "std::shared_ptr":
            if len(s.args) != 1:
                fail(s.where, "std::shared_ptr takes one argument")
            target = self.resolve(s.args[0], namespace, pointee=True)
            return CppType("std::shared_ptr<%s>" % target.text, unit=target.unit)
        if s.name == "Core::Optional":
            if len(s.args) != 1:
                fail(s.where, "Core::Optional takes one argument")
            return CppType("::Core::Optional<%s>" % self.resolve(s.args[0], namespace).text)
        if s.args:
            fail(s.where, "%s takes no arguments" % s.name)
        decl = self.model.lookup(s.name, namespace, s.where)
        kind = type(decl).__name__
        if kind == "Polymorphic" and not pointee:
            fail(s.where, "%s is held through std::shared_ptr" % decl.full_name)
        if kind == "Record" and decl.abstract:
            fail(s.where, "%s is abstract" % decl.full_name)
        return CppType(decl.cpp_name, by_value=kind == "Enum", record=decl if kind == "Record" else None)

    def order(self, key):
        if key.record is not None:
            self.ordered[key.record.full_name] = key.record


class Param:
    def __init__(self, decl, cpp):
        self.name, self.text, self.kind = decl.name, decl.text, decl.kind
        self.reference, self.cpp = decl.reference, cpp

    @property
    def declared(self):
        """The C++ type of the parameter in the interface."""
        if self.reference:
            return self.cpp.text + "&"
        if self.cpp.by_value:
            return self.cpp.text
        return "const %s&" % self.cpp.text

    @property
    def written(self):
        return self.kind & 3 != 2

    @property
    def read_back(self):
        return self.reference and (self.kind & 3) != 1


class Method:
    def __init__(self, component, decl, params):
        self.component, self.number, self.name = component, decl.number, decl.name
        self.since, self.params = decl.since, params
        self.doc = decl.doc
        self.signature = tuple(p.declared for p in params)
        self.signature_index = None

    @property
    def ident(self):
        return "%s_%s" % (self.component.short_name, self.name)


class Component:
    def __init__(self, file, decl):
        self.file, self.decl = file, decl
        self.full_name = "%s::%s" % (file.namespace, decl.name)
        self.namespace, _, self.short_name = self.full_name.rpartition("::")
        self.id, self.version = decl.id, decl.version
        self.base, self.bases = decl.base, decl.bases
        self.class_flag, self.option_flag, self.info = decl.class_flag, decl.option_flag, decl.info
        self.methods = []

    @property
    def extended(self):
        """A component whose interface derives from interfaces of its own, and whose proxy
        a hand-written X_ProxyImpl completes."""
        return bool(self.bases)

    @property
    def created(self):
        return self.short_name + ("_ProxyImplComponent" if self.extended else "_ProxyComponent")


class Components:
    def __init__(self, model, files):
        self.model, self.files = model, files
        self.components = []
        resolver = Resolver(model)
        ids = {}
        for f in files:
            f.resolved, f.comps = [], self
            for decl in f.components:
                if decl.id in ids:
                    fail(decl.where, "component id %d is given twice (first at %s)" % (decl.id, ids[decl.id].where))
                ids[decl.id] = decl
                c = Component(f, decl)
                numbers, names = set(), set()
                for m in decl.methods:
                    if m.number in numbers:
                        fail(m.where, "method number %d is given twice" % m.number)
                    if m.name in names:
                        fail(m.where, "method %s is declared twice" % m.name)
                    numbers.add(m.number)
                    names.add(m.name)
                    seen = set()
                    params = []
                    for p in m.params:
                        if p.name in seen:
                            fail(p.where, "parameter %s is declared twice" % p.name)
                        seen.add(p.name)
                        cpp = resolver.resolve(p.spelled, c.namespace)
                        if p.kind & 4 and cpp.text != "std::u16string":
                            fail(p.where, "only a wstring can be obscured")
                        params.append(Param(p, cpp))
                    c.methods.append(Method(c, m, params))
                if sorted(numbers) != list(range(1, len(numbers) + 1)):
                    fail(decl.where, "the method numbers of %s run from 1 without gaps" % c.full_name)
                f.resolved.append(c)
                self.components.append(c)
        self.ordered = [resolver.ordered[n] for n in sorted(resolver.ordered)]
        self.components.sort(key=lambda c: c.id)
        self.signatures = []
        self.signature_params = []  # the parameters of the first method of each signature
        index = {}
        for c in self.components:
            for m in c.methods:
                if m.signature not in index:
                    index[m.signature] = len(self.signatures)
                    self.signatures.append(m.signature)
                    self.signature_params.append(m.params)
                m.signature_index = index[m.signature]
        # the value types of all parameters, each with one table of argument functions
        self.argument_types = []
        self.argument_type_index = {}
        for c in self.components:
            for m in c.methods:
                for p in m.params:
                    if p.cpp.text not in self.argument_type_index:
                        self.argument_type_index[p.cpp.text] = len(self.argument_types)
                        self.argument_types.append(p.cpp)

    def argument_type(self, param):
        """The name of the table of argument functions of the parameter's value type."""
        return "::Binding::Generated::kArgumentType_%d" % self.argument_type_index[param.cpp.text]

    def uses_units(self):
        return any(p.cpp.unit for c in self.components for m in c.methods for p in m.params)


def read_all(order, components_dir):
    model = Model([parse_file(p) for p in xidlc.read_order(order)])
    files = [parse_component_file(p) for p in sorted(glob.glob(os.path.join(components_dir, "*.xidl")))]
    return Components(model, files)


def generate_one_file(name, doc, render):
    """The command line of a generator that writes one C++ file from all the components:
    --order, --components and --out. `render` turns the components into the file's text.
    Returns the exit status."""
    parser = argparse.ArgumentParser(description=doc, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--order", required=True)
    parser.add_argument("--components", required=True)
    parser.add_argument("--out", required=True, help="the C++ file to write")
    args = parser.parse_args()
    try:
        comps = read_all(args.order, args.components)
    except (DefinitionError, OSError) as e:
        print("%s: %s" % (name, e), file=sys.stderr)
        return 1
    xidlc.write_if_changed(args.out, render(comps))
    return 0


# --- writing helpers ------------------------------------------------------------------------------

def c_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def split(items, count, weight):
    """Spreads items over at most `count` groups of about equal weight, keeping their order."""
    total = sum(weight(i) for i in items) or 1
    groups, current, acc = [], [], 0
    for item in items:
        current.append(item)
        acc += weight(item)
        if acc * count >= total * (len(groups) + 1) and len(groups) < count - 1:
            groups.append(current)
            current = []
    if current:
        groups.append(current)
    return groups


def open_namespace(namespace):
    return ["namespace %s {" % namespace, ""]


def close_namespace(namespace):
    return ["}  // namespace %s" % namespace, ""]


def param_list(params, with_names=True):
    if with_names:
        return ", ".join("%s %s" % (p.declared, p.name) for p in params)
    return ", ".join(p.declared for p in params)


def method_declaration(m, prefix="virtual ", suffix=" = 0"):
    return "    %s::Common::Error %s(%s)%s;" % (prefix, m.name, param_list(m.params), suffix)


def public_header_path(f):
    return "tessel_link/components/%s.h" % f.stem


def proxy_header_path(f):
    return "xidl/components/%s_proxy.h" % f.stem


# --- the public interfaces --------------------------------------------------------------------------

EXTENDED_HEADER = "tessel_link/facade/event_interfaces.h"


def doc_lines(doc, indent=""):
    """A definition's documentation comment as C++ comment lines."""
    return [(indent + "// " + line).rstrip() for line in doc]


def public_header(f):
    lines = ["#pragma once", "", BANNER, "", "#include <cstdint>", "#include <list>", "#include <map>",
             "#include <memory>", "#include <set>", "#include <string>", "#include <vector>", "",
             "#include <tessel_link/impl/binding/table_dispatcher.h>",
             "#include <tessel_link/common/dynamic_caster.h>", "#include <tessel_link/common/error.h>",
             "#include <tessel_link/common/guid.h>", "#include <tessel_link/common/optional.h>",
             "#include <tessel_link/common/non_copyable.h>", "#include <tessel_link/export.h>",
             "#include <tessel_link/facade/make_proxy.h>",
             ] + ["#include <%s>" % h for h in records_headers(f.comps, param_texts(f))] + [
             "#include <tessel_link/components/orderings.h>"]
    if any(c.extended for c in f.resolved):
        lines.append("#include <%s>" % EXTENDED_HEADER)
    if any(p.cpp.unit for c in f.resolved for m in c.methods for p in m.params):
        lines.append("#include <tessel_link/por/view.h>")
    lines.append("")
    for c in f.resolved:
        lines += open_namespace(c.namespace)
        if c.base == "caster":
            bases, dtor = " : public virtual ::Common::DynamicCasterImpl", "~%s() override;"
        elif c.base == "noncopyable":
            bases, dtor = " : private ::Common::NonCopyable", "virtual ~%s();"
        elif c.bases:
            bases = " : " + ", ".join("public %s" % b for b in c.bases)
            dtor = "~%s() override;"
        else:
            bases, dtor = "", "virtual ~%s();"
        lines += doc_lines(c.decl.doc)
        lines.append("// Component %d, interface version %d." % (c.id, c.version))
        if c.extended:
            lines.append("// Its remote methods are declared by the interfaces it derives from.")
        lines += ["class TL_API %s%s {" % (c.short_name, bases), "public:"]
        if c.base == "noncopyable":
            lines.append("    %s() = default;  // an implementation of the interface" % c.short_name)
        lines.append("    " + dtor % c.short_name)
        lines += ["",
                  "    // What Core::MakeProxy<%s> and the catalogue know the component by." % c.short_name,
                  "    static constexpr std::uint32_t kComponentId = %d;" % c.id,
                  "    static constexpr const char* kInterfaceName = %s;  // the interface's name" % c_string(c.short_name),
                  "    static constexpr std::uint32_t kInterfaceVersion = %d;  // the version proxies speak" % c.version]
        if not c.extended:
            lines.append("")
            for m in c.methods:
                lines += doc_lines(m.doc, "    ")
                lines.append("    // Method %d%s." % (m.number, ", since version %d" % m.since if m.since != 1 else ""))
                lines.append(method_declaration(m))
        lines += ["};", ""]
        if not c.extended:
            lines += unimplemented_class(c)
        lines += ["// The service side of component %d: serves the calls of %s proxies with an" % (c.id, c.short_name),
                  "// implementation of the host's, for example through a Binding::LoopbackChannel.",
                  "class TL_API %s_Dispatcher final : public ::Binding::ComponentDispatcher<%s> {" % (c.short_name, c.short_name),
                  "public:",
                  "    // Serves the calls with `implementation`, which must allow calls from many threads.",
                  "    explicit %s_Dispatcher(std::shared_ptr<%s> implementation);" % (c.short_name, c.short_name),
                  "};", ""]
        lines += close_namespace(c.namespace)
    return "\n".join(lines)


def param_texts(f):
    return [p.cpp.text for c in f.resolved for m in c.methods for p in m.params]


def records_headers(comps, texts):
    """The headers of the record modules whose types the C++ texts name, so that a host
    that uses one component does not compile every record."""
    text = "\n".join(texts)
    names = set(re.findall(r"::[A-Za-z_][A-Za-z0-9_]*(?:::[A-Za-z_][A-Za-z0-9_]*)*", text))
    orders = sorted({t.module.order for t in comps.model.all_types() if t.cpp_name in names})
    return [xidl_cpp.module_header_path(comps.model.modules[o]) for o in orders]


def unimplemented_class(c):
    """A base for the fakes of a host's tests: every method answers Core::kErrorNotImplemented,
    so that a fake overrides only what its test needs."""
    lines = ["// A base for fakes of %s in tests: every method it does not override answers" % c.short_name,
             "// Core::kErrorNotImplemented.",
             "class %s_Unimplemented : public %s {" % (c.short_name, c.short_name), "public:"]
    for m in c.methods:
        lines.append("    ::Common::Error %s(%s) override {" % (m.name, param_list(m.params, with_names=False)))
        lines.append("        return ::Core::NotImplementedError(%s);" % c_string("%s::%s" % (c.full_name, m.name)))
        lines.append("    }")
    lines += ["};", ""]
    return lines


def orderings_header(comps):
    lines = ["#pragma once", "", BANNER, "",
             "// The order of the records that parameters hold in sets or as map keys: member by",
             "// member, in wire order.", "", "#include <tuple>", ""]
    lines += ["#include <%s>" % h for h in records_headers(comps, [r.cpp_name for r in comps.ordered])]
    lines.append("")
    for r in comps.ordered:
        names = [m.name for m in r.wire_members()]
        lines += open_namespace(r.namespace)
        lines += ["// Member by member, in wire order.",
                  "inline bool operator<(const %s& a, const %s& b) {" % (r.short_name, r.short_name),
                  "    return std::tie(%s) < std::tie(%s);" % (", ".join("a." + n for n in names),
                                                             ", ".join("b." + n for n in names)),
                  "}", ""]
        lines += close_namespace(r.namespace)
    return "\n".join(lines)


def umbrella_header(comps):
    lines = ["#pragma once", "", BANNER, "", "// The interfaces of all remote components.", ""]
    lines += ["#include <%s>" % public_header_path(f) for f in comps.files]
    return "\n".join(lines) + "\n"


# --- the proxies --------------------------------------------------------------------------------

def proxy_header(f):
    lines = ["#pragma once", "", BANNER, "", "#include <cstdint>", "#include <memory>", "",
             "#include <tessel_link/binding/request.h>", "#include <tessel_link/binding/request_channel.h>",
             "#include <%s>" % public_header_path(f), "",
             '#include "facade/component_traits.h"', '#include "facade/proxy_component.h"']
    lines.append("")
    for c in f.resolved:
        lines += ["template <>", "struct Core::ComponentTraits<%d> {" % c.id,
                  "    static constexpr const char* kInterfaceName = %s;" % c_string(c.short_name),
                  "    static constexpr std::uint32_t kInterfaceVersion = %d;" % c.version,
                  "    static constexpr std::int32_t kMethodCount = %d;" % len(c.methods),
                  "    static constexpr bool kClassFlag = %s;" % ("true" if c.class_flag else "false"),
                  "    static constexpr std::uint32_t kOptionFlag = %d;" % (1 if c.option_flag else 0),
                  "    static constexpr MethodInfo kMethodInfo{%d, %d};" % c.info,
                  "};", ""]
    for c in f.resolved:
        lines += open_namespace(c.namespace)
        lines += ["class %s_Proxy : public %s {" % (c.short_name, c.short_name), "public:",
                  "    explicit %s_Proxy(std::shared_ptr<::Binding::RequestChannel> channel);" % c.short_name,
                  "    ~%s_Proxy() override;" % c.short_name, ""]
        if c.extended:
            # the proxy implements some overloads of a name; the others stay visible
            names = sorted({m.name for m in c.methods})
            for b in c.bases:
                lines += ["    using %s::%s;" % (b, n) for n in names if n in EXTENDED_OVERLOADS.get(b, ())]
        for m in c.methods:
            lines.append(method_declaration(m, prefix="", suffix=" override"))
        lines += ["", "protected:",
                  "    const std::shared_ptr<::Binding::RequestChannel>& Channel() const { return channel_; }",
                  "", "private:", "    std::shared_ptr<::Binding::RequestChannel> channel_;", "};", ""]
        if not c.extended:
            # an extended component's X_ProxyImplComponent is declared with its X_ProxyImpl
            lines += ["class %s final" % c.created,
                      "    : public ::Core::ProxyComponent<%s_Proxy, %s, %d> {" % (c.short_name, c.short_name, c.id),
                      "public:", "    using ProxyComponent::ProxyComponent;", "};", ""]
        for m in c.methods:
            lines.append("std::unique_ptr<::Binding::Request> MakeRequest_%s(%s);" % (m.ident, param_list(m.params)))
        lines.append("")
        lines += close_namespace(c.namespace)
    return "\n".join(lines)


# the overloaded names of hand-written base interfaces that a proxy implements only in part
EXTENDED_OVERLOADS = {"EventAccumulator": ("AbsorbQueue",)}


def impl_header_path(c):
    return "facade/%s_proxy_impl.h" % snake(c.short_name)


def snake(name):
    return re.sub(r"(?<!^)(?=[A-Z])", "_", name).lower()


def signatures_header(comps):
    lines = ["#pragma once", "", BANNER, "",
             "// The tables of argument functions, one per value type of a parameter, and one serving",
             "// function per method signature. Only the units of argument types compile the codecs",
             "// of the types; proxies and dispatchers name the tables.", "",
             "#include <tessel_link/common/error.h>",
             "#include <tessel_link/impl/binding/argument_type.h>",
             "#include <tessel_link/impl/binding/table_dispatcher.h>", "",
             "namespace Binding::Generated {", "",
             "// The method of an overloaded name that has the parameters P, as a pointer to a member",
             "// of the class that declares it.",
             "template <class... P>",
             "struct Overload {",
             "    template <class C>",
             "    static constexpr auto Of(::Common::Error (C::*method)(P...)) {",
             "        return method;",
             "    }",
             "};", ""]
    for i, t in enumerate(comps.argument_types):
        lines.append("extern const Detail::ArgumentType kArgumentType_%d;  // %s" % (i, t.text))
    lines.append("")
    for i, _ in enumerate(comps.signatures):
        lines.append("void Serve_%d(%s);" % (i, SERVE_PARAMS))
    lines += ["", "}  // namespace Binding::Generated", ""]
    return "\n".join(lines)


SERVE_PARAMS = ("const PreparedMethod& method, Detail::InvokeFunction invoke, void* implementation, "
                "::Serialization::Deserializer& request, ::Serialization::Serializer& reply")


def service_unit(comps):
    lines = [BANNER, "", '#include "xidl/components/signatures.h"', "", "namespace Binding::Generated {", ""]
    for i, params in enumerate(comps.signature_params):
        lines.append("void Serve_%d(%s) {" % (i, SERVE_PARAMS))
        if not params:
            lines.append("    Detail::ServeArguments(method, invoke, implementation, request, reply, nullptr, 0);")
        else:
            rows = ", ".join("{&kArgumentType_%d, %s}" % (comps.argument_type_index[p.cpp.text],
                                                          "true" if p.reference else "false") for p in params)
            lines += ["    static constexpr Detail::ServedParameter kParameters[] = {%s};" % rows,
                      "    Detail::ServeArguments(method, invoke, implementation, request, reply, kParameters, %d);"
                      % len(params)]
        lines += ["}", ""]
    lines += ["}  // namespace Binding::Generated", ""]
    return "\n".join(lines)


def argument_types_unit(comps, indices):
    """The tables of a group of argument types: the only place where their codecs, copies and
    destructors are compiled for requests and served calls."""
    types = [comps.argument_types[i] for i in indices]
    lines = [BANNER, "", '#include "xidl/components/signatures.h"', "",
             "#include <tessel_link/impl/binding/request_impl.h>"]
    lines += ["#include <%s>" % h for h in records_headers(comps, [t.text for t in types])]
    lines.append("#include <tessel_link/components/orderings.h>")
    if any(t.unit for t in types):
        lines.append("#include <tessel_link/por/view.h>")
    lines += ["", "namespace Binding::Generated {", ""]
    for i in indices:
        lines.append("extern const Detail::ArgumentType kArgumentType_%d = Detail::MakeArgumentType<%s>();"
                     % (i, comps.argument_types[i].text))
    lines += ["", "}  // namespace Binding::Generated", ""]
    return "\n".join(lines)


def proxy_unit(comps, files):
    lines = [BANNER, "", '#include "xidl/components/signatures.h"', "",
             "#include <tessel_link/impl/binding/argument_type.h>", "#include <tessel_link/impl/binding/call.h>", "",
             '#include "facade/component_catalogue.h"', '#include "facade/component_info_impl.h"',
             '#include "facade/component_info_registry.h"']
    lines += ['#include "%s"' % proxy_header_path(f) for f in files]
    lines += ['#include "%s"' % impl_header_path(c) for f in files for c in f.resolved if c.extended]
    lines.append("")
    for f in files:
        for c in f.resolved:
            lines += open_namespace(c.namespace)
            x, p = c.short_name, c.short_name + "_Proxy"
            lines += ["%s::~%s() = default;" % (x, x), "",
                      "%s::%s(std::shared_ptr<::Binding::RequestChannel> channel)" % (p, p),
                      "    : channel_(std::move(channel)) {}", "", "%s::~%s() = default;" % (p, p), ""]
            for m in c.methods:
                names = ", ".join(q.name for q in m.params)
                lines += ["::Common::Error %s::%s(%s) {" % (p, m.name, param_list(m.params)),
                          "    return ::Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_%s(%s); });"
                          % (m.ident, names), "}", ""]
            for m in c.methods:
                lines.append("std::unique_ptr<::Binding::Request> MakeRequest_%s(%s) {" % (m.ident, param_list(m.params)))
                describe = "::Core::Describe<%d>(%d, %s, %d)" % (c.id, m.number, c_string(m.name), m.since)
                if not m.params:
                    lines.append("    return ::Binding::Detail::MakeRequest(%s, nullptr, 0);" % describe)
                else:
                    # the caller's variable is read back from the reply for a non-constant reference only
                    lines.append("    const ::Binding::Detail::ErasedArgument arguments_[] = {")
                    for n, q in enumerate(m.params):
                        end = "," if n + 1 < len(m.params) else "};"
                        target = "&" + q.name if q.reference else "nullptr"
                        lines.append("        {&%s, &%s, %s, %s, ::Binding::ArgumentKind{%d}}%s" % (
                            comps.argument_type(q), q.name, target, c_string(q.name), q.kind, end))
                    lines.append("    return ::Binding::Detail::MakeRequest(%s, arguments_, %d);" % (describe, len(m.params)))
                lines += ["}", ""]
            lines += dispatcher_constructor(c)
            # the request of a call with default-constructed arguments, for tools
            for m in c.methods:
                lines.append("void VisitDefaultRequest_%s(::Core::Catalogue::RequestVisitor visit_, void* context_) {" % m.ident)
                for q in m.params:
                    lines.append("    %s %s{};" % (q.cpp.text, q.name))
                names = ", ".join(q.name for q in m.params)
                lines += ["    const std::unique_ptr<::Binding::Request> request_ = MakeRequest_%s(%s);" % (m.ident, names),
                          "    visit_(*request_, context_);", "}", ""]
            lines += close_namespace(c.namespace)
            lines += ["namespace Core::Generated {", "",
                      "std::unique_ptr<::ComponentManagement::Component>& CreateProxy_%d(" % c.id,
                      "    const std::shared_ptr<::Binding::RequestChannel>& channel,",
                      "    std::unique_ptr<::ComponentManagement::Component>& slot) {",
                      "    return CreateProxyComponent<%s::%s>(channel, slot);" % (c.namespace, c.created), "}", "",
                      "namespace {", "const ComponentInfoRegistrar<ComponentInfoImpl<%d>> registrar%d;" % (c.id, c.id),
                      "}", "", "}  // namespace Core::Generated", ""]
    return "\n".join(lines)


def member_pointer(c, m):
    x = c.short_name
    if c.extended:
        # the bases may overload the name: the parameter list picks the method
        return "::Binding::Generated::Overload<%s>::Of(&%s::%s)" % (param_list(m.params, False), x, m.name)
    return "&%s::%s" % (x, m.name)


def dispatcher_constructor(c):
    """The dispatcher's table as constant data, and its constructor."""
    x, d = c.short_name, c.short_name + "_Dispatcher"
    lines = ["namespace {", ""]
    for m in c.methods:
        if m.params:
            params = ", ".join("{%s, ::Binding::ArgumentKind{%d}}" % (c_string(q.name), q.kind) for q in m.params)
            lines.append("constexpr ::Binding::ServiceParameter kParameters_%s_%s[] = {%s};" % (x, m.name, params))
    if c.methods:
        lines.append("constexpr ::Binding::ServiceMethodRow kMethods_%s[] = {" % x)
        for m in c.methods:
            params = ("kParameters_%s_%s, %d" % (x, m.name, len(m.params))) if m.params else "nullptr, 0"
            lines.append("    {%d, %s, %d, %s, &::Binding::Generated::Serve_%d," % (
                m.number, c_string(m.name), m.since, params, m.signature_index))
            lines.append("     &::Binding::Detail::InvokeMember<%s, %s>}," % (x, member_pointer(c, m)))
        lines.append("};")
    table = "kMethods_%s" % x if c.methods else "std::span<const ::Binding::ServiceMethodRow>()"
    lines += ["", "}  // namespace", "",
              "%s::%s(std::shared_ptr<%s> implementation)" % (d, d, x),
              "    : ComponentDispatcher(%d, %s, %d, std::move(implementation), %s) {}" % (
                  c.id, c_string(x), c.version, table), ""]
    return lines


# --- the catalogue and the factory table ----------------------------------------------------------

def catalogue_unit(comps):
    lines = [BANNER, "", '#include "facade/component_catalogue.h"', '#include "facade/component_proxy_factory.h"', ""]
    for c in comps.components:
        lines += open_namespace(c.namespace)
        for m in c.methods:
            lines.append("void VisitDefaultRequest_%s(::Core::Catalogue::RequestVisitor visit, void* context);" % m.ident)
        lines += [""] + close_namespace(c.namespace)
    lines += ["namespace Core {", "", "namespace Generated {", ""]
    for c in comps.components:
        lines.append("std::unique_ptr<::ComponentManagement::Component>& CreateProxy_%d(" % c.id)
        lines.append("    const std::shared_ptr<::Binding::RequestChannel>&, std::unique_ptr<::ComponentManagement::Component>&);")
    lines += ["", "}  // namespace Generated", "", "std::span<const ComponentProxyEntry> ComponentProxyTable() {",
              "    static constexpr ComponentProxyEntry kTable[] = {"]
    for c in comps.components:
        lines.append("        {%d, &Generated::CreateProxy_%d}," % (c.id, c.id))
    lines += ["    };", "    return kTable;", "}", "", "namespace Catalogue {", "namespace {", ""]
    for c in comps.components:
        for m in c.methods:
            if m.params:
                rows = ", ".join("{%s, %s, %d}" % (c_string(q.name), c_string(q.text), q.kind) for q in m.params)
                lines.append("constexpr Parameter kParams_%d_%d[] = {%s};" % (c.id, m.number, rows))
        lines.append("constexpr Method kMethods_%d[] = {" % c.id)
        for m in c.methods:
            params = "kParams_%d_%d, %d" % (c.id, m.number, len(m.params)) if m.params else "nullptr, 0"
            lines.append("    {%d, %s, %d, %s, &::%s::VisitDefaultRequest_%s}," % (
                m.number, c_string(m.name), m.since, params, c.namespace, m.ident))
        lines += ["};", ""]
    lines.append("constexpr Component kComponents[] = {")
    for c in comps.components:
        lines.append("    {%d, %s, %s, %d, kMethods_%d, %d}," % (
            c.id, c_string(c.full_name), c_string(c.short_name), c.version, c.id, len(c.methods)))
    lines += ["};", "", "}  // namespace", "", "std::span<const Component> Components() {",
              "    return kComponents;", "}", "", "}  // namespace Catalogue", "", "}  // namespace Core", ""]
    return "\n".join(lines)


# --- driving ------------------------------------------------------------------------------------

def generated_files(comps):
    """Path relative to the output directory -> function that makes its text."""
    files = {}
    for f in comps.files:
        files[public_header_path(f)] = lambda f=f: public_header(f)
        files[proxy_header_path(f)] = lambda f=f: proxy_header(f)
    files["tessel_link/components/components.h"] = lambda: umbrella_header(comps)
    files["tessel_link/components/orderings.h"] = lambda: orderings_header(comps)
    files["xidl/components/signatures.h"] = lambda: signatures_header(comps)
    groups = split(list(range(len(comps.argument_types))), SIGNATURE_UNITS, lambda i: 1)
    for n, group in enumerate(groups):
        files["xidl/components/signatures_%d.cpp" % n] = lambda g=group: argument_types_unit(comps, g)
    files["xidl/components/services_0.cpp"] = lambda: service_unit(comps)
    groups = split([f for f in comps.files], PROXY_UNITS, lambda f: sum(len(c.methods) for c in f.resolved))
    for n, group in enumerate(groups):
        files["xidl/components/proxies_%d.cpp" % n] = lambda g=group: proxy_unit(comps, g)
    files["xidl/components/catalogue.cpp"] = lambda: catalogue_unit(comps)
    return files


def as_json(comps):
    return [{"id": c.id, "interface": c.full_name, "version": c.version,
             "methods": [{"number": m.number, "name": m.name, "since": m.since,
                          "params": [{"name": p.name, "type": p.text, "kind": p.kind} for p in m.params]}
                         for m in c.methods]}
            for c in comps.components]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--order", required=True, help="the file that lists the record definition files")
    parser.add_argument("--components", required=True, help="the directory of the component definitions")
    parser.add_argument("--out", help="the directory to write into")
    parser.add_argument("--list-outputs", action="store_true")
    parser.add_argument("--json", action="store_true")
    args = parser.parse_args()
    try:
        comps = read_all(args.order, args.components)
    except (DefinitionError, OSError) as e:
        print("xidl_components: %s" % e, file=sys.stderr)
        return 1
    files = generated_files(comps)
    if args.list_outputs:
        print(";".join(files))
        return 0
    if args.json:
        json.dump(as_json(comps), sys.stdout, indent=1)
        print()
        return 0
    if not args.out:
        parser.error("--out is needed to write files")
    for path, make in files.items():
        text = make()
        xidlc.write_if_changed(os.path.join(args.out, path), text if text.endswith("\n") else text + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
