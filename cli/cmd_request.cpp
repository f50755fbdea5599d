#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tessel_link/binding/request.h>
#include <tessel_link/common/error.h>
#include <tessel_link/facade/catalogue.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "command.h"

namespace tessel_cli {
namespace {

// The packet format of requests that the library writes for itself.
constexpr std::uint32_t kRequestFormatRevision = 2;

bool ParseNumber(const std::string& text, std::uint32_t& value) {
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    const unsigned long long parsed = std::strtoull(text.c_str(), nullptr, 10);
    if (parsed > 0xffffffffull) {
        return false;
    }
    value = static_cast<std::uint32_t>(parsed);
    return true;
}

const Core::Catalogue::Method* FindMethod(const Core::Catalogue::Component& component,
                                          const std::string& nameOrNumber) {
    std::uint32_t number = 0;
    if (ParseNumber(nameOrNumber, number)) {
        return component.FindMethod(number);
    }
    return component.FindMethod(std::string_view(nameOrNumber));
}

// Writes the request as a request writes its own packet for an in-process service.
void WritePacket(Binding::Request& request, void* context) {
    Serialization::XMLPacketSerializer serializer(kRequestFormatRevision,
                                                  static_cast<std::uint32_t>(request.GetCategory()));
    request.WriteRequest(serializer);
    serializer.Finish(*static_cast<std::vector<unsigned char>*>(context));
}

int Run(const std::string& componentWord, const std::string& methodWord) {
    // The component by ID, or by interface name with or without its namespace.
    std::uint32_t id = 0;
    const Core::Catalogue::Component* component =
        ParseNumber(componentWord, id)
            ? Core::Catalogue::FindComponent(id)
            : Core::Catalogue::FindComponent(std::string_view(componentWord));
    if (component == nullptr) {
        return Fail("no component (or more than one) is known as " + componentWord);
    }
    const Core::Catalogue::Method* method = FindMethod(*component, methodWord);
    if (method == nullptr) {
        return Fail(std::string(component->Interface) + " has no method " + methodWord);
    }
    std::vector<unsigned char> packet;
    try {
        method->VisitDefaultRequest(&WritePacket, &packet);
    } catch (const Common::Error& error) {
        return Fail("writing the request failed with error " + std::to_string(error.Code()));
    }
    std::fwrite(packet.data(), 1, packet.size(), stdout);
    std::printf("\n");
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto words = std::make_shared<std::vector<std::string>>();
    cli.AddOption("COMPONENT METHOD", *words, "the component and its method").Required().Expected(2);
    return [words] { return Run((*words)[0], (*words)[1]); };
}

const CliCommandRegistration kRequest(
    {"request", "COMPONENT METHOD",
     "Print the request packet of a call with default-constructed arguments.",
     "COMPONENT is a component ID such as 161 or an interface name such as ArchiveManager\n"
     "(with its namespace when the name alone is ambiguous); METHOD is a method's name or\n"
     "number. The packet is the\n"
     "one the request writes for a service in the same process: what CreateDeserializer reads.",
     Setup});

}  // namespace
}  // namespace tessel_cli
