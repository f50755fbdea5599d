// The generated record codecs on a packet of 10,000 slice records: writing, reading back, and
// the cost of the codec layer over parsing the same packet alone.

#include <cstdio>

#include <malloc.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/records.h>

#include "ratio_reporter.h"
#include "sample_slices.h"

namespace {

using bench_support::kSampleSlices;

const std::vector<ArchiveManagement::SliceInfo>& Slices() {
    return bench_support::SampleSlices();
}

const Serialization::MetaInfo& SlicesMeta() {
    static const Serialization::MetaInfo meta("Slices");
    return meta;
}

std::vector<unsigned char> WritePacket() {
    auto s = Serialization::CreateXMLPacketSerializer(2, 0);
    Serialization::WriteMember(*s, SlicesMeta(), Slices());
    std::vector<unsigned char> bytes;
    s->Finish(bytes);
    return bytes;
}

const std::vector<unsigned char>& Packet() {
    static const std::vector<unsigned char> packet = WritePacket();
    return packet;
}

void BM_WriteSlices(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(WritePacket());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kSampleSlices));
}

// Parsing only: the reader builds its tree of the packet and nothing is read from it.
void BM_ParsePacket(benchmark::State& state) {
    const auto& packet = Packet();
    for (auto _ : state) {
        auto d = Serialization::CreateXMLPacketDeserializer(packet.data(), packet.size(), 0);
        benchmark::DoNotOptimize(d.get());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kSampleSlices));
}

// Parsing and reading every record back through the codecs.
void BM_ReadSlices(benchmark::State& state) {
    const auto& packet = Packet();
    std::vector<ArchiveManagement::SliceInfo> last;
    for (auto _ : state) {
        auto d = Serialization::CreateXMLPacketDeserializer(packet.data(), packet.size(), 0);
        std::vector<ArchiveManagement::SliceInfo> slices;
        Serialization::ReadMember(*d, SlicesMeta(), slices);
        last = std::move(slices);
    }
    if (last != Slices()) {
        state.SkipWithError("the slices did not come back");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kSampleSlices));
}

// The floor under reading: the same records copied from memory, the copy of the round
// before destroyed in the same place. It makes and frees the blocks that the records' strings,
// map and vectors need, as reading them does, and nothing else.
void BM_CopySlices(benchmark::State& state) {
    const auto& source = Slices();
    std::vector<ArchiveManagement::SliceInfo> last;
    for (auto _ : state) {
        std::vector<ArchiveManagement::SliceInfo> slices = source;
        last = std::move(slices);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kSampleSlices));
}

BENCHMARK(BM_WriteSlices)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParsePacket)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadSlices)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopySlices)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // Both cases build a tree of tens of megabytes and free it again, and reading frees the
    // records of the round before. Left to itself, the allocator moves its thresholds with
    // what was freed last, so one case would get its memory back from the heap and the other
    // have the kernel zero every page again. Fixed thresholds treat both alike.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    bench_support::RepeatedArguments arguments(argc, argv);
    int& count = arguments.Count();
    benchmark::Initialize(&count, arguments.Values());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.Values())) {
        return 1;
    }
    bench_support::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double read = reporter.Ratio("BM_ReadSlices", "BM_ParsePacket");
    if (read > 0) {
        std::printf("\npacket of %zu slices, %zu bytes\n", kSampleSlices, Packet().size());
        std::printf("reading through the codecs / parsing alone = %.2f: the codecs add %.0f%% to the "
                    "parse (target <= 30%%) %s (repetitions spread %.0f%%)\n",
                    read, (read - 1) * 100, read <= 1.3 ? "ok" : "ABOVE",
                    100 * reporter.Spread("BM_ReadSlices", "BM_ParsePacket"));
    }
    const double copy = reporter.Ratio("BM_CopySlices", "BM_ParsePacket");
    if (read > 0 && copy > 0) {
        std::printf("copying the same records / parsing alone = %.2f: what making and freeing the "
                    "records' blocks costs; the codecs' own work beyond it = %.2f of the parse "
                    "(repetitions spread %.0f%%)\n",
                    copy, read - 1 - copy,
                    100 * reporter.Spread("BM_CopySlices", "BM_ParsePacket"));
    }
    benchmark::Shutdown();
    return 0;
}
