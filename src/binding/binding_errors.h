#pragma once

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>

namespace Binding::Detail {

// "The operation is not supported."
inline constexpr std::uint32_t kNotSupported = 0x4000e;
// Row of "The functionality is not supported yet."
inline constexpr std::uint32_t kNotSupportedYetRow = 487;

inline Common::Error NotAvailableYet(const Common::ErrorOrigin& origin) {
    return Common::Error(origin, kNotSupported, Common::GetMessageRow(kNotSupportedYetRow));
}

}  // namespace Binding::Detail
