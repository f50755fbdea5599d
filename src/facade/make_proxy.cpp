#include <tessel_link/facade/make_proxy.h>

#include <string>

#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/common/unicode.h>

namespace Core {

Common::Error NotImplementedError(const char* function) {
    return Common::Error::WithFunction(TL_ORIGIN("Core::NotImplementedError"), kErrorNotImplemented,
                                       u"The method '{function}' is not implemented.", function);
}

Common::Error NotInterfaceError(std::uint32_t componentId, const char* interfaceName) {
    const std::string text = "Component " + std::to_string(componentId) +
                             " does not hand out the interface '" +
                             (interfaceName != nullptr ? interfaceName : "?") + "'.";
    return Common::Error(TL_ORIGIN("Core::MakeProxy"), Binding::kErrorNullPointer,
                         Common::Utf8ToUtf16Lenient(text));
}

ComponentSlot MakeComponent(std::uint32_t componentId, const ChannelPointer& channel) {
    ComponentSlot component;
    switch (CreateProxy(componentId, &channel, &component)) {
    case ProxyCreated:
        if (component) {
            return component;
        }
        break;
    case NullChannel:
        throw Common::Error(TL_ORIGIN("Core::MakeProxy"), Binding::kErrorNullPointer,
                            u"A proxy needs a channel to send its requests over; the channel "
                            u"given is null.");
    case UnknownComponent:
        break;
    }
    const std::string text =
        "Cannot find a component with ID '" + std::to_string(componentId) + "'.";
    throw Common::Error(TL_ORIGIN("Core::MakeProxy"), Binding::kErrorUnknownComponent,
                        Common::Utf8ToUtf16Lenient(text));
}

}  // namespace Core
