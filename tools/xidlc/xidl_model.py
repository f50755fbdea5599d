"""Resolves the declarations of all definition files into one checked model."""

from xidl_parser import (DefinitionError, EnumDecl, ExternDecl, PolymorphicDecl, RecordDecl)

# The value forms: definition name -> (C++ type, form name). The order of the form names is
# that of the serializer's value forms.
SCALARS = {
    "blob": ("::Serialization::Blob", "Blob"),
    "bytes": ("std::vector<unsigned char>", "Bytes"),
    "u16": ("std::uint16_t", "U16"),
    "i16": ("std::int16_t", "I16"),
    "string": ("std::string", "String"),
    "i64": ("std::int64_t", "I64"),
    "i32": ("std::int32_t", "I32"),
    "u64": ("std::uint64_t", "U64"),
    "double": ("double", "Double"),
    "u32": ("std::uint32_t", "U32"),
    "wstring": ("std::u16string", "WideString"),
    "Error": ("::Common::Error", "Error"),
    "Guid": ("::Common::Guid", "Guid"),
    "u8": ("std::uint8_t", "U8"),
    "bool": ("bool", "Bool"),
}
NUMERIC = {"u8", "u16", "i16", "u32", "i32", "u64", "i64", "double"}

# Containers: definition name -> (C++ template, number of arguments).
CONTAINERS = {
    "vector": ("std::vector", 1),
    "list": ("std::list", 1),
    "set": ("std::set", 1),
    "map": ("std::map", 2),
    "multimap": ("std::multimap", 2),
    "optional": ("::Core::Optional", 1),
    "ptr": ("std::shared_ptr", 1),
}

# The member traits that generated code knows: name -> type of its value.
TRAITS = {
    "Obscured": "NilValue",
    "PrimaryKey": "NilValue",
    "Searchable": "NilValue",
    "TaskAffecting": "NilValue",
    "CDPAffecting": "NilValue",
    "TemplateInstantiation": "NilValue",
    "Measure": "StringValue",
    "serialize_as": "StringValue",
    "TemplateProhibitedExclusions": "StringValue",
    "TemplateSource": "StringValue",
    "Type": "StringValue",
}


class Type:
    """A resolved type: kind is 'scalar', 'record', 'enum', 'polymorphic', 'extern' or a
    container name; decl is the declaration of a named type; args the container's types."""

    def __init__(self, kind, name=None, decl=None, args=()):
        self.kind, self.name, self.decl, self.args = kind, name, decl, list(args)

    def text(self):
        """The type as the catalogue shows it, with full names."""
        if self.kind == "scalar":
            return self.name
        if self.kind in CONTAINERS:
            return "%s<%s>" % (self.kind, ", ".join(a.text() for a in self.args))
        return self.decl.full_name

    def cpp(self):
        if self.kind == "scalar":
            return SCALARS[self.name][0]
        if self.kind in CONTAINERS:
            return "%s<%s>" % (CONTAINERS[self.kind][0], ", ".join(a.cpp() for a in self.args))
        return self.decl.cpp_name

    def form(self):
        if self.kind == "scalar":
            return SCALARS[self.name][1]
        return {"record": "Record", "enum": "Enum", "extern": "Record", "polymorphic": "Polymorphic",
                "vector": "Sequence", "list": "Sequence", "set": "Sequence", "map": "Map",
                "multimap": "Map", "optional": "Optional", "ptr": "Pointer"}[self.kind]

    def named_types(self):
        """Every named type that this type mentions."""
        if self.kind in CONTAINERS:
            return [t for a in self.args for t in a.named_types()]
        return [self.decl] if self.decl else []

    def needs_complete(self):
        """The named types that must be complete where a member of this type is declared."""
        if self.kind in ("vector", "list", "ptr"):
            return []
        if self.kind in CONTAINERS:
            return [t for a in self.args for t in a.needs_complete_inner()]
        return [self.decl] if self.decl else []

    def needs_complete_inner(self):
        if self.kind in ("vector", "list", "ptr"):
            return []
        return self.needs_complete()


class Named:
    """What all named declarations share."""

    def __init__(self, module, decl):
        self.module, self.decl, self.where = module, decl, decl.where
        self.full_name = module.namespace + "::" + decl.name
        self.namespace, _, self.short_name = self.full_name.rpartition("::")
        self.cpp_name = "::" + self.full_name


class Enum(Named):
    def __init__(self, module, decl):
        super().__init__(module, decl)
        self.values = decl.values  # None: no value has a name


class Extern(Named):
    def __init__(self, module, decl):
        super().__init__(module, decl)
        self.header = decl.header


class ResolvedMember:
    def __init__(self, owner, decl, type_):
        self.owner, self.decl, self.type = owner, decl, type_
        self.name, self.chosen, self.where = decl.name, decl.chosen, decl.where
        self.traits = [(t.name, t.value) for t in decl.traits]
        self.default = decl.default

    @property
    def obscured(self):
        return any(name == "Obscured" for name, _ in self.traits)


class Record(Named):
    def __init__(self, module, decl):
        super().__init__(module, decl)
        self.abstract = decl.abstract
        self.local = decl.local
        self.explicit_version = decl.version
        self.base = None          # Record or Polymorphic
        self.members = []         # own members, in wire order
        self.overrides = []       # (member, value) of inherited members
        self.hierarchy = None     # the Polymorphic this record belongs to
        self.numbers = []         # the numbers of a concrete kind
        self.number_from = None   # the member that holds the number, or None for a constant
        self.unhandled = False

    @property
    def version(self):
        if self.explicit_version is not None:
            return self.explicit_version
        return self.module.version

    @property
    def checked_in(self):
        return not self.abstract and not self.local

    def record_bases(self):
        """The chain of record bases, outermost first (a hierarchy's root not included)."""
        chain, base = [], self.base
        while isinstance(base, Record):
            chain.insert(0, base)
            base = base.base
        return chain

    def wire_members(self):
        return [m for b in self.record_bases() for m in b.members] + self.members

    def find_member(self, name):
        for m in self.wire_members():
            if m.name == name:
                return m
        return None


class Polymorphic(Named):
    def __init__(self, module, decl):
        super().__init__(module, decl)
        self.element, self.number, self.unknown = decl.element, decl.number, decl.unknown
        self.fields = []
        self.kinds = []           # Record, in declaration order
        self.version = module.version


class Module:
    def __init__(self, file, order):
        self.file, self.order = file, order
        self.namespace, self.version = file.namespace, file.version
        self.path = file.path
        self.types = []           # Named, in declaration order

    @property
    def stem(self):
        import os
        return os.path.splitext(os.path.basename(self.path))[0]

    def hierarchies(self):
        return [t for t in self.types if isinstance(t, Polymorphic)]


def fail(where, message):
    raise DefinitionError("%s: %s" % (where, message))


class Model:
    def __init__(self, files):
        self.modules = [Module(f, i) for i, f in enumerate(files)]
        self.by_name = {}
        for module in self.modules:
            for decl in module.file.decls:
                kind = {RecordDecl: Record, EnumDecl: Enum, PolymorphicDecl: Polymorphic,
                        ExternDecl: Extern}[type(decl)]
                named = kind(module, decl)
                if named.full_name in self.by_name:
                    fail(decl.where, "%s is declared twice (first at %s)"
                         % (named.full_name, self.by_name[named.full_name].where))
                self.by_name[named.full_name] = named
                module.types.append(named)
        for named in self.all_types():
            if isinstance(named, Record):
                self.resolve_record(named)
            elif isinstance(named, Polymorphic):
                named.fields = [ResolvedMember(named, f, self.resolve_type(f.type_expr, named.namespace))
                                for f in named.decl.fields]
        for named in self.all_types():
            if isinstance(named, Polymorphic):
                self.resolve_hierarchy(named)
        for named in self.all_types():
            if isinstance(named, Record):
                self.check_record(named)
        self.definition_order()

    def definition_order(self):
        """The records in an order in which each is defined after what it needs complete, and,
        where no cycle forbids it, after the records its sequences and pointers name too."""
        records = self.records() + [t for t in self.all_types() if isinstance(t, Polymorphic)]
        done, order, busy = set(), [], set()

        def members(t):
            return t.members if isinstance(t, Record) else t.fields

        def hard(t):
            result = [t.base] if isinstance(t, Record) and t.base else []
            for m in members(t):
                result += m.type.needs_complete()
            return [n for n in result if isinstance(n, (Record, Polymorphic))]

        def soft(t):
            return [n for m in members(t) for n in m.type.named_types() if isinstance(n, (Record, Polymorphic))]

        def visit(t):
            if t.full_name in done:
                return
            if t.full_name in busy:
                fail(t.where, "%s contains itself by value" % t.full_name)
            busy.add(t.full_name)
            for n in hard(t):
                visit(n)
            for n in soft(t):
                if n.full_name not in busy:
                    visit(n)
            busy.discard(t.full_name)
            done.add(t.full_name)
            order.append(t)

        for t in records:
            visit(t)
        return order

    def all_types(self):
        return [t for m in self.modules for t in m.types]

    def records(self):
        return [t for t in self.all_types() if isinstance(t, Record)]

    def checked_in(self):
        return [t for t in self.records() if t.checked_in]

    # name lookup works as in C++: from the innermost enclosing namespace outwards
    def lookup(self, name, namespace, where):
        scope = namespace
        while True:
            candidate = scope + "::" + name if scope else name
            if candidate in self.by_name:
                return self.by_name[candidate]
            if not scope:
                fail(where, "unknown type %s" % name)
            scope = scope.rpartition("::")[0]

    def resolve_type(self, expr, namespace, pointee=False):
        if expr.name in SCALARS:
            if expr.args:
                fail(expr.where, "%s takes no arguments" % expr.name)
            return Type("scalar", expr.name)
        if expr.name in CONTAINERS:
            count = CONTAINERS[expr.name][1]
            if len(expr.args) != count:
                fail(expr.where, "%s takes %d argument(s)" % (expr.name, count))
            args = [self.resolve_type(a, namespace, expr.name == "ptr") for a in expr.args]
            if expr.name in ("vector", "list", "set") and args[0].kind == "scalar" and args[0].name == "u8":
                fail(expr.where, "a sequence of u8 is the value form bytes: write bytes")
            if expr.name in ("map", "multimap", "set"):
                key = args[0]
                if key.kind not in ("scalar", "enum"):
                    fail(expr.where, "%s keys must be scalars or enumerations" % expr.name)
            if expr.name == "ptr" and args[0].kind not in ("record", "polymorphic", "extern"):
                fail(expr.where, "ptr<> points to a record")
            return Type(expr.name, args=args)
        if expr.args:
            fail(expr.where, "%s takes no arguments" % expr.name)
        decl = self.lookup(expr.name, namespace, expr.where)
        kind = {Record: "record", Enum: "enum", Polymorphic: "polymorphic", Extern: "extern"}[type(decl)]
        if kind == "polymorphic" and not pointee:
            fail(expr.where, "a polymorphic record is held through ptr<>")
        if kind == "record" and decl.abstract and not pointee:
            fail(expr.where, "%s is abstract" % decl.full_name)
        return Type(kind, decl=decl)

    def resolve_record(self, record):
        decl = record.decl
        if decl.base:
            base = self.lookup(decl.base, record.namespace, decl.where)
            if not isinstance(base, (Record, Polymorphic)):
                fail(decl.where, "%s cannot be a base" % base.full_name)
            record.base = base
        seen = set()
        for m in decl.members:
            if m.name in seen:
                fail(m.where, "member %s is declared twice" % m.name)
            seen.add(m.name)
            member = ResolvedMember(record, m, self.resolve_type(m.type_expr, record.namespace))
            self.check_traits(member)
            record.members.append(member)
        record.overrides = [(o.name, o.value, o.where) for o in decl.overrides]

    def check_traits(self, member):
        for name, value in member.traits:
            if name not in TRAITS:
                fail(member.where, "unknown trait %s" % name)
            if (TRAITS[name] == "NilValue") != (value is None):
                fail(member.where, "trait %s %s a value" % (name, "takes no" if value is not None else "needs"))
        if member.obscured and not (member.type.kind == "scalar" and member.type.name == "wstring"):
            fail(member.where, "only a wstring member can be obscured")

    def resolve_hierarchy(self, poly):
        numbers = {}
        for kind in poly.decl.kinds:
            record = self.lookup(kind.class_name, poly.namespace, kind.where)
            if not isinstance(record, Record) or record.abstract:
                fail(kind.where, "%s is not a concrete record" % kind.class_name)
            root = record.base
            while isinstance(root, Record):
                root = root.base
            if root is not poly:
                fail(kind.where, "%s does not derive from %s" % (record.full_name, poly.full_name))
            if record.hierarchy:
                fail(kind.where, "%s is a kind twice" % record.full_name)
            for n in kind.numbers:
                if n in numbers:
                    fail(kind.where, "number %d is given twice" % n)
                numbers[n] = record
            record.hierarchy, record.numbers = poly, kind.numbers
            record.number_from = kind.number_from or poly.decl.number_from
            record.unhandled = kind.unhandled
            if record.number_from:
                member = record.find_member(record.number_from)
                if not member or member.type.kind not in ("scalar", "enum") or \
                        (member.type.kind == "scalar" and member.type.name not in NUMERIC):
                    fail(kind.where, "%s has no number member %s" % (record.full_name, record.number_from))
            elif len(kind.numbers) != 1:
                fail(kind.where, "a kind with several numbers keeps its number in a member ('from')")
            poly.kinds.append(record)

    def check_record(self, record):
        root = record.base
        while isinstance(root, Record):
            root = root.base
        if isinstance(root, Polymorphic) and not record.abstract and record.hierarchy is None:
            fail(record.where, "%s derives from %s but has no number there" % (record.full_name, root.full_name))
        for name, value, where in record.overrides:
            if not any(m.name == name for b in record.record_bases() for m in b.members):
                fail(where, "%s inherits no member %s" % (record.full_name, name))
        for m in record.wire_members():
            if m.default is not None:
                self.check_value(m, m.default, m.where)
        for name, value, where in record.overrides:
            self.check_value(record.find_member(name), value, where)

    def check_value(self, member, value, where):
        t = member.type
        if t.kind == "enum":
            names = [n for n, _ in (t.decl.values or [])]
            if value not in names:
                fail(where, "%s is no value of %s" % (value, t.decl.full_name))
        elif t.kind == "scalar" and t.name in NUMERIC:
            try:
                int(value, 0)
            except ValueError:
                fail(where, "%s is not a number" % value)
        else:
            fail(where, "member %s cannot have a default value" % member.name)
