#pragma once

// The library's two entry points. Both are plain C symbols, so that a host that loads the
// library at run time finds them with dlsym(handle, "CreateProxy").

#include <cstdint>
#include <memory>
#include <string>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/export.h>
#include <tessel_link/facade/component.h>

namespace Por::Construction {
class Unit;
}

namespace Core {

// The result of CreateProxy.
enum ProxyFactoryResult : std::uint32_t {
    ProxyCreated = 0,      // the output slot holds the new proxy, owned by the host
    UnknownComponent = 1,  // the component ID is not known; the slot is unchanged
    NullChannel = 2,       // the channel (or the output slot) is null; the slot is unchanged
};

// Makes an empty value of one XIDL type as a POR object, owned by the caller; returns the
// slot it filled.
using XidlTypeCreator =
    std::unique_ptr<Por::Construction::Unit>& (*)(std::unique_ptr<Por::Construction::Unit>& slot);

// The host's receiver of type names. The name is valid only during the call.
class TL_API XidlTypeRegistrar {
public:
    virtual ~XidlTypeRegistrar() = default;
    // The result is the host's business; the library ignores it.
    virtual bool RegisterType(const std::string& typeName, XidlTypeCreator creator) = 0;
};

// The slot that CreateProxy fills.
using ComponentSlot = std::unique_ptr<ComponentManagement::Component>;
// The host's channel, shared with the proxies.
using ChannelPointer = std::shared_ptr<Binding::RequestChannel>;

}  // namespace Core

extern "C" {

// Creates the proxy of a component over the host's channel, and stores it in `*component`.
// Whatever the slot held before is destroyed once the new proxy exists. The proxy keeps a
// reference to the channel. No call to the service takes place.
TL_API std::uint32_t CreateProxy(std::uint32_t componentId, const Core::ChannelPointer* channel,
                                 Core::ComponentSlot* component);

// Tells the registrar every XIDL type name with the function that creates its values.
TL_API void CheckInXIDLTypes(Core::XidlTypeRegistrar* registrar);
}

// The entry points' types, for hosts that look them up with dlsym.
using CreateProxyFunction = decltype(&CreateProxy);
using CheckInXIDLTypesFunction = decltype(&CheckInXIDLTypes);  // the type of CheckInXIDLTypes
