#pragma once

// Text of XML packets: values written so that the packet reader, which collapses and strips
// white space, gives them back unchanged.

#include <cstddef>
#include <string>
#include <string_view>

namespace Serialization::XmlText {

// Room that escaping a text of `units` code units can take at most: eight bytes a unit (a
// lone surrogate becomes "&#55296;") and the CDATA brackets.
constexpr std::size_t MaxEscapedSize(std::size_t units) {
    return 8 * units + 12;
}

// Writes `text` as element content in UTF-8 (or, with `attribute`, as an attribute value) to
// `out`, which has room for MaxEscapedSize(text.size()) bytes, and returns the end of what
// was written.
//
// A text with a line feed and nothing a CDATA section cannot carry goes into one, with its
// line feeds as CR LF; any other text is escaped character by character: "<" and "&" as
// entities, control characters, surrogates, U+FFFE and U+FFFF as decimal references, and a
// blank as "&#32;" wherever white-space collapsing would lose it (at the start, at the end,
// behind another blank).
//
// The narrow form takes each byte as a Latin-1 code point. The wide form reads UTF-16: a
// high surrogate followed by a low one is one code point, any other surrogate stands alone.
char* WriteEscaped(char* out, std::string_view latin1, bool attribute = false);
char* WriteEscaped(char* out, std::u16string_view utf16, bool attribute = false);

// The same, appended to a string.
void AppendEscaped(std::string& out, std::string_view latin1, bool attribute = false);
void AppendEscaped(std::string& out, std::u16string_view utf16, bool attribute = false);

}  // namespace Serialization::XmlText
