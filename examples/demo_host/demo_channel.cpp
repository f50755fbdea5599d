#include "demo_channel.h"

#include <tessel_link/serialize/xml_packet_serializer.h>

#include <ostream>
#include <string>

#include "demo_ends.h"

namespace Demo {

namespace {

const std::string kRequestPrefix = "request_";
constexpr std::uint32_t kFormatRevision = 2;

// The stand-in service: TestManager's GetData returns a text about the data asked for;
// every other call simply succeeds.
ListedReply Answer(const ArgumentCapture& request) {
    const std::string& element = request.TopElement();
    const std::string method =
        element.rfind(kRequestPrefix, 0) == 0 ? element.substr(kRequestPrefix.size()) : element;
    std::vector<ListedReply::Entry> values{{"result", Common::ErrorSuccess}};
    if (method == "TestManager_GetData") {
        const auto& args = request.Values();
        values.push_back(
            {"result", args.at("size") + " bytes of test data from " + args.at("hostname")});
    }
    return ListedReply("reply_" + method, std::move(values));
}

class DemoJob : public Binding::RequestJob {
public:
    DemoJob(std::ostream& out, std::unique_ptr<Binding::Request> request)
        : out_(out), request_(std::move(request)) {}

    Common::Error Run(JobManagement::JobHandler*) override {
        try {
            out_ << "  the request packet:\n" << Indent(Packet(*request_));

            ArgumentCapture arguments;
            request_->WriteRequest(arguments);
            ListedReply reply = Answer(arguments);
            out_ << "  the service's reply:\n" << Indent(reply.Text());
            request_->ReadReply(reply);
            return Common::ErrorSuccess;
        } catch (const Common::Error& error) {
            return error;
        }
    }

    Common::Error Start(JobManagement::JobHandler*) override { return NotHere("Start"); }
    Common::Error Stop() override { return NotHere("Stop"); }

private:
    // The packet as the channel would send it, a UTF-8 document without its byte order mark.
    static std::string Packet(const Binding::Request& request) {
        Serialization::XMLPacketSerializer serializer(
            kFormatRevision, static_cast<std::uint32_t>(request.GetCategory()));
        request.WriteRequest(serializer);
        std::vector<unsigned char> bytes;
        serializer.Finish(bytes);
        std::string text(bytes.begin(), bytes.end());
        const std::string bom = "\xEF\xBB\xBF";
        return text.rfind(bom, 0) == 0 ? text.substr(bom.size()) : text;
    }

    // Every line of `text` indented, each ending in a line break.
    static std::string Indent(const std::string& text) {
        std::string out;
        std::size_t start = 0;
        while (start < text.size()) {
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos) {
                end = text.size();
            }
            out += "    " + text.substr(start, end - start) + "\n";
            start = end + 1;
        }
        return out;
    }

    static Common::Error NotHere(const char* what) {
        return Common::Error(TL_ORIGIN("Demo::DemoJob"), 0x4000e, what);
    }

    std::ostream& out_;
    std::unique_ptr<Binding::Request> request_;
};

}  // namespace

Common::Error DemoChannel::Send(std::unique_ptr<Binding::Request> request,
                                std::unique_ptr<Binding::RequestJob>& job) {
    out_ << "  channel: Send of component " << request->GetComponentID() << ", method "
         << request->GetMethodNumber() << ", interface version " << request->GetInterfaceVersion()
         << "\n";
    job = std::make_unique<DemoJob>(out_, std::move(request));
    return Common::ErrorSuccess;
}

}  // namespace Demo
