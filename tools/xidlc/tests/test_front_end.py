"""The shared front end: tokens, documentation comments, and the two parsers, with the
errors that point at the place of a mistake."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from xidl_parser import (ComponentParser, DefinitionError, Parser, scan)  # noqa: E402


def records(text):
    return Parser("a.xidl", text).parse()


def components(text):
    return ComponentParser("c.xidl", text).parse()


class TokenizerTest(unittest.TestCase):
    def test_kinds_positions_and_lines(self):
        text = 'record A { x: i32 = -0x1f\n  y: "q\\"s" }'
        tokens = scan("t.xidl", text).tokens
        self.assertEqual([(t.kind, t.text) for t in tokens[:7]],
                         [("name", "record"), ("name", "A"), ("punct", "{"), ("name", "x"),
                          ("punct", ":"), ("name", "i32"), ("punct", "=")])
        self.assertEqual(tokens[7].kind, "number")
        self.assertEqual(tokens[7].text, "-0")  # a sign belongs to decimal numbers only
        string = [t for t in tokens if t.kind == "string"][0]
        self.assertEqual(string.where.line, 2)
        self.assertEqual(text[string.start:string.end], '"q\\"s"')
        self.assertEqual(tokens[-1].kind, "end")

    def test_unexpected_character_names_file_and_line(self):
        with self.assertRaisesRegex(DefinitionError, r"^t\.xidl:3: unexpected character '\$'"):
            scan("t.xidl", "module A\n\nrecord $")

    def test_documentation_is_the_comment_block_just_above(self):
        scanned = scan("t.xidl", "# one\n# two\nrecord A {} # trailing\n\n# apart\n\nrecord B {}\n")
        self.assertEqual(scanned.doc_before(3), ["one", "two"])
        self.assertEqual(scanned.doc_before(7), [])  # a blank line ends the block
        self.assertEqual(scanned.comments.get(3), None)  # a trailing comment is no documentation


class RecordParserTest(unittest.TestCase):
    def test_declarations_with_their_documentation(self):
        module = records("module M version 3\n"
                         "# Colours.\n"
                         "enum Color { RED GREEN = 5 BLUE }\n"
                         "enum Opaque\n"
                         "# A base.\n"
                         "record Base abstract version 2 {\n"
                         "    # The identity.\n"
                         "    Id: string chosen [trait = \"v\", flag]\n"
                         "}\n"
                         "record Derived : Base { Id = \"x\" Count: u32 = 4 }\n"
                         "extern Logon \"h/logon.h\"\n")
        self.assertEqual((module.namespace, module.version), ("M", 3))
        color, opaque, base, derived, logon = module.decls
        self.assertEqual(color.values, [("RED", 0), ("GREEN", 5), ("BLUE", 6)])
        self.assertEqual(color.doc, ["Colours."])
        self.assertIsNone(opaque.values)
        self.assertEqual((base.abstract, base.version, base.doc), (True, 2, ["A base."]))
        member = base.members[0]
        self.assertEqual((member.name, str(member.type_expr), member.chosen), ("Id", "string", True))
        self.assertEqual([(t.name, t.value) for t in member.traits], [("trait", "v"), ("flag", None)])
        self.assertEqual(member.doc, ["The identity."])
        self.assertEqual(derived.base, "Base")
        self.assertEqual([(o.name, o.value) for o in derived.overrides], [("Id", '"x"')])
        self.assertEqual(derived.members[0].default, "4")
        self.assertEqual(logon.header, "h/logon.h")

    def test_polymorphic_kinds_and_fields(self):
        (poly,) = records('module M\npolymorphic Shape {\n  element "Shape"\n  number "Kind" from Kind\n'
                          '  unknown "?"\n  field Name: wstring\n  1, 2: Round unhandled\n  3: Square from Kind\n}\n').decls
        self.assertEqual((poly.element, poly.number, poly.number_from, poly.unknown), ("Shape", "Kind", "Kind", "?"))
        self.assertEqual([f.name for f in poly.fields], ["Name"])
        self.assertEqual([(k.numbers, k.class_name, k.unhandled) for k in poly.kinds],
                         [([1, 2], "Round", True), ([3], "Square", False)])

    def test_mistakes_are_reported_where_they_are(self):
        cases = [("record A {}", r"a\.xidl:1: a definition file starts with 'module NAME'"),
                 ("module M\nstruct A {}", r"a\.xidl:2: expected record, enum, polymorphic or extern, found 'struct'"),
                 ("module M\nrecord A { x i32 }", r"a\.xidl:2: expected :, found 'i32'"),
                 ("module M\nrecord A { x: list<i32 }", r"a\.xidl:2: expected >, found '}'"),
                 ("module M\npolymorphic P { element \"P\" }", r"a\.xidl:2: polymorphic P needs 'number'"),
                 ("module M\nrecord A {", r"a\.xidl:2: expected name, found 'end of file'")]
        for text, message in cases:
            with self.subTest(text=text):
                with self.assertRaisesRegex(DefinitionError, message):
                    records(text)


class ComponentParserTest(unittest.TestCase):
    def test_component_methods_and_parameters(self):
        f = components("module N\n"
                       "# The manager.\n"
                       "component A::Manager id 42 version 3 base caster flag class info 1 2 {\n"
                       "    # Reads it.\n"
                       "    1 Get(ids: list<Guid>, size: unsigned long long(uint64)&, secret: wstring in obscured)\n"
                       "    2 Wipe() since 3\n"
                       "}\n")
        self.assertEqual(f.namespace, "N")
        (c,) = f.components
        self.assertEqual((c.name, c.id, c.version, c.base, c.class_flag, c.info), ("A::Manager", 42, 3, "caster", True, (1, 2)))
        self.assertEqual(c.doc, ["The manager."])
        get, wipe = c.methods
        self.assertEqual((get.number, get.name, get.since, get.doc), (1, "Get", 1, ["Reads it."]))
        self.assertEqual([p.name for p in get.params], ["ids", "size", "secret"])
        ids, size, secret = get.params
        self.assertEqual((ids.spelled.name, [a.name for a in ids.spelled.args], ids.text), ("list", ["Guid"], "list<Guid>"))
        self.assertEqual((size.spelled.name, size.reference), ("uint64", True))
        self.assertEqual(secret.kind, 1 | 4)
        self.assertEqual((wipe.since, wipe.params, wipe.doc), (3, [], []))

    def test_interfaces_it_derives_from(self):
        (c,) = components("module N\ncomponent M id 1 version 1 bases X, Y flag option {\n}\n").components
        self.assertEqual((c.bases, c.option_flag, c.base), (["X", "Y"], True, None))

    def test_mistakes_are_reported_where_they_are(self):
        cases = [("module N\ncomponent M version 1 {}", r"c\.xidl:2: component M needs an id and a version"),
                 ("module N\ncomponent M id 1 version 1 base other {}", r"c\.xidl:2: base is one of caster, noncopyable"),
                 ("module N\ncomponent M id 1 version 1 base caster bases X {}", r"has both base and bases"),
                 ("module N\ncomponent M id 1 version 1 flag loud {}", r"c\.xidl:2: a flag is class or option"),
                 ("module N\ncomponent M id 1 version 1 {\n 1 F(x: unsigned char)\n}", r"c\.xidl:3: unknown type unsigned "),
                 ("module N\ncomponent M id 1 version 1 {\n 1 F(x u32)\n}", r"c\.xidl:3: expected :, found 'u32'")]
        for text, message in cases:
            with self.subTest(text=text):
                with self.assertRaisesRegex(DefinitionError, message):
                    components(text)


if __name__ == "__main__":
    unittest.main()
