#include <tessel_link/serialize/errors.h>

#include <tessel_link/common/messages.h>

namespace Serialization {

namespace {

// Rows of the module's message table.
constexpr std::uint32_t kRowCreateObject = 615;
constexpr std::uint32_t kRowCannotDeserialize = 616;
constexpr std::uint32_t kRowNoFactory = 619;
constexpr std::uint32_t kRowNoMetaInfo = 621;

const char16_t* TextOf(std::uint32_t code) {
    switch (code) {
        case kErrorInconsistentMetadata:
            return Common::GetMessageRow(kRowCannotDeserialize);
        case kErrorNoMetaInfo:
            return Common::GetMessageRow(kRowNoMetaInfo);
        case kErrorNoData:
            return u"SERIALIZER_ERROR_NO_DATA";
        case kErrorCreateObject:
            return Common::GetMessageRow(kRowCreateObject);
        case kErrorNoFactory:
            return Common::GetMessageRow(kRowNoFactory);
        case kErrorInvalidEnumValue:
            return u"Invalid enum value: ";
        default:
            return nullptr;
    }
}

}  // namespace

Common::Error SerializerError(const Common::ErrorOrigin& origin, std::uint32_t code) {
    const char16_t* text = TextOf(code);
    if (text == nullptr) {
        return Common::Error(origin, code);
    }
    return Common::Error(origin, code, text);
}

}  // namespace Serialization
