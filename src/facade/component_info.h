#pragma once

#include <cstdint>

#include <tessel_link/common/error.h>

namespace Core {

// The per-method entry of a component's information table.
struct MethodInfo {
    std::uint32_t First = 0;
    std::uint32_t Second = 0;
    friend bool operator==(const MethodInfo&, const MethodInfo&) = default;
};

// The description of one component that its unit enters in the ComponentInfoRegistry.
class ComponentInfo {
public:
    virtual std::uint32_t GetComponentID() const = 0;
    virtual bool GetClassFlag() const = 0;
    // `number` is 1-based; a number outside the component's methods fails with
    // kMethodNumberOutOfRange and leaves `info` alone.
    virtual Common::Error GetMethodInfo(std::int32_t number, MethodInfo& info) const = 0;
    virtual std::uint32_t GetInterfaceVersion() const = 0;
    virtual std::uint32_t GetRevision() const = 0;
    virtual std::uint32_t GetOptionFlag(std::uintptr_t, std::uintptr_t) const = 0;
    virtual ~ComponentInfo() = default;
};

inline constexpr std::uint32_t kMethodNumberOutOfRange = 0xb9000c;

}  // namespace Core
