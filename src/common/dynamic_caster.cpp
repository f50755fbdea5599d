#include <tessel_link/common/dynamic_caster.h>

namespace Common {

DynamicCaster::~DynamicCaster() = default;

void* DynamicCasterImpl::QueryType(const char* typeName) {
    if (typeName == nullptr) {
        return nullptr;
    }
    const auto it = table_.find(std::string_view(typeName));
    return it != table_.end() ? it->second : nullptr;
}

void DynamicCasterImpl::RegisterType(const char* typeName, void* object) {
    if (typeName == nullptr || object == nullptr) {
        return;
    }
    table_.insert_or_assign(std::string(typeName), object);
}

}  // namespace Common
