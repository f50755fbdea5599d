#pragma once

// Not API: used by the generated record codecs and the library itself. Hosts write
// and read records through the records' own operator<< and operator>>.
//
// The value codecs: how a value of any type is written to a Serializer under a member's
// element and read back. Scalars use the value form that fits; records use their own
// operator<< and operator>> (generated) inside the member's element; enumerations, optionals,
// containers and pointers use their fixed wire forms:
//
//   enumeration   <Member><EnumTypeName>NAME</EnumTypeName></Member>
//   optional      <Member><optional_type><is_null>0</is_null><value>...</value></optional_type></Member>
//   sequence      <Member><vector><item>...</item>...</vector></Member>
//   map           <Member><map><item><first>...</first><second>...</second></item>...</map></Member>
//   pointer       <Member><shared_ptr>...</shared_ptr></Member>
//   polymorphic   <Member><Base><polyType>N</polyType>...<impl>...</impl></Base></Member>
//   serializable  <Member><ClassID>N</ClassID><Object>...</Object></Member>
//
// A serializer that offers ContainerAwareSerializer takes sequences and maps whole instead.
// WriteMember/ReadMember are what generated record code and request arguments call.

#include <cstdint>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/optional.h>
#include <tessel_link/serialize/blob.h>
#include <tessel_link/impl/serialize/container_aware.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/impl/serialize/polymorph.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/serializer.h>
// Unit trees as members and arguments: declared before the templates below so that
// qualified calls of WriteMember/ReadMember find them too.
#include <tessel_link/impl/serialize/unit_member.h>

namespace Serialization {

// The version of a record type as the interface definitions give it; 0 for unversioned
// types. Generated code specializes it. A sequence or map has the version of its elements;
// optionals and pointers state the version of their value on the inner element instead.
template <class T>
struct TypeVersion {
    static constexpr std::uint64_t value = 0;
};
template <class T, class A>
struct TypeVersion<std::vector<T, A>> : TypeVersion<T> {};
template <class T, class A>
struct TypeVersion<std::list<T, A>> : TypeVersion<T> {};
template <class T, class C, class A>
struct TypeVersion<std::set<T, C, A>> : TypeVersion<T> {};
template <class K, class V, class C, class A>
struct TypeVersion<std::map<K, V, C, A>> : TypeVersion<V> {};
template <class K, class V, class C, class A>
struct TypeVersion<std::multimap<K, V, C, A>> : TypeVersion<V> {};

// True for the root of a hierarchy that travels by kind number; generated code specializes
// it and provides operator<< and operator>> on std::shared_ptr to the root.
template <class T>
struct IsPolytype : std::false_type {};

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
//   static constexpr const char* TypeName;     // the element inside the member's element
//   static const char* Name(E value);          // null for a value without a name
//   static bool Parse(const std::string&, E&); // false for a text that is no name
template <class E>
struct EnumCodec;

namespace Detail {
// The logged numeric fallbacks of enumerations (both log at level 3 and raise the
// "Unknown value of enum" assertion).
TL_API std::string EnumFallbackWrite(std::int64_t value);
// The number in `text`, extracted as a stream extracts into an integer of `width` bytes and
// the given signedness: 0 for what is no number, the type's limit for what lies beyond it.
TL_API std::int64_t EnumFallbackRead(const std::string& text, std::size_t width, bool isSigned);

// The name-only MetaInfo of the fixed wire elements, built once.
TL_API const MetaInfo& FixedMeta(int which);
enum FixedElement : int {
    kVector,
    kItem,
    kOrderedItem,
    kMap,
    kFirst,
    kSecond,
    kOptionalType,
    kIsNull,
    kValue,
    kSharedPtr,
    kFixedElementCount
};

// The element name under which a container-aware serializer stores a map's value.
TL_API std::string KeyName(const std::string& key);
TL_API std::string KeyName(const std::u16string& key);
TL_API std::string KeyName(const Common::Guid& key);
template <class K>
std::string KeyName(const K& key) {
    if constexpr (std::is_enum_v<K>) {
        const char* name = EnumCodec<K>::Name(key);
        return name ? std::string(name) : std::to_string(static_cast<std::int64_t>(key));
    } else {
        return std::to_string(key);
    }
}

// Records that have no member on the wire: an empty element is their whole form.
template <class T>
struct IsEmptyRecord : std::false_type {};
}  // namespace Detail

template <class T>
void WriteMember(Serializer& s, const MetaInfo& meta, const T& value);
template <class T>
void ReadMember(Deserializer& d, const MetaInfo& meta, T& value);

// A secret wide-string member: obscured on writing, unobscured on reading, by the obscurer
// in force on the calling thread.
inline void WriteObscuredMember(Serializer& s, const MetaInfo& meta, const std::u16string& value) {
    s.Write(meta, Obscure(value));
}
inline void ReadObscuredMember(Deserializer& d, const MetaInfo& meta, std::u16string& value) {
    std::u16string text;
    d.Read(meta, text);
    value = Unobscure(text);
}

// --- the iterators of container-aware serializers ------------------------------------------

// A sequence: each element under "item".
template <class It>
class ValueIterator : public ContainerIterator {
public:
    ValueIterator(It begin, It end) : at_(begin), end_(end) {}
    bool HasNext() override { return at_ != end_; }
    void Next() override { ++at_; }
    void WriteCurrent(Serializer& s) override { WriteMember(s, Detail::FixedMeta(Detail::kItem), *at_); }

private:
    It at_, end_;
};

// A map: each value under an element named by its key.
template <class It>
class MapIterator : public ContainerIterator {
public:
    MapIterator(It begin, It end) : at_(begin), end_(end) {}
    bool HasNext() override { return at_ != end_; }
    void Next() override { ++at_; }
    void WriteCurrent(Serializer& s) override {
        WriteMember(s, MetaInfo(Detail::KeyName(at_->first)), at_->second);
    }

private:
    It at_, end_;
};

template <class It>
class MultiMapIterator : public MapIterator<It> {
public:
    using MapIterator<It>::MapIterator;
};

// A map whose keys make no names: only the values, each under "item".
template <class It>
class MapValueIterator : public ContainerIterator {
public:
    MapValueIterator(It begin, It end) : at_(begin), end_(end) {}
    bool HasNext() override { return at_ != end_; }
    void Next() override { ++at_; }
    void WriteCurrent(Serializer& s) override { WriteMember(s, Detail::FixedMeta(Detail::kItem), at_->second); }

private:
    It at_, end_;
};

// --- forms of the containers -------------------------------------------------------------

namespace Detail {

template <class T>
struct IsSequence : std::false_type {};
template <class T, class A>
struct IsSequence<std::vector<T, A>> : std::bool_constant<!std::is_same_v<T, unsigned char>> {};
template <class T, class A>
struct IsSequence<std::list<T, A>> : std::true_type {};
template <class T, class C, class A>
struct IsSequence<std::set<T, C, A>> : std::true_type {};

template <class T>
struct IsVector : std::false_type {};
template <class T, class A>
struct IsVector<std::vector<T, A>> : std::true_type {};

template <class T>
struct IsSet : std::false_type {};
template <class T, class C, class A>
struct IsSet<std::set<T, C, A>> : std::true_type {};

template <class T>
struct IsMap : std::false_type {};
template <class K, class V, class C, class A>
struct IsMap<std::map<K, V, C, A>> : std::true_type {};
template <class T>
struct IsMultiMap : std::false_type {};
template <class K, class V, class C, class A>
struct IsMultiMap<std::multimap<K, V, C, A>> : std::true_type {};

template <class T>
struct IsSharedPtr : std::false_type {};
template <class T>
struct IsSharedPtr<std::shared_ptr<T>> : std::true_type {};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<Core::Optional<T>> : std::true_type {};

template <class K>
inline constexpr bool IsNameKey = std::is_same_v<K, std::string> || std::is_same_v<K, std::u16string>;

// Hands the container to a container-aware serializer; false when the serializer is not one.
template <class C>
bool WriteContainerWhole(Serializer& s, const MetaInfo& meta, const C& items) {
    ContainerAwareSerializer* aware = Common::QueryInterface<ContainerAwareSerializer>(s);
    if (!aware) {
        return false;
    }
    using It = typename C::const_iterator;
    if constexpr (IsSequence<C>::value) {
        ValueIterator<It> walk(items.begin(), items.end());
        aware->WriteContainer(meta, walk);
    } else if constexpr (IsMultiMap<C>::value) {
        MultiMapIterator<It> walk(items.begin(), items.end());
        aware->WriteContainer(meta, walk);
    } else if constexpr (IsNameKey<typename C::key_type>) {
        MapIterator<It> walk(items.begin(), items.end());
        aware->WriteContainer(meta, walk);
    } else {
        MapValueIterator<It> walk(items.begin(), items.end());
        aware->WriteContainer(meta, walk);
    }
    return true;
}

template <class C>
void WriteSequence(Serializer& s, const C& items) {
    WriteScope vector(s, FixedMeta(kVector));
    const MetaInfo& item = FixedMeta(kItem);
    for (const auto& element : items) {
        WriteMember(s, item, element);
    }
}

template <class C>
void ReadSequence(Deserializer& d, C& items) {
    ReadScope vector(d, FixedMeta(kVector));
    items.clear();
    const MetaInfo& item = FixedMeta(kOrderedItem);
    if constexpr (IsVector<C>::value) {
        // Room for all items at once, so that records are not moved as the vector grows;
        // bounded, so that a small packet of many empty items cannot claim much memory
        // before its first item fails.
        constexpr std::size_t kMostReserved =
            (std::size_t{16} << 20) / sizeof(typename C::value_type);
        const std::size_t ahead = d.CountNext(item);
        items.reserve(ahead < kMostReserved ? ahead : kMostReserved);
    }
    while (d.NextIs(item)) {
        if constexpr (IsSet<C>::value) {
            typename C::value_type element{};
            ReadMember(d, item, element);
            items.insert(items.end(), std::move(element));
        } else {
            // Read in place: records are large, and a move is not free.
            ReadMember(d, item, items.emplace_back());
        }
    }
}

template <class M>
void WriteMap(Serializer& s, const M& map) {
    WriteScope outer(s, FixedMeta(kMap));
    for (const auto& [key, mapped] : map) {
        WriteScope pair(s, FixedMeta(kItem));
        WriteMember(s, FixedMeta(kFirst), key);
        WriteMember(s, FixedMeta(kSecond), mapped);
    }
}

template <class M>
void ReadMap(Deserializer& d, M& map) {
    ReadScope outer(d, FixedMeta(kMap));
    map.clear();
    const MetaInfo& item = FixedMeta(kOrderedItem);
    while (d.NextIs(item)) {
        typename M::key_type key{};
        typename M::mapped_type mapped{};
        {
            ReadScope pair(d, item);
            ReadMember(d, FixedMeta(kFirst), key);
            ReadMember(d, FixedMeta(kSecond), mapped);
        }
        // Made in place from both parts: a key moved into a pair would be copied again, as
        // the pair's key is const.
        map.emplace_hint(map.end(), std::move(key), std::move(mapped));
    }
}

template <class T>
void WriteOptional(Serializer& s, const Core::Optional<T>& value) {
    WriteScope optional(s, FixedMeta(kOptionalType));
    s.Write(FixedMeta(kIsNull), value.IsNull());
    if (!value.IsNull()) {
        WriteMember(s, FixedMeta(kValue), value.Get());
    }
}

template <class T>
void ReadOptional(Deserializer& d, Core::Optional<T>& value) {
    ReadScope optional(d, FixedMeta(kOptionalType));
    bool isNull = true;
    d.Read(FixedMeta(kIsNull), isNull);
    if (isNull) {
        value.Reset();
        return;
    }
    T read{};
    ReadMember(d, FixedMeta(kValue), read);
    value = std::move(read);
}

// A null pointer is written as the empty element "shared_ptr" (with its version), which is
// all a peer can be told of it; see ReadPointer for what becomes of that on reading.
template <class T>
void WritePointer(Serializer& s, const std::shared_ptr<T>& value) {
    if constexpr (IsPolytype<T>::value) {
        s << value;
    } else if constexpr (std::is_base_of_v<Serializable, T>) {
        s << std::static_pointer_cast<Serializable>(value);
    } else {
        MetaInfo pointer = FixedMeta(kSharedPtr);
        SubjectVersionScope version(s, pointer, TypeVersion<T>::value);
        WriteScope element(s, pointer);
        if (value) {
            s << *value;
        }
    }
}

template <class T>
void ReadPointer(Deserializer& d, std::shared_ptr<T>& value) {
    if constexpr (IsPolytype<T>::value) {
        d >> value;
    } else if constexpr (std::is_base_of_v<Serializable, T>) {
        std::shared_ptr<Serializable> object;
        d >> object;
        value = std::dynamic_pointer_cast<T>(object);
    } else {
        // Reading always makes a new object and fills it. The writer's form of a null
        // pointer, the empty element, therefore fails here on the first missing member; only
        // a record without members reads back from it, as a new object.
        ReadScope element(d, FixedMeta(kSharedPtr));
        auto object = std::make_shared<T>();
        d >> *object;
        value = std::move(object);
    }
}

}  // namespace Detail

// --- the member codec ---------------------------------------------------------------------

// Writes `value` as the member described by `meta`: a value form directly; anything else
// inside the member's element, with the version guard when the type is versioned.
template <class T>
void WriteMember(Serializer& s, const MetaInfo& meta, const T& value) {
    if constexpr (IsValueForm<T>) {
        s.Write(meta, value);
    } else if constexpr (std::is_enum_v<T>) {
        WriteScope element(s, meta);
        const char* name = EnumCodec<T>::Name(value);
        s.Write(MetaInfo(EnumCodec<T>::TypeName),
                name ? std::string(name) : Detail::EnumFallbackWrite(static_cast<std::int64_t>(value)));
    } else if constexpr (TypeVersion<T>::value != 0) {
        MetaInfo member = meta;
        SubjectVersionScope version(s, member, TypeVersion<T>::value);
        if constexpr (Detail::IsSequence<T>::value || Detail::IsMap<T>::value ||
                      Detail::IsMultiMap<T>::value) {
            if (Detail::WriteContainerWhole(s, member, value)) {
                return;
            }
        }
        WriteScope element(s, member);
        if constexpr (Detail::IsSequence<T>::value) {
            Detail::WriteSequence(s, value);
        } else if constexpr (Detail::IsMap<T>::value || Detail::IsMultiMap<T>::value) {
            Detail::WriteMap(s, value);
        } else {
            s << value;
        }
    } else {
        if constexpr (Detail::IsSequence<T>::value || Detail::IsMap<T>::value ||
                      Detail::IsMultiMap<T>::value) {
            if (Detail::WriteContainerWhole(s, meta, value)) {
                return;
            }
        }
        WriteScope element(s, meta);
        if constexpr (Detail::IsSequence<T>::value) {
            Detail::WriteSequence(s, value);
        } else if constexpr (Detail::IsMap<T>::value || Detail::IsMultiMap<T>::value) {
            Detail::WriteMap(s, value);
        } else if constexpr (Detail::IsOptional<T>::value) {
            Detail::WriteOptional(s, value);
        } else if constexpr (Detail::IsSharedPtr<T>::value) {
            Detail::WritePointer(s, value);
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
        // The inner element's MetaInfo is made once per type, not once per value.
        static const MetaInfo typeElement(EnumCodec<T>::TypeName);
        ReadScope element(d, meta);
        std::string text;
        d.Read(typeElement, text);
        if (!EnumCodec<T>::Parse(text, value)) {
            using Width = std::underlying_type_t<T>;
            value = static_cast<T>(
                Detail::EnumFallbackRead(text, sizeof(Width), std::is_signed_v<Width>));
        }
    } else {
        ReadScope element(d, meta);
        if constexpr (Detail::IsSequence<T>::value) {
            Detail::ReadSequence(d, value);
        } else if constexpr (Detail::IsMap<T>::value || Detail::IsMultiMap<T>::value) {
            Detail::ReadMap(d, value);
        } else if constexpr (Detail::IsOptional<T>::value) {
            Detail::ReadOptional(d, value);
        } else if constexpr (Detail::IsSharedPtr<T>::value) {
            Detail::ReadPointer(d, value);
        } else {
            d >> value;
        }
    }
}

}  // namespace Serialization
