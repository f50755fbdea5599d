// The packet reader over hostile bytes, driven the way generated readers drive it: a walk
// that enters elements, reads values of every form, asks for missing and Ordered elements
// and leaves again. Every failure must be a Common::Error; nothing may crash or leak.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <tessel_link/serialize/xml_packet_deserializer.h>

namespace {

using Serialization::Deserializer;
using Serialization::MetaInfo;

template <class T>
void TryRead(Deserializer& d, const MetaInfo& meta) {
    T value{};
    try {
        d.Read(meta, value);
    } catch (const Common::Error&) {
    }
}

void ReadAs(Deserializer& d, const MetaInfo& meta, unsigned form) {
    switch (form % 15) {
        case 0:
            TryRead<Serialization::Blob>(d, meta);
            break;
        case 1:
            TryRead<std::vector<unsigned char>>(d, meta);
            break;
        case 2:
            TryRead<std::uint16_t>(d, meta);
            break;
        case 3:
            TryRead<std::int16_t>(d, meta);
            break;
        case 4:
            TryRead<std::string>(d, meta);
            break;
        case 5:
            TryRead<std::int64_t>(d, meta);
            break;
        case 6:
            TryRead<std::int32_t>(d, meta);
            break;
        case 7:
            TryRead<std::uint64_t>(d, meta);
            break;
        case 8:
            TryRead<double>(d, meta);
            break;
        case 9:
            TryRead<std::uint32_t>(d, meta);
            break;
        case 10:
            TryRead<std::u16string>(d, meta);
            break;
        case 11:
            TryRead<Common::Error>(d, meta);
            break;
        case 12:
            TryRead<Common::Guid>(d, meta);
            break;
        case 13:
            TryRead<std::uint8_t>(d, meta);
            break;
        default:
            TryRead<bool>(d, meta);
            break;
    }
}

// Walks the open element; `choice` varies what is done with each child, from the input.
void Walk(Deserializer& d, const std::uint8_t* data, std::size_t size, std::size_t& step) {
    for (;;) {
        const MetaInfo next = d.NextMetaInfo();
        if (next.Name.empty()) {
            return;
        }
        const unsigned choice = size != 0 ? data[step++ % size] : 0;
        try {
            d.GetSubjectVersion();
        } catch (const Common::Error&) {
        }
        if (choice % 4 == 0) {
            // A structured element: enter, walk, leave.
            try {
                d.BeginReadMetaInfo(next);
            } catch (const Common::Error&) {
                continue;
            }
            Walk(d, data, size, step);
            try {
                d.FinishReadMetaInfo(next);
            } catch (const Common::Error&) {
                return;
            }
        } else if (choice % 4 == 1) {
            ReadAs(d, next, choice / 4);
        } else if (choice % 4 == 2) {
            // An element that is not there, found by search or (Ordered) not at all.
            ReadAs(d, MetaInfo(next.Name + "x", (choice & 8) != 0), choice / 16);
        } else {
            ReadAs(d, MetaInfo(next.Name, true), choice / 4);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Assertions report nothing and go on, as in a build without them.
    setenv("CORVANE_SAFE_ASSERT", "off", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Serialization::XMLPacketDeserializer d(data, size, 1);
    std::size_t step = 0;
    Walk(d, data, size, step);
    try {
        std::uint32_t value = 0;
        d.Read(MetaInfo("missing"), value);
    } catch (const Common::Error&) {
    }
    return 0;
}
