// The unit tree: building 100,000 units, copying, comparing with the copy, and printing.
// There is no other library to hold this against, so the build is the yardstick: each
// operation is reported as a ratio to building the same tree. Also reports the memory the
// tree takes per unit.

#include <malloc.h>

#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <ostream>
#include <streambuf>
#include <string>

#include <benchmark/benchmark.h>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/print.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>

// ---- heap accounting: bytes in use, as the allocator hands them out ----

namespace {
std::atomic<long long> g_heapBytes{0};
}  // namespace

// These replace the global allocation functions with malloc and free underneath; GCC cannot
// see that the two belong together and warns at every free.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    g_heapBytes.fetch_add(static_cast<long long>(malloc_usable_size(p)), std::memory_order_relaxed);
    return p;
}
void operator delete(void* p) noexcept {
    if (p != nullptr) {
        g_heapBytes.fetch_sub(static_cast<long long>(malloc_usable_size(p)),
                              std::memory_order_relaxed);
        std::free(p);
    }
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}

namespace {

using Por::UnitName;
using Por::UnitPtr;
namespace Construction = Por::Construction;

constexpr int kRecords = 6250;  // 16 units each, 100,000 in all (plus the root and its list)

// One record: a composite with a version trait, two scalars and two arrays with their
// container traits.
UnitPtr BuildRecord(Construction::UnitFactory& f, int i) {
    UnitPtr record = f.CreateComposite();
    Construction::CompositeValue& fields = Por::Util::AsComposite(*record);
    record->GetTraits().Add(f.CreateTrait(UnitName::Literal(Por::TraitNames::Version), f.CreateQword(3)));

    fields.Set(f.CreateProperty(UnitName::Literal("Id"), f.CreateQword(1000000ull + i)));
    fields.Set(f.CreateProperty(UnitName::Literal("Name"),
                                f.CreateString(u"record number " + std::u16string(1, u'a' + i % 26))));

    UnitPtr values = f.CreateArray();
    Construction::ArrayValue& valueList = Por::Util::AsArray(*values);
    for (std::uint32_t k = 0; k < 5; ++k) {
        valueList.PushBack(f.CreateDword(static_cast<std::uint32_t>(i) * 5 + k));
    }
    values->GetTraits().Add(
        f.CreateTrait(UnitName::Literal(Por::TraitNames::IsContainer), f.CreateString(u"vector")));
    fields.Set(f.CreateProperty(UnitName::Literal("Values"), std::move(values)));

    UnitPtr tags = f.CreateArray();
    Construction::ArrayValue& tagList = Por::Util::AsArray(*tags);
    tagList.PushBack(f.CreateString(u"alpha"));
    tagList.PushBack(f.CreateString(u"beta"));
    tagList.PushBack(f.CreateString(u"a longer tag text"));
    tags->GetTraits().Add(
        f.CreateTrait(UnitName::Literal(Por::TraitNames::IsContainer), f.CreateString(u"list")));
    fields.Set(f.CreateProperty(UnitName::Literal("Tags"), std::move(tags)));
    return record;
}

UnitPtr BuildTree(Construction::UnitFactory& f) {
    UnitPtr list = f.CreateArray();
    Construction::ArrayValue& records = Por::Util::AsArray(*list);
    for (int i = 0; i < kRecords; ++i) {
        records.PushBack(BuildRecord(f, i));
    }
    UnitPtr root = f.CreateComposite();
    Por::Util::AsComposite(*root).Set(f.CreateProperty(UnitName::Literal("Records"), std::move(list)));
    return root;
}

std::size_t CountUnits(const Por::View::Unit& unit) {
    std::size_t count = 1;
    auto trait = Por::MakeProcessor<const Por::View::Trait>(
        [&](const Por::View::Trait& t) { count += CountUnits(t.GetUnit()); });
    unit.GetTraits().ForEach(trait);
    Por::VisitValue(unit, [&](const auto& value) {
        using V = std::remove_cvref_t<decltype(value)>;
        if constexpr (Por::ValueKindOf<V> == Por::ArrayType) {
            auto each = Por::MakeProcessor<const Por::View::Unit>(
                [&](const Por::View::Unit& u) { count += CountUnits(u); });
            value.ForEach(each);
        } else if constexpr (Por::ValueKindOf<V> == Por::CompositeType) {
            auto each = Por::MakeProcessor<const Por::View::Property>(
                [&](const Por::View::Property& p) { count += CountUnits(p.GetUnit()); });
            value.ForEach(each);
        }
    });
    return count;
}

// Swallows what the printer writes, counting it.
class CountingBuffer final : public std::streambuf {
public:
    std::size_t written = 0;

protected:
    std::streamsize xsputn(const char*, std::streamsize n) override {
        written += static_cast<std::size_t>(n);
        return n;
    }
    int_type overflow(int_type c) override {
        ++written;
        return traits_type::not_eof(c);
    }
};

Construction::InMemoryUnitFactory g_factory;

// The thread's CPU time: the machine is shared, and time spent waiting for a core says nothing
// about the code.
struct Clock {
    using time_point = double;
    static double now() {
        timespec t{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
    }
};

double Milliseconds(double from, double to) {
    return to - from;
}

// One iteration runs every operation once on fresh trees, so that all of them meet the same
// state of the heap and the caches, and the ratios compare like with like. The times of the
// phases are counters; the iteration time is their sum.
void BM_TreeCycle(benchmark::State& state) {
    double build = 0, copy = 0, compare = 0, equal = 0, print = 0, destroy = 0;
    for (auto _ : state) {
        const auto t0 = Clock::now();
        UnitPtr tree = BuildTree(g_factory);
        const auto t1 = Clock::now();
        UnitPtr duplicate = Por::Util::CopyUnit(*tree, g_factory);
        const auto t2 = Clock::now();
        const int order = Por::Util::Compare(*tree, *duplicate);
        const auto t3 = Clock::now();
        const bool same = Por::Util::UnitEqual(*tree, *duplicate);
        const auto t4 = Clock::now();
        CountingBuffer buffer;
        std::ostream out(&buffer);
        Por::Util::Print(*tree, "", out);
        const auto t5 = Clock::now();
        duplicate.reset();
        const auto t6 = Clock::now();
        tree.reset();
        if (order != 0 || !same) {
            state.SkipWithError("a copy did not compare equal to its source");
            break;
        }
        benchmark::DoNotOptimize(buffer.written);
        build += Milliseconds(t0, t1);
        copy += Milliseconds(t1, t2);
        compare += Milliseconds(t2, t3);
        equal += Milliseconds(t3, t4);
        print += Milliseconds(t4, t5);
        destroy += Milliseconds(t5, t6);
    }
    const auto average = benchmark::Counter::kAvgIterations;
    state.counters["build_ms"] = benchmark::Counter(build, average);
    state.counters["copy_ms"] = benchmark::Counter(copy, average);
    state.counters["compare_ms"] = benchmark::Counter(compare, average);
    state.counters["equal_ms"] = benchmark::Counter(equal, average);
    state.counters["print_ms"] = benchmark::Counter(print, average);
    state.counters["destroy_ms"] = benchmark::Counter(destroy, average);
}
BENCHMARK(BM_TreeCycle)->Unit(benchmark::kMillisecond)->Repetitions(7);

// Keeps, for each phase, the best average of the repetitions: the machine is shared, and
// other processes only ever add to a figure.
class RatioReporter final : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> best;

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0) {
                continue;
            }
            for (const auto& [name, counter] : run.counters) {
                const double ms = counter.value;
                auto [it, fresh] = best.emplace(name, ms);
                if (!fresh && ms < it->second) {
                    it->second = ms;
                }
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }

    // Memory: what the tree holds on the heap, per unit.
    const long long before = g_heapBytes.load();
    UnitPtr tree = BuildTree(g_factory);
    const long long bytes = g_heapBytes.load() - before;
    const std::size_t units = CountUnits(*tree);
    tree.reset();

    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nTree: %zu units, %lld bytes on the heap, %.1f bytes per unit\n", units, bytes,
                static_cast<double>(bytes) / static_cast<double>(units));
    const auto build = reporter.best.find("build_ms");
    if (build == reporter.best.end() || build->second <= 0) {
        return 0;
    }
    std::printf("Best of the repetitions, as ratios to building the tree (%.2f ms):\n",
                build->second);
    const struct {
        const char* counter;
        const char* label;
        double target;
    } rows[] = {
        {"copy_ms", "copy", 1.5},   {"compare_ms", "compare", 1.0}, {"equal_ms", "equal", 0.0},
        {"print_ms", "print", 0.0}, {"destroy_ms", "destroy", 0.0},
    };
    for (const auto& row : rows) {
        const auto it = reporter.best.find(row.counter);
        if (it == reporter.best.end()) {
            continue;
        }
        const double ratio = it->second / build->second;
        if (row.target > 0) {
            std::printf("  %-8s %6.2f ms  %5.2fx  (target <= %.1fx: %s)\n", row.label, it->second,
                        ratio, row.target, ratio <= row.target ? "met" : "missed");
        } else {
            std::printf("  %-8s %6.2f ms  %5.2fx\n", row.label, it->second, ratio);
        }
    }
    return 0;
}
