#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include <cstdint>
#include <memory>

#include <tessel_link/binding/request.h>
#include <tessel_link/binding/request_channel.h>
#include <tessel_link/components/shapes.h>

#include "facade/component_traits.h"
#include "facade/proxy_component.h"

template <>
struct Core::ComponentTraits<9001> {
    static constexpr const char* kInterfaceName = "Canvas";
    static constexpr std::uint32_t kInterfaceVersion = 2;
    static constexpr std::int32_t kMethodCount = 3;
    static constexpr bool kClassFlag = false;
    static constexpr std::uint32_t kOptionFlag = 0;
    static constexpr MethodInfo kMethodInfo{0, 2};
};

namespace Shapes {

class Canvas_Proxy : public Canvas {
public:
    explicit Canvas_Proxy(std::shared_ptr<::Binding::RequestChannel> channel);
    ~Canvas_Proxy() override;

    ::Common::Error Draw(const ::Shapes::Outline& outline, std::uint32_t& number) override;
    ::Common::Error Clear() override;
    ::Common::Error CountFilled(::Shapes::Fill fill, const std::set<::Shapes::Point>& corners, std::uint32_t& result) override;

protected:
    const std::shared_ptr<::Binding::RequestChannel>& Channel() const { return channel_; }

private:
    std::shared_ptr<::Binding::RequestChannel> channel_;
};

class Canvas_ProxyComponent final
    : public ::Core::ProxyComponent<Canvas_Proxy, Canvas, 9001> {
public:
    using ProxyComponent::ProxyComponent;
};

std::unique_ptr<::Binding::Request> MakeRequest_Canvas_Draw(const ::Shapes::Outline& outline, std::uint32_t& number);
std::unique_ptr<::Binding::Request> MakeRequest_Canvas_Clear();
std::unique_ptr<::Binding::Request> MakeRequest_Canvas_CountFilled(::Shapes::Fill fill, const std::set<::Shapes::Point>& corners, std::uint32_t& result);

}  // namespace Shapes
