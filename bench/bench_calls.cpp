// Calls per second through the loopback channel, for a method without parameters and for one
// that returns 1,000 records, on 1 and 2 threads; and the binding layer's cost: a whole call
// (request object, channel, job, dispatcher, service, reply) against writing and reading the
// same two packets alone.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <malloc.h>
#include <pthread.h>
#include <sched.h>

#include <benchmark/benchmark.h>
#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/records.h>

#include "ratio_reporter.h"
#include "slice_service.h"

namespace {

using namespace bench_support;

Binding::LoopbackChannel& Channel() {
    static Binding::LoopbackChannel* channel = [] {
        auto* made = new Binding::LoopbackChannel();
        made->Register(std::make_unique<SliceDispatcher>());
        return made;
    }();
    return *channel;
}

// Keeps a single-threaded run on one core for its duration, the same core for the call and for
// its packets alone, so that the two meet the same caches and the ratio does not depend on
// where the scheduler moved the thread. Runs on several threads are left free.
class PinnedToOneCore {
public:
    explicit PinnedToOneCore(const benchmark::State& state) {
        if (state.threads() != 1 || pthread_getaffinity_np(pthread_self(), sizeof previous_,
                                                            &previous_) != 0) {
            return;
        }
        static const int core = sched_getcpu();
        if (core < 0) {
            return;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(core, &one);
        pinned_ = pthread_setaffinity_np(pthread_self(), sizeof one, &one) == 0;
    }
    ~PinnedToOneCore() {
        if (pinned_) {
            pthread_setaffinity_np(pthread_self(), sizeof previous_, &previous_);
        }
    }
    PinnedToOneCore(const PinnedToOneCore&) = delete;
    PinnedToOneCore& operator=(const PinnedToOneCore&) = delete;

private:
    cpu_set_t previous_{};
    bool pinned_ = false;
};

// Calls made before the measurement, so that the first repetition finds the allocator, the
// caches and the channel's state as the later ones do.
constexpr int kWarmUpRounds = 50;

void BM_Call_Ping(benchmark::State& state) {
    PinnedToOneCore pin(state);
    Binding::LoopbackChannel& channel = Channel();
    for (int i = 0; i < kWarmUpRounds; ++i) {
        (void)Ping(channel);
    }
    for (auto _ : state) {
        if (Ping(channel).Failed()) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_Call_ListSlices(benchmark::State& state) {
    PinnedToOneCore pin(state);
    Binding::LoopbackChannel& channel = Channel();
    Slices slices;
    for (int i = 0; i < kWarmUpRounds; ++i) {
        slices.clear();
        (void)ListSlices(channel, slices);
    }
    for (auto _ : state) {
        slices.clear();
        if (ListSlices(channel, slices).Failed()) {
            state.SkipWithError("the call failed");
            break;
        }
    }
    if (slices.size() != kRecords) {
        state.SkipWithError("the slices did not come back");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

// The same two packets, written and read with nothing around them: the request element with
// its arguments, then the reply element with "result" and the out values. The service's
// answer is made in both, so that the difference is the binding layer alone.
const Serialization::MetaInfo& Meta(const char* name) {
    static std::map<std::string, Serialization::MetaInfo> metas;
    auto at = metas.find(name);
    if (at == metas.end()) {
        at = metas.emplace(name, Serialization::MetaInfo(name)).first;
    }
    return at->second;
}

// Each packet is handed over as the call's channel hands it over, as a block taken from the
// writer rather than a copy, and given back as soon as its reader is built, before the values
// are read out: the call does both, so the packets alone do too.
template <class WriteRequest, class ReadRequest, class WriteReply, class ReadReply>
void PacketsAlone(WriteRequest&& writeRequest, ReadRequest&& readRequest, WriteReply&& writeReply,
                  ReadReply&& readReply) {
    Serialization::Blob packet;
    {
        Serialization::XMLPacketSerializer s(2, 0xffffffff);
        writeRequest(s);
        packet = s.Finish();
    }
    {
        Serialization::XMLPacketDeserializer d(packet.Data(), packet.Size(), 0);
        packet = Serialization::Blob();
        readRequest(d);
    }
    {
        Serialization::XMLPacketSerializer s(2, 0xffffffff);
        writeReply(s);
        packet = s.Finish();
    }
    Serialization::XMLPacketDeserializer d(packet.Data(), packet.Size(), 0);
    packet = Serialization::Blob();
    readReply(d);
}

// The two packets of Ping, with the outcome read from the reply.
void PingPackets(Common::Error& outcome) {
    static const auto& request = Meta("request_SliceManager_Ping");
    static const auto& reply = Meta("reply_SliceManager_Ping");
    static const auto& result = Meta("result");
    PacketsAlone([&](auto& s) { Serialization::WriteScope e(s, request); },
                 [&](auto& d) { Serialization::ReadScope e(d, request); },
                 [&](auto& s) {
                     Serialization::WriteScope e(s, reply);
                     s.Write(result, Common::ErrorSuccess);
                 },
                 [&](auto& d) {
                     Serialization::ReadScope e(d, reply);
                     d.Read(result, outcome);
                 });
}

// The two packets of ListSlices: the service's answer is made and written, and read back
// into `slices` as the call reads its out argument.
void ListSlicesPackets(Slices& slices, Common::Error& outcome) {
    static const auto& request = Meta("request_SliceManager_ListSlices");
    static const auto& reply = Meta("reply_SliceManager_ListSlices");
    static const auto& result = Meta("result");
    static const auto& member = Meta("slices");
    PacketsAlone([&](auto& s) { Serialization::WriteScope e(s, request); },
                 [&](auto& d) { Serialization::ReadScope e(d, request); },
                 [&](auto& s) {
                     // The service's own work, as in the call: it makes its answer.
                     Slices answer = Records();
                     Serialization::WriteScope e(s, reply);
                     s.Write(result, Common::ErrorSuccess);
                     Serialization::WriteMember(s, member, answer);
                 },
                 [&](auto& d) {
                     Serialization::ReadScope e(d, reply);
                     d.Read(result, outcome);
                     Serialization::ReadMember(d, member, slices);
                 });
}

void BM_Packets_Ping(benchmark::State& state) {
    PinnedToOneCore pin(state);
    for (auto _ : state) {
        Common::Error outcome;
        PingPackets(outcome);
        benchmark::DoNotOptimize(outcome);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_Packets_ListSlices(benchmark::State& state) {
    PinnedToOneCore pin(state);
    Slices slices;
    for (auto _ : state) {
        Common::Error outcome;
        slices.clear();
        ListSlicesPackets(slices, outcome);
    }
    if (slices.size() != kRecords) {
        state.SkipWithError("the slices did not come back");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK(BM_Packets_Ping)->UseRealTime();
BENCHMARK(BM_Call_Ping)->UseRealTime()->Threads(1)->Threads(2);
BENCHMARK(BM_Packets_ListSlices)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Call_ListSlices)->UseRealTime()->Threads(1)->Threads(2)->Unit(benchmark::kMillisecond);

// Keeps the calls per second (wall clock) and the CPU time per call of every repetition.
class RateReporter : public benchmark::ConsoleReporter {
public:
    struct Figures {
        bench_support::Summary CallsPerSecond;
        bench_support::Summary CpuPerCall;
    };

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                Samples& samples = samples_[run.benchmark_name()];
                const auto rate = run.counters.find("items_per_second");
                if (rate != run.counters.end()) {
                    samples.rate.push_back(rate->second.value);
                }
                samples.cpu.push_back(run.GetAdjustedCPUTime());
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    Figures Get(const std::string& name) const {
        const auto at = samples_.find(name);
        if (at == samples_.end()) {
            return Figures{};
        }
        return Figures{bench_support::Summarize(at->second.rate),
                       bench_support::Summarize(at->second.cpu)};
    }

private:
    struct Samples {
        std::vector<double> rate;
        std::vector<double> cpu;
    };
    std::map<std::string, Samples> samples_;
};

// The binding's cost is a ratio of CPU times (medians of the repetitions), which holds on a
// busy machine. The gain of a second thread is a ratio of calls per second by the wall clock,
// which needs two idle cores; beside it stands the CPU time per call on two threads over one,
// which shows any contention between the threads whatever else the machine does.
void Summarize(const RateReporter& reporter, const char* method) {
    const std::string call = std::string("BM_Call_") + method;
    const auto packets = reporter.Get(std::string("BM_Packets_") + method + "/real_time");
    const auto one = reporter.Get(call + "/real_time/threads:1");
    const auto two = reporter.Get(call + "/real_time/threads:2");
    if (packets.CpuPerCall.median <= 0 || one.CpuPerCall.median <= 0) {
        return;
    }
    const double cost = one.CpuPerCall.median / packets.CpuPerCall.median;
    std::printf(
        "%s: %.0f calls/s on 1 thread; a call costs %.2f x writing and reading its "
        "packets alone (target <= 1.30) %s; repetitions spread %.0f%% (call), %.0f%% (packets)\n",
        method, one.CallsPerSecond.median, cost, cost <= 1.3 ? "ok" : "ABOVE",
        100 * one.CpuPerCall.spread, 100 * packets.CpuPerCall.spread);
    if (two.CallsPerSecond.median > 0) {
        const double gain = two.CallsPerSecond.median / one.CallsPerSecond.median;
        std::printf(
            "%s: %.0f calls/s on 2 threads = %.2f x 1 thread (target >= 1.70) %s; "
            "CPU per call on 2 threads / on 1 = %.2f\n",
            method, two.CallsPerSecond.median, gain, gain >= 1.7 ? "ok" : "BELOW",
            two.CpuPerCall.median / one.CpuPerCall.median);
    }
}

// `--count=<what>:<n>` makes n calls or n rounds of packets alone and nothing else, for
// counting instructions with callgrind (the machine's load does not change them): <what> is
// call_ping, packets_ping, call_slices or packets_slices. The count of n = 6 less that of
// n = 2, divided by 4, is the work of one.
int Count(const char* argument) {
    const char* colon = std::strchr(argument, ':');
    const int rounds = colon != nullptr ? std::atoi(colon + 1) : 0;
    const std::string what(argument, colon != nullptr ? colon : argument + std::strlen(argument));
    Binding::LoopbackChannel& channel = Channel();
    Slices slices;
    Common::Error outcome;
    for (int i = 0; i < rounds; ++i) {
        slices.clear();
        if (what == "call_ping") {
            outcome = Ping(channel);
        } else if (what == "packets_ping") {
            PingPackets(outcome);
        } else if (what == "call_slices") {
            outcome = ListSlices(channel, slices);
        } else if (what == "packets_slices") {
            ListSlicesPackets(slices, outcome);
        } else {
            std::fprintf(stderr, "--count: unknown '%s'\n", what.c_str());
            return 1;
        }
        if (outcome.Failed()) {
            std::fprintf(stderr, "--count: the %s failed\n", what.c_str());
            return 1;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Both cases make and free some megabytes a call (the reply, its tree, the records). Left
    // to itself, the allocator moves its thresholds with what was freed last and trims the
    // heap whenever the freed memory happens to lie at its top, so whether a case has the
    // kernel zero every page again depends on where earlier allocations landed, not on what
    // it does: one case ran without page faults, the other with 1,400 a call. Fixed
    // thresholds treat both alike.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    if (argc == 2 && std::strncmp(argv[1], "--count=", 8) == 0) {
        return Count(argv[1] + 8);
    }
    // Nine repetitions, run in random order between the cases, so that a change in the
    // machine's load during the run falls on both sides of a ratio.
    std::vector<char*> given(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=9";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    const auto names = [&](const char* prefix) {
        return std::any_of(given.begin(), given.end(), [&](const char* a) {
            return std::strncmp(a, prefix, std::strlen(prefix)) == 0;
        });
    };
    if (!names("--benchmark_repetitions")) {
        given.push_back(repetitions);
    }
    if (!names("--benchmark_enable_random_interleaving")) {
        given.push_back(interleaving);
    }
    bench_support::RepeatedArguments arguments(static_cast<int>(given.size()), given.data());
    int& count = arguments.Count();
    benchmark::Initialize(&count, arguments.Values());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.Values())) {
        return 1;
    }
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    Summarize(reporter, "Ping");
    Summarize(reporter, "ListSlices");
    benchmark::Shutdown();
    return 0;
}
