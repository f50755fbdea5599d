#pragma once

#include <string_view>

namespace Binding {

// The binding unit's own identifier. No operation reads it and it never goes into a packet;
// its text is kept exactly as it stands, letter case included.
inline constexpr std::u16string_view kBindingUnitGuid = u"{FD575C6D-AA49-4e13-A969-5D3B0FAE2C7C}";

}  // namespace Binding
