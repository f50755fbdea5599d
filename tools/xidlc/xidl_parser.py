"""The front end of the interface compiler: one tokenizer and one parser for both kinds of
definition file, records (module files listed by the order file) and components. It reads
files into plain declarations; names are resolved later (xidl_model for records,
xidl_components for components), and the emitters write C++ from the resolved forms.

Comments start with '#' and run to the end of the line. A run of whole-line comments just
above a declaration is its documentation: it is kept with the declaration and reaches the
generated C++."""

import os
import re


class DefinitionError(Exception):
    pass


class Where:
    def __init__(self, path, line):
        self.path, self.line = path, line

    def __str__(self):
        return "%s:%d" % (self.path, self.line)


TOKEN = re.compile(r"""
    (?P<space>[ \t\r]+) |
    (?P<newline>\n) |
    (?P<comment>\#[^\n]*) |
    (?P<string>"(?:[^"\\\n]|\\.)*") |
    (?P<number>0[xX][0-9a-fA-F]+|-?[0-9]+) |
    (?P<name>[A-Za-z_][A-Za-z0-9_]*(?:::[A-Za-z_][A-Za-z0-9_]*)*) |
    (?P<punct>[:{}<>,=\[\]&()])
""", re.VERBOSE)


class Token:
    def __init__(self, kind, text, where, start=0, end=0):
        self.kind, self.text, self.where, self.start, self.end = kind, text, where, start, end

    def __repr__(self):
        return "%s %r" % (self.kind, self.text)


class Tokens:
    """The tokens of a file, and its whole-line comments by line number."""

    def __init__(self, tokens, comments):
        self.tokens, self.comments = tokens, comments

    def doc_before(self, line):
        """The whole-line comments just above `line`, top to bottom, without their '#'."""
        lines = []
        line -= 1
        while line in self.comments:
            lines.append(self.comments[line])
            line -= 1
        return list(reversed(lines))


def tokenize(path, text):
    return scan(path, text).tokens


def scan(path, text):
    tokens, comments, pos, line, line_has_token = [], {}, 0, 1, False
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise DefinitionError("%s:%d: unexpected character %r" % (path, line, text[pos]))
        kind = m.lastgroup
        if kind == "newline":
            line += 1
            line_has_token = False
        elif kind == "comment":
            if not line_has_token:
                body = m.group(kind)[1:]
                comments[line] = body[1:] if body.startswith(" ") else body
        elif kind != "space":
            tokens.append(Token(kind, m.group(kind), Where(path, line), m.start(), m.end()))
            line_has_token = True
        pos = m.end()
    tokens.append(Token("end", "", Where(path, line), len(text), len(text)))
    return Tokens(tokens, comments)


def unquote(text):
    return bytes(text[1:-1], "utf-8").decode("unicode_escape")


# --- declarations as read --------------------------------------------------------------------

class TypeExpr:
    """A type as written: a name with optional arguments (vector<T>, map<K, V>, ...)."""

    def __init__(self, name, args, where):
        self.name, self.args, self.where = name, args, where

    def __str__(self):
        if not self.args:
            return self.name
        return "%s<%s>" % (self.name, ", ".join(str(a) for a in self.args))


class Trait:
    def __init__(self, name, value, where):
        self.name, self.value, self.where = name, value, where


class Member:
    doc = ()  # the documentation comment's lines

    def __init__(self, name, type_expr, chosen, traits, default, where):
        self.name, self.type_expr, self.chosen = name, type_expr, chosen
        self.traits, self.default, self.where = traits, default, where


class Override:
    def __init__(self, name, value, where):
        self.name, self.value, self.where = name, value, where


class RecordDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, name, base, abstract, version, members, overrides, where, local=False):
        self.name, self.base, self.abstract, self.version = name, base, abstract, version
        self.members, self.overrides, self.where = members, overrides, where
        self.local = local


class EnumDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, name, values, where):
        # values: list of (name, number); None when the definitions name no values
        self.name, self.values, self.where = name, values, where


class KindDecl:
    def __init__(self, numbers, class_name, number_from, unhandled, where):
        self.numbers, self.class_name, self.number_from = numbers, class_name, number_from
        self.unhandled, self.where = unhandled, where


class PolymorphicDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, name, element, number, number_from, unknown, fields, kinds, where):
        self.name, self.element, self.number, self.number_from = name, element, number, number_from
        self.unknown, self.fields, self.kinds, self.where = unknown, fields, kinds, where


class ExternDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, name, header, where):
        self.name, self.header, self.where = name, header, where


class ModuleFile:
    def __init__(self, path, namespace, version, decls):
        self.path, self.namespace, self.version, self.decls = path, namespace, version, decls


# --- parsing, shared by both kinds of file -------------------------------------------------------

class BaseParser:
    def __init__(self, path, text):
        self.path, self.text = path, text
        scanned = scan(path, text)
        self.tokens, self.comments = scanned.tokens, scanned
        self.i = 0

    def peek(self, ahead=0):
        return self.tokens[min(self.i + ahead, len(self.tokens) - 1)]

    def take(self, kind=None, text=None):
        tok = self.peek()
        if (kind and tok.kind != kind) or (text is not None and tok.text != text):
            want = text if text is not None else kind
            raise DefinitionError("%s: expected %s, found %r" % (tok.where, want, tok.text or "end of file"))
        self.i += 1
        return tok

    def accept(self, text):
        if self.peek().text == text and self.peek().kind in ("name", "punct"):
            self.i += 1
            return True
        return False

    def number(self):
        tok = self.take("number")
        return int(tok.text, 0)

    def doc(self):
        """The documentation of the declaration that starts at the next token."""
        return self.comments.doc_before(self.peek().where.line)


# --- record definitions --------------------------------------------------------------------------

class Parser(BaseParser):
    def parse(self):
        if self.peek().text != "module":
            raise DefinitionError("%s: a definition file starts with 'module NAME'" % self.peek().where)
        self.take()
        namespace = self.take("name").text
        version = 0
        if self.accept("version"):
            version = self.number()
        decls = []
        readers = {"record": self.record, "enum": self.enum, "polymorphic": self.polymorphic,
                   "extern": self.extern}
        while self.peek().kind != "end":
            word = self.peek()
            if word.text not in readers or word.kind != "name":
                raise DefinitionError("%s: expected record, enum, polymorphic or extern, found %r"
                                      % (word.where, word.text))
            doc = self.doc()
            decl = readers[word.text]()
            decl.doc = doc
            decls.append(decl)
        return ModuleFile(self.path, namespace, version, decls)

    def type_expr(self):
        tok = self.take("name")
        args = []
        if self.accept("<"):
            args.append(self.type_expr())
            while self.accept(","):
                args.append(self.type_expr())
            self.take("punct", ">")
        return TypeExpr(tok.text, args, tok.where)

    def value(self):
        tok = self.peek()
        if tok.kind in ("number", "name", "string"):
            self.i += 1
            return tok.text
        raise DefinitionError("%s: expected a value, found %r" % (tok.where, tok.text))

    def traits(self):
        traits = []
        if not self.accept("["):
            return traits
        while True:
            tok = self.take("name")
            value = None
            if self.accept("="):
                value = unquote(self.take("string").text)
            traits.append(Trait(tok.text, value, tok.where))
            if self.accept("]"):
                return traits
            self.take("punct", ",")

    def record(self):
        start = self.take()
        name = self.take("name").text
        base = None
        if self.accept(":"):
            base = self.take("name").text
        abstract, version, local = False, None, False
        while True:
            if self.accept("abstract"):
                abstract = True
            elif self.accept("local"):
                local = True
            elif self.accept("version"):
                version = self.number()
            else:
                break
        self.take("punct", "{")
        members, overrides = [], []
        while not self.accept("}"):
            doc = self.doc()
            tok = self.take("name")
            if self.accept("="):
                overrides.append(Override(tok.text, self.value(), tok.where))
                continue
            self.take("punct", ":")
            type_expr = self.type_expr()
            chosen = self.accept("chosen")
            traits = self.traits()
            default = self.value() if self.accept("=") else None
            members.append(Member(tok.text, type_expr, chosen, traits, default, tok.where))
            members[-1].doc = doc
        return RecordDecl(name, base, abstract, version, members, overrides, start.where, local)

    def enum(self):
        start = self.take()
        name = self.take("name").text
        if not self.accept("{"):
            return EnumDecl(name, None, start.where)
        values, next_number = [], 0
        while not self.accept("}"):
            value_name = self.take("name").text
            if self.accept("="):
                next_number = self.number()
            values.append((value_name, next_number))
            next_number += 1
        return EnumDecl(name, values, start.where)

    def polymorphic(self):
        start = self.take()
        name = self.take("name").text
        self.take("punct", "{")
        element = number = number_from = unknown = None
        fields, kinds = [], []
        while not self.accept("}"):
            tok = self.peek()
            if tok.kind == "number":
                numbers = [self.number()]
                while self.accept(","):
                    numbers.append(self.number())
                self.take("punct", ":")
                class_name = self.take("name").text
                kind_from = self.take("name").text if self.accept("from") else None
                unhandled = self.accept("unhandled")
                kinds.append(KindDecl(numbers, class_name, kind_from, unhandled, tok.where))
            elif self.accept("element"):
                element = unquote(self.take("string").text)
            elif self.accept("number"):
                number = unquote(self.take("string").text)
                if self.accept("from"):
                    number_from = self.take("name").text
            elif self.accept("unknown"):
                unknown = unquote(self.take("string").text)
            elif self.accept("field"):
                field = self.take("name")
                self.take("punct", ":")
                fields.append(Member(field.text, self.type_expr(), False, [], None, field.where))
            else:
                raise DefinitionError("%s: unexpected %r in polymorphic %s" % (tok.where, tok.text, name))
        for what, value in (("element", element), ("number", number), ("unknown", unknown)):
            if value is None:
                raise DefinitionError("%s: polymorphic %s needs '%s'" % (start.where, name, what))
        return PolymorphicDecl(name, element, number, number_from, unknown, fields, kinds, start.where)

    def extern(self):
        start = self.take()
        name = self.take("name").text
        header = unquote(self.take("string").text)
        return ExternDecl(name, header, start.where)


def parse_file(path):
    with open(path, encoding="utf-8") as f:
        return Parser(path, f.read()).parse()


# --- component definitions -------------------------------------------------------------------

class Spelled:
    """A parameter type as the interface declares it: a name with template arguments, const,
    and whether it is a non-constant reference."""

    def __init__(self, name, args, const, where):
        self.name, self.args, self.const, self.where = name, args, const, where


MARKS = {"in": 1, "out": 2, "obscured": 4}
BASE_FORMS = ("caster", "noncopyable")


class ParamDecl:
    def __init__(self, name, spelled, text, reference, kind, where):
        self.name, self.spelled, self.text = name, spelled, text
        self.reference, self.kind, self.where = reference, kind, where


class MethodDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, number, name, since, params, where):
        self.number, self.name, self.since, self.params, self.where = number, name, since, params, where


class ComponentDecl:
    doc = ()  # the documentation comment's lines

    def __init__(self, where):
        self.where = where
        self.name = None
        self.id = self.version = None
        self.base = None          # None, "caster" or "noncopyable"
        self.bases = []           # interfaces the component's interface derives from
        self.class_flag = self.option_flag = False
        self.info = (0, 2)
        self.methods = []


class ComponentFile:
    def __init__(self, path, namespace, components):
        self.path, self.namespace, self.components = path, namespace, components

    @property
    def stem(self):
        return os.path.splitext(os.path.basename(self.path))[0]


class ComponentParser(BaseParser):
    def parse(self):
        self.take("name", "module")
        namespace = self.take("name").text
        components = []
        while self.peek().kind != "end":
            doc = self.doc()
            components.append(self.component())
            components[-1].doc = doc
        return ComponentFile(self.path, namespace, components)

    def component(self):
        start = self.take("name", "component")
        c = ComponentDecl(start.where)
        c.name = self.take("name").text
        while not self.accept("{"):
            word = self.take("name")
            if word.text == "id":
                c.id = self.number()
            elif word.text == "version":
                c.version = self.number()
            elif word.text == "base":
                form = self.take("name")
                if form.text not in BASE_FORMS:
                    raise DefinitionError("%s: base is one of %s" % (form.where, ", ".join(BASE_FORMS)))
                c.base = form.text
            elif word.text == "bases":
                c.bases.append(self.take("name").text)
                while self.accept(","):
                    c.bases.append(self.take("name").text)
            elif word.text == "flag":
                flag = self.take("name")
                if flag.text == "class":
                    c.class_flag = True
                elif flag.text == "option":
                    c.option_flag = True
                else:
                    raise DefinitionError("%s: a flag is class or option" % flag.where)
            elif word.text == "info":
                c.info = (self.number(), self.number())
            else:
                raise DefinitionError("%s: unexpected %r in component %s" % (word.where, word.text, c.name))
        if c.id is None or c.version is None:
            raise DefinitionError("%s: component %s needs an id and a version" % (start.where, c.name))
        if c.base and c.bases:
            raise DefinitionError("%s: component %s has both base and bases" % (start.where, c.name))
        while not self.accept("}"):
            doc = self.doc()
            c.methods.append(self.method())
            c.methods[-1].doc = doc
        return c

    def method(self):
        tok = self.peek()
        number = self.number()
        name = self.take("name").text
        self.take("punct", "(")
        params = []
        if not self.accept(")"):
            params.append(self.param())
            while self.accept(","):
                params.append(self.param())
            self.take("punct", ")")
        since = 1
        if self.accept("since"):
            since = self.number()
        return MethodDecl(number, name, since, params, tok.where)

    def param(self):
        tok = self.take("name")
        self.take("punct", ":")
        first = self.peek()
        spelled = self.spelled()
        reference = self.accept("&")
        text = self.text[first.start:self.tokens[self.i - 1].end]
        kind = 0
        while self.peek().text in MARKS and self.peek().kind == "name":
            kind |= MARKS[self.take().text]
        return ParamDecl(tok.text, spelled, text, reference, kind, tok.where)

    def spelled(self):
        tok = self.take("name")
        name = tok.text
        if name == "unsigned":
            # "unsigned long long(uint64)" and "unsigned short int"
            words = []
            while self.peek().text in ("long", "short", "int"):
                words.append(self.take().text)
            if words == ["long", "long"]:
                if self.accept("("):
                    self.take("name", "uint64")
                    self.take("punct", ")")
                name = "uint64"
            elif words in (["short", "int"], ["short"]):
                name = "ushort"
            else:
                raise DefinitionError("%s: unknown type unsigned %s" % (tok.where, " ".join(words)))
        args = []
        if self.accept("<"):
            args.append(self.spelled())
            while self.accept(","):
                args.append(self.spelled())
            self.take("punct", ">")
        const = self.accept("const")
        return Spelled(name, args, const, tok.where)


def parse_component_file(path):
    with open(path, encoding="utf-8") as f:
        return ComponentParser(path, f.read()).parse()
