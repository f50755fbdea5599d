#pragma once

// Typed proxies for hosts that link the library: Core::MakeProxy<X>(channel) makes the proxy
// of the component whose interface is X and hands out X, so that a host never writes a
// component number by hand. Also the error that generated X_Unimplemented fakes answer.
//
//   auto manager = Core::MakeProxy<InstanceManagement::InstanceManager>(channel);
//   const Common::Error error = manager->Add(instance);
//
// Hosts that load the library at run time keep using CreateProxy (entry_points.h).

#include <cstdint>
#include <memory>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/facade/component.h>
#include <tessel_link/facade/entry_points.h>

namespace Core {

// "The method '{function}' is not implemented.": the answer of every method of a generated
// X_Unimplemented base that the fake does not override.
inline constexpr std::uint32_t kErrorNotImplemented = 0xb90010;

// The error of a fake's method that is not implemented; `function` is the qualified method
// name ("InstanceManagement::InstanceManager::Add") and must outlive the error's use
// (a string literal does).
TL_API Common::Error NotImplementedError(const char* function);

// Owns the component behind a typed proxy pointer and deletes it with the pointer.
struct ComponentOwner {
    ComponentManagement::Component* Component = nullptr;  // the component, deleted with the pointer
    void operator()(const void*) const noexcept { delete Component; }  // deletes the component
};

// A typed proxy: points at the interface X and owns the component that implements it. The
// component itself (its ID, name and version) is `proxy.get_deleter().Component`.
template <class X>
using Proxy = std::unique_ptr<X, ComponentOwner>;

// Makes the component of that ID over the channel, as CreateProxy does, and checks that it
// implements the interface `interfaceName`. Throws Common::Error: Binding::kErrorNullPointer
// for a null channel, Binding::kErrorUnknownComponent for an ID the library does not know.
TL_API ComponentSlot MakeComponent(std::uint32_t componentId, const ChannelPointer& channel);

// The error of a component that does not hand out the interface asked for.
TL_API Common::Error NotInterfaceError(std::uint32_t componentId, const char* interfaceName);

// The proxy of the component whose interface is X (a generated interface, which carries
// kComponentId). Throws Common::Error as MakeComponent does, and kErrorNullPointer too when
// the component does not hand out X.
template <class X>
Proxy<X> MakeProxy(const ChannelPointer& channel) {
    ComponentSlot component = MakeComponent(X::kComponentId, channel);
    X* typed = Common::QueryInterface<X>(*component);
    if (typed == nullptr) {
        throw NotInterfaceError(X::kComponentId, X::kInterfaceName);
    }
    return Proxy<X>(typed, ComponentOwner{component.release()});
}

}  // namespace Core
