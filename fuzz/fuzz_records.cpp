// Generated record readers over hostile packets. The first two bytes choose the type, the
// rest is the packet. A failed read must be a Common::Error; a record that was read must
// write a packet that reads back and writes the same bytes again.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/catalogue.h>

namespace {

using Serialization::MetaInfo;
using Serialization::Xidl::TypeInfo;

std::vector<unsigned char> Write(const TypeInfo& type, const void* record) {
    auto s = Serialization::CreateXMLPacketSerializer(2, 0);
    type.Write(*s, MetaInfo("Root"), record);
    std::vector<unsigned char> bytes;
    s->Finish(bytes);
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Assertions report nothing and go on, as in a build without them.
    setenv("CORVANE_SAFE_ASSERT", "off", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    const auto types = Serialization::Xidl::CheckedInTypes();
    const TypeInfo& type = *types[(data[0] | data[1] << 8) % types.size()];
    const std::shared_ptr<void> record = type.Create();
    try {
        auto d = Serialization::CreateXMLPacketDeserializer(data + 2, size - 2, 0);
        type.Read(*d, MetaInfo("Root"), record.get());
    } catch (const Common::Error&) {
        return 0;
    }
    const std::vector<unsigned char> once = Write(type, record.get());
    const std::shared_ptr<void> again = type.Create();
    try {
        auto d = Serialization::CreateXMLPacketDeserializer(once.data(), once.size(), 0);
        type.Read(*d, MetaInfo("Root"), again.get());
    } catch (const Common::Error&) {
        std::abort();  // a record we wrote does not read back
    }
    if (Write(type, again.get()) != once) {
        std::abort();  // reading and writing again changed the record
    }
    return 0;
}
