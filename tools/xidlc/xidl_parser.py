"""Reads definition files into plain declarations (no name resolution yet)."""

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
    (?P<punct>[:{}<>,=\[\]])
""", re.VERBOSE)


class Token:
    def __init__(self, kind, text, where):
        self.kind, self.text, self.where = kind, text, where

    def __repr__(self):
        return "%s %r" % (self.kind, self.text)


def tokenize(path, text):
    tokens, pos, line = [], 0, 1
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise DefinitionError("%s:%d: unexpected character %r" % (path, line, text[pos]))
        kind = m.lastgroup
        if kind == "newline":
            line += 1
        elif kind not in ("space", "comment"):
            tokens.append(Token(kind, m.group(kind), Where(path, line)))
        pos = m.end()
    tokens.append(Token("end", "", Where(path, line)))
    return tokens


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
    def __init__(self, name, type_expr, chosen, traits, default, where):
        self.name, self.type_expr, self.chosen = name, type_expr, chosen
        self.traits, self.default, self.where = traits, default, where


class Override:
    def __init__(self, name, value, where):
        self.name, self.value, self.where = name, value, where


class RecordDecl:
    def __init__(self, name, base, abstract, version, members, overrides, where, local=False):
        self.name, self.base, self.abstract, self.version = name, base, abstract, version
        self.members, self.overrides, self.where = members, overrides, where
        self.local = local


class EnumDecl:
    def __init__(self, name, values, where):
        # values: list of (name, number); None when the definitions name no values
        self.name, self.values, self.where = name, values, where


class KindDecl:
    def __init__(self, numbers, class_name, number_from, unhandled, where):
        self.numbers, self.class_name, self.number_from = numbers, class_name, number_from
        self.unhandled, self.where = unhandled, where


class PolymorphicDecl:
    def __init__(self, name, element, number, number_from, unknown, fields, kinds, where):
        self.name, self.element, self.number, self.number_from = name, element, number, number_from
        self.unknown, self.fields, self.kinds, self.where = unknown, fields, kinds, where


class ExternDecl:
    def __init__(self, name, header, where):
        self.name, self.header, self.where = name, header, where


class ModuleFile:
    def __init__(self, path, namespace, version, decls):
        self.path, self.namespace, self.version, self.decls = path, namespace, version, decls


# --- the parser -----------------------------------------------------------------------------

class Parser:
    def __init__(self, path, text):
        self.tokens = tokenize(path, text)
        self.i = 0
        self.path = path

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

    def parse(self):
        if self.peek().text != "module":
            raise DefinitionError("%s: a definition file starts with 'module NAME'" % self.peek().where)
        self.take()
        namespace = self.take("name").text
        version = 0
        if self.accept("version"):
            version = self.number()
        decls = []
        while self.peek().kind != "end":
            word = self.peek()
            if word.text == "record":
                decls.append(self.record())
            elif word.text == "enum":
                decls.append(self.enum())
            elif word.text == "polymorphic":
                decls.append(self.polymorphic())
            elif word.text == "extern":
                decls.append(self.extern())
            else:
                raise DefinitionError("%s: expected record, enum, polymorphic or extern, found %r"
                                      % (word.where, word.text))
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
