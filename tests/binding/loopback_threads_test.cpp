#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/components/test_management.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

// A service without state of its own but a call counter: its answer follows from the
// arguments, so every caller can check that it got its own.
class EchoManager : public TestManagement::TestManager {
public:
    Common::Error Test() override { return Common::ErrorSuccess; }
    Common::Error TestCancel() override { return Common::ErrorSuccess; }
    Common::Error GetData(const std::string& hostname, std::uint32_t size,
                          std::string& result) override {
        Calls.fetch_add(1, std::memory_order_relaxed);
        if (size % 97 == 0) {
            return Common::Error(TL_ORIGIN("EchoManager::GetData"), 0x9c0050 + size % 4);
        }
        result = hostname + "/" + std::to_string(size);
        return Common::ErrorSuccess;
    }
    Common::Error ResumeCancel(std::map<std::string, std::u16string>&) override {
        return Common::ErrorSuccess;
    }

    std::atomic<int> Calls{0};
};

// One proxy, eight threads, ten thousand calls each, while dispatchers of other components
// are registered: every call must get its own answer.
TEST(LoopbackThreads, OneProxyServesEightThreadsAtOnce) {
    constexpr int kThreads = 8;
    constexpr std::uint32_t kCalls = 10000;

    auto service = std::make_shared<EchoManager>();
    auto loopback = std::make_shared<Binding::LoopbackChannel>();
    loopback->Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
    const Core::ChannelPointer channel = loopback;
    Core::ComponentSlot component;
    ASSERT_EQ(CreateProxy(188, &channel, &component), Core::ProxyCreated);
    auto* manager = Common::QueryInterface<TestManagement::TestManager>(*component);
    ASSERT_NE(manager, nullptr);

    std::atomic<bool> go{false};
    std::vector<int> wrong(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            const std::string hostname = "host-" + std::to_string(t);
            for (std::uint32_t i = 1; i <= kCalls; ++i) {
                std::string result = "before";
                const Common::Error error = manager->GetData(hostname, i, result);
                const bool failing = i % 97 == 0;
                const bool right =
                    failing ? error.Code() == 0x9c0050 + i % 4 && result == "before"
                            : error.Succeeded() && result == hostname + "/" + std::to_string(i);
                wrong[t] += right ? 0 : 1;
            }
        });
    }
    std::thread registering([&] {
        while (!go.load()) {
            std::this_thread::yield();
        }
        for (std::uint32_t id = 10000; id < 10050; ++id) {
            // Other components come and go under the calls' feet.
            class Other final : public Binding::TableDispatcher {
            public:
                explicit Other(std::uint32_t id) : TableDispatcher(id, "Other", 1, nullptr, {}) {}
            };
            loopback->Register(std::make_unique<Other>(id));
            std::this_thread::yield();
        }
    });
    go.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    registering.join();

    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(wrong[t], 0) << "thread " << t;
    }
    EXPECT_EQ(service->Calls.load(), kThreads * static_cast<int>(kCalls));
    EXPECT_NE(loopback->Find(10049), nullptr);
    EXPECT_NE(loopback->Find(188), nullptr);
}

}  // namespace
