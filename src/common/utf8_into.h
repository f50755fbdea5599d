#pragma once

// UTF-8 decoded into a buffer that the caller keeps, so that a reader converting many short
// texts reuses one allocation instead of making a string for each.

#include <string>
#include <string_view>

namespace Common::Detail {

// Replaces `out` with `text` as UTF-16, each malformed sequence as U+FFFD.
void Utf8ToUtf16LenientInto(std::string_view text, std::u16string& out);

// Decodes `text` as above into `out`, which has room for text.size() units (no sequence
// yields more units than it has bytes); returns the end of what was written.
char16_t* Utf8ToUtf16LenientTo(std::string_view text, char16_t* out);

}  // namespace Common::Detail
