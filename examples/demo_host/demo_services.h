#pragma once

#include <map>
#include <mutex>

#include <tessel_link/components/components.h>

namespace Demo {

// An instance manager that keeps its instances in memory under identifiers of its own.
class InMemoryInstanceManager : public InstanceManagement::InstanceManager {
public:
    Common::Error GetIDs(std::list<Common::Guid>& ids) override;
    Common::Error GetList(const std::list<Common::Guid>& ids,
                          std::list<InstanceManagement::Instance>& result) override;
    Common::Error Add(const InstanceManagement::Instance& item) override;
    // Replaces the instance with the same host and path.
    Common::Error Update(const InstanceManagement::Instance& item) override;
    Common::Error Remove(const Common::Guid& id) override;
    Common::Error GetInstancesOfType(std::uint32_t type, std::list<Common::Guid>& result) override;

private:
    std::mutex lock_;
    std::map<Common::Guid, InstanceManagement::Instance> instances_;
};

// Answers the connection tests of a console.
class TestService : public TestManagement::TestManager {
public:
    Common::Error Test() override;
    Common::Error TestCancel() override;
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override;
    Common::Error ResumeCancel(std::map<std::string, std::u16string>& resume) override;
};

// Takes every external action on.
class CompatibilityService : public CompatibilityManagement::CompatibilityManager {
public:
    Common::Error ProcessExternalAction() override;
    int Actions = 0;
};

}  // namespace Demo
