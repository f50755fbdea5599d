#pragma once

// Helpers for tests that look at packet bytes.

#include <string>
#include <vector>

#include <tessel_link/serialize/xml_packet_serializer.h>

namespace packet_test {

inline constexpr char kBom[] = "\xEF\xBB\xBF";

// The whole packet of `s` as a string.
inline std::string Finish(Serialization::Serializer& s) {
    std::vector<unsigned char> bytes;
    s.Finish(bytes);
    return std::string(bytes.begin(), bytes.end());
}

// A packet of `body`: the frame that Body() takes off, put around it.
inline std::string Packet(const std::string& body) {
    return std::string(kBom) + "<XML_SERIALIZER>" + body + "</XML_SERIALIZER>";
}

// The packet with its frame (byte order mark, root start and end tag) taken off.
inline std::string Body(Serialization::Serializer& s) {
    const std::string packet = Finish(s);
    const std::string start = std::string(kBom) + "<XML_SERIALIZER>";
    const std::string end = "</XML_SERIALIZER>";
    if (packet.compare(0, start.size(), start) != 0 || packet.size() < start.size() + end.size() ||
        packet.compare(packet.size() - end.size(), end.size(), end) != 0) {
        return "<<bad frame>>" + packet;
    }
    return packet.substr(start.size(), packet.size() - start.size() - end.size());
}

}  // namespace packet_test
