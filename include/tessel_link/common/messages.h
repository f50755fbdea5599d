#pragma once

// The module's message table: the texts behind error codes.

#include <cstddef>
#include <cstdint>

#include <tessel_link/export.h>

namespace Common {

// The module's message table: 644 rows of UTF-16 text. A message identifier is the byte
// position of the row's index entry, 8 + 4 * row.
inline constexpr std::uint32_t kMessageRowCount = 644;
inline constexpr std::uint32_t kMessageSignature = 646;

// The identifier of a row.
constexpr std::uint32_t MessageId(std::uint32_t row) { return 8 + 4 * row; }

// The text of a message, or null when no table could be loaded. The table is loaded on the
// first lookup (a replacement from the module's data archive, else the built-in one) and
// kept for the process. The identifier is not checked: it must be one of this build.
TL_API const char16_t* GetMessageText(std::uint32_t id);

// The text of a row; null for a row out of range.
TL_API const char16_t* GetMessageRow(std::uint32_t row);

// The block of the table in use (after loading it if needed).
struct MessageTableBlock {
    const unsigned char* Data = nullptr;  // the table's bytes
    std::size_t Size = 0;  // their number
};
TL_API MessageTableBlock GetMessageTable();  // the block in use, loading the table if needed

// The built-in block, whatever table is in use.
TL_API MessageTableBlock GetBuiltInMessageTable();

// True when the block has the shape of a table of this build: size at least 8, the first
// word equal to the size, the second the signature.
TL_API bool IsValidMessageTable(const void* data, std::size_t size);

}  // namespace Common
