#pragma once

// Little-endian fields of the archive's records.

#include <cstdint>
#include <cstring>

namespace File::zip_format {

inline std::uint16_t U16(const unsigned char* p) noexcept {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t U32(const unsigned char* p) noexcept {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}

// End of central directory record.
inline constexpr std::uint32_t kEndSignature = 0x06054b50;
inline constexpr std::size_t kEndSize = 22;
inline constexpr std::size_t kEndDisk = 4;
inline constexpr std::size_t kEndDirectoryDisk = 6;
inline constexpr std::size_t kEndEntriesOnDisk = 8;
inline constexpr std::size_t kEndEntries = 10;
inline constexpr std::size_t kEndDirectorySize = 12;
inline constexpr std::size_t kEndDirectoryOffset = 16;

// Central directory record; its signature is not examined.
inline constexpr std::size_t kCentralSize = 46;
inline constexpr std::size_t kCentralMethod = 10;
inline constexpr std::size_t kCentralCrc = 16;
inline constexpr std::size_t kCentralCompressed = 20;
inline constexpr std::size_t kCentralUncompressed = 24;
inline constexpr std::size_t kCentralNameLength = 28;
inline constexpr std::size_t kCentralExtraLength = 30;
inline constexpr std::size_t kCentralCommentLength = 32;
inline constexpr std::size_t kCentralLocalOffset = 42;

// The whole length of the central record at `p`: fixed part, name, extra and comment.
inline std::uint32_t CentralRecordLength(const unsigned char* p) noexcept {
    return static_cast<std::uint32_t>(kCentralSize) + U16(p + kCentralNameLength) +
           U16(p + kCentralExtraLength) + U16(p + kCentralCommentLength);
}

// Local file header.
inline constexpr std::uint32_t kLocalSignature = 0x04034b50;
inline constexpr std::size_t kLocalSize = 30;
inline constexpr std::size_t kLocalFlags = 6;
inline constexpr std::size_t kLocalMethod = 8;
inline constexpr std::size_t kLocalCrc = 14;
inline constexpr std::size_t kLocalCompressed = 18;
inline constexpr std::size_t kLocalUncompressed = 22;

// Values that announce a ZIP64 extra field with the real numbers. Archives in that form are
// refused: read as plain numbers, such a size would hand out the bytes of other members.
inline constexpr std::uint32_t kZip64Marker32 = 0xffffffffu;
inline constexpr std::uint16_t kZip64Marker16 = 0xffffu;
inline constexpr std::size_t kLocalNameLength = 26;
inline constexpr std::size_t kLocalExtraLength = 28;
// Flag bit 3: CRC and sizes follow the data in a descriptor; the header's are zero.
inline constexpr std::uint16_t kFlagDataDescriptor = 0x0008;

inline constexpr std::uint16_t kMethodStored = 0;
inline constexpr std::uint16_t kMethodDeflated = 8;

}  // namespace File::zip_format
