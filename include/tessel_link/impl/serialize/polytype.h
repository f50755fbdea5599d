#pragma once

// Not API: used by the generated record codecs only.
//
// The pieces of the generated forms of closed hierarchies: a kind travels as its number, the
// hierarchy's common fields, and the kind's own record inside "impl".

#include <cstdint>
#include <memory>

#include <tessel_link/common/assert.h>
#include <tessel_link/export.h>
#include <tessel_link/impl/serialize/codec.h>

namespace Serialization {

namespace Detail {
TL_API const MetaInfo& ImplMeta();
}

// Writes `object` as the kind K inside "impl"; false when it is not a K, which the caller
// treats like an unknown number.
template <class K, class Root>
bool WriteKind(Serializer& s, const Root& object) {
    const K* kind = dynamic_cast<const K*>(&object);
    if (!kind) {
        return false;
    }
    WriteMember(s, Detail::ImplMeta(), *kind);
    return true;
}

// A new K, read from "impl".
template <class K>
std::shared_ptr<K> ReadKind(Deserializer& d) {
    auto kind = std::make_shared<K>();
    ReadMember(d, Detail::ImplMeta(), *kind);
    return kind;
}

// Reads the kind number. An empty element, which is how a null pointer is written, has no
// number: the reader's error is dropped and the result is false.
TL_API bool ReadKindNumber(Deserializer& d, const MetaInfo& meta, std::uint32_t& number);

}  // namespace Serialization
