#pragma once

// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/optional.h>
#include <tessel_link/common/non_copyable.h>
#include <tessel_link/export.h>
#include <tessel_link/facade/make_proxy.h>
#include <tessel_link/xidl/records/shapes.h>
#include <tessel_link/components/orderings.h>

namespace Shapes {

// Draws shapes on a remote canvas.
// Component 9001, interface version 2.
class TL_API Canvas {
public:
    virtual ~Canvas();

    // What Core::MakeProxy<Canvas> and the catalogue know the component by.
    static constexpr std::uint32_t kComponentId = 9001;
    static constexpr const char* kInterfaceName = "Canvas";  // the interface's name
    static constexpr std::uint32_t kInterfaceVersion = 2;  // the version proxies speak

    // Draws one outline and answers the number it got.
    // Method 1.
    virtual ::Common::Error Draw(const ::Shapes::Outline& outline, std::uint32_t& number) = 0;
    // Method 2.
    virtual ::Common::Error Clear() = 0;
    // Method 3, since version 2.
    virtual ::Common::Error CountFilled(::Shapes::Fill fill, const std::set<::Shapes::Point>& corners, std::uint32_t& result) = 0;
};

// A base for fakes of Canvas in tests: every method it does not override answers
// Core::kErrorNotImplemented.
class Canvas_Unimplemented : public Canvas {
public:
    ::Common::Error Draw(const ::Shapes::Outline&, std::uint32_t&) override {
        return ::Core::NotImplementedError("Shapes::Canvas::Draw");
    }
    ::Common::Error Clear() override {
        return ::Core::NotImplementedError("Shapes::Canvas::Clear");
    }
    ::Common::Error CountFilled(::Shapes::Fill, const std::set<::Shapes::Point>&, std::uint32_t&) override {
        return ::Core::NotImplementedError("Shapes::Canvas::CountFilled");
    }
};

// The service side of component 9001: serves the calls of Canvas proxies with an
// implementation of the host's, for example through a Binding::LoopbackChannel.
class TL_API Canvas_Dispatcher final : public ::Binding::ComponentDispatcher<Canvas> {
public:
    // Serves the calls with `implementation`, which must allow calls from many threads.
    explicit Canvas_Dispatcher(std::shared_ptr<Canvas> implementation);
};

}  // namespace Shapes
