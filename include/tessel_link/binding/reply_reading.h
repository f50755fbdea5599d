#pragma once

// What a host's channel needs to finish a call: the packet constants both ends use, and the
// reading of a reply packet into the request's out arguments and the call's outcome.

#include <cstddef>
#include <cstdint>
#include <span>

#include <tessel_link/binding/request.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>

namespace Binding {

// The packet format revision of both packets of a call.
inline constexpr std::uint32_t kPacketFormatRevision = 2;
// The subject version in force at the root of both packets: none, so that every versioned
// record states its own.
inline constexpr std::uint32_t kRootSubjectVersion = 0;

// Passes every read through to a reply's deserializer and keeps the value read as "result"
// directly inside the reply element. Request::ReadReply reads that value but does not hand
// it out; a channel that reads the reply through this wrapper gets it from Result().
class TL_API ReplyResultCapture final : public Serialization::Deserializer {
public:
    // Reads through `inner`.
    explicit ReplyResultCapture(Serialization::Deserializer& inner) : inner_(inner) {}

    // True once "result" was read.
    bool Captured() const noexcept { return captured_; }
    // The "result" read; success until then.
    const Common::Error& Result() const noexcept { return result_; }

    // Reads through to the reply's deserializer, keeping "result" when it passes.
    Deserializer& Read(const Serialization::MetaInfo& meta, Serialization::Blob& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::vector<unsigned char>& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint16_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int16_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::string& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int64_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int32_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint64_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, double& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint32_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::u16string& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, Common::Guid& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint8_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, bool& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, Common::Error& value) override;
    Serialization::MetaInfo NextMetaInfo() override;
    // Asked of the reply's deserializer too: its answers spare a sequence of records one
    // MetaInfo per item and let the sequence reserve room for all of them at once.
    bool NextIs(const Serialization::MetaInfo& meta) override;
    std::size_t CountNext(const Serialization::MetaInfo& meta) override;
    void BeginReadMetaInfo(const Serialization::MetaInfo& meta) override;
    void FinishReadMetaInfo(const Serialization::MetaInfo& meta) override;
    std::uint64_t GetSubjectVersion() override;
    void* QueryType(const char* typeName) override;

private:
    Serialization::Deserializer& inner_;
    Common::Error result_;
    int depth_ = 0;
    bool captured_ = false;
};

// Reads a reply packet (XML text or binary, as a peer sent it) into `request`'s out
// arguments and returns the outcome of the call: the reply's "result", or the error that
// reading the packet raised (a packet that can't be read, a reply element or "result" that
// is absent). Out arguments the reply lacks are tolerated; with a failing "result" none of
// them is touched. This is what a channel's Run returns.
TL_API Common::Error ReadReplyPacket(Request& request, std::span<const unsigned char> packet);

}  // namespace Binding
