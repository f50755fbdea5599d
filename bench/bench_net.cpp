// Calls per second through the socket channel, over a Unix socket and over loopback TCP, for
// a method without parameters and for one that returns 1,000 records, on 1 and 8 client
// threads, beside the loopback channel's figure for the same calls. The service runs in the
// same process on the host's own threads, so that client and server share the machine's
// cores as two processes on one machine would.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>
#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/net/service_host.h>
#include <tessel_link/net/socket_channel.h>
#include <tessel_link/xidl/records.h>

namespace {

using Slices = std::vector<ArchiveManagement::SliceInfo>;
constexpr std::size_t kRecords = 1000;
constexpr std::uint32_t kComponent = 950;

const Slices& Records() {
    static const Slices slices = [] {
        Slices list;
        for (std::size_t i = 0; i < kRecords; ++i) {
            const std::u16string n = Common::Utf8ToUtf16Lenient(std::to_string(i));
            ArchiveManagement::SliceInfo s;
            s.SliceUri = u"bsp://storage-01/vault/Archive-" + n + u"?slice=" + n;
            s.Kind = static_cast<std::uint32_t>(i % 3);
            s.CreationTime = 1700000000000ll + static_cast<std::int64_t>(i) * 3600;
            s.Description = u"Nightly backup " + n;
            s.Size = 1000003ull * i;
            s.MetaInformation = {{u"Host", u"server-" + n}};
            s.MediaIDs = {u"tape-" + n};
            Common::Create(s.LocationID);
            Common::Create(s.ArchiveID);
            list.push_back(std::move(s));
        }
        return list;
    }();
    return slices;
}

class SliceManager {
public:
    virtual ~SliceManager() = default;
    virtual Common::Error Ping() = 0;
    virtual Common::Error ListSlices(Slices& slices) = 0;
};

class SliceService final : public SliceManager {
public:
    Common::Error Ping() override { return Common::ErrorSuccess; }
    Common::Error ListSlices(Slices& slices) override {
        slices = Records();
        return Common::ErrorSuccess;
    }
};

class SliceDispatcher final : public Binding::ComponentDispatcher<SliceManager> {
public:
    SliceDispatcher()
        : ComponentDispatcher(kComponent, "SliceManager", 1, std::make_shared<SliceService>(),
                              {Binding::Serve<SliceManager, &SliceManager::Ping>(1, "Ping", 1),
                               Binding::Serve<SliceManager, &SliceManager::ListSlices>(
                                   2, "ListSlices", 1, {{"slices", Binding::ArgumentKind::Out}})}) {
    }
};

Binding::MethodDescriptor Describe(std::uint32_t number, const char* name) {
    Binding::MethodDescriptor method;
    method.ComponentID = kComponent;
    method.MethodNumber = number;
    method.ComponentName = "SliceManager";
    method.MethodName = name;
    method.InterfaceVersion = 1;
    method.IntroducedVersion = 1;
    method.Category = Binding::kAllCategories;
    return method;
}

Common::Error Ping(Binding::RequestChannel& channel) {
    return Binding::Detail::CallRemote(
        channel, [] { return Binding::Detail::CreateRequest<void()>(Describe(1, "Ping")); });
}

Common::Error ListSlices(Binding::RequestChannel& channel, Slices& slices) {
    return Binding::Detail::CallRemote(channel, [&] {
        return Binding::Detail::CreateRequest<void(Slices&)>(
            Describe(2, "ListSlices"), {slices, "slices", Binding::ArgumentKind::Out});
    });
}

enum Transport { kLoopback, kUnix, kTcp };

// The channels, made once for the whole run; the hosts live as long as the process.
Binding::RequestChannel& Channel(Transport transport) {
    static Binding::RequestChannel* channels[3] = {};
    static const bool made = [] {
        auto* loopback = new Binding::LoopbackChannel();
        loopback->Register(std::make_unique<SliceDispatcher>());
        channels[kLoopback] = loopback;

        Net::HostOptions options;
        options.Threads = 8;
        auto* unixHost = new Net::ServiceHost(options);
        unixHost->Register(std::make_unique<SliceDispatcher>());
        Net::Address unixAddress;
        unixAddress.Type = Net::Address::Kind::Unix;
        unixAddress.Path = "/tmp/tl_bench_net_" + std::to_string(::getpid()) + ".sock";
        auto* tcpHost = new Net::ServiceHost(options);
        tcpHost->Register(std::make_unique<SliceDispatcher>());
        Net::Address tcpAddress;
        (void)Net::Address::Parse("tcp://127.0.0.1:0", tcpAddress);
        if (unixHost->Start(unixAddress).Failed() || tcpHost->Start(tcpAddress).Failed()) {
            std::fprintf(stderr, "bench_net: cannot listen\n");
            std::exit(1);
        }
        channels[kUnix] = new Net::SocketChannel(unixHost->BoundAddress());
        channels[kTcp] = new Net::SocketChannel(tcpHost->BoundAddress());
        std::atexit([] { ::unlink(("/tmp/tl_bench_net_" + std::to_string(::getpid()) + ".sock").c_str()); });
        return true;
    }();
    (void)made;
    return *channels[transport];
}

void BM_Ping(benchmark::State& state, Transport transport) {
    Binding::RequestChannel& channel = Channel(transport);
    for (auto _ : state) {
        if (Ping(channel).Failed()) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_ListSlices(benchmark::State& state, Transport transport) {
    Binding::RequestChannel& channel = Channel(transport);
    Slices slices;
    for (auto _ : state) {
        slices.clear();
        if (ListSlices(channel, slices).Failed()) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    if (state.iterations() > 0 && slices.size() != kRecords) {
        state.SkipWithError("the slices did not come back");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

// Items per second are calls per second, of all threads together (real time).
#define TL_NET_BENCH(name, function, transport) \
    BENCHMARK_CAPTURE(function, name, transport)->Threads(1)->Threads(8)->UseRealTime()

TL_NET_BENCH(loopback, BM_Ping, kLoopback);
TL_NET_BENCH(unix, BM_Ping, kUnix);
TL_NET_BENCH(tcp, BM_Ping, kTcp);
TL_NET_BENCH(loopback, BM_ListSlices, kLoopback);
TL_NET_BENCH(unix, BM_ListSlices, kUnix);
TL_NET_BENCH(tcp, BM_ListSlices, kTcp);

}  // namespace

BENCHMARK_MAIN();
