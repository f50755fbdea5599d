"""The generated code of two small definitions, a record file and a component file, compared
with the code kept under golden/expected. After an intended change of the generated code,
run with TL_UPDATE_GOLDEN=1 to write the new expectation, and review its difference."""

import os
import unittest

from golden_support import HERE, generate

DEFS = os.path.join(HERE, "golden", "defs")
EXPECTED = os.path.join(HERE, "golden", "expected")


class GoldenTest(unittest.TestCase):
    def test_generated_code_is_as_expected(self):
        files = generate(DEFS)
        if os.environ.get("TL_UPDATE_GOLDEN"):
            for path, text in files.items():
                target = os.path.join(EXPECTED, path)
                os.makedirs(os.path.dirname(target), exist_ok=True)
                with open(target, "w", encoding="utf-8") as f:
                    f.write(text)
        kept = set()
        for root, _, names in os.walk(EXPECTED):
            for name in names:
                kept.add(os.path.relpath(os.path.join(root, name), EXPECTED).replace(os.sep, "/"))
        self.assertEqual(kept, set(files), "the set of generated files changed")
        self.maxDiff = None
        for path in sorted(files):
            with open(os.path.join(EXPECTED, path), encoding="utf-8") as f:
                self.assertEqual(files[path], f.read(), path)

    def test_documentation_reaches_the_interfaces(self):
        files = generate(DEFS)
        interface = files["tessel_link/components/shapes.h"]
        self.assertIn("// Draws shapes on a remote canvas.\n// Component 9001", interface)
        self.assertIn("    // Draws one outline and answers the number it got.\n    // Method 1.", interface)
        self.assertIn("static constexpr std::uint32_t kComponentId = 9001;", interface)
        self.assertIn("class Canvas_Unimplemented : public Canvas {", interface)
        records = files["tessel_link/xidl/records/shapes.h"]
        self.assertIn("// A point of the drawing, in tenths of a millimetre.\nstruct Point {", records)
        self.assertIn("    // The corners in drawing order.\n    std::list<::Shapes::Point> Corners;", records)
        # The interface includes only the records it names, not the header of all records.
        self.assertIn("#include <tessel_link/xidl/records/shapes.h>", interface)
        self.assertNotIn("tessel_link/xidl/records.h", interface)


if __name__ == "__main__":
    unittest.main()
