#pragma once

#include <cstdint>

#include <tessel_link/common/error.h>

namespace Binding::Detail {

// The failures of calls that reach no service method. Each names what was asked for in
// numbered arguments: the component ID as "0", the method number as "1" and, for a version
// refused, the caller's interface version as "2".
Common::Error UnknownComponentError(std::uint32_t componentId);
Common::Error UnknownMethodError(std::uint32_t componentId, std::uint32_t methodNumber);
Common::Error VersionNotSupportedError(std::uint32_t componentId, std::uint32_t methodNumber,
                                       std::uint64_t interfaceVersion);

}  // namespace Binding::Detail
