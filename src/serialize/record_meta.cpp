#include <tessel_link/impl/serialize/record_meta.h>

#include <tessel_link/impl/serialize/codec.h>

namespace Serialization {

MemberTraitTable::MemberTraitTable(std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        rows_[row.Member] = std::make_shared<const MetaInfoTraits>(row.Traits);
    }
}

MetaInfoTraitsPtr MemberTraitTable::Find(const std::string& member) const {
    auto found = rows_.find(member);
    return found == rows_.end() ? kNoTraits : found->second;
}

RecordMeta::RecordMeta(std::initializer_list<const char*> members,
                       std::initializer_list<MemberTraitTable::Row> traits)
    : traits_(traits) {
    write_.reserve(members.size());
    read_.reserve(members.size());
    for (const char* name : members) {
        write_.emplace_back(name, kNoTraits, traits_.Find(name));
        read_.emplace_back(name);
    }
}

namespace Detail {

bool Equal(const Common::Error& a, const Common::Error& b) {
    if (a.Empty() || b.Empty()) {
        return a.Empty() == b.Empty();
    }
    return a.Serialize() == b.Serialize();
}

}  // namespace Detail
}  // namespace Serialization
