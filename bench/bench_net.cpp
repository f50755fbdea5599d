// Calls per second through the socket channel, over a Unix socket and over loopback TCP, for
// a method without parameters and for one that returns 1,000 records, on 1 and 8 client
// threads, beside the loopback channel's figure for the same calls. The service runs in the
// same process on the host's own threads, so that client and server share the machine's
// cores as two processes on one machine would.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <time.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/net/service_host.h>
#include <tessel_link/net/socket_channel.h>
#include <tessel_link/xidl/records.h>

#include "slice_service.h"

namespace {

using namespace bench_support;

enum Transport { kLoopback, kUnix, kTcp };

// The host's threads: TL_BENCH_HOST_THREADS, else the host's default.
unsigned HostThreads() {
    const char* given = std::getenv("TL_BENCH_HOST_THREADS");
    const int threads = given != nullptr ? std::atoi(given) : 0;
    return threads > 0 ? static_cast<unsigned>(threads) : Net::HostOptions{}.Threads;
}

// The channels, made once for the whole run; the hosts live as long as the process.
Binding::RequestChannel& Channel(Transport transport) {
    static Binding::RequestChannel* channels[3] = {};
    static const bool made = [] {
        auto* loopback = new Binding::LoopbackChannel();
        loopback->Register(std::make_unique<SliceDispatcher>());
        channels[kLoopback] = loopback;

        Net::HostOptions options;
        options.Threads = HostThreads();
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

// Processor time of the whole process (callers and host together), in microseconds.
double ProcessMicros() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// Reports `cpu_us`: the processor time of client and host per call, of all threads together.
// Thread 0 takes the process's clock around its loop, which begins and ends with the others'.
class CallCost {
public:
    explicit CallCost(benchmark::State& state)
        : state_(state), start_(state.thread_index() == 0 ? ProcessMicros() : 0) {}
    ~CallCost() {
        if (state_.thread_index() != 0 || state_.iterations() == 0) {
            return;
        }
        const double calls = static_cast<double>(state_.iterations()) * state_.threads();
        state_.counters["cpu_us"] = (ProcessMicros() - start_) / calls;
    }
    CallCost(const CallCost&) = delete;
    CallCost& operator=(const CallCost&) = delete;

private:
    benchmark::State& state_;
    double start_;
};

void BM_Ping(benchmark::State& state, Transport transport) {
    Binding::RequestChannel& channel = Channel(transport);
    const CallCost cost(state);
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
    const CallCost cost(state);
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
