#pragma once

// Documents that a hostile peer could send to make the readers slow: name numbers that a
// hash table would pile into one bucket, a huge name referred to again and again, and text
// names chosen to collide under a hash without a key. Each has a benign twin of about the
// same size, so that a benchmark can compare the two. Tests, benchmarks and the fuzz seeds
// share them.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace hostile_xml {

// A number as the binary forms write it: 7-bit groups, least significant first.
inline void AppendNumber(std::string& out, std::uint32_t value) {
    while (value >= 0x80) {
        out.push_back(static_cast<char>((value & 0x7f) | 0x80));
        value >>= 7;
    }
    out.push_back(static_cast<char>(value));
}

// Revision 2: a root "r" (number 1) with `count` empty children, each under a name number
// of its own. Hostile: the numbers are multiples of `stride`; benign: consecutive.
inline std::string SparseNameNumbers(std::size_t count, bool hostile,
                                     std::uint32_t stride = 100003) {
    std::string out("BXML\x02\x00", 6);
    AppendNumber(out, 1);
    AppendNumber(out, 1);
    out += "r";
    out += std::string("\x00\x00", 2);  // no attributes, empty text
    for (std::size_t i = 0; i < count; ++i) {
        const auto number = static_cast<std::uint32_t>(hostile ? (i + 1) * stride : i + 2);
        AppendNumber(out, number);
        AppendNumber(out, 1);
        out += "c";
        out += std::string("\x00\x00\x00\x00", 4);  // no attributes, text, children, text
    }
    out.push_back('\x00');  // end of the root's children
    return out;
}

// Revision 2: a root with `references` children. Hostile: the children all use one name of
// `nameBytes` bytes, defined once. Benign: the same bytes travel as the root's text and the
// children use a one-letter name.
inline std::string RepeatedLongName(std::size_t nameBytes, std::size_t references,
                                    bool hostile) {
    std::string out("BXML\x02\x00", 6);
    AppendNumber(out, 1);
    AppendNumber(out, 1);
    out += "r";
    out.push_back('\x00');  // no attributes
    if (hostile) {
        out.push_back('\x00');  // empty text
        AppendNumber(out, 2);
        AppendNumber(out, static_cast<std::uint32_t>(nameBytes));
        out += std::string(nameBytes, 'n');
    } else {
        AppendNumber(out, static_cast<std::uint32_t>(nameBytes << 1));
        out += std::string(nameBytes, 't');
        AppendNumber(out, 2);
        AppendNumber(out, 1);
        out += "n";
    }
    out += std::string("\x00\x00\x00\x00", 4);  // first child's content, then a text item
    for (std::size_t i = 1; i < references; ++i) {
        AppendNumber(out, 2);
        out += std::string("\x00\x00\x00\x00", 4);
    }
    out.push_back('\x00');
    return out;
}

// XML text: a root with one empty element per name.
inline std::string ElementsNamed(const std::vector<std::string>& names) {
    std::string out = "<r>";
    for (const std::string& name : names) {
        out += "<" + name + "/>";
    }
    return out + "</r>";
}

// The names of a text document, one per line.
inline std::vector<std::string> NamesOf(const std::string& path) {
    std::vector<std::string> names;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            names.push_back(line);
        }
    }
    return names;
}

// Eight-letter names counted up from "aaaaaaaa": what a harmless sender might use.
inline std::vector<std::string> BenignNames(std::size_t count) {
    std::vector<std::string> names;
    for (std::size_t k = 0; k < count; ++k) {
        std::string name(8, 'a');
        std::size_t x = k;
        for (char& c : name) {
            c = static_cast<char>('a' + x % 26);
            x /= 26;
        }
        names.push_back(name);
    }
    return names;
}

}  // namespace hostile_xml
