#include <tessel_link/serialize/obscurer.h>

#include <tessel_link/common/assert.h>

#include "serialize/base64.h"
#include "serialize/blowfish.h"

namespace Serialization {

namespace {

// The key is the 16 characters with their terminating NUL: all 17 bytes count. The vector is
// the key's first eight characters, and every obscured text starts with the salt.
constexpr unsigned char kKey[] = "7E21C05D3A9B2f6c";
static_assert(sizeof(kKey) == 17);
constexpr unsigned char kVector[8] = {'7', 'E', '2', '1', 'C', '0', '5', 'D'};
constexpr char16_t kSalt[] = u"5B2E7A90D1F";
constexpr std::size_t kSaltLength = 11;
static_assert(sizeof(kSalt) / sizeof(kSalt[0]) == kSaltLength + 1);

// Every call starts from a fresh schedule and vector: nothing is carried over between calls.
void Encrypt(unsigned char* data, std::size_t size) {
    const Detail::Blowfish cipher(kKey, sizeof(kKey));
    cipher.CfbEncrypt(kVector, data, size);
}

void Decrypt(unsigned char* data, std::size_t size) {
    const Detail::Blowfish cipher(kKey, sizeof(kKey));
    cipher.CfbDecrypt(kVector, data, size);
}

class BlowfishObscurer final : public Obscurer {
public:
    std::u16string Obscure(const std::u16string& text) const override {
        std::vector<unsigned char> data;
        data.reserve((kSaltLength + text.size()) * 2);
        const auto appendUnits = [&data](const char16_t* units, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i) {
                data.push_back(static_cast<unsigned char>(units[i]));
                data.push_back(static_cast<unsigned char>(units[i] >> 8));
            }
        };
        appendUnits(kSalt, kSaltLength);
        appendUnits(text.data(), text.size());
        Encrypt(data.data(), data.size());
        TL_ASSERT_TEXT(!data.empty(), "!encryptedData.empty()");
        if (data.empty()) {
            return {};
        }
        std::string encoded(Base64::EncodedSize(data.size()), '\0');
        Base64::Encode(data.data(), data.size(), encoded.data());
        return std::u16string(encoded.begin(), encoded.end());
    }

    std::u16string Unobscure(const std::u16string& text) const override {
        if (text.empty()) {
            return {};
        }
        std::string narrow(text.size(), '\0');
        for (std::size_t i = 0; i < text.size(); ++i) {
            narrow[i] = static_cast<char>(text[i] & 0xff);
        }
        std::vector<unsigned char> data;
        if (!Base64::Decode(narrow, data) || data.empty()) {
            return {};
        }
        Decrypt(data.data(), data.size());
        if (data.size() % 2 != 0) {
            return {};
        }
        const std::size_t length = data.size() / 2;
        if (length <= kSaltLength) {
            return {};
        }
        // Any eleven characters count as the salt: its value is not compared.
        std::u16string result(length - kSaltLength, u'\0');
        for (std::size_t i = kSaltLength; i < length; ++i) {
            result[i - kSaltLength] =
                static_cast<char16_t>(data[2 * i] | static_cast<unsigned>(data[2 * i + 1]) << 8);
        }
        return result;
    }

    std::vector<unsigned char> ObscureBytes(
        const std::vector<unsigned char>& bytes) const override {
        std::vector<unsigned char> data = bytes;
        if (!data.empty()) {
            Encrypt(data.data(), data.size());
        }
        return data;
    }

    std::vector<unsigned char> UnobscureBytes(
        const std::vector<unsigned char>& bytes) const override {
        std::vector<unsigned char> data = bytes;
        if (!data.empty()) {
            Decrypt(data.data(), data.size());
        }
        return data;
    }
};

thread_local const Obscurer* t_threadObscurer = nullptr;

// Built during static initialisation, so that the holder exists before any host thread runs.
[[maybe_unused]] ObscurerHolder& g_holder = ObscurerHolder::Instance();

}  // namespace

Obscurer::~Obscurer() = default;

std::unique_ptr<Obscurer> CreateBlowfishObscurer() {
    return std::make_unique<BlowfishObscurer>();
}

ObscurerHolder::ObscurerHolder() : default_(CreateBlowfishObscurer()) {}

ObscurerHolder& ObscurerHolder::Instance() {
    static ObscurerHolder holder;
    return holder;
}

const Obscurer& ObscurerHolder::Get() const {
    const Obscurer* installed = t_threadObscurer;
    return installed != nullptr ? *installed : *default_;
}

const Obscurer* ObscurerHolder::SetThreadObscurer(const Obscurer* obscurer) {
    const Obscurer* previous = t_threadObscurer;
    t_threadObscurer = obscurer;
    return previous;
}

std::u16string Obscure(const std::u16string& text) {
    return ObscurerHolder::Instance().Get().Obscure(text);
}

std::vector<unsigned char> ObscureBytes(const std::vector<unsigned char>& bytes) {
    return ObscurerHolder::Instance().Get().ObscureBytes(bytes);
}

std::u16string Unobscure(const std::u16string& text) {
    return ObscurerHolder::Instance().Get().Unobscure(text);
}

}  // namespace Serialization
