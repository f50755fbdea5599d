#include "serialize/blowfish.h"

#include <cstring>

namespace Serialization::Detail {

namespace {

inline std::uint32_t F(const BlowfishState& s, std::uint32_t x) {
    return ((s.S[0][x >> 24] + s.S[1][(x >> 16) & 0xff]) ^ s.S[2][(x >> 8) & 0xff]) +
           s.S[3][x & 0xff];
}

inline void Encrypt(const BlowfishState& s, std::uint32_t& left, std::uint32_t& right) {
    std::uint32_t l = left ^ s.P[0];
    std::uint32_t r = right;
    for (int i = 1; i < 17; i += 2) {
        r ^= F(s, l) ^ s.P[i];
        l ^= F(s, r) ^ s.P[i + 1];
    }
    left = r ^ s.P[17];
    right = l;
}

inline std::uint32_t LoadBigEndian(const unsigned char* p) {
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
}

inline void StoreBigEndian(std::uint32_t v, unsigned char* p) {
    p[0] = static_cast<unsigned char>(v >> 24);
    p[1] = static_cast<unsigned char>(v >> 16);
    p[2] = static_cast<unsigned char>(v >> 8);
    p[3] = static_cast<unsigned char>(v);
}

}  // namespace

Blowfish::Blowfish(const unsigned char* key, std::size_t size) : state_(kBlowfishInitialState) {
    if (size > kMaxKeySize) {
        size = kMaxKeySize;
    }
    if (size != 0) {
        std::size_t next = 0;
        for (std::uint32_t& p : state_.P) {
            std::uint32_t word = 0;
            for (int b = 0; b < 4; ++b) {
                word = word << 8 | key[next];
                next = next + 1 == size ? 0 : next + 1;
            }
            p ^= word;
        }
    }
    std::uint32_t l = 0;
    std::uint32_t r = 0;
    for (int i = 0; i < 18; i += 2) {
        Encrypt(state_, l, r);
        state_.P[i] = l;
        state_.P[i + 1] = r;
    }
    for (auto& box : state_.S) {
        for (int i = 0; i < 256; i += 2) {
            Encrypt(state_, l, r);
            box[i] = l;
            box[i + 1] = r;
        }
    }
}

void Blowfish::EncryptBlock(std::uint32_t& left, std::uint32_t& right) const {
    Encrypt(state_, left, right);
}

void Blowfish::DecryptBlock(std::uint32_t& left, std::uint32_t& right) const {
    std::uint32_t l = left ^ state_.P[17];
    std::uint32_t r = right;
    for (int i = 16; i > 0; i -= 2) {
        r ^= F(state_, l) ^ state_.P[i];
        l ^= F(state_, r) ^ state_.P[i - 1];
    }
    left = r ^ state_.P[0];
    right = l;
}

template <bool Encrypting>
void Blowfish::Cfb(const unsigned char (&iv)[8], unsigned char* data, std::size_t size) const {
    // The register holds the last cipher block; each new block of key stream is its
    // encryption, and the cipher text just produced (or consumed) becomes the next register.
    std::uint32_t l = LoadBigEndian(iv);
    std::uint32_t r = LoadBigEndian(iv + 4);
    while (size != 0) {
        Encrypt(state_, l, r);
        unsigned char stream[8];
        StoreBigEndian(l, stream);
        StoreBigEndian(r, stream + 4);
        const std::size_t n = size < 8 ? size : 8;
        unsigned char cipher[8];
        for (std::size_t i = 0; i < n; ++i) {
            if constexpr (Encrypting) {
                data[i] ^= stream[i];
                cipher[i] = data[i];
            } else {
                cipher[i] = data[i];
                data[i] ^= stream[i];
            }
        }
        if (n == 8) {
            l = LoadBigEndian(cipher);
            r = LoadBigEndian(cipher + 4);
        }
        data += n;
        size -= n;
    }
}

void Blowfish::CfbEncrypt(const unsigned char (&iv)[8], unsigned char* data,
                          std::size_t size) const {
    Cfb<true>(iv, data, size);
}

void Blowfish::CfbDecrypt(const unsigned char (&iv)[8], unsigned char* data,
                          std::size_t size) const {
    Cfb<false>(iv, data, size);
}

}  // namespace Serialization::Detail
