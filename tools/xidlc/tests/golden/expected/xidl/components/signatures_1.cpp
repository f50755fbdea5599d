// Generated from the component definitions by tools/xidlc; edit the definitions instead.

#include "xidl/components/signatures.h"

namespace Binding::Generated {

std::unique_ptr<Request> CreateRequest_1(const MethodDescriptor& method) {
    return Detail::RequestImpl<void()>::Create(method);
}

}  // namespace Binding::Generated
