#pragma once

// Not API: used by the generated record codecs only.
//
// What generated record codecs share: the MetaInfo of each member, built once per record
// type, with the member traits looked up in the record's trait table; and the comparison of
// member values that generated equality uses.

#include <cstddef>
#include <initializer_list>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <tessel_link/common/error.h>
#include <tessel_link/common/optional.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/meta_info.h>

namespace Serialization {

// The member traits of one record type: a sorted map from member name to a shared trait
// list. Names compare byte by byte; an absent name gives the null trait pointer.
class TL_API MemberTraitTable {
public:
    struct Row {
        const char* Member;
        std::initializer_list<MetaInfoTrait> Traits;
    };

    MemberTraitTable() = default;
    MemberTraitTable(std::initializer_list<Row> rows);

    MetaInfoTraitsPtr Find(const std::string& member) const;

private:
    std::map<std::string, MetaInfoTraitsPtr> rows_;
};

// The members of one record type in wire order: the MetaInfo its writer states (with the
// member's traits) and the name-only MetaInfo its reader asks for.
class TL_API RecordMeta {
public:
    explicit RecordMeta(std::initializer_list<const char*> members,
                        std::initializer_list<MemberTraitTable::Row> traits = {});

    const MetaInfo& Write(std::size_t member) const { return write_[member]; }
    const MetaInfo& Read(std::size_t member) const { return read_[member]; }
    const MemberTraitTable& Traits() const { return traits_; }

private:
    MemberTraitTable traits_;
    std::vector<MetaInfo> write_;
    std::vector<MetaInfo> read_;
};

namespace Detail {

// Equality of member values as records see it: errors by their serialized form, pointers by
// what they point to, containers element by element.
TL_API bool Equal(const Common::Error& a, const Common::Error& b);

template <class T>
bool Equal(const T& a, const T& b) {
    return a == b;
}
template <class T>
bool Equal(const std::shared_ptr<T>& a, const std::shared_ptr<T>& b) {
    if (!a || !b) {
        return !a && !b;
    }
    return a == b || *a == *b;
}
template <class T>
bool Equal(const Core::Optional<T>& a, const Core::Optional<T>& b) {
    return a.EqualBy(b, [](const T& x, const T& y) { return Equal(x, y); });
}
template <class C>
bool EqualRanges(const C& a, const C& b) {
    if (a.size() != b.size()) {
        return false;
    }
    auto x = a.begin();
    for (auto y = b.begin(); y != b.end(); ++x, ++y) {
        if (!Equal(*x, *y)) {
            return false;
        }
    }
    return true;
}
template <class T, class A>
bool Equal(const std::vector<T, A>& a, const std::vector<T, A>& b) {
    return EqualRanges(a, b);
}
template <class T, class A>
bool Equal(const std::list<T, A>& a, const std::list<T, A>& b) {
    return EqualRanges(a, b);
}
template <class K, class V, class C, class A>
bool Equal(const std::map<K, V, C, A>& a, const std::map<K, V, C, A>& b) {
    return EqualRanges(a, b);
}
template <class K, class V, class C, class A>
bool Equal(const std::multimap<K, V, C, A>& a, const std::multimap<K, V, C, A>& b) {
    return EqualRanges(a, b);
}
template <class K, class V>
bool Equal(const std::pair<const K, V>& a, const std::pair<const K, V>& b) {
    return Equal(a.first, b.first) && Equal(a.second, b.second);
}

}  // namespace Detail
}  // namespace Serialization
