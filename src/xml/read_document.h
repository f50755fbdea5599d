#pragma once

// The reading paths behind Xml::ReadDocument, for tests that hold them side by side.

#include <cstdint>

#include <tessel_link/xml/xml_tag.h>

namespace Xml {

// Reads a document through the streaming lexer alone, block by block. ReadDocument takes
// this path for documents that do not read whole, so that it tells where reading stopped;
// for every input both give the same result, tree and position.
bool ReadDocumentStreaming(XmlDocument& document, File::i_file& file, std::uint32_t& line,
                           std::uint32_t& column);

}  // namespace Xml
