#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <tessel_link/facade/catalogue.h>
#include <tessel_link/net/socket_channel.h>

#include "command.h"
#include "json_calls.h"

namespace tessel_cli {
namespace {

const Core::Catalogue::Component* FindComponent(const std::string& text) {
    unsigned long long id = 0;
    if (ParseDecimal(text, id)) {
        return id <= 0xffffffffull ? Core::Catalogue::FindComponent(static_cast<std::uint32_t>(id)) : nullptr;
    }
    return Core::Catalogue::FindComponent(std::string_view(text));
}

const Core::Catalogue::Method* FindMethod(const Core::Catalogue::Component& component, const std::string& text) {
    unsigned long long number = 0;
    if (ParseDecimal(text, number)) {
        return number <= 0xffffffffull ? component.FindMethod(static_cast<std::uint32_t>(number)) : nullptr;
    }
    return component.FindMethod(std::string_view(text));
}

bool Sent(const Core::Catalogue::Parameter& parameter) {
    return (parameter.Kind & 3) != Core::Catalogue::kParameterOut;
}

struct CallOptions {
    std::string Connect;
    std::uint64_t Timeout = 30000;
    std::vector<std::string> Words;  // component, method, JSON
};

int Call(const CallOptions& options) {
    if (options.Words.size() < 2 || options.Words.size() > 3) {
        return UsageError("call takes a component, a method and at most one JSON object");
    }
    Net::Address address;
    if (Common::Error error = Net::Address::Parse(options.Connect, address); error.Failed()) {
        return UsageError(error.ToString());
    }
    Net::ChannelOptions channelOptions;
    channelOptions.CallTimeout = std::chrono::milliseconds(options.Timeout);

    const Core::Catalogue::Component* component = FindComponent(options.Words[0]);
    if (component == nullptr) {
        return Fail("no component (or more than one) is known as " + options.Words[0]);
    }
    const Core::Catalogue::Method* method = FindMethod(*component, options.Words[1]);
    if (method == nullptr) {
        return Fail(std::string(component->Interface) + " has no method " + options.Words[1]);
    }
    Json in = Json::object();
    if (options.Words.size() == 3) {
        in = Json::parse(options.Words[2], nullptr, false);
        if (in.is_discarded() || !in.is_object()) {
            return UsageError("the arguments must be one JSON object");
        }
    }
    for (const auto& [name, value] : in.items()) {
        bool known = false;
        for (const Core::Catalogue::Parameter& parameter : method->Parameters()) {
            known = known || (name == parameter.Name && Sent(parameter));
        }
        if (!known) {
            std::string sent;
            for (const Core::Catalogue::Parameter& parameter : method->Parameters()) {
                if (Sent(parameter)) {
                    sent += std::string(sent.empty() ? "" : ", ") + parameter.Name;
                }
            }
            return UsageError(std::string(method->Name) + " has no in argument '" + name + "' (it takes: " +
                              (sent.empty() ? "none" : sent) + ")");
        }
    }
    const JsonCall* call = nullptr;
    for (const JsonCall& candidate : JsonCalls()) {
        if (candidate.Component == component->ID && candidate.Method == method->Number) {
            call = &candidate;
        }
    }
    if (call == nullptr) {
        return Fail("no call is generated for " + std::string(component->Interface) + "::" + method->Name);
    }

    const Core::ChannelPointer channel = std::make_shared<Net::SocketChannel>(address, channelOptions);
    JsonReader reader(in);
    JsonWriter writer;
    Common::Error result;
    try {
        result = call->Call(channel, reader, writer);
    } catch (const JsonMismatch& mismatch) {
        return UsageError(mismatch.what());
    }
    Json reply = Json::object();
    reply["result"] = ErrorToJson(result);
    reply["out"] = writer.Result();
    std::printf("%s\n", reply.dump(2).c_str());
    return result.Failed() ? 1 : 0;
}

CliRun Setup(CliOptions& cli) {
    auto options = std::make_shared<CallOptions>();
    cli.AddOption("--connect", options->Connect, "tcp://HOST:PORT or unix:/PATH").Required();
    cli.AddOption("--timeout", options->Timeout, "milliseconds to wait for the reply").ShowDefault();
    cli.AddOption("COMPONENT METHOD [JSON]", options->Words, "what to call, and its in arguments").Required();
    return [options] { return Call(*options); };
}

const CliCommandRegistration kCall(
    {"call", "--connect ADDRESS COMPONENT METHOD [JSON] [--timeout MS]",
     "Call a method of a service over a socket and print the reply as JSON.",
     "ADDRESS is tcp://HOST:PORT or unix:/PATH. COMPONENT is an ID or an interface name, METHOD\n"
     "a name or number (see `tessel catalogue`). JSON is one object of in arguments by parameter\n"
     "name; the ones it lacks take their defaults (`tessel describe TYPE` shows a record's).\n"
     "Values map to JSON by one rule: records and polymorphic records are objects of their\n"
     "members, enumerations the names of their values, sequences arrays, maps objects when\n"
     "their keys are strings (else arrays of {\"first\", \"second\"}), optionals null or the\n"
     "value, GUIDs their text, blobs base64, secrets plain text (obscured on the wire only).\n"
     "The reply prints as {\"result\": {\"code\": N, \"text\": ..., \"cause\": ...}, \"out\": {...}}\n"
     "with the out arguments by name. Exit status: 0 on success, 1 when the call failed (also\n"
     "for a connection that failed, or after the time-out, default 30000 ms), 2 for bad usage.",
     Setup});

}  // namespace
}  // namespace tessel_cli
