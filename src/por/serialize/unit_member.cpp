#include <tessel_link/impl/serialize/unit_member.h>

#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/in_memory_factory.h>
#include "por/serialize/por_serializer.h"
#include <tessel_link/impl/serialize/scope_guards.h>

namespace Serialization {

namespace {
const MetaInfo kIsEmpty("is_empty");
const MetaInfo kValue("value");
}  // namespace

void WriteMember(Serializer& serializer, const MetaInfo& meta,
                 const std::shared_ptr<const Por::View::Unit>& unit) {
    WriteScope element(serializer, meta);
    if (auto* aware = Common::QueryInterface<Por::Serialization::PorAwareSerializer>(serializer)) {
        aware->WriteUnit(MetaInfo(), unit.get());
        return;
    }
    serializer.Write(kIsEmpty, unit == nullptr);
    if (unit != nullptr) {
        std::vector<unsigned char> bytes;
        Por::Util::WriteBlob(*unit, bytes);
        serializer.Write(kValue, bytes);
    }
}

void ReadMember(Deserializer& deserializer, const MetaInfo& meta,
                std::shared_ptr<const Por::View::Unit>& unit) {
    ReadScope element(deserializer, meta);
    if (auto* aware =
            Common::QueryInterface<Por::Serialization::PorAwareDeserializer>(deserializer)) {
        aware->ReadUnit(MetaInfo(), unit);
        return;
    }
    bool empty = true;
    deserializer.Read(kIsEmpty, empty);
    if (empty) {
        unit.reset();
        return;
    }
    std::vector<unsigned char> bytes;
    deserializer.Read(kValue, bytes);
    unit = Por::Util::ReadBlob(bytes, Por::Construction::GetProcessUnitFactory());
}

}  // namespace Serialization
