#pragma once

// Records as unit trees: the adapter of a record type and the creator of its default unit.

#include <tessel_link/por/in_memory_factory.h>
#include "por/serialize/por_serializer.h"
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/impl/serialize/scope_guards.h>

namespace Por::Serialization {

// The trait list that a record type states about itself on its root; none unless a type
// specializes it.
template <class T>
struct RecordTypeTraits {
    static ::Serialization::MetaInfoTraitsPtr Get() { return ::Serialization::kNoTraits; }
};

// The adapter of a record type: its operator<< runs against a POR serializer inside the
// element "Root", which states the type's version and traits. `result` is emptied first and
// then receives the composite of the record's members. A failure of the serializer is
// thrown, and `result` stays empty.
template <class T>
void RecordToUnit(UnitPtr& result, const T& record, Construction::UnitFactory& factory) {
    result.reset();
    std::unique_ptr<PORSerializer> serializer = PORSerializer::Take(factory, result);
    MetaInfo root("Root", RecordTypeTraits<T>::Get(), nullptr);
    root.Version = ::Serialization::TypeVersion<T>::value;
    {
        ::Serialization::WriteScope scope(*serializer, root);
        *serializer << record;
    }
    if (serializer->Failure().Failed()) {
        throw serializer->Failure();
    }
    PORSerializer::Keep(std::move(serializer));
}

// The creator of a record type: the unit of a default record, made with the process-wide
// factory, in `slot`. A plain function without state, as hosts are handed it.
template <class T>
UnitPtr& CreateRecordUnit(UnitPtr& slot) {
    RecordToUnit(slot, T{}, Construction::GetProcessUnitFactory());
    return slot;
}

}  // namespace Por::Serialization
