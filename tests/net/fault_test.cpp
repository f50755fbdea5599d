#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <tessel_link/binding/job_control.h>
#include <tessel_link/net/errors.h>

#include "net/net_rig.h"

namespace {

using namespace NetTesting;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Reads one whole request frame from `fd`; false when the peer closed first.
bool ReadRequest(int fd, Net::Frame& frame) {
    Net::FrameReader reader;
    for (;;) {
        const std::vector<unsigned char> bytes = ScriptedPeer::ReadSome(fd, 1);
        if (bytes.empty()) {
            return false;
        }
        reader.Feed(bytes);
        if (reader.Next(frame) == Net::FrameStatus::Complete) {
            return true;
        }
    }
}

Net::FrameHeader ReplyTo(const Net::Frame& request, std::uint32_t length) {
    Net::FrameHeader header = request.Header;
    header.Flags = Net::kFlagReply;
    header.PayloadLength = length;
    return header;
}

std::vector<unsigned char> HeaderBytes(const Net::FrameHeader& header) {
    const auto bytes = Net::EncodeHeader(header);
    return {bytes.begin(), bytes.end()};
}

struct Faults : ::testing::Test {
    Net::Address address = UnixAddress("faults_" + std::string(
        ::testing::UnitTest::GetInstance()->current_test_info()->name()));
};

TEST_F(Faults, NobodyListeningFailsToConnectWithTheSystemReason) {
    Client client(address);
    std::string result = "untouched";
    const Common::Error error = client.Manager->GetData("x", 1, result);
    EXPECT_EQ(error.Code(), Net::kErrorConnectFailed);
    EXPECT_EQ(error.Cause().Code(), Common::Error::kErrnoCode);
    EXPECT_NE(error.Cause().GetNumber("Errno"), 0u);
    EXPECT_EQ(result, "untouched");
}

TEST_F(Faults, APeerThatNeverAnswersRunsIntoTheTimeOut) {
    ScriptedPeer peer(address.Path, [](int fd) {
        Net::Frame request;
        ReadRequest(fd, request);
        // Holds the call until the caller gives up and closes.
        ScriptedPeer::ReadSome(fd, 1);
    });
    Net::ChannelOptions options;
    options.CallTimeout = 200ms;
    Client client(address, options);
    std::string result;
    const auto start = Clock::now();
    const Common::Error error = client.Manager->GetData("x", 1, result);
    const auto took = Clock::now() - start;
    EXPECT_EQ(error.Code(), Binding::kErrorJobTimedOut);
    EXPECT_GE(took, 200ms);
    EXPECT_LT(took, 3s);
}

TEST_F(Faults, BrokenRepliesFailCleanlyAndTheNextCallGetsANewConnection) {
    // Each connection gets the next misbehaviour in turn.
    std::atomic<int> turn{0};
    ScriptedPeer peer(address.Path, [&](int fd) {
        Net::Frame request;
        if (!ReadRequest(fd, request)) {
            return;
        }
        switch (turn.fetch_add(1)) {
            case 0: {  // closes in the middle of the reply's header
                std::vector<unsigned char> bytes = HeaderBytes(ReplyTo(request, 10));
                bytes.resize(12);
                ScriptedPeer::WriteAll(fd, bytes);
                break;
            }
            case 1: {  // promises more payload than it sends
                std::vector<unsigned char> bytes = HeaderBytes(ReplyTo(request, 1000));
                bytes.resize(bytes.size() + 10, 'x');
                ScriptedPeer::WriteAll(fd, bytes);
                break;
            }
            case 2:  // a length beyond the channel's limit
                ScriptedPeer::WriteAll(fd, HeaderBytes(ReplyTo(request, 5000)));
                break;
            case 3: {  // no frame at all
                const std::string text = "HTTP/1.1 400 Bad Request\r\n\r\n";
                ScriptedPeer::WriteAll(fd, {text.begin(), text.end()});
                break;
            }
            case 4: {  // a reply for another method
                Net::FrameHeader other = ReplyTo(request, 0);
                other.MethodNumber += 1;
                ScriptedPeer::WriteAll(fd, HeaderBytes(other));
                break;
            }
            default: {  // a failure frame whose payload is no error
                Net::FrameHeader failure = ReplyTo(request, 3);
                failure.Flags |= Net::kFlagFailure;
                std::vector<unsigned char> bytes = HeaderBytes(failure);
                bytes.insert(bytes.end(), {9, 9, 9});
                ScriptedPeer::WriteAll(fd, bytes);
            }
        }
    });
    Net::ChannelOptions options;
    options.MaxFrameLength = 1000;
    Client client(address, options);
    const std::vector<std::uint32_t> expected = {Net::kErrorConnectionLost, Net::kErrorConnectionLost,
                                                 Net::kErrorBadFrame,       Net::kErrorBadFrame,
                                                 Net::kErrorBadFrame,       Net::kErrorBadFrame};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        std::string result = "untouched";
        const Common::Error error = client.Manager->GetData("x", 1, result);
        EXPECT_EQ(error.Code(), expected[i]) << "fault " << i << ": " << error.ToString();
        EXPECT_FALSE(error.Cause().Empty()) << "fault " << i;
        EXPECT_EQ(result, "untouched");
    }
    // A connection that failed is never used again.
    EXPECT_EQ(peer.Accepted(), static_cast<int>(expected.size()));
    EXPECT_EQ(client.Channel->ConnectionsOpened(), expected.size());
}

TEST_F(Faults, AServerKilledDuringACallFailsItAndTheNextCallReachesItsSuccessor) {
    auto killed = std::make_unique<ScriptedPeer>(address.Path, [](int fd) {
        Net::Frame request;
        ReadRequest(fd, request);
        // Dies with the call under way: the connection closes without a reply.
    });
    Client client(address);
    std::string result = "untouched";
    const Common::Error error = client.Manager->GetData("x", 1, result);
    EXPECT_EQ(error.Code(), Net::kErrorConnectionLost);
    EXPECT_EQ(result, "untouched");
    killed.reset();

    // While nobody listens, calls fail to connect; once the service is back they reach it.
    EXPECT_EQ(client.Manager->GetData("x", 1, result).Code(), Net::kErrorConnectFailed);
    auto service = std::make_shared<EchoService>();
    {
        Net::ServiceHost host;
        host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
        ASSERT_TRUE(host.Start(address).Succeeded());
        ASSERT_EQ(client.Manager->GetData("back", 2, result).Code(), 0u);
        EXPECT_EQ(result, "back:2");
    }
    // The pooled connection now leads to a host that is gone; the restarted one is reached
    // by the very next call, which finds the old connection closed and opens another.
    Net::ServiceHost restarted;
    restarted.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    ASSERT_TRUE(restarted.Start(address).Succeeded());
    const std::uint64_t opened = client.Channel->ConnectionsOpened();
    ASSERT_EQ(client.Manager->GetData("restarted", 3, result).Code(), 0u);
    EXPECT_EQ(result, "restarted:3");
    EXPECT_EQ(client.Channel->ConnectionsOpened(), opened + 1);
}

class CountingHandler : public JobManagement::JobHandler {
public:
    void OnJobStarted() override {}
    void OnJobProgress(double) override {}
    void OnJobPaused() override {}
    void OnJobResumed() override {}
    void OnJobFinished(const Common::Error& result) override {
        Code.store(result.Code());
        Finished.fetch_add(1);
    }
    void OnJobMessage(const Common::Error&) override {}
    std::atomic<int> Finished{0};
    std::atomic<std::uint32_t> Code{0};
};

// A request of GetData made by the proxy, caught on its way into the channel.
class CatchingChannel : public Binding::RequestChannel {
public:
    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>&) override {
        Caught = std::move(request);
        return Common::Error(TL_ORIGIN("CatchingChannel::Send"), 0x9c0001, u"caught");
    }
    std::unique_ptr<Binding::Request> Caught;
};

std::unique_ptr<Binding::Request> GetDataRequest(const std::string& hostname, std::string& result) {
    auto catcher = std::make_shared<CatchingChannel>();
    Core::ChannelPointer pointer = catcher;
    Core::ComponentSlot component;
    EXPECT_EQ(CreateProxy(188, &pointer, &component), Core::ProxyCreated);
    (void)Common::QueryInterface<TestManagement::TestManager>(*component)->GetData(hostname, 1, result);
    return std::move(catcher->Caught);
}

TEST_F(Faults, StartedCallsReportToTheirHandlerAndStopAbandonsABlockedOne) {
    auto service = std::make_shared<EchoService>();
    Net::ServiceHost host(Net::HostOptions{2, Net::kDefaultMaxFrameLength});
    host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    ASSERT_TRUE(host.Start(address).Succeeded());
    Net::SocketChannel channel(address);

    std::string result;
    std::unique_ptr<Binding::RequestJob> job;
    ASSERT_TRUE(channel.Send(GetDataRequest("quick", result), job).Succeeded());
    CountingHandler handler;
    ASSERT_TRUE(job->Start(&handler).Succeeded());
    for (int i = 0; i < 500 && handler.Finished.load() == 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(handler.Finished.load(), 1);
    EXPECT_EQ(handler.Code.load(), 0u);
    EXPECT_EQ(result, "quick:1");
    // A job runs once.
    EXPECT_NE(job->Start(&handler).Code(), 0u);
    EXPECT_NE(job->Run(nullptr).Code(), 0u);
    job.reset();

    std::string blockedResult = "untouched";
    ASSERT_TRUE(channel.Send(GetDataRequest("block", blockedResult), job).Succeeded());
    CountingHandler blockedHandler;
    ASSERT_TRUE(job->Start(&blockedHandler).Succeeded());
    for (int i = 0; i < 500 && service->Blocked.load() == 0; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_EQ(service->Blocked.load(), 1);
    const auto start = Clock::now();
    EXPECT_TRUE(job->Stop().Succeeded());
    job.reset();
    EXPECT_LT(Clock::now() - start, 2s);
    service->Released = true;
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(blockedHandler.Finished.load(), 0);
    EXPECT_EQ(blockedResult, "untouched");
    // The channel goes on with new connections.
    Client client(address);
    ASSERT_EQ(client.Manager->GetData("later", 4, result).Code(), 0u);
}

// Connections share the host's event loops: a call that blocks in its service must not hold
// up the calls of other connections on the same loop while spare threads are left. Three
// threads make one loop with two spares on any machine.
TEST_F(Faults, CallsThatBlockInTheServiceHoldUpOnlyTheirOwnConnections) {
    auto service = std::make_shared<EchoService>();
    Net::ServiceHost host(Net::HostOptions{3, Net::kDefaultMaxFrameLength});
    host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    ASSERT_TRUE(host.Start(address).Succeeded());

    // Two blocked calls, each on a connection of its own channel.
    std::vector<std::unique_ptr<Net::SocketChannel>> channels;
    std::vector<std::unique_ptr<Binding::RequestJob>> jobs(2);
    std::vector<std::string> results(2, "untouched");
    CountingHandler handlers[2];
    for (int i = 0; i < 2; ++i) {
        channels.push_back(std::make_unique<Net::SocketChannel>(address));
        ASSERT_TRUE(channels.back()->Send(GetDataRequest("block", results[i]), jobs[i]).Succeeded());
        ASSERT_TRUE(jobs[i]->Start(&handlers[i]).Succeeded());
        for (int wait = 0; wait < 500 && service->Blocked.load() <= i; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_EQ(service->Blocked.load(), i + 1);
    }

    // Calls on a third connection go on, each well within the time a blocked one takes.
    Net::ChannelOptions options;
    options.CallTimeout = 5s;
    Client client(address, options);
    for (int i = 0; i < 20; ++i) {
        std::string result;
        const auto start = Clock::now();
        ASSERT_EQ(client.Manager->GetData("quick", static_cast<std::uint32_t>(i), result).Code(), 0u);
        EXPECT_EQ(result, "quick:" + std::to_string(i));
        EXPECT_LT(Clock::now() - start, 1s);
    }
    EXPECT_EQ(handlers[0].Finished.load() + handlers[1].Finished.load(), 0);

    // Released, the blocked calls end with their replies.
    service->Released = true;
    for (int i = 0; i < 2; ++i) {
        for (int wait = 0; wait < 500 && handlers[i].Finished.load() == 0; ++wait) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_EQ(handlers[i].Finished.load(), 1);
        EXPECT_EQ(handlers[i].Code.load(), 0u);
        EXPECT_EQ(results[i], "block:1");
    }
    EXPECT_EQ(host.Counters().Calls, 22u);
}

}  // namespace
