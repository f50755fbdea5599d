#pragma once

// The base of every proxy: its component ID, interface version and life-cycle hooks.

#include <cstdint>
#include <string>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/export.h>

namespace ComponentManagement {

// What CreateProxy hands a host: a local object standing for one remote component. The
// host asks it for the component's interface by type name:
//   auto* manager = Common::QueryInterface<TestManagement::TestManager>(*component);
class TL_API Component : public virtual Common::DynamicCasterImpl {
public:
    ~Component() override;

    virtual std::uint32_t GetComponentID() const = 0;  // the component's ID
    // The interface name without namespace, for example "ArchiveManager".
    virtual const std::string& GetComponentName() const = 0;
    // The version of the interface the proxy speaks.
    virtual std::uint32_t GetInterfaceVersion() const = 0;

    // Life-cycle hooks of a component. The library never calls them; proxies answer 1 and
    // ignore the notifications, except the event proxy, whose OnShutdown stops its
    // dispatcher.
    virtual int GetState() const { return 1; }
    virtual void OnStartup() {}  // called after the start
    virtual void OnShutdown() {}  // called before the end
    virtual void OnSuspend() {}  // called before a suspend
    virtual void OnResume() {}  // called after a resume
};

}  // namespace ComponentManagement
