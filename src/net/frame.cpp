#include <tessel_link/net/frame.h>

#include <algorithm>
#include <cstring>

namespace Net {

namespace {

template <class T>
void Put(unsigned char* at, T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        at[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

template <class T>
T Get(const unsigned char* at) {
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= static_cast<T>(static_cast<T>(at[i]) << (8 * i));
    }
    return value;
}

// Reads grow the buffer by at least this much, so that a stream of small pieces does not
// reallocate for each of them; a lying length never reserves more than has arrived.
constexpr std::size_t kReadChunk = 64 * 1024;

}  // namespace

std::array<unsigned char, kFrameHeaderSize> EncodeHeader(const FrameHeader& header) {
    std::array<unsigned char, kFrameHeaderSize> out{};
    std::copy(kFrameMagic.begin(), kFrameMagic.end(), out.begin());
    Put(&out[4], header.Version);
    Put(&out[6], header.Flags);
    Put(&out[8], header.ComponentId);
    Put(&out[12], header.MethodNumber);
    Put(&out[16], header.InterfaceVersion);
    Put(&out[24], header.Category);
    Put(&out[28], header.PayloadLength);
    return out;
}

std::vector<unsigned char> EncodeFrame(FrameHeader header, std::span<const unsigned char> payload) {
    header.PayloadLength = static_cast<std::uint32_t>(payload.size());
    std::vector<unsigned char> out(kFrameHeaderSize + payload.size());
    const auto head = EncodeHeader(header);
    std::copy(head.begin(), head.end(), out.begin());
    std::copy(payload.begin(), payload.end(), out.begin() + kFrameHeaderSize);
    return out;
}

FrameStatus ParseHeader(std::span<const unsigned char> bytes, std::uint32_t maxPayload,
                        FrameHeader& header) {
    // The magic is judged on what has come so far, so that garbage fails at once and not
    // only after 32 bytes of it.
    const std::size_t magicSeen = std::min(bytes.size(), kFrameMagic.size());
    if (!std::equal(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(magicSeen),
                    kFrameMagic.begin())) {
        return FrameStatus::BadMagic;
    }
    if (bytes.size() < kFrameHeaderSize) {
        return FrameStatus::NeedMore;
    }
    const unsigned char* at = bytes.data();
    FrameHeader read;
    read.Version = Get<std::uint16_t>(at + 4);
    read.Flags = Get<std::uint16_t>(at + 6);
    read.ComponentId = Get<std::uint32_t>(at + 8);
    read.MethodNumber = Get<std::uint32_t>(at + 12);
    read.InterfaceVersion = Get<std::uint64_t>(at + 16);
    read.Category = Get<std::uint32_t>(at + 24);
    read.PayloadLength = Get<std::uint32_t>(at + 28);
    header = read;
    if (read.Version != kFrameVersion) {
        return FrameStatus::BadVersion;
    }
    if ((read.Flags & ~kKnownFlags) != 0) {
        return FrameStatus::BadFlags;
    }
    if (read.PayloadLength > maxPayload) {
        return FrameStatus::TooLong;
    }
    return FrameStatus::Complete;
}

FrameReader::FrameReader(std::uint32_t maxPayload) : maxPayload_(maxPayload) {}

void FrameReader::Compact() {
    if (begin_ == 0) {
        return;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
}

std::span<unsigned char> FrameReader::Prepare(std::size_t atLeast) {
    if (buffer_.size() - end_ < atLeast) {
        Compact();
    }
    if (buffer_.size() - end_ < atLeast) {
        buffer_.resize(end_ + std::max(atLeast, kReadChunk));
    }
    return {buffer_.data() + end_, buffer_.size() - end_};
}

void FrameReader::Commit(std::size_t count) {
    end_ = std::min(end_ + count, buffer_.size());
}

void FrameReader::Feed(std::span<const unsigned char> bytes) {
    const std::span<unsigned char> space = Prepare(bytes.size());
    std::copy(bytes.begin(), bytes.end(), space.begin());
    Commit(bytes.size());
}

std::size_t FrameReader::Missing() const {
    if (!havePending_) {
        return 0;
    }
    const std::size_t have = Buffered() - kFrameHeaderSize;
    return pending_.PayloadLength > have ? pending_.PayloadLength - have : 0;
}

FrameStatus FrameReader::Next(Frame& frame) {
    if (failed_ != FrameStatus::NeedMore) {
        return failed_;
    }
    if (!havePending_) {
        const FrameStatus status =
            ParseHeader({buffer_.data() + begin_, Buffered()}, maxPayload_, pending_);
        if (status == FrameStatus::NeedMore) {
            return status;
        }
        if (status != FrameStatus::Complete) {
            failed_ = status;
            havePending_ = status != FrameStatus::BadMagic;
            return status;
        }
        havePending_ = true;
    }
    if (Buffered() - kFrameHeaderSize < pending_.PayloadLength) {
        return FrameStatus::NeedMore;
    }
    frame.Header = pending_;
    const unsigned char* payload = buffer_.data() + begin_ + kFrameHeaderSize;
    frame.Payload.assign(payload, payload + pending_.PayloadLength);
    begin_ += kFrameHeaderSize + pending_.PayloadLength;
    havePending_ = false;
    if (begin_ == end_) {
        begin_ = end_ = 0;
    }
    return FrameStatus::Complete;
}

void FrameReader::Reset() {
    begin_ = end_ = 0;
    havePending_ = false;
    failed_ = FrameStatus::NeedMore;
}

}  // namespace Net
