#include "serialize/base64.h"

#include <cstdint>
#include <cstring>

namespace Serialization::Base64 {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// One entry per code below 128: 0-63 the value of an alphabet character, kSkip for white
// space, kPad for "=", kBad for everything else.
constexpr unsigned char kSkip = 0x41;
constexpr unsigned char kPad = 0x42;
constexpr unsigned char kBad = 0x40;

struct DecodeTable {
    unsigned char Value[128];
    constexpr DecodeTable() : Value() {
        for (auto& v : Value) {
            v = kBad;
        }
        for (int i = 0; i < 64; ++i) {
            Value[static_cast<unsigned char>(kAlphabet[i])] = static_cast<unsigned char>(i);
        }
        Value[int{'\t'}] = kSkip;
        Value[int{'\n'}] = kSkip;
        Value[int{'\r'}] = kSkip;
        Value[int{' '}] = kSkip;
        Value[int{'='}] = kPad;
    }
};
constexpr DecodeTable kDecode;

// The decoding table spread over four tables of 256 entries, each holding the value already
// shifted to its place in a group of 24 bits, and bit 24 for anything but an alphabet
// character (white space and "=" included: the careful path deals with them). A group of four
// characters is then four loads and one test.
constexpr std::uint32_t kNotAlphabet = 0x01000000;
struct ShiftedTables {
    std::uint32_t Value[4][256];
    constexpr ShiftedTables() : Value() {
        for (int k = 0; k < 4; ++k) {
            for (int c = 0; c < 256; ++c) {
                const unsigned v = c < 128 ? kDecode.Value[c] : kBad;
                Value[k][c] = v < 64 ? static_cast<std::uint32_t>(v) << (18 - 6 * k) : kNotAlphabet;
            }
        }
    }
};
constexpr ShiftedTables kShifted;

// Two output characters for every 12 bits of input.
struct PairTable {
    char Pair[4096][2];
    constexpr PairTable() : Pair() {
        for (int i = 0; i < 4096; ++i) {
            Pair[i][0] = kAlphabet[i >> 6];
            Pair[i][1] = kAlphabet[i & 63];
        }
    }
};
constexpr PairTable kPairs;

template <class Unit>
bool DecodeUnits(const Unit* text, std::size_t count, std::vector<unsigned char>& out) {
    out.resize((count + 2) * 3 / 4);
    unsigned char* dst = out.data();
    std::size_t i = 0;
    std::uint32_t acc = 0;
    int pending = 0;

    while (i < count) {
        // Whole groups of four alphabet characters, the common case.
        if (pending == 0) {
            while (i + 4 <= count) {
                const std::uint32_t c0 = text[i], c1 = text[i + 1], c2 = text[i + 2],
                                    c3 = text[i + 3];
                if constexpr (sizeof(Unit) > 1) {
                    if ((c0 | c1 | c2 | c3) >= 128) {
                        break;
                    }
                }
                const std::uint32_t group = kShifted.Value[0][c0] | kShifted.Value[1][c1] |
                                            kShifted.Value[2][c2] | kShifted.Value[3][c3];
                if (group >= kNotAlphabet) {
                    break;
                }
                // One store of four bytes, the last of which the next group overwrites: the
                // buffer always has a byte to spare behind whole groups.
                const std::uint32_t bytes = __builtin_bswap32(group << 8);
                std::memcpy(dst, &bytes, 4);
                dst += 3;
                i += 4;
            }
            if (i == count) {
                break;
            }
        }

        const std::uint32_t c = text[i++];
        const unsigned char v = c < 128 ? kDecode.Value[c] : kBad;
        if (v < 64) {
            acc = acc << 6 | v;
            if (++pending == 4) {
                dst[0] = static_cast<unsigned char>(acc >> 16);
                dst[1] = static_cast<unsigned char>(acc >> 8);
                dst[2] = static_cast<unsigned char>(acc);
                dst += 3;
                acc = 0;
                pending = 0;
            }
            continue;
        }
        if (v == kSkip) {
            continue;
        }
        if (v != kPad) {
            return false;
        }

        // Padding: two pending values make one byte and need a second "=", three make two.
        if (pending == 2) {
            while (i < count && text[i] < 128 && kDecode.Value[text[i]] == kSkip) {
                ++i;
            }
            if (i == count || text[i] != '=') {
                return false;
            }
            ++i;
            *dst++ = static_cast<unsigned char>(acc >> 4);
        } else if (pending == 3) {
            *dst++ = static_cast<unsigned char>(acc >> 10);
            *dst++ = static_cast<unsigned char>(acc >> 2);
        } else {
            return false;
        }
        pending = 0;
        for (; i < count; ++i) {
            if (text[i] >= 128 || kDecode.Value[text[i]] != kSkip) {
                return false;
            }
        }
        break;
    }
    if (pending != 0) {
        return false;
    }
    out.resize(static_cast<std::size_t>(dst - out.data()));
    return true;
}

}  // namespace

void Encode(const unsigned char* data, std::size_t size, char* out) {
    std::size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        const std::uint32_t group =
            std::uint32_t{data[i]} << 16 | std::uint32_t{data[i + 1]} << 8 | data[i + 2];
        std::memcpy(out, kPairs.Pair[group >> 12], 2);
        std::memcpy(out + 2, kPairs.Pair[group & 0xfff], 2);
        out += 4;
    }
    const std::size_t rest = size - i;
    if (rest == 1) {
        const std::uint32_t group = std::uint32_t{data[i]} << 16;
        out[0] = kAlphabet[group >> 18];
        out[1] = kAlphabet[(group >> 12) & 63];
        out[2] = '=';
        out[3] = '=';
    } else if (rest == 2) {
        const std::uint32_t group = std::uint32_t{data[i]} << 16 | std::uint32_t{data[i + 1]} << 8;
        out[0] = kAlphabet[group >> 18];
        out[1] = kAlphabet[(group >> 12) & 63];
        out[2] = kAlphabet[(group >> 6) & 63];
        out[3] = '=';
    }
}

void Append(std::string& out, const unsigned char* data, std::size_t size) {
    if (size == 0) {
        return;
    }
    const std::size_t start = out.size();
    out.resize(start + EncodedSize(size));
    Encode(data, size, out.data() + start);
}

bool Decode(std::string_view text, std::vector<unsigned char>& out) {
    return DecodeUnits(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
}

bool Decode(std::u16string_view text, std::vector<unsigned char>& out) {
    return DecodeUnits(text.data(), text.size(), out);
}

}  // namespace Serialization::Base64
