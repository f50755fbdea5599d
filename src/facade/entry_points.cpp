#include <tessel_link/facade/entry_points.h>

#include "facade/component_proxy_factory.h"
#include "facade/xidl_type_table.h"

namespace ComponentManagement {
Component::~Component() = default;
}

extern "C" {

std::uint32_t CreateProxy(std::uint32_t componentId, const Core::ChannelPointer* channel,
                          Core::ComponentSlot* component) {
    // A null channel is refused before the lookup, so that it is reported even for an
    // unknown ID. A missing output slot has nowhere to put a proxy and is refused alike.
    if (channel == nullptr || *channel == nullptr || component == nullptr) {
        return Core::NullChannel;
    }
    const Core::ComponentProxyCreator creator =
        Core::ComponentProxyFactory::Instance().Find(componentId);
    if (creator == nullptr) {
        return Core::UnknownComponent;
    }
    // The host's old object (if any) goes only after the new one exists.
    Core::ComponentSlot created;
    creator(*channel, created);
    *component = std::move(created);
    return Core::ProxyCreated;
}

void CheckInXIDLTypes(Core::XidlTypeRegistrar* registrar) {
    // The name lives only for the call: a registrar that keeps it copies it. What the
    // registrar throws ends the check-in there.
    for (std::size_t i = 0; i < Core::Detail::kXidlTypeCount; ++i) {
        const std::string name(Core::Detail::kXidlTypes[i].name);
        registrar->RegisterType(name, Core::Detail::kXidlTypes[i].creator);
    }
}
}
