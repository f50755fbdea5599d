#pragma once

#include <ostream>
#include <string_view>

#include <tessel_link/por/view.h>

namespace Por::Util {

// A text dump of a tree for diagnostics, one line per unit, the root under the name "Root".
// Children are indented by two more blanks: traits first, in brackets, then array elements
// under their index or composite properties under their name. Text is UTF-8. `newlines`
// says whether each line ends with a line feed. Raises nothing; a tree deeper than
// kMaxTreeDepth is cut off with " ..." after the name.
TL_API void Print(const View::Unit& unit, std::string_view indent, std::ostream& stream,
                  bool newlines = true);

// One unit under a name, with its children.
TL_API void PrintUnit(std::string_view name, const View::Unit& unit, std::string_view indent,
                      std::string_view prefix, bool newlines, std::ostream& stream);

}  // namespace Por::Util
