#pragma once

// Not API: the name of the library's own way to the records behind a Common::Error, which
// the error befriends. It is defined inside the library; hosts read errors through
// Common::Error.

namespace Common::Detail {
struct ErrorAccess;
}  // namespace Common::Detail
