#pragma once

// The JSON side of every remote method and record, generated from the definitions
// (tools/xidlc/xidl_json_calls.py): what `tessel call` and `tessel describe` use.

#include <cstdint>
#include <string>
#include <vector>

#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/error.h>
#include <tessel_link/facade/entry_points.h>

#include "json_mapping.h"

namespace tessel_cli {

// Calls one method through its proxy over `channel`: in arguments from `in` by parameter
// name (the ones it lacks keep their defaults), out arguments into `out` by name when the
// call succeeded. Throws JsonMismatch for an argument of the wrong form.
using JsonCallFunction = Common::Error (*)(const Core::ChannelPointer& channel, JsonReader& in,
                                           JsonWriter& out);

struct JsonCall {
    std::uint32_t Component;
    std::uint32_t Method;
    JsonCallFunction Call;
};

// A default-constructed record written into `out` as the member "value".
using JsonDescribeFunction = void (*)(JsonWriter& out);

struct JsonRecord {
    const char* Name;  // with its namespace
    JsonDescribeFunction Describe;
};

const std::vector<JsonCall>& JsonCalls();
const std::vector<JsonRecord>& JsonRecords();

// What the generated functions share.
template <class X>
X* Open(const Core::ChannelPointer& channel, std::uint32_t id, Core::ComponentSlot& slot) {
    Core::ChannelPointer shared = channel;
    if (CreateProxy(id, &shared, &slot) != Core::ProxyCreated || slot == nullptr) {
        return nullptr;
    }
    return Common::QueryInterface<X>(*slot);
}

inline Common::Error NoInterface(std::uint32_t id) {
    const std::string text = "No proxy of the component " + std::to_string(id) + " could be made.";
    return Common::Error(TL_ORIGIN("tessel call"), 0xb9000b, text.c_str());
}

template <class T>
void DescribeDefault(JsonWriter& out) {
    T value{};
    out.Put("value", value);
}

}  // namespace tessel_cli
