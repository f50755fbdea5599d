#include "demo_services.h"

#include <algorithm>

namespace Demo {

namespace {

// Codes of the example's own, with the customer bit set so that they never meet the
// library's.
constexpr std::uint32_t kErrorNoSuchInstance = 0x20000001;
constexpr std::uint32_t kErrorNoIdentifier = 0x20000002;

bool SameObject(const InstanceManagement::Instance& a, const InstanceManagement::Instance& b) {
    return a.HostID == b.HostID && a.FullPath == b.FullPath;
}

}  // namespace

Common::Error InMemoryInstanceManager::GetIDs(std::list<Common::Guid>& ids) {
    const std::lock_guard<std::mutex> guard(lock_);
    ids.clear();
    for (const auto& [id, instance] : instances_) {
        ids.push_back(id);
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryInstanceManager::GetList(const std::list<Common::Guid>& ids,
                                               std::list<InstanceManagement::Instance>& result) {
    const std::lock_guard<std::mutex> guard(lock_);
    result.clear();
    for (const Common::Guid& id : ids) {
        const auto found = instances_.find(id);
        if (found == instances_.end()) {
            return Common::Error(TL_ORIGIN("Demo::InMemoryInstanceManager::GetList"),
                                 kErrorNoSuchInstance, Common::ToString(id).c_str());
        }
        result.push_back(found->second);
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryInstanceManager::Add(const InstanceManagement::Instance& item) {
    Common::Guid id;
    if (!Common::Create(id)) {
        return Common::Error(TL_ORIGIN("Demo::InMemoryInstanceManager::Add"), kErrorNoIdentifier);
    }
    const std::lock_guard<std::mutex> guard(lock_);
    instances_.emplace(id, item);
    return Common::ErrorSuccess;
}

Common::Error InMemoryInstanceManager::Update(const InstanceManagement::Instance& item) {
    const std::lock_guard<std::mutex> guard(lock_);
    const auto found = std::find_if(instances_.begin(), instances_.end(),
                                    [&](const auto& entry) { return SameObject(entry.second, item); });
    if (found == instances_.end()) {
        return Common::Error(TL_ORIGIN("Demo::InMemoryInstanceManager::Update"),
                             kErrorNoSuchInstance, item.FullPath);
    }
    found->second = item;
    return Common::ErrorSuccess;
}

Common::Error InMemoryInstanceManager::Remove(const Common::Guid& id) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (instances_.erase(id) == 0) {
        return Common::Error(TL_ORIGIN("Demo::InMemoryInstanceManager::Remove"),
                             kErrorNoSuchInstance, Common::ToString(id).c_str());
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryInstanceManager::GetInstancesOfType(std::uint32_t type,
                                                          std::list<Common::Guid>& result) {
    const std::lock_guard<std::mutex> guard(lock_);
    result.clear();
    for (const auto& [id, instance] : instances_) {
        if (instance.Type == type) {
            result.push_back(id);
        }
    }
    return Common::ErrorSuccess;
}

Common::Error TestService::Test() { return Common::ErrorSuccess; }

Common::Error TestService::TestCancel() { return Common::ErrorSuccess; }

Common::Error TestService::GetData(const std::string& hostname, std::uint32_t size,
                                   std::string& result) {
    result = std::to_string(size) + " bytes of test data from " + hostname;
    return Common::ErrorSuccess;
}

Common::Error TestService::ResumeCancel(std::map<std::string, std::u16string>& resume) {
    resume["state"] = u"resumed";
    return Common::ErrorSuccess;
}

Common::Error CompatibilityService::ProcessExternalAction() {
    ++Actions;
    return Common::ErrorSuccess;
}

}  // namespace Demo
