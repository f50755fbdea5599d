#pragma once

// The Blowfish block cipher (16 rounds, 64-bit blocks of two big-endian 32-bit halves, keys
// of up to 72 bytes) and its 64-bit cipher feedback mode, as the obscurer needs them.

#include <cstddef>
#include <cstdint>

namespace Serialization::Detail {

struct BlowfishState {
    std::uint32_t P[18];
    std::uint32_t S[4][256];
};

extern const BlowfishState kBlowfishInitialState;

class Blowfish {
public:
    static constexpr std::size_t kMaxKeySize = 72;

    // Expands the key (bytes beyond kMaxKeySize are ignored; an empty key leaves the initial
    // tables unmixed). This costs 521 block encryptions.
    Blowfish(const unsigned char* key, std::size_t size);

    void EncryptBlock(std::uint32_t& left, std::uint32_t& right) const;
    void DecryptBlock(std::uint32_t& left, std::uint32_t& right) const;

    // CFB-64 in place, starting from `iv` with the feedback position at 0.
    void CfbEncrypt(const unsigned char (&iv)[8], unsigned char* data, std::size_t size) const;
    void CfbDecrypt(const unsigned char (&iv)[8], unsigned char* data, std::size_t size) const;

private:
    template <bool Encrypting>
    void Cfb(const unsigned char (&iv)[8], unsigned char* data, std::size_t size) const;

    BlowfishState state_;
};

}  // namespace Serialization::Detail
