// The binary unit form and records as trees: writing and reading back the blob of a
// 100,000-unit tree (MB/s), turning 10,000 slice records into trees (records/s) against
// writing the same records into a packet, and the size of the binary form of those records
// against their packet.

#include <cstdio>

#include <malloc.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/in_memory_factory.h>
#include "por/serialize/record_to_unit.h"
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>
#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/xml_packet_serializer.h>
#include <tessel_link/xidl/records.h>

#include "ratio_reporter.h"
#include "sample_slices.h"

namespace {

using Por::UnitName;
using Por::UnitPtr;
namespace Construction = Por::Construction;

Construction::InMemoryUnitFactory g_factory;

// ---- the 100,000-unit tree ----

constexpr int kTreeRecords = 11111;  // 9 units each, plus the root and its list: 100,001 units

// A record as trees hold them: a versioned composite with scalars of several widths, a
// string, a GUID and a small container.
UnitPtr TreeRecord(int i) {
    Construction::UnitFactory& f = g_factory;
    UnitPtr record = f.CreateComposite();
    Por::Util::AddTrait(*record, UnitName::Literal(Por::TraitNames::Version), f.CreateQword(7), f);
    Por::Util::AddProperty(*record, UnitName::Literal("Id"), f.CreateQword(1000000ull + i), f);
    Por::Util::AddProperty(*record, UnitName::Literal("Name"),
                           f.CreateString(u"item " + Common::Utf8ToUtf16Lenient(std::to_string(i))), f);
    Por::Util::AddProperty(*record, UnitName::Literal("Enabled"), f.CreateBoolean(i % 2 == 0), f);
    Common::Guid id;
    Common::Create(id);
    Por::Util::AddProperty(*record, UnitName::Literal("Location"), f.CreateGuid(id), f);
    UnitPtr sizes = f.CreateArray();
    for (std::uint32_t k = 0; k < 3; ++k) {
        Por::Util::AddArrayElement(*sizes, f.CreateDword(static_cast<std::uint32_t>(i) * 3 + k));
    }
    Por::Util::AddTrait(*sizes, UnitName::Literal(Por::TraitNames::IsContainer), f.CreateString(u"vector"), f);
    Por::Util::AddProperty(*record, UnitName::Literal("Sizes"), std::move(sizes), f);
    return record;
}

const Construction::Unit& Tree() {
    static const UnitPtr tree = [] {
        UnitPtr list = g_factory.CreateArray();
        for (int i = 0; i < kTreeRecords; ++i) {
            Por::Util::AddArrayElement(*list, TreeRecord(i));
        }
        UnitPtr root = g_factory.CreateComposite();
        Por::Util::AddProperty(*root, UnitName::Literal("Records"), std::move(list), g_factory);
        return root;
    }();
    return *tree;
}

const std::vector<unsigned char>& TreeBlob() {
    static const std::vector<unsigned char> blob = [] {
        std::vector<unsigned char> bytes;
        Por::Util::WriteBlob(Tree(), bytes);
        return bytes;
    }();
    return blob;
}

void BM_WriteBlob(benchmark::State& state) {
    std::vector<unsigned char> bytes;
    for (auto _ : state) {
        bytes.clear();
        Por::Util::WriteBlob(Tree(), bytes);
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

void BM_ReadBlob(benchmark::State& state) {
    const std::vector<unsigned char>& blob = TreeBlob();
    UnitPtr last;
    for (auto _ : state) {
        last = Por::Util::ReadBlob(blob, g_factory);
        // Dropping the tree is its owner's cost, not reading it; it stays out of the time.
        state.PauseTiming();
        last.reset();
        state.ResumeTiming();
    }
    last = Por::Util::ReadBlob(blob, g_factory);
    if (!last || !Por::Util::UnitEqual(*last, Tree())) {
        state.SkipWithError("the tree did not come back");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * blob.size()));
}

// ---- 10,000 slice records ----

const std::vector<ArchiveManagement::SliceInfo>& Slices() {
    return bench_support::SampleSlices();
}

// Each record on its own through its adapter, as the creators use it.
void BM_SlicesToUnits(benchmark::State& state) {
    const auto& slices = Slices();
    std::vector<UnitPtr> units(slices.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < slices.size(); ++i) {
            Por::Serialization::RecordToUnit(units[i], slices[i], g_factory);
        }
        benchmark::DoNotOptimize(units.data());
        // Dropping the trees is their owner's cost, not making them; it stays out of the time.
        state.PauseTiming();
        for (UnitPtr& unit : units) {
            unit.reset();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * slices.size()));
}

// The peer: the same records, each written into a packet of its own.
void BM_SlicesToPackets(benchmark::State& state) {
    const auto& slices = Slices();
    std::vector<unsigned char> bytes;
    for (auto _ : state) {
        for (const auto& slice : slices) {
            Serialization::XMLPacketSerializer s(2, 0);
            Serialization::WriteMember(s, Serialization::MetaInfo("Root"), slice);
            s.Finish(bytes);
            benchmark::DoNotOptimize(bytes.data());
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * slices.size()));
}

BENCHMARK(BM_WriteBlob)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadBlob)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SlicesToUnits)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SlicesToPackets)->Unit(benchmark::kMillisecond);

// All slices as one member "Slices", once as a tree in its binary form and once as a packet.
std::size_t SlicesBlobSize() {
    UnitPtr tree;
    {
        Por::Serialization::PORSerializer s(g_factory, tree);
        Serialization::WriteScope root(s, Serialization::MetaInfo("Root"));
        Serialization::WriteMember(s, Serialization::MetaInfo("Slices"), Slices());
    }
    std::vector<unsigned char> bytes;
    Por::Util::WriteBlob(*tree, bytes);
    return bytes.size();
}

std::size_t SlicesPacketSize() {
    Serialization::XMLPacketSerializer s(2, 0);
    Serialization::WriteMember(s, Serialization::MetaInfo("Slices"), Slices());
    std::vector<unsigned char> bytes;
    s.Finish(bytes);
    return bytes.size();
}

std::size_t CountUnits(const Por::View::Unit& unit) {
    std::size_t count = 1;
    auto trait = Por::MakeProcessor<const Por::View::Trait>(
        [&](const Por::View::Trait& t) { count += CountUnits(t.GetUnit()); });
    unit.GetTraits().ForEach(trait);
    if (Por::Util::IsArray(unit)) {
        auto each = Por::MakeProcessor<const Por::View::Unit>(
            [&](const Por::View::Unit& u) { count += CountUnits(u); });
        Por::Util::AsArray(unit).ForEach(each);
    } else if (Por::Util::IsComposite(unit)) {
        auto each = Por::MakeProcessor<const Por::View::Property>(
            [&](const Por::View::Property& p) { count += CountUnits(p.GetUnit()); });
        Por::Util::AsComposite(unit).ForEach(each);
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    bench_support::RepeatedArguments arguments(argc, argv);
    int& count = arguments.Count();
    benchmark::Initialize(&count, arguments.Values());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.Values())) {
        return 1;
    }
    // Trees of 10,000 records take tens of megabytes that the heap would hand back to the
    // kernel between repetitions, so that each repetition paid for zeroed pages again and
    // the figure followed the heap's trimming rather than the work. Fixed thresholds keep
    // freed memory in the heap for every benchmark of the run alike.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    bench_support::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\ntree: %d units and %zu more in traits, binary form %zu bytes\n",
                kTreeRecords * 9 + 2, CountUnits(Tree()) - (kTreeRecords * 9 + 2),
                TreeBlob().size());
    const double read = reporter.Ratio("BM_ReadBlob", "BM_WriteBlob");
    if (read > 0) {
        std::printf("reading the blob / writing it = %.2f (target <= 1.50) %s (repetitions spread %.0f%%)\n",
                    read, read <= 1.5 ? "ok" : "ABOVE",
                    100 * reporter.Spread("BM_ReadBlob", "BM_WriteBlob"));
    }
    const double records = reporter.Ratio("BM_SlicesToPackets", "BM_SlicesToUnits");
    if (records > 0) {
        std::printf("%zu slices: tree making time / packet writing time = %.2f (target <= 2.00) %s "
                    "(repetitions spread %.0f%%)\n",
                    bench_support::kSampleSlices, 1 / records, 1 / records <= 2.0 ? "ok" : "ABOVE",
                    100 * reporter.Spread("BM_SlicesToPackets", "BM_SlicesToUnits"));
    }
    const std::size_t blob = SlicesBlobSize();
    const std::size_t packet = SlicesPacketSize();
    std::printf("%zu slices as one member: binary form %zu bytes, packet %zu bytes, "
                "binary / packet = %.2f\n",
                bench_support::kSampleSlices, blob, packet, static_cast<double>(blob) / static_cast<double>(packet));
    return 0;
}
