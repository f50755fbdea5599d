#pragma once

// Helpers for tests of the generated records: packets in and out, and a watch on the
// assertions and logged errors that codecs raise.

#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/records.h>

#include "serialize/packet_text.h"

namespace xidl_test {

// The body of the packet in which `value` is written as the member `name`.
template <class T>
std::string Body(const T& value, const char* name = "Root") {
    auto s = Serialization::CreateXMLPacketSerializer(2, 0);
    Serialization::WriteMember(*s, Serialization::MetaInfo(name), value);
    return packet_test::Body(*s);
}

// Reads the member `name` from a packet with the given body.
template <class T>
T Read(const std::string& body, const char* name = "Root", std::uint32_t version = 0) {
    const std::string packet = std::string(packet_test::kBom) + "<XML_SERIALIZER>" + body + "</XML_SERIALIZER>";
    auto d = Serialization::CreateXMLPacketDeserializer(packet.data(), packet.size(), version);
    T value{};
    Serialization::ReadMember(*d, Serialization::MetaInfo(name), value);
    return value;
}

template <class T>
T RoundTrip(const T& value) {
    return Read<T>(Body(value));
}

// Records the assertions and the logged errors of its lifetime.
class Watch {
public:
    Watch() {
        current_ = this;
        previousObserver_ = Common::SetAssertionObserver(&OnAssertion);
        previousThreshold_ = Common::GetTraceThreshold();
        Common::SetTraceThreshold(0);
        Common::SetTraceErrorSink(&OnError);
    }
    ~Watch() {
        Common::SetTraceErrorSink(nullptr);
        Common::SetTraceThreshold(previousThreshold_);
        Common::SetAssertionObserver(previousObserver_);
        current_ = nullptr;
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::vector<std::string> assertions;
    std::vector<Common::Error> errors;

private:
    static void OnAssertion(const char* expression, const char*, int) {
        current_->assertions.emplace_back(expression);
    }
    static void OnError(int, const Common::Error& error) { current_->errors.push_back(error); }

    static inline Watch* current_ = nullptr;
    Common::AssertionObserver previousObserver_;
    int previousThreshold_;
};

}  // namespace xidl_test
