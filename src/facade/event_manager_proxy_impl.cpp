#include "facade/event_manager_proxy_impl.h"

#include "binding/binding_errors.h"

namespace EventManagement {

EventDispatcher::~EventDispatcher() = default;
EventSubscriber::~EventSubscriber() = default;
EventAccumulator::~EventAccumulator() = default;

EventManager_ProxyImpl::EventManager_ProxyImpl(std::shared_ptr<Binding::RequestChannel> channel)
    : EventManager_Proxy(std::move(channel)) {}

Common::Error EventManager_ProxyImpl::Subscribe(std::uint32_t, EventDispatcher*) {
    return Binding::Detail::NotAvailableYet(
        TL_ORIGIN("EventManagement::EventManager_ProxyImpl::Subscribe"));
}

Common::Error EventManager_ProxyImpl::Unsubscribe(std::uint32_t, EventDispatcher*) {
    return Binding::Detail::NotAvailableYet(
        TL_ORIGIN("EventManagement::EventManager_ProxyImpl::Unsubscribe"));
}

Common::Error EventManager_ProxyImpl::AbsorbQueue(std::uint32_t, EventDispatcher*) {
    return Binding::Detail::NotAvailableYet(
        TL_ORIGIN("EventManagement::EventManager_ProxyImpl::AbsorbQueue"));
}

}  // namespace EventManagement
