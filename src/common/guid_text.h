#pragma once

// GUIDs read from wide text without narrowing it first, for readers of many of them.

#include <string_view>

#include <tessel_link/common/guid.h>

namespace Common::Detail {

// What FromString gives for the low bytes of the units of `text` (the narrowing with which
// narrow strings are written), when they begin with the 8-4-4-4-12 form that every writer
// produces; false, with `guid` unchanged, for any other text, which is left to FromString.
bool ParseCanonicalGuid(std::u16string_view text, Guid& guid);

}  // namespace Common::Detail
