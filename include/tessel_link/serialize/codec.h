#pragma once

// The value codecs: how a value of any type is written to a Serializer under a member's
// element and read back. Scalars use the value form that fits; records use their own
// operator<< and operator>> (generated) inside the member's element; containers and pointers
// use the fixed wire forms "vector"/"item", "map"/"item"/"first"/"second" and "shared_ptr".
//
// WriteMember/ReadMember are what generated record code and request arguments call.

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/serialize/blob.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/scope_guards.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

// The version of a record type as the interface definitions give it; 0 for unversioned
// types. Generated code specializes it. A container has the version of its elements.
template <class T>
struct TypeVersion {
    static constexpr std::uint64_t value = 0;
};
template <class T>
struct TypeVersion<std::vector<T>> : TypeVersion<T> {};
template <class T>
struct TypeVersion<std::list<T>> : TypeVersion<T> {};
template <class T>
struct TypeVersion<std::set<T>> : TypeVersion<T> {};
template <class T>
struct TypeVersion<std::shared_ptr<T>> : TypeVersion<T> {};

// The fifteen value forms of the serializer ends.
template <class T>
inline constexpr bool IsValueForm =
    std::is_same_v<T, Blob> || std::is_same_v<T, std::vector<unsigned char>> ||
    std::is_same_v<T, std::uint16_t> || std::is_same_v<T, std::int16_t> ||
    std::is_same_v<T, std::string> || std::is_same_v<T, std::int64_t> ||
    std::is_same_v<T, std::int32_t> || std::is_same_v<T, std::uint64_t> ||
    std::is_same_v<T, double> || std::is_same_v<T, std::uint32_t> ||
    std::is_same_v<T, std::u16string> || std::is_same_v<T, Common::Error> ||
    std::is_same_v<T, Common::Guid> || std::is_same_v<T, std::uint8_t> || std::is_same_v<T, bool>;

// Enumerations are written by name; generated code specializes EnumCodec<E> with
//   static const char* Name(E value);          // null for a value without a name
//   static bool Parse(const std::string&, E&); // false for a text that is no name
template <class E>
struct EnumCodec;

namespace Detail {
// The logged numeric fallbacks of enumerations (both log at level 3 and raise the
// "Unknown value of enum" assertion).
TL_API std::string EnumFallbackWrite(std::int64_t value);
TL_API std::int64_t EnumFallbackRead(const std::string& text);
}  // namespace Detail

template <class T>
void WriteMember(Serializer& s, const MetaInfo& meta, const T& value);
template <class T>
void ReadMember(Deserializer& d, const MetaInfo& meta, T& value);

// --- forms of the containers -------------------------------------------------------------

namespace Detail {

template <class C>
void WriteSequence(Serializer& s, const C& items) {
    WriteScope vector(s, MetaInfo("vector"));
    const MetaInfo item("item");
    for (const auto& element : items) {
        WriteMember(s, item, element);
    }
}

template <class C>
void ReadSequence(Deserializer& d, C& items) {
    ReadScope vector(d, MetaInfo("vector"));
    items.clear();
    const MetaInfo item("item", true);
    while (d.NextMetaInfo() == item) {
        typename C::value_type element{};
        ReadMember(d, item, element);
        items.insert(items.end(), std::move(element));
    }
}

template <class M>
void WriteMap(Serializer& s, const M& map) {
    WriteScope outer(s, MetaInfo("map"));
    const MetaInfo item("item");
    const MetaInfo first("first");
    const MetaInfo second("second");
    for (const auto& [key, mapped] : map) {
        WriteScope pair(s, item);
        WriteMember(s, first, key);
        WriteMember(s, second, mapped);
    }
}

template <class M>
void ReadMap(Deserializer& d, M& map) {
    ReadScope outer(d, MetaInfo("map"));
    map.clear();
    const MetaInfo item("item", true);
    const MetaInfo first("first");
    const MetaInfo second("second");
    while (d.NextMetaInfo() == item) {
        typename M::key_type key{};
        typename M::mapped_type mapped{};
        {
            ReadScope pair(d, item);
            ReadMember(d, first, key);
            ReadMember(d, second, mapped);
        }
        map.insert(map.end(), {std::move(key), std::move(mapped)});
    }
}

template <class T>
struct IsSequence : std::false_type {};
template <class T, class A>
struct IsSequence<std::vector<T, A>> : std::bool_constant<!std::is_same_v<T, unsigned char>> {};
template <class T, class A>
struct IsSequence<std::list<T, A>> : std::true_type {};
template <class T, class C, class A>
struct IsSequence<std::set<T, C, A>> : std::true_type {};

template <class T>
struct IsMap : std::false_type {};
template <class K, class V, class C, class A>
struct IsMap<std::map<K, V, C, A>> : std::true_type {};
template <class K, class V, class C, class A>
struct IsMap<std::multimap<K, V, C, A>> : std::true_type {};

template <class T>
struct IsSharedPtr : std::false_type {};
template <class T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};

}  // namespace Detail

// --- the member codec ---------------------------------------------------------------------

// Writes `value` as the member described by `meta`: a value form directly; anything else
// inside the member's element, with the version guard when the type is versioned.
template <class T>
void WriteMember(Serializer& s, const MetaInfo& meta, const T& value) {
    if constexpr (IsValueForm<T>) {
        s.Write(meta, value);
    } else if constexpr (std::is_enum_v<T>) {
        if (const char* name = EnumCodec<T>::Name(value)) {
            s.Write(meta, std::string(name));
        } else {
            s.Write(meta, Detail::EnumFallbackWrite(static_cast<std::int64_t>(value)));
        }
    } else {
        MetaInfo member = meta;
        SubjectVersionScope version(s, member, TypeVersion<T>::value);
        WriteScope element(s, member);
        if constexpr (Detail::IsSequence<T>::value) {
            Detail::WriteSequence(s, value);
        } else if constexpr (Detail::IsMap<T>::value) {
            Detail::WriteMap(s, value);
        } else if constexpr (Detail::IsSharedPtr<T>::value) {
            WriteScope pointer(s, MetaInfo("shared_ptr"));
            if (value) {
                s << *value;
            }
        } else {
            s << value;
        }
    }
}

template <class T>
void ReadMember(Deserializer& d, const MetaInfo& meta, T& value) {
    if constexpr (IsValueForm<T>) {
        d.Read(meta, value);
    } else if constexpr (std::is_enum_v<T>) {
        std::string text;
        d.Read(meta, text);
        if (!EnumCodec<T>::Parse(text, value)) {
            value = static_cast<T>(Detail::EnumFallbackRead(text));
        }
    } else {
        ReadScope element(d, meta);
        if constexpr (Detail::IsSequence<T>::value) {
            Detail::ReadSequence(d, value);
        } else if constexpr (Detail::IsMap<T>::value) {
            Detail::ReadMap(d, value);
        } else if constexpr (Detail::IsSharedPtr<T>::value) {
            ReadScope pointer(d, MetaInfo("shared_ptr"));
            auto object = std::make_shared<typename T::element_type>();
            d >> *object;
            value = std::move(object);
        } else {
            d >> value;
        }
    }
}

}  // namespace Serialization
