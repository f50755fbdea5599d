#pragma once

// What the por commands share: reading the input, and an error's text as a reader sees it.

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/unicode.h>

namespace tessel_cli {

// The whole of FILE, or of standard input for "-"; false when the file can't be read.
inline bool ReadAllBytes(const std::string& name, std::vector<unsigned char>& bytes) {
    if (name == "-") {
        bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return !std::cin.bad();
    }
    std::ifstream in(name, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// The head's text in UTF-8 with {0}, {1}, ... replaced by the parameters "0", "1", ...
inline std::string FilledText(const Common::Error& error) {
    const std::u16string text = error.Text();
    std::u16string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t close = text.find(u'}', i);
        if (text[i] == u'{' && close != std::u16string::npos && close > i + 1) {
            const std::string index(text.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                    text.begin() + static_cast<std::ptrdiff_t>(close));
            if (const char16_t* value = error.GetWide(index.c_str())) {
                out += value;
                i = close;
                continue;
            }
        }
        out += text[i];
    }
    return Common::Utf16ToUtf8(out);
}

}  // namespace tessel_cli
