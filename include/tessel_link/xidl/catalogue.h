#pragma once

// The catalogue of the types that the interface definitions declare: their full names,
// versions, members with their forms, and type-erased codecs, for tools and for code that
// handles records by name.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization::Xidl {

// How a member travels: one of the fifteen value forms, or a codec of its own.
enum class MemberForm {
    Blob,
    Bytes,
    U16,
    I16,
    String,
    I64,
    I32,
    U64,
    Double,
    U32,
    WideString,
    Error,
    Guid,
    U8,
    Bool,
    Enum,
    Record,
    Sequence,
    Map,
    Optional,
    Pointer,
    Polymorphic,
};

// What a declared type is.
enum class TypeKind {
    Record,          // a record that can be made on its own
    AbstractRecord,  // the shared part of several records
    Polymorphic,     // the root of a hierarchy that travels by kind number
    Enumeration,  // an enumeration
    Extern,          // a type whose form is written by hand
};

// One member of a record, as the definitions declare it.
struct MemberInfo {
    const char* Name;  // as the record names it
    const char* Type;  // as the definitions write it, with full names
    MemberForm Form;  // the form it travels in
    bool Chosen;       // the definitions chose the type; the peer's description gives none
    const MetaInfoTrait* Traits;  // the member's traits
    std::size_t TraitCount;  // their number
};

// One named value of an enumeration.
struct EnumValueInfo {
    const char* Name;  // the value's name
    std::int64_t Number;  // its number
};

// One declared type: its kind, version, base, members or values, and its codec.
struct TypeInfo {
    const char* FullName;  // with its namespaces
    TypeKind Kind;  // what it is
    std::uint64_t Version;  // 0: unversioned
    const char* Base;       // full name, or null
    const MemberInfo* Members;  // own members in wire order (fields, for a hierarchy root)
    std::size_t MemberCount;  // their number
    const EnumValueInfo* Values;  // an enumeration's named values
    std::size_t ValueCount;  // their number
    // Records that can be made on their own: a default value, the member codec (the record
    // inside the element of `meta`, with its version guard), and the record's equality.
    std::shared_ptr<void> (*Create)();
    // Writes a value of the record.
    void (*Write)(Serializer& s, const MetaInfo& meta, const void* value);
    // Reads a value of the record.
    void (*Read)(Deserializer& d, const MetaInfo& meta, void* value);
    bool (*Equal)(const void* a, const void* b);  // compares two values of the record
};

// The shared ownership of a record made with new, which `destroy` deletes. One control
// block type serves every record, so that the creator of each costs one small function.
TL_API std::shared_ptr<void> AdoptRecord(void* record, void (*destroy)(void*));

// Every declared type, in the order of the definitions.
TL_API std::span<const TypeInfo* const> AllTypes();
// The types that are checked in with hosts, in their order of registration.
TL_API std::span<const TypeInfo* const> CheckedInTypes();
// The type of that full name ("ArchiveManagement::SliceInfo"), or null.
TL_API const TypeInfo* FindType(std::string_view fullName);
// The members of a record as they travel: those of its record bases first.
TL_API std::vector<const MemberInfo*> WireMembers(const TypeInfo& type);
TL_API const char* FormName(MemberForm form);  // the form's name ("Sequence")

}  // namespace Serialization::Xidl
