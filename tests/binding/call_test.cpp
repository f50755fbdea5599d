#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "xidl/components/test_management_proxy.h"
#include <tessel_link/testing/scripted_channel.h>

namespace {

using Testing::Element;
using Testing::ValueNode;

Common::Error ChannelFailure(std::uint32_t code) {
    return Common::Error(TL_ORIGIN("Probe"), code);
}

Testing::Node GetDataReply(Common::Error result, const char* data) {
    return Element("reply_TestManager_GetData", {ValueNode("result", std::move(result)),
                                                 ValueNode("result", std::string(data))});
}

TEST(ExecuteCall, SendFailureIsTheResultAndSkipsRun) {
    Testing::ScriptedChannel channel;
    channel.SendResult = ChannelFailure(0xb90001);
    std::string result;
    auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, result);

    const Common::Error error = Binding::ExecuteCall(channel, request);
    EXPECT_EQ(error.Code(), 0xb90001u);
    EXPECT_EQ(channel.Sends, 1);
    EXPECT_EQ(channel.Runs, 0);
    EXPECT_EQ(request, nullptr);
}

// A channel that reports success and makes no job.
class JoblessChannel : public Binding::RequestChannel {
public:
    Common::Error Send(std::unique_ptr<Binding::Request>,
                       std::unique_ptr<Binding::RequestJob>&) override {
        return Common::ErrorSuccess;
    }
};

TEST(ExecuteCall, NullRequestsAndMissingJobsAreUsageErrors) {
    Testing::ScriptedChannel channel;
    std::unique_ptr<Binding::Request> none;
    EXPECT_EQ(Binding::ExecuteCall(channel, none).Code(), Binding::kErrorNullPointer);
    EXPECT_EQ(channel.Sends, 0);

    JoblessChannel jobless;
    std::string result;
    auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, result);
    const Common::Error error = Binding::ExecuteCall(jobless, request);
    EXPECT_EQ(error.Code(), Binding::kErrorNullPointer);
    EXPECT_EQ(error.Text(), u"Pointer is null.");

    Binding::LoopbackChannel loopback;
    std::unique_ptr<Binding::RequestJob> job;
    EXPECT_EQ(loopback.Send(nullptr, job).Code(), Binding::kErrorNullPointer);
    EXPECT_EQ(job, nullptr);
}

TEST(ExecuteCall, RunsTheJobWithoutHandlerAndReturnsItsOutcome) {
    Testing::ScriptedChannel channel;
    channel.RunResult = ChannelFailure(0xb90002);
    std::string result;
    auto request = TestManagement::MakeRequest_TestManager_GetData("h", 1, result);

    EXPECT_EQ(Binding::ExecuteCall(channel, request).Code(), 0xb90002u);
    EXPECT_EQ(channel.Runs, 1);
    EXPECT_FALSE(channel.RunGotHandler);
    EXPECT_EQ(channel.JobsDestroyed, 1);
    EXPECT_EQ(request, nullptr);
}

TEST(ProxyCall, OutArgumentArrivesThroughTheChannel) {
    auto channel = std::make_shared<Testing::ScriptedChannel>();
    channel->Reply = GetDataReply(Common::ErrorSuccess, "payload");
    TestManagement::TestManager_Proxy proxy(channel);

    std::string result = "before";
    EXPECT_TRUE(proxy.GetData("backup-01", 64, result).Succeeded());
    EXPECT_EQ(result, "payload");
    EXPECT_EQ(channel->ComponentID, 188u);
    EXPECT_EQ(channel->MethodNumber, 3u);
    EXPECT_EQ(channel->Written.Children.at(0).Name, "request_TestManager_GetData");
}

TEST(ProxyCall, FailuresLeaveOutArgumentsAlone) {
    auto channel = std::make_shared<Testing::ScriptedChannel>();
    TestManagement::TestManager_Proxy proxy(channel);
    std::string result = "before";

    // The service failed: its reply carries the failure and a value that must not be used.
    channel->Reply = GetDataReply(ChannelFailure(0xb90003), "payload");
    channel->RunResult = ChannelFailure(0xb90003);
    EXPECT_EQ(proxy.GetData("h", 1, result).Code(), 0xb90003u);
    EXPECT_EQ(result, "before");

    // The channel could not start the call.
    channel->SendResult = ChannelFailure(0xb90004);
    EXPECT_EQ(proxy.GetData("h", 1, result).Code(), 0xb90004u);
    EXPECT_EQ(result, "before");
}

TEST(ProxyCall, ErrorWhileBuildingTheRequestIsReturnedWithoutCallingTheChannel) {
    Testing::ScriptedChannel channel;
    const Common::Error error = Binding::Detail::CallRemote(
        channel, []() -> std::unique_ptr<Binding::Request> { throw ChannelFailure(0xb90005); });
    EXPECT_EQ(error.Code(), 0xb90005u);
    EXPECT_EQ(channel.Sends, 0);

    EXPECT_THROW(
        (void)Binding::Detail::CallRemote(
            channel, []() -> std::unique_ptr<Binding::Request> { throw std::runtime_error("x"); }),
        std::runtime_error);
}

}  // namespace
