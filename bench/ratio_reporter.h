#pragma once

// Runs the registered benchmarks with the console reporter, keeps the CPU time per iteration
// of every repetition, and prints the ratios that a benchmark file asks for behind the table.
// A ratio compares the medians of the repetitions (three unless the command line asks for
// another number), and its line says how far the repetitions spread.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench_support {

// The median and the spread ((largest - smallest) / median) of some measurements.
struct Summary {
    double median = 0;
    double spread = 0;
};

inline Summary Summarize(std::vector<double> values) {
    Summary summary;
    if (values.empty()) {
        return summary;
    }
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    summary.median = n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    if (summary.median > 0) {
        summary.spread = (values.back() - values.front()) / summary.median;
    }
    return summary;
}

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.benchmark_name()].push_back(run.GetAdjustedCPUTime());
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // The CPU time per iteration of one benchmark over its repetitions.
    Summary Time(const std::string& name) const {
        const auto at = times_.find(name);
        return at == times_.end() ? Summary{} : Summarize(at->second);
    }

    // Median time of `slow` over median time of `fast`, or 0 when either did not run.
    double Ratio(const std::string& slow, const std::string& fast) const {
        const Summary s = Time(slow);
        const Summary f = Time(fast);
        if (s.median <= 0 || f.median <= 0) {
            return 0;
        }
        return s.median / f.median;
    }

    // The larger spread of two benchmarks' repetitions.
    double Spread(const std::string& a, const std::string& b) const {
        return std::max(Time(a).spread, Time(b).spread);
    }

private:
    std::map<std::string, std::vector<double>> times_;
};

// The command line with "--benchmark_repetitions=3" added unless it names a number itself:
// one run of a benchmark says little about the next.
class RepeatedArguments {
public:
    RepeatedArguments(int argc, char** argv) : arguments_(argv, argv + argc) {
        const bool given = std::any_of(arguments_.begin(), arguments_.end(), [](const char* a) {
            return std::strncmp(a, "--benchmark_repetitions", 23) == 0;
        });
        if (!given) {
            arguments_.push_back(repetitions_);
        }
        arguments_.push_back(nullptr);
    }
    int& Count() { return count_ = static_cast<int>(arguments_.size()) - 1; }
    char** Values() { return arguments_.data(); }

private:
    char repetitions_[32] = "--benchmark_repetitions=3";
    std::vector<char*> arguments_;
    int count_ = 0;
};

struct RatioLine {
    std::string label;  // what is compared
    std::string peer;   // benchmark name of the peer
    std::string ours;   // benchmark name of ours
    double target;      // the peer's time over ours must reach this; 0 for none
};

// The main of a benchmark file: runs everything, then prints "label: peer/ours = R (target
// T) ok|BELOW; spread S%" for each line.
inline int RunWithRatios(int argc, char** argv, const std::vector<RatioLine>& lines) {
    RepeatedArguments arguments(argc, argv);
    int& count = arguments.Count();
    benchmark::Initialize(&count, arguments.Values());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.Values())) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\n");
    for (const RatioLine& line : lines) {
        const double ratio = reporter.Ratio(line.peer, line.ours);
        if (ratio == 0) {
            continue;
        }
        const double spread = 100 * reporter.Spread(line.peer, line.ours);
        if (line.target <= 0) {
            std::printf("%s: peer time / our time = %.2f (repetitions spread %.0f%%)\n",
                        line.label.c_str(), ratio, spread);
            continue;
        }
        std::printf("%s: peer time / our time = %.2f (target >= %.2f) %s (repetitions spread %.0f%%)\n",
                    line.label.c_str(), ratio, line.target, ratio >= line.target ? "ok" : "BELOW",
                    spread);
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench_support
