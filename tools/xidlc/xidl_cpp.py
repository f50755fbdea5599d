"""Writes the C++ of the model: one header of all types, one unit of codecs and metadata per
module, one unit of polymorphic forms per module that declares hierarchies, one catalogue."""

from xidl_model import Enum, Extern, Polymorphic, Record

BANNER = "// Generated from the interface definitions by tools/xidlc; edit the definitions instead.\n"


def c_string(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def ident(full_name):
    return full_name.replace("::", "_")


class NamespaceWriter:
    """Collects lines, opening and closing namespaces only where they change."""

    def __init__(self):
        self.lines, self.current = [], None

    def enter(self, namespace):
        if namespace != self.current:
            self.leave()
            if namespace:
                self.lines.append("namespace %s {" % namespace)
            self.current = namespace

    def leave(self):
        if self.current:
            self.lines.append("}  // namespace %s" % self.current)
            self.lines.append("")
        self.current = None

    def add(self, *lines):
        self.lines.extend(lines)

    def text(self):
        self.leave()
        return "\n".join(self.lines) + "\n"


def doc_lines(decl, indent=""):
    """A definition's documentation comment as C++ comment lines."""
    return [(indent + "// " + line).rstrip() for line in getattr(decl, "doc", ())]


def doc_or(decl, default, indent=""):
    """The definition's documentation, or a one-line summary when it has none, so that every
    generated declaration says what it is."""
    return doc_lines(decl, indent) or [indent + "// " + default]


def member_comment(member):
    """What a member without documentation of its own is told by: its type and traits as
    the definitions write them."""
    text = member.type.text()
    if member.traits:
        text += " [%s]" % ", ".join(name if value is None else "%s=%s" % (name, value)
                                     for name, value in member.traits)
    return text


def member_line(member, indent="    "):
    line = "%s%s %s%s;" % (indent, member.type.cpp(), member.name, member_default(member))
    return line if getattr(member.decl, "doc", ()) else line + "  // " + member_comment(member)


def member_default(member, value=None):
    value = member.default if value is None else value
    t = member.type
    if value is None:
        # scalars start at zero; class types have constructors of their own
        return "{}" if t.kind in ("scalar", "enum") and t.name not in ("string", "wstring", "bytes", "blob", "Error", "Guid") else ""
    if t.kind == "enum":
        return " = %s::%s" % (t.decl.cpp_name, value)
    return " = %s" % value


def root_of(record):
    base = record.base
    while isinstance(base, Record):
        base = base.base
    return base if isinstance(base, Polymorphic) else None


# --- the header ---------------------------------------------------------------------------------

def module_header_path(module):
    return "tessel_link/xidl/records/%s.h" % module.stem


def module_dependencies(module):
    """The other modules whose types the types of `module` name, in the order of the
    definitions."""
    needed = set()
    for t in module.types:
        members = t.members if isinstance(t, Record) else t.fields if isinstance(t, Polymorphic) else []
        if isinstance(t, Record) and t.base:
            needed.add(t.base.module.order)
        for m in members:
            needed.update(n.module.order for n in m.type.named_types())
    needed.discard(module.order)
    return sorted(needed)


def header(model):
    """The header of all records: every module's header, in the order of the definitions."""
    lines = ["#pragma once", "", BANNER.rstrip(), "",
             "// Every record of the interface definitions. A host that uses a few components includes",
             "// their headers (tessel_link/components/...) or one module's records instead.", ""]
    lines += ["#include <%s>" % module_header_path(m) for m in model.modules]
    return "\n".join(lines) + "\n"


def module_header(model, module):
    """The records of one definition file, with the headers of the modules they name."""
    w = NamespaceWriter()
    w.add("#pragma once", "", BANNER.rstrip(), "",
          "#include <cstdint>", "#include <list>", "#include <map>", "#include <memory>",
          "#include <set>", "#include <string>", "#include <vector>", "",
          "#include <tessel_link/common/dynamic_caster.h>", "#include <tessel_link/common/error.h>",
          "#include <tessel_link/common/guid.h>", "#include <tessel_link/common/optional.h>",
          "#include <tessel_link/export.h>", "#include <tessel_link/serialize/blob.h>",
          "#include <tessel_link/impl/serialize/codec.h>")
    for header_name in sorted({t.header for t in module.types if isinstance(t, Extern)}):
        w.add("#include <%s>" % header_name)
    for order in module_dependencies(module):
        w.add("#include <%s>" % module_header_path(model.modules[order]))
    w.add("")
    types = module.types
    # enumerations first: they are complete at once
    for t in types:
        if isinstance(t, Enum):
            w.enter(t.namespace)
            if t.values is None:
                w.add(*doc_or(t.decl, "The enumeration %s of the definitions." % t.short_name))
                w.add("// Its values have no names: every value travels as its number.",
                      "enum class %s : std::int32_t {};" % t.short_name, "")
            else:
                w.add(*doc_or(t.decl, "The enumeration %s of the definitions: a value travels as its name."
                              % t.short_name))
                w.add("enum class %s : std::int32_t {" % t.short_name)
                for name, number in t.values:
                    w.add("    %s = %d,  // travels as \"%s\"" % (name, number, name))
                w.add("};", "")
    # forward declarations, so that sequences and pointers may name any record
    for t in types:
        if isinstance(t, (Record, Polymorphic)):
            w.enter(t.namespace)
            w.add("struct %s;" % t.short_name)
    w.leave()
    for t in model.definition_order():
        if t.module is not module:
            continue
        w.enter(t.namespace)
        if isinstance(t, Polymorphic):
            w.add(*doc_or(t.decl, "The hierarchy %s of the definitions." % t.short_name))
            w.add("// The root of a hierarchy that travels by the number of its kind.",
                  "struct TL_API %s : ::Common::DynamicCasterImpl {" % t.short_name,
                  "    %s() = default;  // fields at their defaults" % t.short_name,
                  "    %s(const %s&) = default;  // copies the fields" % (t.short_name, t.short_name),
                  "    %s& operator=(const %s&) = default;  // copies the fields" % (t.short_name, t.short_name),
                  "    ~%s() override;" % t.short_name,
                  "    // The number of the object's kind, written before anything else.",
                  "    virtual std::uint32_t TypeNumber() const = 0;",
                  "    // Same kind, same fields.",
                  "    virtual bool Equals(const %s& other) const;" % t.short_name)
            for f in t.fields:
                w.add(*doc_lines(f.decl, "    "))
                w.add(member_line(f))
            w.add("};", "")
            continue
        root = root_of(t)
        base = " : %s" % t.base.cpp_name if t.base else ""
        summary = "The record %s of the definitions" % t.short_name
        if t.base:
            summary += ", after the members of %s" % t.base.short_name
        w.add(*doc_or(t.decl, summary + ": its members travel in the order below."))
        w.add("struct %s%s%s {" % ("TL_API " if root else "", t.short_name, base))
        if t.overrides:
            w.add("    // Members at their defaults, some of them other than the base's.",
                  "    %s() {" % t.short_name)
            for name, value, _ in t.overrides:
                w.add("        %s%s;" % (name, member_default(t.find_member(name), value)))
            w.add("    }", "")
        for m in t.members:
            w.add(*doc_lines(m.decl, "    "))
            w.add(member_line(m))
        if root and not t.abstract:
            if t.members:
                w.add("")
            w.add("    std::uint32_t TypeNumber() const override;  // the number of this kind",
                  "    bool Equals(const %s& other) const override;  // same kind, same fields" % root.cpp_name)
        w.add("};", "")
    # codec declarations
    for t in types:
        if isinstance(t, Record):
            w.enter(t.namespace)
            n = t.short_name
            w.add("TL_API ::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const %s& value);"
                  "  // writes the members in wire order" % n,
                  "TL_API ::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, %s& value);"
                  "  // reads the members in wire order" % n)
            if not t.abstract:
                w.add("TL_API bool operator==(const %s& a, const %s& b);  // member by member" % (n, n))
        elif isinstance(t, Polymorphic):
            w.enter(t.namespace)
            n = t.short_name
            w.add("TL_API ::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const std::shared_ptr<%s>& value);"
                  "  // writes the kind's number and fields" % n,
                  "TL_API ::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, std::shared_ptr<%s>& value);"
                  "  // makes the kind the number names" % n,
                  "TL_API bool operator==(const %s& a, const %s& b);  // same kind, same fields" % (n, n))
    w.enter("Serialization")
    # How the codecs see the records: not API, and left out of the reference.
    w.add("/// @cond TL_CODEC_TRAITS")
    for t in types:
        version = getattr(t, "version", 0)
        if isinstance(t, (Record, Polymorphic)) and version:
            w.add("template <>", "struct TypeVersion<%s> {" % t.cpp_name,
                  "    static constexpr std::uint64_t value = %d;" % version, "};")
        if isinstance(t, Record) and not t.wire_members():
            w.add("template <>", "struct Detail::IsEmptyRecord<%s> : std::true_type {};" % t.cpp_name)
        if isinstance(t, Polymorphic):
            w.add("template <>", "struct IsPolytype<%s> : std::true_type {};" % t.cpp_name)
        if isinstance(t, Enum):
            w.add("template <>", "struct EnumCodec<%s> {" % t.cpp_name,
                  "    static constexpr const char* TypeName = %s;" % c_string(t.short_name),
                  "    TL_API static const char* Name(%s value);" % t.cpp_name,
                  "    TL_API static bool Parse(const std::string& text, %s& value);" % t.cpp_name,
                  "};")
    w.add("/// @endcond")
    return w.text()


# --- one module's unit --------------------------------------------------------------------------

FORM_ORDER = ["Blob", "Bytes", "U16", "I16", "String", "I64", "I32", "U64", "Double", "U32",
              "WideString", "Error", "Guid", "U8", "Bool"]


def traits_array(name, traits):
    rows = ", ".join("{%s, %s, %s}" % (c_string(n), c_string("NilValue" if v is None else "StringValue"),
                                        c_string(v or "")) for n, v in traits)
    return "constexpr ::Serialization::MetaInfoTrait %s[] = {%s};" % (name, rows)


def module_unit(model, module):
    w = NamespaceWriter()
    # Only the module's own records (and the modules they name): a change of another
    # definition file leaves the unit alone.
    w.add(BANNER.rstrip(), "", "#include <%s>" % module_header_path(module), "",
          "#include <typeinfo>", "",
          "#include <tessel_link/impl/serialize/record_meta.h>",
          "#include <tessel_link/xidl/catalogue.h>", "",
          "namespace {", "", "using ::Serialization::Detail::Equal;", "")
    records = [t for t in module.types if isinstance(t, Record)]
    for t in records:
        names = ", ".join(c_string(m.name) for m in t.members)
        traited = [m for m in t.members if m.traits]
        if t.members:
            w.add("const ::Serialization::RecordMeta& Meta_%s() {" % ident(t.full_name))
        if not t.members:
            pass
        elif traited:
            w.add("    static const ::Serialization::RecordMeta meta(")
            w.add("        {%s}," % names)
            w.add("        {")
            for m in traited:
                rows = ", ".join("{%s, %s, %s}" % (c_string(n), c_string("NilValue" if v is None else "StringValue"),
                                                    c_string(v or "")) for n, v in m.traits)
                w.add("            {%s, {%s}}," % (c_string(m.name), rows))
            w.add("        });")
        else:
            w.add("    static const ::Serialization::RecordMeta meta({%s});" % names)
        if t.members:
            w.add("    return meta;", "}", "")
        # member-wise comparison, base members first
        w.add("bool MembersEqual_%s(const %s& a, const %s& b) {" % (ident(t.full_name), t.cpp_name, t.cpp_name))
        terms = []
        if isinstance(t.base, Record):
            terms.append("MembersEqual_%s(a, b)" % ident(t.base.full_name))
        terms += ["Equal(a.%s, b.%s)" % (m.name, m.name) for m in t.members]
        w.add("    %s;" % ("return " + "\n        && ".join(terms) if terms else "(void)a;\n    (void)b;\n    return true"))
        w.add("}", "")
    # metadata of the module's types
    for t in module.types:
        members = t.members if isinstance(t, Record) else t.fields if isinstance(t, Polymorphic) else []
        for m in members:
            if m.traits:
                w.add(traits_array("kTraits_%s_%s" % (ident(t.full_name), m.name), m.traits))
        if members:
            w.add("constexpr ::Serialization::Xidl::MemberInfo kMembers_%s[] = {" % ident(t.full_name))
            for m in members:
                traits = ("kTraits_%s_%s, %d" % (ident(t.full_name), m.name, len(m.traits))) if m.traits else "nullptr, 0"
                w.add("    {%s, %s, ::Serialization::Xidl::MemberForm::%s, %s, %s}," % (
                    c_string(m.name), c_string(m.type.text()), m.type.form(), "true" if m.chosen else "false", traits))
            w.add("};")
        if isinstance(t, Enum) and t.values:
            w.add("constexpr ::Serialization::Xidl::EnumValueInfo kValues_%s[] = {%s};" % (
                ident(t.full_name), ", ".join("{%s, %d}" % (c_string(n), v) for n, v in t.values)))
        if isinstance(t, Record) and not t.abstract:
            # one control block type serves every record: each costs its deleter only
            w.add("void Delete_%s(void* value) {" % ident(t.full_name),
                  "    delete static_cast<%s*>(value);" % t.cpp_name, "}",
                  "std::shared_ptr<void> Create_%s() {" % ident(t.full_name),
                  "    return ::Serialization::Xidl::AdoptRecord(new %s(), &Delete_%s);" % (t.cpp_name, ident(t.full_name)), "}",
                  "void Write_%s(::Serialization::Serializer& s, const ::Serialization::MetaInfo& meta, const void* value) {" % ident(t.full_name),
                  "    ::Serialization::WriteMember(s, meta, *static_cast<const %s*>(value));" % t.cpp_name, "}",
                  "void Read_%s(::Serialization::Deserializer& d, const ::Serialization::MetaInfo& meta, void* value) {" % ident(t.full_name),
                  "    ::Serialization::ReadMember(d, meta, *static_cast<%s*>(value));" % t.cpp_name, "}",
                  "bool Equal_%s(const void* a, const void* b) {" % ident(t.full_name),
                  "    return *static_cast<const %s*>(a) == *static_cast<const %s*>(b);" % (t.cpp_name, t.cpp_name), "}")
        w.add("")
    w.add("}  // namespace", "")
    for t in records:
        w.enter(t.namespace)
        n, fid = t.short_name, ident(t.full_name)
        uses = " value" if t.members or isinstance(t.base, Record) else ""
        w.add("::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const %s&%s) {" % (n, uses))
        if isinstance(t.base, Record):
            w.add("    s << static_cast<const %s&>(value);" % t.base.cpp_name)
        if t.members:
            w.add("    const ::Serialization::RecordMeta& meta = Meta_%s();" % fid)
        for i, m in enumerate(t.members):
            call = "WriteObscuredMember" if m.obscured else "WriteMember"
            w.add("    ::Serialization::%s(s, meta.Write(%d), value.%s);" % (call, i, m.name))
        w.add("    return s;", "}", "")
        w.add("::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, %s&%s) {" % (n, uses))
        if isinstance(t.base, Record):
            w.add("    d >> static_cast<%s&>(value);" % t.base.cpp_name)
        if t.members:
            w.add("    const ::Serialization::RecordMeta& meta = Meta_%s();" % fid)
        for i, m in enumerate(t.members):
            call = "ReadObscuredMember" if m.obscured else "ReadMember"
            w.add("    ::Serialization::%s(d, meta.Read(%d), value.%s);" % (call, i, m.name))
        w.add("    return d;", "}", "")
        if t.abstract:
            continue
        root = root_of(t)
        if root:
            w.add("bool operator==(const %s& a, const %s& b) {" % (n, n), "    return a.Equals(b);", "}", "")
            w.add("std::uint32_t %s::TypeNumber() const {" % n)
            if t.number_from:
                w.add("    return static_cast<std::uint32_t>(%s);" % t.number_from)
            else:
                w.add("    return %du;" % t.numbers[0])
            w.add("}", "")
            w.add("bool %s::Equals(const %s& other) const {" % (n, root.cpp_name),
                  "    return %s::Equals(other) && MembersEqual_%s(*this, static_cast<const %s&>(other));"
                  % (root.cpp_name, fid, n), "}", "")
        else:
            w.add("bool operator==(const %s& a, const %s& b) {" % (n, n),
                  "    return MembersEqual_%s(a, b);" % fid, "}", "")
    for t in module.types:
        if isinstance(t, Polymorphic):
            w.enter(t.namespace)
            n = t.short_name
            w.add("%s::~%s() = default;" % (n, n), "")
            w.add("bool %s::Equals(const %s& other) const {" % (n, n))
            terms = ["typeid(*this) == typeid(other)"] + ["Equal(%s, other.%s)" % (f.name, f.name) for f in t.fields]
            w.add("    return " + "\n        && ".join(terms) + ";", "}", "")
            w.add("bool operator==(const %s& a, const %s& b) {" % (n, n), "    return a.Equals(b);", "}", "")
        if isinstance(t, Enum):
            w.enter("Serialization")
            w.add("const char* EnumCodec<%s>::Name(%s value) {" % (t.cpp_name, t.cpp_name))
            if t.values:
                w.add("    switch (value) {")
                for name, _ in t.values:
                    w.add("    case %s::%s:" % (t.cpp_name, name), "        return %s;" % c_string(name))
                w.add("    }")
            else:
                w.add("    (void)value;")
            w.add("    return nullptr;", "}", "")
            w.add("bool EnumCodec<%s>::Parse(const std::string& text, %s& value) {" % (t.cpp_name, t.cpp_name))
            for name, _ in (t.values or []):
                w.add("    if (text == %s) {" % c_string(name),
                      "        value = %s::%s;" % (t.cpp_name, name), "        return true;", "    }")
            if not t.values:
                w.add("    (void)text;", "    (void)value;")
            w.add("    return false;", "}", "")
    # the module's part of the catalogue
    w.enter("Serialization::Xidl::Generated")
    w.add("extern const TypeInfo kTypes_%s[] = {" % module.stem)
    for t in module.types:
        fid = ident(t.full_name)
        if isinstance(t, Record):
            kind = "AbstractRecord" if t.abstract else "Record"
            version, base = t.version, c_string(t.base.full_name) if t.base else "nullptr"
            members = ("kMembers_%s, %d" % (fid, len(t.members))) if t.members else "nullptr, 0"
            values = "nullptr, 0"
            funcs = "nullptr, nullptr, nullptr, nullptr" if t.abstract else \
                "Create_%s, Write_%s, Read_%s, Equal_%s" % (fid, fid, fid, fid)
        elif isinstance(t, Polymorphic):
            kind, version, base = "Polymorphic", t.version, "nullptr"
            members = ("kMembers_%s, %d" % (fid, len(t.fields))) if t.fields else "nullptr, 0"
            values, funcs = "nullptr, 0", "nullptr, nullptr, nullptr, nullptr"
        elif isinstance(t, Enum):
            kind, version, base, members = "Enumeration", 0, "nullptr", "nullptr, 0"
            values = ("kValues_%s, %d" % (fid, len(t.values))) if t.values else "nullptr, 0"
            funcs = "nullptr, nullptr, nullptr, nullptr"
        else:
            kind, version, base, members, values = "Extern", 0, "nullptr", "nullptr, 0", "nullptr, 0"
            funcs = "nullptr, nullptr, nullptr, nullptr"
        w.add("    {%s, TypeKind::%s, %d, %s, %s, %s, %s}," % (
            c_string(t.full_name), kind, version, base, members, values, funcs))
    w.add("};")
    w.add("extern const std::size_t kTypeCount_%s = %d;" % (module.stem, len(module.types)))
    return w.text()


# --- the polymorphic forms ----------------------------------------------------------------------

def written_as(kind):
    """The record that an object of `kind` is written as. Where the number is a member, one
    class serves several codes: a kind that adds no member to an abstract record of the
    hierarchy writes as that record, so that an object of a sibling kind that carries this
    kind's number is written all the same (it has the same members on the wire)."""
    target = kind
    while (kind.number_from and not target.members and isinstance(target.base, Record)
           and target.base.abstract and target.base.version == target.version):
        target = target.base
    return target


def polytypes_unit(model, module):
    w = NamespaceWriter()
    # the module's records and those of every kind of its hierarchies
    orders = {module.order} | {k.module.order for t in module.hierarchies() for k in t.kinds}
    w.add(BANNER.rstrip(), "")
    w.add(*["#include <%s>" % module_header_path(model.modules[o]) for o in sorted(orders)])
    w.add("", "#include <tessel_link/impl/serialize/polytype.h>", "")
    for t in module.hierarchies():
        w.enter(t.namespace)
        n = t.short_name
        w.add("::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const std::shared_ptr<%s>& value) {" % n,
              "    ::Serialization::WriteScope element(s, ::Serialization::MetaInfo(%s));" % c_string(t.element),
              "    if (!value) {", "        return s;", "    }",
              "    const std::uint32_t number = value->TypeNumber();",
              "    s.Write(::Serialization::MetaInfo(%s), number);" % c_string(t.number))
        for f in t.fields:
            w.add("    ::Serialization::WriteMember(s, ::Serialization::MetaInfo(%s), value->%s);" % (c_string(f.name), f.name))
        w.add("    switch (number) {")
        for k in t.kinds:
            if k.unhandled:
                continue
            for number in k.numbers:
                w.add("    case %du:" % number)
            w.add("        if (::Serialization::WriteKind<%s>(s, *value)) {" % written_as(k).cpp_name,
                  "            return s;",
                  "        }", "        break;")
        w.add("    default:", "        break;", "    }",
              "    TL_ASSERT_TEXT(false, %s);" % c_string(t.unknown), "    return s;", "}", "")
        w.add("::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, std::shared_ptr<%s>& value) {" % n,
              "    ::Serialization::ReadScope element(d, ::Serialization::MetaInfo(%s));" % c_string(t.element),
              "    value.reset();",
              "    std::uint32_t number = static_cast<std::uint32_t>(-1);",
              "    if (!::Serialization::ReadKindNumber(d, ::Serialization::MetaInfo(%s), number)) {" % c_string(t.number),
              "        return d;", "    }")
        for f in t.fields:
            w.add("    %s %s{};" % (f.type.cpp(), f.name),
                  "    ::Serialization::ReadMember(d, ::Serialization::MetaInfo(%s), %s);" % (c_string(f.name), f.name))
        w.add("    std::shared_ptr<%s> object;" % n, "    switch (number) {")
        for k in t.kinds:
            if k.unhandled:
                continue
            for number in k.numbers:
                w.add("    case %du:" % number)
            if k.number_from:
                # The number chose the class; the member that holds it agrees with it.
                member = k.find_member(k.number_from)
                w.add("    {", "        auto kind = ::Serialization::ReadKind<%s>(d);" % k.cpp_name,
                      "        kind->%s = static_cast<%s>(number);" % (k.number_from, member.type.cpp()),
                      "        object = std::move(kind);", "        break;", "    }")
            else:
                w.add("        object = ::Serialization::ReadKind<%s>(d);" % k.cpp_name, "        break;")
        w.add("    default:", "        TL_ASSERT_TEXT(false, %s);" % c_string(t.unknown), "        return d;", "    }")
        for f in t.fields:
            w.add("    object->%s = %s;" % (f.name, f.name))
        w.add("    value = std::move(object);", "    return d;", "}", "")
    return w.text()


# --- the catalogue ------------------------------------------------------------------------------

def catalogue_unit(model):
    w = NamespaceWriter()
    w.add(BANNER.rstrip(), "", "#include <tessel_link/xidl/catalogue.h>", "")
    w.enter("Serialization::Xidl::Generated")
    for m in model.modules:
        w.add("extern const TypeInfo kTypes_%s[];" % m.stem, "extern const std::size_t kTypeCount_%s;" % m.stem)
    w.add("", "// Every type, in the order of the definitions.", "extern const TypeInfo* const kAllTypes[] = {")
    for m in model.modules:
        for i, _ in enumerate(m.types):
            w.add("    &kTypes_%s[%d]," % (m.stem, i))
    w.add("};", "extern const std::size_t kAllTypeCount = %d;" % sum(len(m.types) for m in model.modules), "")
    w.add("// The types that are checked in, in their order of registration.", "extern const TypeInfo* const kCheckedInTypes[] = {")
    count = 0
    for m in model.modules:
        for i, t in enumerate(m.types):
            if isinstance(t, Record) and t.checked_in:
                w.add("    &kTypes_%s[%d]," % (m.stem, i))
                count += 1
    w.add("};", "extern const std::size_t kCheckedInTypeCount = %d;" % count)
    return w.text()
