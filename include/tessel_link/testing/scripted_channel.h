#pragma once

// A test helper for hosts: a channel that records what it is sent, writes each request
// through a recording serializer and answers with a scripted reply, so that a host's tests
// can check the calls its code makes through proxies without a service:
//
//   auto channel = std::make_shared<Testing::ScriptedChannel>();
//   channel->RunResult = someFailure;  // or channel->Reply = Testing::Element(...)
//   auto manager = Core::MakeProxy<TestManagement::TestManager>(channel);
//   ... call it, then look at channel->Written, channel->MethodNumber ...
//
// Header-only; the library's own tests use it too.

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/error.h>

#include <memory>
#include <optional>

#include <tessel_link/testing/recording_ends.h>

namespace Testing {

// A channel for a host's tests: see above.
class ScriptedChannel : public Binding::RequestChannel {
public:
    // What Send returns; a failure means no job is made.
    Common::Error SendResult;
    // What Run returns after it wrote the request and, with a reply, read it.
    Common::Error RunResult;
    std::optional<Node> Reply;  // the reply that Run reads, if any

    int Sends = 0;  // how often Send was called
    int Runs = 0;  // how often a job ran
    int JobsDestroyed = 0;  // how many jobs were destroyed
    bool RunGotHandler = false;  // whether the last Run got a handler
    Node Written;  // the last request, as written
    std::uint32_t ComponentID = 0;  // the last request's component
    std::uint32_t MethodNumber = 0;  // the last request's method number

    // Counts the call and, unless SendResult is a failure, makes a job that writes the
    // request and reads the scripted reply.
    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>& job) override {
        ++Sends;
        if (SendResult.Failed()) {
            return SendResult;
        }
        ComponentID = request->GetComponentID();
        MethodNumber = request->GetMethodNumber();
        job = std::make_unique<Job>(*this, std::move(request));
        return Common::ErrorSuccess;
    }

private:
    class Job : public Binding::RequestJob {
    public:
        Job(ScriptedChannel& channel, std::unique_ptr<Binding::Request> request)
            : channel_(channel), request_(std::move(request)) {}
        ~Job() override { ++channel_.JobsDestroyed; }

        Common::Error Run(JobManagement::JobHandler* handler) override {
            ++channel_.Runs;
            channel_.RunGotHandler = handler != nullptr;
            RecordingSerializer serializer;
            request_->WriteRequest(serializer);
            channel_.Written = serializer.Root;
            if (channel_.Reply) {
                ScriptedDeserializer reply(*channel_.Reply);
                try {
                    request_->ReadReply(reply);
                } catch (const Common::Error& error) {
                    return error;
                }
            }
            return channel_.RunResult;
        }
        Common::Error Start(JobManagement::JobHandler*) override { return FakeFailure("Start"); }
        Common::Error Stop() override { return FakeFailure("Stop"); }

    private:
        ScriptedChannel& channel_;
        std::unique_ptr<Binding::Request> request_;
    };
};

}  // namespace Testing
