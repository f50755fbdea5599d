#include <tessel_link/xidl/catalogue.h>

#include <algorithm>
#include <map>
#include <string>

namespace Serialization::Xidl {

namespace Generated {
// Made by the generator, in its catalogue unit.
extern const TypeInfo* const kAllTypes[];
extern const std::size_t kAllTypeCount;
extern const TypeInfo* const kCheckedInTypes[];
extern const std::size_t kCheckedInTypeCount;
}  // namespace Generated

std::shared_ptr<void> AdoptRecord(void* record, void (*destroy)(void*)) {
    // should the control block not be made, the record is destroyed before the throw
    return std::shared_ptr<void>(record, destroy);
}

std::span<const TypeInfo* const> AllTypes() {
    return {Generated::kAllTypes, Generated::kAllTypeCount};
}

std::span<const TypeInfo* const> CheckedInTypes() {
    return {Generated::kCheckedInTypes, Generated::kCheckedInTypeCount};
}

const TypeInfo* FindType(std::string_view fullName) {
    static const std::map<std::string_view, const TypeInfo*> index = [] {
        std::map<std::string_view, const TypeInfo*> byName;
        for (const TypeInfo* type : AllTypes()) {
            byName.emplace(type->FullName, type);
        }
        return byName;
    }();
    auto found = index.find(fullName);
    return found == index.end() ? nullptr : found->second;
}

std::vector<const MemberInfo*> WireMembers(const TypeInfo& type) {
    std::vector<const TypeInfo*> chain;
    for (const TypeInfo* at = &type; at && (at->Kind == TypeKind::Record || at->Kind == TypeKind::AbstractRecord);
         at = at->Base ? FindType(at->Base) : nullptr) {
        chain.push_back(at);
    }
    std::vector<const MemberInfo*> members;
    for (auto at = chain.rbegin(); at != chain.rend(); ++at) {
        for (std::size_t i = 0; i < (*at)->MemberCount; ++i) {
            members.push_back(&(*at)->Members[i]);
        }
    }
    return members;
}

const char* FormName(MemberForm form) {
    static const char* const names[] = {
        "blob",   "bytes",  "u16",     "i16",  "string",   "i64",      "i32",     "u64",
        "double", "u32",    "wstring", "Error", "Guid",    "u8",       "bool",    "enum",
        "record", "sequence", "map",   "optional", "pointer", "polymorphic",
    };
    auto index = static_cast<std::size_t>(form);
    return index < std::size(names) ? names[index] : "?";
}

}  // namespace Serialization::Xidl
