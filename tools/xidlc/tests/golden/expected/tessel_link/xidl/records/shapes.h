#pragma once

// Generated from the interface definitions by tools/xidlc; edit the definitions instead.

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/optional.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/blob.h>
#include <tessel_link/impl/serialize/codec.h>

namespace Shapes {
// How a shape is filled.
enum class Fill : std::int32_t {
    NONE = 0,  // travels as "NONE"
    SOLID = 3,  // travels as "SOLID"
    HATCHED = 4,  // travels as "HATCHED"
};

struct Point;
struct Outline;
}  // namespace Shapes

namespace Shapes {
// A point of the drawing, in tenths of a millimetre.
struct Point {
    std::int32_t X{};  // i32
    std::int32_t Y{};  // i32
};

// A closed line through its corners.
struct Outline {
    // The corners in drawing order.
    std::list<::Shapes::Point> Corners;
    ::Shapes::Fill Style = ::Shapes::Fill::SOLID;  // Shapes::Fill
    std::u16string Name;  // wstring
};

TL_API ::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const Point& value);  // writes the members in wire order
TL_API ::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, Point& value);  // reads the members in wire order
TL_API bool operator==(const Point& a, const Point& b);  // member by member
TL_API ::Serialization::Serializer& operator<<(::Serialization::Serializer& s, const Outline& value);  // writes the members in wire order
TL_API ::Serialization::Deserializer& operator>>(::Serialization::Deserializer& d, Outline& value);  // reads the members in wire order
TL_API bool operator==(const Outline& a, const Outline& b);  // member by member
}  // namespace Shapes

namespace Serialization {
/// @cond TL_CODEC_TRAITS
template <>
struct EnumCodec<::Shapes::Fill> {
    static constexpr const char* TypeName = "Fill";
    TL_API static const char* Name(::Shapes::Fill value);
    TL_API static bool Parse(const std::string& text, ::Shapes::Fill& value);
};
template <>
struct TypeVersion<::Shapes::Point> {
    static constexpr std::uint64_t value = 2;
};
template <>
struct TypeVersion<::Shapes::Outline> {
    static constexpr std::uint64_t value = 1;
};
/// @endcond
}  // namespace Serialization

