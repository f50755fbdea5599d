#include <tessel_link/serialize/meta_info.h>

#include <cstring>

namespace Serialization {

namespace {

bool SameText(const char* a, const char* b) {
    if (a == b) {
        return true;
    }
    if (a == nullptr || b == nullptr) {
        return false;
    }
    return std::strcmp(a, b) == 0;
}

bool SameTraits(const MetaInfoTraitsPtr& a, const MetaInfoTraitsPtr& b) {
    if (a == nullptr || b == nullptr) {
        return a == nullptr && b == nullptr;
    }
    return a == b || *a == *b;
}

}  // namespace

bool operator==(const MetaInfoTrait& a, const MetaInfoTrait& b) {
    return SameText(a.Name, b.Name) && SameText(a.Type, b.Type) && SameText(a.Value, b.Value);
}

bool operator==(const MetaInfo& a, const MetaInfo& b) {
    return a.Name == b.Name && SameTraits(a.TypeTraits, b.TypeTraits) &&
           SameTraits(a.MemberTraits, b.MemberTraits);
}

}  // namespace Serialization
