#pragma once

// Where an error was made, as every record carries it (TL_ORIGIN builds it).

#include <cstdint>

namespace Common {

// Where an error was made: a tag stable per source line, the source file, the qualified
// function name and the line. Every error site builds one with TL_ORIGIN.
struct ErrorOrigin {
    std::uint64_t LineTag = 0;  // stable per source line
    const char* File = nullptr;  // the source file
    const char* Func = nullptr;  // the qualified function name
    std::uint32_t Line = 0;  // the source line
};

// The per-file base of a line tag: a 64-bit hash of the source path (relative to the
// tree, see the build's -fmacro-prefix-map), so that a tag stays the same from build to
// build as long as the source does. Two sites of one file differ by their line distance.
consteval std::uint64_t LineTagBase(const char* file) {
    std::uint64_t hash = 0xcbf29ce484222325ull;
    for (; *file != '\0'; ++file) {
        hash ^= static_cast<unsigned char>(*file);
        hash *= 0x100000001b3ull;
    }
    // Leave room below for the line number, so that adding it never carries into the
    // bits that identify the file.
    return hash & ~0xfffffull;
}

}  // namespace Common

// The origin of an error at this line, with the qualified function name given as text
// ("Serialization::XMLPacketDeserializer::Read").
#define TL_ORIGIN(func)                                                                  \
    ::Common::ErrorOrigin {                                                              \
        ::Common::LineTagBase(__FILE__) + static_cast<std::uint64_t>(__LINE__), __FILE__, \
            (func), static_cast<std::uint32_t>(__LINE__)                                 \
    }
