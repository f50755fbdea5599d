"""Resolving components against the records: parameter types, and the checks that keep the
generated code and the wire form consistent."""

import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

import xidl_components  # noqa: E402
from xidl_parser import DefinitionError  # noqa: E402

RECORDS = "module R\nenum Mode { A B }\nrecord Item { Name: string }\nrecord Base abstract {}\n"


def resolve(component_text):
    with tempfile.TemporaryDirectory() as d:
        os.mkdir(os.path.join(d, "components"))
        with open(os.path.join(d, "modules.txt"), "w") as f:
            f.write("r.xidl\n")
        with open(os.path.join(d, "r.xidl"), "w") as f:
            f.write(RECORDS)
        with open(os.path.join(d, "components", "c.xidl"), "w") as f:
            f.write(component_text)
        return xidl_components.read_all(os.path.join(d, "modules.txt"), os.path.join(d, "components"))


class ResolveTest(unittest.TestCase):
    def test_parameter_types_in_cpp(self):
        comps = resolve("module R\ncomponent M id 7 version 1 {\n"
                        " 1 F(item: Item, mode: Mode, items: set<Item>&, n: ulong&, name: wstring in obscured)\n}\n")
        (m,) = comps.components[0].methods
        self.assertEqual([p.declared for p in m.params],
                         ["const ::R::Item&", "::R::Mode", "std::set<::R::Item>&", "std::uint32_t&",
                          "const std::u16string&"])
        # a set orders its records, so the orderings header defines operator< for Item
        self.assertEqual([r.full_name for r in comps.ordered], ["R::Item"])

    def test_inconsistent_components_are_refused(self):
        cases = [("module R\ncomponent M id 7 version 1 {\n 1 F()\n 1 G()\n}\n", r":4: method number 1 is given twice"),
                 ("module R\ncomponent M id 7 version 1 {\n 1 F()\n 3 G()\n}\n", r"run from 1 without gaps"),
                 ("module R\ncomponent M id 7 version 1 {\n 1 F(x: ulong, x: ulong)\n}\n", r":3: parameter x is declared twice"),
                 ("module R\ncomponent M id 7 version 1 {\n 1 F(x: Base)\n}\n", r":3: R::Base is abstract"),
                 ("module R\ncomponent M id 7 version 1 {\n 1 F(x: string obscured)\n}\n", r"only a wstring can be obscured"),
                 ("module R\ncomponent M id 7 version 1 {}\ncomponent N id 7 version 1 {}\n", r"component id 7 is given twice"),
                 ("module R\ncomponent M id 7 version 1 {\n 1 F(x: Nothing)\n}\n", r"Nothing")]
        for text, message in cases:
            with self.subTest(text=text):
                with self.assertRaisesRegex(DefinitionError, message):
                    resolve(text)


if __name__ == "__main__":
    unittest.main()
