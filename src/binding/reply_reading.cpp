#include <tessel_link/binding/reply_reading.h>

#include <tessel_link/serialize/xml_packet_deserializer.h>

namespace Binding {

#define TL_FORWARD_READ(Type)                                                                 \
    Serialization::Deserializer& ReplyResultCapture::Read(const Serialization::MetaInfo& meta, \
                                                          Type& value) {                      \
        inner_.Read(meta, value);                                                             \
        return *this;                                                                         \
    }
TL_FORWARD_READ(Serialization::Blob)
TL_FORWARD_READ(std::vector<unsigned char>)
TL_FORWARD_READ(std::uint16_t)
TL_FORWARD_READ(std::int16_t)
TL_FORWARD_READ(std::string)
TL_FORWARD_READ(std::int64_t)
TL_FORWARD_READ(std::int32_t)
TL_FORWARD_READ(std::uint64_t)
TL_FORWARD_READ(double)
TL_FORWARD_READ(std::uint32_t)
TL_FORWARD_READ(std::u16string)
TL_FORWARD_READ(Common::Guid)
TL_FORWARD_READ(std::uint8_t)
TL_FORWARD_READ(bool)
#undef TL_FORWARD_READ

Serialization::Deserializer& ReplyResultCapture::Read(const Serialization::MetaInfo& meta,
                                                      Common::Error& value) {
    inner_.Read(meta, value);
    // Depth 1 is inside the reply element: a "result" deeper down is some record's member.
    if (!captured_ && depth_ == 1 && meta.Name == "result") {
        result_ = value;
        captured_ = true;
    }
    return *this;
}

Serialization::MetaInfo ReplyResultCapture::NextMetaInfo() {
    return inner_.NextMetaInfo();
}

bool ReplyResultCapture::NextIs(const Serialization::MetaInfo& meta) {
    return inner_.NextIs(meta);
}

std::size_t ReplyResultCapture::CountNext(const Serialization::MetaInfo& meta) {
    return inner_.CountNext(meta);
}

void ReplyResultCapture::BeginReadMetaInfo(const Serialization::MetaInfo& meta) {
    inner_.BeginReadMetaInfo(meta);
    ++depth_;
}

void ReplyResultCapture::FinishReadMetaInfo(const Serialization::MetaInfo& meta) {
    --depth_;
    inner_.FinishReadMetaInfo(meta);
}

std::uint64_t ReplyResultCapture::GetSubjectVersion() {
    return inner_.GetSubjectVersion();
}

void* ReplyResultCapture::QueryType(const char* typeName) {
    return inner_.QueryType(typeName);
}

Common::Error ReadReplyPacket(Request& request, std::span<const unsigned char> packet) {
    try {
        Serialization::XMLPacketDeserializer reader(packet.data(), packet.size(),
                                                    kRootSubjectVersion);
        ReplyResultCapture capture(reader);
        request.ReadReply(capture);
        return capture.Result();
    } catch (const Common::Error& error) {
        return error;
    }
}

}  // namespace Binding
