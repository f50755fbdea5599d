#pragma once

// A text dump of a unit tree, for diagnostics.

#include <ostream>
#include <string_view>

#include <tessel_link/por/view.h>

namespace Por::Util {

// A text dump of a tree for diagnostics, one line per unit, the root under the name "Root".
// Children are indented by two more blanks: traits first, in brackets, then array elements
// under their index or composite properties under their name. Text is UTF-8. `newlines`
// says whether each line ends with a line feed. Raises nothing; a tree deeper than
// kMaxPrintDepth is cut off with " ..." after the name (and so is a chain of error causes
// longer than that). Each level indents its lines further, so the text of a deep chain
// grows with the square of its depth: that, not the stack, is what the bound keeps small.
inline constexpr unsigned kMaxPrintDepth = 4096;

// Writes the dump of `unit` to `stream`, each line after `indent`.
TL_API void Print(const View::Unit& unit, std::string_view indent, std::ostream& stream,
                  bool newlines = true);

// One unit under a name, with its children.
TL_API void PrintUnit(std::string_view name, const View::Unit& unit, std::string_view indent,
                      std::string_view prefix, bool newlines, std::ostream& stream);

}  // namespace Por::Util
