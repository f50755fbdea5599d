#pragma once

// Text of XML packets: values written so that the packet reader, which collapses and strips
// white space, gives them back unchanged.

#include <string>
#include <string_view>

namespace Serialization::XmlText {

// Appends `text` as element content in UTF-8 (or, with `attribute`, as an attribute value).
// A text with a line feed and nothing a CDATA section cannot carry goes into one, with its
// line feeds as CR LF; any other text is escaped character by character: "<" and "&" as
// entities, control characters, surrogates, U+FFFE and U+FFFF as decimal references, and a
// blank as "&#32;" wherever white-space collapsing would lose it (at the start, at the end,
// behind another blank).
//
// The narrow form takes each byte as a Latin-1 code point. The wide form reads UTF-16: a
// high surrogate followed by a low one is one code point, any other surrogate stands alone.
void AppendEscaped(std::string& out, std::string_view latin1, bool attribute = false);
void AppendEscaped(std::string& out, std::u16string_view utf16, bool attribute = false);

}  // namespace Serialization::XmlText
