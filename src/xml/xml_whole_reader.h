#pragma once

// The reader of XML text that lies whole in memory: one pass over the bytes, a loop per
// construct (a start tag with all its attributes, a run of content, an end tag), and texts
// decoded straight into the document's arena.
//
// It decides only whether a document reads whole. A document that does not is read again
// by the streaming lexer, which tells where reading stopped and leaves its partial tree, so
// that both paths end in the same result.

#include <cstddef>

namespace Xml {

class XmlTreeBuilder;

// Zero bytes that must follow the input: the first is the end mark, the rest let blocks of
// sixteen bytes be read at any position up to it.
inline constexpr std::size_t kWholeTextPadding = 64;

// Reads the document of `size` bytes at `data` into `builder`, which must have no tag open.
// Returns the position behind the '>' that closed the root element, or null when the
// document does not read whole (malformed, or nested deeper than kMaxXmlDepth).
const unsigned char* ReadWholeText(const unsigned char* data, std::size_t size,
                                   XmlTreeBuilder& builder);

}  // namespace Xml
