// Both readers of a call over hostile bytes: a service dispatcher reading a request packet,
// and a proxy's request reading a reply packet. The first byte picks the method; the rest is
// the packet. Every failure must be a Common::Error; nothing may crash or leak.

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/serialize/credentials.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

namespace {

using Binding::ArgumentKind;
using Names = std::map<std::string, std::u16string>;
using Logons = std::vector<Core::Optional<AccessManagement::Logon>>;

// Methods with the argument forms that calls use most: scalars, strings, an obscured
// secret, a map, optionals of credentials in a sequence.
class Probe {
public:
    virtual ~Probe() = default;
    virtual Common::Error Ping() = 0;
    virtual Common::Error Get(const std::string& host, std::uint32_t size, std::string& data) = 0;
    virtual Common::Error Open(const std::u16string& password, Names& names) = 0;
    virtual Common::Error Logon(const Logons& logons, std::uint64_t& count) = 0;
};

class Service final : public Probe {
public:
    Common::Error Ping() override { return Common::ErrorSuccess; }
    Common::Error Get(const std::string& host, std::uint32_t size, std::string& data) override {
        data = host.substr(0, size % 64);
        return Common::ErrorSuccess;
    }
    Common::Error Open(const std::u16string& password, Names& names) override {
        names.emplace("password", password);
        return Common::ErrorSuccess;
    }
    Common::Error Logon(const Logons& logons, std::uint64_t& count) override {
        count = logons.size();
        return Common::ErrorSuccess;
    }
};

class ProbeDispatcher final : public Binding::ComponentDispatcher<Probe> {
public:
    ProbeDispatcher()
        : ComponentDispatcher(
              900, "Probe", 2, std::make_shared<Service>(),
              {Binding::Serve<Probe, &Probe::Ping>(1, "Ping", 1),
               Binding::Serve<Probe, &Probe::Get>(2, "Get", 1,
                                                  {{"host", ArgumentKind{0}},
                                                   {"size", ArgumentKind{0}},
                                                   {"data", ArgumentKind{2}}}),
               Binding::Serve<Probe, &Probe::Open>(
                   3, "Open", 1, {{"password", ArgumentKind{4}}, {"names", ArgumentKind{3}}}),
               Binding::Serve<Probe, &Probe::Logon>(
                   4, "Logon", 2, {{"logons", ArgumentKind{1}}, {"count", ArgumentKind{2}}})}) {}
};

Binding::MethodDescriptor Describe(std::uint32_t number, const char* name) {
    Binding::MethodDescriptor method;
    method.ComponentID = 900;
    method.MethodNumber = number;
    method.ComponentName = "Probe";
    method.MethodName = name;
    method.InterfaceVersion = 2;
    method.Category = Binding::kAllCategories;
    return method;
}

void ServeRequest(std::uint32_t method, std::uint64_t version, const std::uint8_t* data,
                  std::size_t size) {
    static const ProbeDispatcher dispatcher;
    Serialization::XMLPacketDeserializer request(data, size, 0);
    Serialization::XMLPacketSerializer reply(2, 0xffffffff);
    try {
        dispatcher.Serve(method, version, request, reply);
    } catch (const Common::Error&) {
    }
}

void ReadReply(std::uint32_t method, const std::uint8_t* data, std::size_t size) {
    using Binding::Detail::CreateRequest;
    std::string text;
    Names names;
    std::uint64_t count = 0;
    const Logons logons;
    std::unique_ptr<Binding::Request> request;
    switch (method) {
        case 1:
            request = CreateRequest<void()>(Describe(1, "Ping"));
            break;
        case 3:
            request = CreateRequest<void(const std::u16string&, Names&)>(
                Describe(3, "Open"), {u"", "password", ArgumentKind{4}},
                {names, "names", ArgumentKind{3}});
            break;
        case 4:
            request = CreateRequest<void(const Logons&, std::uint64_t&)>(
                Describe(4, "Logon"), {logons, "logons", ArgumentKind{1}},
                {count, "count", ArgumentKind{2}});
            break;
        default:
            request = CreateRequest<void(const std::string&, std::uint32_t, std::string&)>(
                Describe(2, "Get"), {"host", "host", ArgumentKind{0}}, {8, "size", ArgumentKind{0}},
                {text, "data", ArgumentKind{2}});
            break;
    }
    Serialization::XMLPacketDeserializer reply(data, size, 0);
    try {
        request->ReadReply(reply);
    } catch (const Common::Error&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Assertions report nothing and go on, as in a build without them.
    setenv("CORVANE_SAFE_ASSERT", "off", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    // Methods 0 to 5 (two of them unknown), asked for by callers of versions 0 to 2.
    const std::uint32_t method = data[0] % 6;
    ServeRequest(method, data[0] / 6 % 3, data + 1, size - 1);
    ReadReply(method, data + 1, size - 1);
    return 0;
}
