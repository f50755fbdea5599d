#!/usr/bin/env python3
"""The public surface check finds what it is meant to find in a small tree of its own:
Detail namespaces in public headers, impl/ headers that public headers include but that
declare more than Detail pieces, and the lower-case spelling."""
import contextlib
import io
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import check_public_surface as check  # noqa: E402

GOOD_IMPL = """#pragma once

// Not API: the pieces behind Thing.

#include <cstdint>

namespace Xml {
class Thing;
}  // namespace Xml

namespace Xml::Detail {
// A brace in a comment { and in a string do not count.
inline const char* Text() { return "}{ namespace X {"; }
#define TL_MAKE(Name) \\
    struct Name {};
TL_MAKE(Made)
#undef TL_MAKE
}  // namespace Xml::Detail

namespace Xml {
namespace Detail {
template <class T>
struct Nested { T value; };
}  // namespace Detail
}  // namespace Xml
"""

PUBLIC = """#pragma once

// Thing, for hosts.

#include <tessel_link/impl/xml/pieces.h>

namespace Xml {
// A thing.
struct Thing {
    int Value() const { return Detail::Nested<int>{1}.value; }
};
}  // namespace Xml
"""


class PublicSurfaceTest(unittest.TestCase):
    def tree(self, files):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        root = temporary.name
        umbrella = ['#pragma once', '', '// Everything.', '']
        for name, text in files.items():
            path = os.path.join(root, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as out:
                out.write(text)
            if name.startswith("include/") and "/impl/" not in name:
                umbrella.append("#include <%s>" % name[len("include/"):])
        with open(os.path.join(root, "include/tessel_link/tessel_link.h"), "w",
                  encoding="utf-8") as out:
            out.write("\n".join(umbrella) + "\n")
        return root

    def faults(self, files):
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            status = check.main(self.tree(files))
        lines = out.getvalue().splitlines()
        self.assertEqual(status, 1 if lines else 0)
        return lines

    def test_detail_pieces_under_impl_are_accepted(self):
        self.assertEqual(self.faults({"include/tessel_link/xml/thing.h": PUBLIC,
                                      "include/tessel_link/impl/xml/pieces.h": GOOD_IMPL}), [])

    def test_detail_namespace_in_a_public_header_fails(self):
        for opening in ("namespace Detail {", "namespace Xml::Detail {", "namespace detail {"):
            text = PUBLIC.replace("namespace Xml {\n", "namespace Xml {\n%s}\n" % opening, 1)
            faults = self.faults({"include/tessel_link/xml/thing.h": text,
                                  "include/tessel_link/impl/xml/pieces.h": GOOD_IMPL})
            self.assertIn("tessel_link/xml/thing.h: opens a Detail namespace outside impl/",
                          faults, opening)

    def test_a_mention_in_a_comment_is_no_namespace(self):
        text = PUBLIC.replace("// A thing.", "// A thing (its namespace Detail is not API).")
        self.assertEqual(self.faults({"include/tessel_link/xml/thing.h": text,
                                      "include/tessel_link/impl/xml/pieces.h": GOOD_IMPL}), [])

    def test_impl_header_that_declares_outside_detail_fails(self):
        for extra in ("int Loose();", "struct Defined {};", "template <class T> void F(T) {}",
                      "using Alias = int;"):
            impl = GOOD_IMPL.replace("class Thing;", "class Thing;\n" + extra)
            faults = self.faults({"include/tessel_link/xml/thing.h": PUBLIC,
                                  "include/tessel_link/impl/xml/pieces.h": impl})
            self.assertEqual(len(faults), 1, (extra, faults))
            self.assertIn("declares outside Detail", faults[0])

    def test_impl_header_that_is_missing_fails(self):
        faults = self.faults({"include/tessel_link/xml/thing.h": PUBLIC})
        self.assertEqual(faults, ["tessel_link/xml/thing.h: includes tessel_link/impl/xml/pieces.h, "
                                  "which does not exist"])

    def test_lower_case_spelling_in_sources_fails(self):
        faults = self.faults({"include/tessel_link/xml/thing.h": PUBLIC,
                              "include/tessel_link/impl/xml/pieces.h": GOOD_IMPL,
                              "src/xml/thing.cpp": "int x = Xml::detail::Count();\n"})
        self.assertEqual(faults, ["src/xml/thing.cpp: spells Detail 'detail'"])


if __name__ == "__main__":
    unittest.main()
