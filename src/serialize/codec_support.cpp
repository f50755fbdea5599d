// The shared constants and small helpers of the value codecs.

#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/polytype.h>

namespace Serialization {

ContainerIterator::~ContainerIterator() = default;
ContainerAwareSerializer::~ContainerAwareSerializer() = default;

namespace Detail {

namespace {

// Built apart from FixedMeta, whose every call would otherwise pay for the frame of this
// construction: the lookup is made for each item of every sequence and map.
[[gnu::noinline]] const MetaInfo* MakeFixedMetas() {
    static const MetaInfo metas[kFixedElementCount] = {
        MetaInfo("vector"),        MetaInfo("item"),  MetaInfo("item", true),
        MetaInfo("map"),           MetaInfo("first"), MetaInfo("second"),
        MetaInfo("optional_type"), MetaInfo("is_null"), MetaInfo("value"),
        MetaInfo("shared_ptr"),
    };
    return metas;
}

}  // namespace

const MetaInfo& FixedMeta(int which) {
    static const MetaInfo* const metas = MakeFixedMetas();
    return metas[which];
}

const MetaInfo& ImplMeta() {
    static const MetaInfo meta("impl");
    return meta;
}

std::string KeyName(const std::string& key) {
    return key;
}

std::string KeyName(const std::u16string& key) {
    return Common::Utf16ToUtf8(key);
}

std::string KeyName(const Common::Guid& key) {
    return Common::ToString(key);
}

}  // namespace Detail

bool ReadKindNumber(Deserializer& d, const MetaInfo& meta, std::uint32_t& number) {
    try {
        d.Read(meta, number);
    } catch (const Common::Error&) {
        return false;
    }
    return true;
}

}  // namespace Serialization
