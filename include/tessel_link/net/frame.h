#pragma once

// The frame that carries one call over a stream connection: a fixed header of 32 bytes,
// then the packet. A request frame carries the request packet, its reply frame the reply
// packet, or, with kFlagFailure, the serialized form of the error that kept the other side
// from serving the call. All numbers are little-endian.
//
//   offset  size  field
//        0     4  magic "TLNK"
//        4     2  format version (kFrameVersion)
//        6     2  flags (kFlagReply, kFlagFailure; other bits must be 0)
//        8     4  component ID
//       12     4  method number
//       16     8  interface version of the caller
//       24     4  packet category (low 32 bits of the request's category)
//       28     4  payload length, at most the reader's limit
//
// A reply repeats the component, method, version and category of its request.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <tessel_link/net/export.h>

namespace Net {

inline constexpr std::size_t kFrameHeaderSize = 32;  // bytes of the fixed header
inline constexpr std::array<unsigned char, 4> kFrameMagic = {'T', 'L', 'N', 'K'};  // first bytes of every frame
inline constexpr std::uint16_t kFrameVersion = 1;  // the format this side writes and reads
inline constexpr std::uint16_t kFlagReply = 0x1;  // the frame answers a request
inline constexpr std::uint16_t kFlagFailure = 0x2;  // the payload is a serialized error
inline constexpr std::uint16_t kKnownFlags = kFlagReply | kFlagFailure;  // every flag bit in use
// The longest payload a reader accepts unless told otherwise: 64 MiB.
inline constexpr std::uint32_t kDefaultMaxFrameLength = 64u << 20;

// The fields of a frame's fixed header, in the order they travel.
struct FrameHeader {
    std::uint16_t Version = kFrameVersion;  // format version
    std::uint16_t Flags = 0;  // kFlagReply, kFlagFailure
    std::uint32_t ComponentId = 0;  // the component called
    std::uint32_t MethodNumber = 0;  // the method called
    std::uint64_t InterfaceVersion = 0;  // the caller's version of the interface
    std::uint32_t Category = 0;  // low 32 bits of the request's category
    std::uint32_t PayloadLength = 0;  // bytes of packet that follow

    bool IsReply() const { return (Flags & kFlagReply) != 0; }  // a reply frame
    bool IsFailure() const { return (Flags & kFlagFailure) != 0; }  // carries an error
    friend bool operator==(const FrameHeader&, const FrameHeader&) = default;  // field by field
};

// One whole frame: its header and its packet.
struct Frame {
    FrameHeader Header;  // the fixed header
    std::vector<unsigned char> Payload;  // the packet, or the serialized error
};

// What reading a frame came to.
enum class FrameStatus {
    Complete,     // a whole frame was taken
    NeedMore,     // the bytes so far are the start of a frame
    BadMagic,     // not a frame at all: the stream cannot be trusted any further
    BadVersion,   // a frame of a format this side does not speak
    BadFlags,     // flag bits this side does not know
    TooLong,      // a payload beyond the reader's limit
};

// The 32 header bytes of `header`.
TL_NET_API std::array<unsigned char, kFrameHeaderSize> EncodeHeader(const FrameHeader& header);

// A whole frame: the header (with PayloadLength set from `payload`) and the payload.
TL_NET_API std::vector<unsigned char> EncodeFrame(FrameHeader header,
                                                  std::span<const unsigned char> payload);

// Reads a header from the start of `bytes` and checks it against `maxPayload`; NeedMore
// when fewer than 32 bytes are given. The magic is checked first, then the version, the
// flags and the length.
TL_NET_API FrameStatus ParseHeader(std::span<const unsigned char> bytes, std::uint32_t maxPayload,
                                   FrameHeader& header);

// Cuts frames out of a byte stream that arrives in pieces of any size. Once it has met a
// bad header it stays failed, since the stream has lost its framing.
class TL_NET_API FrameReader {
public:
    // A reader that refuses payloads longer than `maxPayload`.
    explicit FrameReader(std::uint32_t maxPayload = kDefaultMaxFrameLength);

    // Space for at least `atLeast` more bytes, to read into; then Commit what was read.
    std::span<unsigned char> Prepare(std::size_t atLeast);
    // Takes `count` bytes read into the space that Prepare gave as fed.
    void Commit(std::size_t count);
    // Prepare, copy and Commit in one.
    void Feed(std::span<const unsigned char> bytes);

    // Takes the next whole frame out of the bytes fed so far.
    FrameStatus Next(Frame& frame);

    // Bytes fed and not yet taken as frames.
    std::size_t Buffered() const { return end_ - begin_; }
    // The header of the frame under way, once its 32 bytes have come (for error replies).
    const FrameHeader* PendingHeader() const { return havePending_ ? &pending_ : nullptr; }
    // How many payload bytes a partial frame still lacks; 0 between frames.
    std::size_t Missing() const;
    // Forgets every byte, also a failure.
    void Reset();

private:
    void Compact();

    std::uint32_t maxPayload_;
    std::vector<unsigned char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    FrameHeader pending_;
    bool havePending_ = false;
    FrameStatus failed_ = FrameStatus::NeedMore;
};

}  // namespace Net
