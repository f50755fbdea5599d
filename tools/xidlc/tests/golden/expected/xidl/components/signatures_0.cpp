// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

namespace Binding::Generated {

std::unique_ptr<Request> CreateRequest_0(const MethodDescriptor& method, const ::Binding::Detail::Argument<const ::Shapes::Outline&>& a0, const ::Binding::Detail::Argument<std::uint32_t&>& a1) {
    return Detail::RequestImpl<void(const ::Shapes::Outline&, std::uint32_t&)>::Create(method, a0, a1);
}

}  // namespace Binding::Generated
