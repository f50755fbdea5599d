#include "demo_channel.h"

#include <ostream>
#include <string>

#include "demo_ends.h"

namespace Demo {

namespace {

const std::string kRequestPrefix = "request_";

// The stand-in service: TestManager's GetData returns a text about the data asked for;
// every other call simply succeeds.
ListedReply Answer(const PrintingSerializer& request) {
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
            PrintingSerializer packet;
            request_->WriteRequest(packet);
            out_ << "  the request, as the channel writes it:\n" << Indent(packet.Text());

            ListedReply reply = Answer(packet);
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
    static std::string Indent(const std::string& text) {
        std::string out = "    ";
        for (const char c : text) {
            out += c;
            if (c == '\n') {
                out += "    ";
            }
        }
        return out.substr(0, out.size() - 4);
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
