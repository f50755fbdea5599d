#pragma once

// Not API: used by the generated record codecs only.
//
// Members and arguments that hold a unit tree. A POR-aware end takes the unit whole; any
// other end sees two fields inside the member's element: "is_empty" (true for a missing
// unit) and, for a present one, the blob "value" with the tree's binary form.

#include <memory>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Por::View {
class Unit;
}

namespace Serialization {

TL_API void WriteMember(Serializer& serializer, const MetaInfo& meta,
                        const std::shared_ptr<const Por::View::Unit>& unit);
// A blob that is not a unit tree raises the corruption error of the binary form.
TL_API void ReadMember(Deserializer& deserializer, const MetaInfo& meta,
                       std::shared_ptr<const Por::View::Unit>& unit);

}  // namespace Serialization
