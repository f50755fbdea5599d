// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

namespace Binding::Generated {

std::unique_ptr<Request> CreateRequest_2(const MethodDescriptor& method, const ::Binding::Detail::Argument<::Shapes::Fill>& a0, const ::Binding::Detail::Argument<const std::set<::Shapes::Point>&>& a1, const ::Binding::Detail::Argument<std::uint32_t&>& a2) {
    return Detail::RequestImpl<void(::Shapes::Fill, const std::set<::Shapes::Point>&, std::uint32_t&)>::Create(method, a0, a1, a2);
}

}  // namespace Binding::Generated
