// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

#include <tessel_link/impl/binding/argument_type.h>
#include <tessel_link/impl/binding/call.h>

#include "facade/component_catalogue.h"
#include "facade/component_info_impl.h"
#include "facade/component_info_registry.h"
#include "xidl/components/shapes_proxy.h"

namespace Shapes {

Canvas::~Canvas() = default;

Canvas_Proxy::Canvas_Proxy(std::shared_ptr<::Binding::RequestChannel> channel)
    : channel_(std::move(channel)) {}

Canvas_Proxy::~Canvas_Proxy() = default;

::Common::Error Canvas_Proxy::Draw(const ::Shapes::Outline& outline, std::uint32_t& number) {
    return ::Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_Canvas_Draw(outline, number); });
}

::Common::Error Canvas_Proxy::Clear() {
    return ::Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_Canvas_Clear(); });
}

::Common::Error Canvas_Proxy::CountFilled(::Shapes::Fill fill, const std::set<::Shapes::Point>& corners, std::uint32_t& result) {
    return ::Binding::Detail::CallRemote(*channel_, [&] { return MakeRequest_Canvas_CountFilled(fill, corners, result); });
}

std::unique_ptr<::Binding::Request> MakeRequest_Canvas_Draw(const ::Shapes::Outline& outline, std::uint32_t& number) {
    const ::Binding::Detail::ErasedArgument arguments_[] = {
        {&::Binding::Generated::kArgumentType_0, &outline, nullptr, "outline", ::Binding::ArgumentKind{0}},
        {&::Binding::Generated::kArgumentType_1, &number, &number, "number", ::Binding::ArgumentKind{2}}};
    return ::Binding::Detail::MakeRequest(::Core::Describe<9001>(1, "Draw", 1), arguments_, 2);
}

std::unique_ptr<::Binding::Request> MakeRequest_Canvas_Clear() {
    return ::Binding::Detail::MakeRequest(::Core::Describe<9001>(2, "Clear", 1), nullptr, 0);
}

std::unique_ptr<::Binding::Request> MakeRequest_Canvas_CountFilled(::Shapes::Fill fill, const std::set<::Shapes::Point>& corners, std::uint32_t& result) {
    const ::Binding::Detail::ErasedArgument arguments_[] = {
        {&::Binding::Generated::kArgumentType_2, &fill, nullptr, "fill", ::Binding::ArgumentKind{0}},
        {&::Binding::Generated::kArgumentType_3, &corners, nullptr, "corners", ::Binding::ArgumentKind{0}},
        {&::Binding::Generated::kArgumentType_1, &result, &result, "result", ::Binding::ArgumentKind{0}}};
    return ::Binding::Detail::MakeRequest(::Core::Describe<9001>(3, "CountFilled", 2), arguments_, 3);
}

namespace {

constexpr ::Binding::ServiceParameter kParameters_Canvas_Draw[] = {{"outline", ::Binding::ArgumentKind{0}}, {"number", ::Binding::ArgumentKind{2}}};
constexpr ::Binding::ServiceParameter kParameters_Canvas_CountFilled[] = {{"fill", ::Binding::ArgumentKind{0}}, {"corners", ::Binding::ArgumentKind{0}}, {"result", ::Binding::ArgumentKind{0}}};
constexpr ::Binding::ServiceMethodRow kMethods_Canvas[] = {
    {1, "Draw", 1, kParameters_Canvas_Draw, 2, &::Binding::Generated::Serve_0,
     &::Binding::Detail::InvokeMember<Canvas, &Canvas::Draw>},
    {2, "Clear", 1, nullptr, 0, &::Binding::Generated::Serve_1,
     &::Binding::Detail::InvokeMember<Canvas, &Canvas::Clear>},
    {3, "CountFilled", 2, kParameters_Canvas_CountFilled, 3, &::Binding::Generated::Serve_2,
     &::Binding::Detail::InvokeMember<Canvas, &Canvas::CountFilled>},
};

}  // namespace

Canvas_Dispatcher::Canvas_Dispatcher(std::shared_ptr<Canvas> implementation)
    : ComponentDispatcher(9001, "Canvas", 2, std::move(implementation), kMethods_Canvas) {}

void VisitDefaultRequest_Canvas_Draw(::Core::Catalogue::RequestVisitor visit_, void* context_) {
    ::Shapes::Outline outline{};
    std::uint32_t number{};
    const std::unique_ptr<::Binding::Request> request_ = MakeRequest_Canvas_Draw(outline, number);
    visit_(*request_, context_);
}

void VisitDefaultRequest_Canvas_Clear(::Core::Catalogue::RequestVisitor visit_, void* context_) {
    const std::unique_ptr<::Binding::Request> request_ = MakeRequest_Canvas_Clear();
    visit_(*request_, context_);
}

void VisitDefaultRequest_Canvas_CountFilled(::Core::Catalogue::RequestVisitor visit_, void* context_) {
    ::Shapes::Fill fill{};
    std::set<::Shapes::Point> corners{};
    std::uint32_t result{};
    const std::unique_ptr<::Binding::Request> request_ = MakeRequest_Canvas_CountFilled(fill, corners, result);
    visit_(*request_, context_);
}

}  // namespace Shapes

namespace Core::Generated {

std::unique_ptr<::ComponentManagement::Component>& CreateProxy_9001(
    const std::shared_ptr<::Binding::RequestChannel>& channel,
    std::unique_ptr<::ComponentManagement::Component>& slot) {
    return CreateProxyComponent<Shapes::Canvas_ProxyComponent>(channel, slot);
}

namespace {
const ComponentInfoRegistrar<ComponentInfoImpl<9001>> registrar9001;
}

}  // namespace Core::Generated
