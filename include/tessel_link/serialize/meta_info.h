#pragma once

// The descriptor of an element (name, version, traits) that every serializer call takes.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/export.h>

namespace Serialization {

// A trait of a type or a member: three constant strings that live as long as the process,
// for example {"Obscured", "NilValue", ""}.
struct MetaInfoTrait {
    const char* Name;  // the trait's name
    const char* Type;  // the kind of its value ("NilValue", "StringValue")
    const char* Value;  // the value; "" for none
};

// Same name, type and value.
TL_API bool operator==(const MetaInfoTrait& a, const MetaInfoTrait& b);

using MetaInfoTraits = std::vector<MetaInfoTrait>;  // a list of traits
// A shared, constant list of traits.
using MetaInfoTraitsPtr = std::shared_ptr<const MetaInfoTraits>;

// The descriptor of an element, built on the spot for each call on a serializer.
struct TL_API MetaInfo {
    // An empty name means no element at all: begin and finish do nothing, and a scalar
    // written under it appends its bare text to the enclosing element.
    std::string Name;
    // Version of the value's type as stated in the element, 0 for none.
    std::uint64_t Version = 0;
    MetaInfoTraitsPtr TypeTraits;  // the traits of the value's type
    MetaInfoTraitsPtr MemberTraits;  // the traits of the member
    // Set for the elements of a sequence: a reader finds them by position, never by name.
    std::uint8_t Ordered = 0;
    // 0 when the element belongs to every category.
    std::uint32_t Category = 0;
    // Stated instead of Version when the element is written for its own category.
    std::uint64_t CategoryVersion = 0;

    MetaInfo() = default;
    // From a name alone: version 0, no traits, category 0.
    explicit MetaInfo(std::string name, bool ordered = false)
        : Name(std::move(name)), Ordered(ordered ? 1 : 0) {}
    // From a name with the type's and the member's trait lists, as generated writers do.
    MetaInfo(std::string name, MetaInfoTraitsPtr typeTraits, MetaInfoTraitsPtr memberTraits)
        : Name(std::move(name)),
          TypeTraits(std::move(typeTraits)),
          MemberTraits(std::move(memberTraits)) {}

    // Name byte by byte and both trait lists; a null list never equals a present one, not
    // even an empty one. Version, Ordered and the category fields take no part.
    friend TL_API bool operator==(const MetaInfo& a, const MetaInfo& b);
};

// The module's constant null trait pointer, for generated writers.
inline const MetaInfoTraitsPtr kNoTraits;

}  // namespace Serialization
