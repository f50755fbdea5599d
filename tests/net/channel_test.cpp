#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/components/instance_management.h>
#include <tessel_link/facade/make_proxy.h>
#include <tessel_link/net/errors.h>

#include "facade/event_fake_service.h"
#include "net/net_rig.h"

namespace {

using namespace NetTesting;

class HostedService : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
        Net::Address address;
        if (std::string(GetParam()) == "unix") {
            address = UnixAddress("hosted");
        } else {
            ASSERT_TRUE(Net::Address::Parse("tcp://127.0.0.1:0", address).Succeeded());
        }
        ASSERT_TRUE(host.Start(address).Succeeded());
        bound = host.BoundAddress();
        ASSERT_TRUE(bound.Type == Net::Address::Kind::Unix || bound.Port != 0);
    }

    std::shared_ptr<EchoService> service = std::make_shared<EchoService>();
    Net::ServiceHost host{Net::HostOptions{4, Net::kDefaultMaxFrameLength}};
    Net::Address bound;
};

TEST_P(HostedService, CallsCrossTheConnectionWithTheirOutcome) {
    Client client(bound);
    ASSERT_NE(client.Manager, nullptr);
    std::string result = "before";
    ASSERT_EQ(client.Manager->GetData("host-1", 4096, result).Code(), 0u);
    EXPECT_EQ(result, "host-1:4096");

    // A failing service call comes back as its error and leaves the out argument alone.
    result = "untouched";
    const Common::Error failed = client.Manager->GetData("fail", 1, result);
    EXPECT_EQ(failed.Code(), 0x9c0044u);
    EXPECT_EQ(failed.Text(), u"refused");
    EXPECT_EQ(result, "untouched");

    // A component the host does not serve is answered, and the connection goes on.
    Core::ChannelPointer pointer = client.Channel;
    auto instances = Core::MakeProxy<InstanceManagement::InstanceManager>(pointer);
    std::list<Common::Guid> ids;
    EXPECT_EQ(instances->GetIDs(ids).Code(), Binding::kErrorUnknownComponent);
    ASSERT_EQ(client.Manager->GetData("again", 2, result).Code(), 0u);
    EXPECT_EQ(result, "again:2");
    // One caller at a time needs one connection only.
    EXPECT_EQ(client.Channel->ConnectionsOpened(), 1u);
    EXPECT_EQ(host.Counters().Connections, 1u);
}

TEST_P(HostedService, EightThreadsShareTheChannelAndEveryReplyIsTheirOwn) {
    Client client(bound);
    const int calls = std::getenv("TL_NET_STRESS_CALLS") ? std::atoi(std::getenv("TL_NET_STRESS_CALLS")) : 10000;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            const std::string name = "thread-" + std::to_string(t);
            for (int k = 0; k < calls; ++k) {
                std::string result;
                const Common::Error error = client.Manager->GetData(name, static_cast<std::uint32_t>(k), result);
                if (error.Failed() || result != name + ":" + std::to_string(k)) {
                    wrong.fetch_add(1);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_LE(client.Channel->ConnectionsOpened(), 8u);
    EXPECT_EQ(host.Counters().Calls, 8u * static_cast<std::uint64_t>(calls));
}

TEST_P(HostedService, AReplyLongerThanTheSocketTakesGoesOnInTheBackground) {
    Client client(bound);
    constexpr std::uint32_t kSize = 6u << 20;
    std::string big;
    std::thread caller([&] { EXPECT_EQ(client.Manager->GetData("big", kSize, big).Code(), 0u); });
    // The other callers are served while the long reply is still being written.
    for (int k = 0; k < 50; ++k) {
        std::string result;
        ASSERT_EQ(client.Manager->GetData("small", static_cast<std::uint32_t>(k), result).Code(), 0u);
        EXPECT_EQ(result, "small:" + std::to_string(k));
    }
    caller.join();
    EXPECT_EQ(big.size(), kSize);
    EXPECT_EQ(big.find_first_not_of('x'), std::string::npos);
    std::string result;
    ASSERT_EQ(client.Manager->GetData("after", 1, result).Code(), 0u);
    EXPECT_EQ(result, "after:1");
}

INSTANTIATE_TEST_SUITE_P(Net, HostedService, ::testing::Values("unix", "tcp"));

// A raw connection to the host, for sending what no channel sends.
int Connect(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

// The reply frame the host sends on `fd`, or a frame with no header when it closed.
Net::Frame ReadReply(int fd) {
    Net::FrameReader reader;
    Net::Frame frame;
    for (;;) {
        const std::vector<unsigned char> bytes = ScriptedPeer::ReadSome(fd, 1);
        if (bytes.empty()) {
            return Net::Frame{};
        }
        reader.Feed(bytes);
        if (reader.Next(frame) == Net::FrameStatus::Complete) {
            return frame;
        }
    }
}

bool ClosedByPeer(int fd) {
    return ScriptedPeer::ReadSome(fd, 1).empty();
}

TEST(ServiceHost, BadFramesAreAnsweredOrDroppedAndTheOthersGoOn) {
    auto service = std::make_shared<EchoService>();
    Net::ServiceHost host(Net::HostOptions{2, 1000});
    host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    ASSERT_TRUE(host.Start(UnixAddress("bad_frames")).Succeeded());
    const std::string path = SocketPath("bad_frames");
    Client client(host.BoundAddress());
    std::string result;

    Net::FrameHeader header;
    header.ComponentId = 188;
    header.MethodNumber = 3;
    header.InterfaceVersion = 1;
    {
        // Bytes that are no frame: the connection is closed without an answer.
        const int fd = Connect(path);
        const std::string garbage = "GET / HTTP/1.0\r\n\r\n";
        ScriptedPeer::WriteAll(fd, {garbage.begin(), garbage.end()});
        EXPECT_TRUE(ClosedByPeer(fd));
        ::close(fd);
    }
    {
        // A length beyond the limit is answered before its payload comes, then closed.
        const int fd = Connect(path);
        Net::FrameHeader lying = header;
        lying.PayloadLength = 1001;
        const auto head = Net::EncodeHeader(lying);
        ScriptedPeer::WriteAll(fd, {head.begin(), head.end()});
        const Net::Frame reply = ReadReply(fd);
        EXPECT_TRUE(reply.Header.IsReply() && reply.Header.IsFailure());
        EXPECT_EQ(Common::Error::Deserialize(reply.Payload.data(), reply.Payload.size()).Code(),
                  Net::kErrorBadFrame);
        EXPECT_TRUE(ClosedByPeer(fd));
        ::close(fd);
    }
    {
        // A packet that is no packet, and a call of a method the component lacks, fail
        // alone: the same connection serves the next frame.
        const int fd = Connect(path);
        const std::string junk = "<not a packet";
        ScriptedPeer::WriteAll(fd, Net::EncodeFrame(header, {reinterpret_cast<const unsigned char*>(junk.data()), junk.size()}));
        Net::Frame reply = ReadReply(fd);
        // The service's side reads the arguments and answers their failure as the call's
        // result, in a reply packet.
        ASSERT_TRUE(reply.Header.IsReply());
        EXPECT_FALSE(reply.Header.IsFailure());
        EXPECT_NE(std::string(reply.Payload.begin(), reply.Payload.end()).find("<reply_TestManager_GetData><result>"),
                  std::string::npos);
        Net::FrameHeader noMethod = header;
        noMethod.MethodNumber = 99;
        ScriptedPeer::WriteAll(fd, Net::EncodeFrame(noMethod, {}));
        reply = ReadReply(fd);
        EXPECT_TRUE(reply.Header.IsFailure());
        EXPECT_EQ(Common::Error::Deserialize(reply.Payload.data(), reply.Payload.size()).Code(),
                  Binding::kErrorUnknownMethod);
        // A frame that claims to be a reply is refused and ends the connection.
        Net::FrameHeader asReply = header;
        asReply.Flags = Net::kFlagReply;
        ScriptedPeer::WriteAll(fd, Net::EncodeFrame(asReply, {}));
        reply = ReadReply(fd);
        EXPECT_TRUE(reply.Header.IsFailure());
        EXPECT_TRUE(ClosedByPeer(fd));
        ::close(fd);
    }
    {
        // A frame cut off by its sender ends its connection only.
        const int fd = Connect(path);
        Net::FrameHeader cut = header;
        cut.PayloadLength = 500;
        const auto head = Net::EncodeHeader(cut);
        ScriptedPeer::WriteAll(fd, {head.begin(), head.end()});
        ScriptedPeer::WriteAll(fd, std::vector<unsigned char>(100, 'x'));
        ASSERT_EQ(client.Manager->GetData("meanwhile", 5, result).Code(), 0u);
        ::close(fd);
    }
    ASSERT_EQ(client.Manager->GetData("after", 7, result).Code(), 0u);
    EXPECT_EQ(result, "after:7");
    EXPECT_GE(host.Counters().Dropped, 1u);
}

TEST(ServiceHost, FramesSentBackToBackAreAnsweredInTheirOrder) {
    auto service = std::make_shared<EchoService>();
    Net::ServiceHost host(Net::HostOptions{2, Net::kDefaultMaxFrameLength});
    host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    ASSERT_TRUE(host.Start(UnixAddress("back_to_back")).Succeeded());
    const int fd = Connect(SocketPath("back_to_back"));
    // Calls of a method the component has and of one it lacks, in turn, all in one write.
    Net::FrameHeader header;
    header.ComponentId = 188;
    header.InterfaceVersion = 1;
    const std::string junk = "<not a packet";
    std::vector<unsigned char> frames;
    constexpr int kFrames = 200;
    for (int k = 0; k < kFrames; ++k) {
        header.MethodNumber = k % 2 == 0 ? 3 : 99;
        const std::vector<unsigned char> frame =
            Net::EncodeFrame(header, {reinterpret_cast<const unsigned char*>(junk.data()), junk.size()});
        frames.insert(frames.end(), frame.begin(), frame.end());
    }
    ScriptedPeer::WriteAll(fd, frames);
    for (int k = 0; k < kFrames; ++k) {
        const Net::Frame reply = ReadReply(fd);
        ASSERT_TRUE(reply.Header.IsReply()) << "reply " << k;
        EXPECT_EQ(reply.Header.MethodNumber, k % 2 == 0 ? 3u : 99u);
        EXPECT_EQ(reply.Header.IsFailure(), k % 2 == 1);
    }
    ::close(fd);
    EXPECT_EQ(host.Counters().Calls, static_cast<std::uint64_t>(kFrames / 2));
}

TEST(ServiceHost, RefusesAnAddressInUse) {
    Net::ServiceHost first;
    Net::Address address;
    ASSERT_TRUE(Net::Address::Parse("tcp://127.0.0.1:0", address).Succeeded());
    ASSERT_TRUE(first.Start(address).Succeeded());
    Net::ServiceHost second;
    const Common::Error error = second.Start(first.BoundAddress());
    EXPECT_EQ(error.Code(), Net::kErrorListenFailed);
    EXPECT_EQ(error.Cause().Code(), Common::Error::kErrnoCode);
    EXPECT_EQ(first.Start(address).Code(), Net::kErrorListenFailed);
}

TEST(EventsOverSocket, TheEventProxyFetchesInTheBackgroundAndStopsCleanly) {
    using namespace EventTesting;
    RecordingSink sink;
    auto service = std::make_shared<FakeEventService>();
    Net::ServiceHost host(Net::HostOptions{4, Net::kDefaultMaxFrameLength});
    host.Register(std::make_unique<EventManagement::EventManager_Dispatcher>(service));
    ASSERT_TRUE(host.Start(UnixAddress("events")).Succeeded());
    {
        Core::ChannelPointer channel = std::make_shared<Net::SocketChannel>(host.BoundAddress());
        Core::ComponentSlot component;
        ASSERT_EQ(CreateProxy(132, &channel, &component), Core::ProxyCreated);
        auto* manager = Common::QueryInterface<EventManagement::EventManager>(*component);
        ASSERT_NE(manager, nullptr);
        ASSERT_TRUE(manager->Subscribe(7, &sink).Succeeded());
        ASSERT_TRUE(service->WaitAbsorbing(1));
        service->Raise(MakeEvent(7, 1));
        service->Raise(MakeEvent(8, 9));  // another type: not for this sink
        ASSERT_TRUE(sink.WaitCount(1));
        service->Raise(MakeEvent(7, 2));
        ASSERT_TRUE(sink.WaitCount(2));
        EXPECT_EQ(sink.Sequence(), (std::vector<std::uint32_t>{1, 2}));
        EXPECT_EQ(sink.Events()[1]->Message, u"event 2");

        // Unsubscribing stops the fetch that blocks in the service and cancels it there.
        ASSERT_TRUE(manager->Unsubscribe(7, &sink).Succeeded());
        EXPECT_TRUE(service->WaitLogged("CancelQueueAbsorbing 1"));
        EXPECT_TRUE(service->WaitNoneAbsorbing());
        component.reset();
    }
    host.Stop();
    EXPECT_EQ(sink.Events().size(), 2u);
}

}  // namespace
