#pragma once

// UTF-8 decoded into a buffer that the caller keeps, so that a reader converting many short
// texts reuses one allocation instead of making a string for each.

#include <string>
#include <string_view>

namespace Common::Detail {

// Replaces `out` with `text` as UTF-16, each malformed sequence as U+FFFD.
void Utf8ToUtf16LenientInto(std::string_view text, std::u16string& out);

}  // namespace Common::Detail
