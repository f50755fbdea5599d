#pragma once

// The value kinds of a unit and the lists that stamp out code for each kind.

#include <cstdint>
#include <string>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/export.h>

namespace Por {

// The seventeen value kinds. The number is the kind's type index: the tag of the binary form
// and the rank by which units of different kinds are ordered. Never renumber.
enum TypeIndex : unsigned {
    NilType = 0,
    BooleanType = 1,
    ByteType = 2,
    SbyteType = 3,
    WordType = 4,
    SwordType = 5,
    DwordType = 6,
    SdwordType = 7,
    QwordType = 8,
    SqwordType = 9,
    DoubleType = 10,
    BlobType = 11,
    GuidType = 12,
    StringType = 13,
    ErrorType = 14,
    ArrayType = 15,
    CompositeType = 16,
    // A kind not yet known: a type probe starts with it and the visit overwrites it.
    UnknownType = 17,
};

inline constexpr unsigned kTypeCount = 17;  // the number of value kinds

// Visitors have one slot per kind, composite first: slot = 17 - type index.
constexpr unsigned VisitorSlot(unsigned typeIndex) {
    return kTypeCount - typeIndex;
}

// The stored value types of the blob, guid, string and error kinds.
using ByteVector = std::vector<unsigned char>;
using WideString = std::u16string;

// "nil", "boolean", ... "composite"; the decimal number for an index of 17 or more.
TL_API std::u16string GetTypeName(unsigned typeIndex);
// The same as a narrow literal; "" for an index of 17 or more.
TL_API const char* GetNarrowTypeName(unsigned typeIndex);

}  // namespace Por

// X(Kind, ValueInterface, TypeIndex) for every kind, in visitor slot order (composite first).
// ValueInterface is named relative to the layer namespace in which the list is expanded.
#define TL_POR_FOR_EACH_KIND(X)                          \
    X(Composite, CompositeValue, 16)                     \
    X(Array, ArrayValue, 15)                             \
    X(Error, ComplexValue<::Common::Error>, 14)          \
    X(String, ComplexValue<::Por::WideString>, 13)       \
    X(Guid, ComplexValue<::Common::Guid>, 12)            \
    X(Blob, ComplexValue<::Por::ByteVector>, 11)         \
    X(Double, ScalarValue<double>, 10)                   \
    X(Sqword, ScalarValue<::std::int64_t>, 9)            \
    X(Qword, ScalarValue<::std::uint64_t>, 8)            \
    X(Sdword, ScalarValue<::std::int32_t>, 7)            \
    X(Dword, ScalarValue<::std::uint32_t>, 6)            \
    X(Sword, ScalarValue<::std::int16_t>, 5)             \
    X(Word, ScalarValue<::std::uint16_t>, 4)             \
    X(Sbyte, ScalarValue<::std::int8_t>, 3)              \
    X(Byte, ScalarValue<::std::uint8_t>, 2)              \
    X(Boolean, ScalarValue<bool>, 1)                     \
    X(Nil, NilValue, 0)

// X(Kind, StoredType, TypeIndex) for the ten scalar kinds, in type index order.
#define TL_POR_FOR_EACH_SCALAR(X)  \
    X(Boolean, bool, 1)            \
    X(Byte, ::std::uint8_t, 2)     \
    X(Sbyte, ::std::int8_t, 3)     \
    X(Word, ::std::uint16_t, 4)    \
    X(Sword, ::std::int16_t, 5)    \
    X(Dword, ::std::uint32_t, 6)   \
    X(Sdword, ::std::int32_t, 7)   \
    X(Qword, ::std::uint64_t, 8)   \
    X(Sqword, ::std::int64_t, 9)   \
    X(Double, double, 10)

// X(Kind, StoredType, TypeIndex) for the four complex kinds, in type index order.
#define TL_POR_FOR_EACH_COMPLEX(X)         \
    X(Blob, ::Por::ByteVector, 11)         \
    X(Guid, ::Common::Guid, 12)            \
    X(String, ::Por::WideString, 13)       \
    X(Error, ::Common::Error, 14)
