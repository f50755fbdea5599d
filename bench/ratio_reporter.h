#pragma once

// Runs the registered benchmarks with the console reporter, keeps every result's CPU time per
// iteration, and prints the ratios that a benchmark file asks for behind the table.

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench_support {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.benchmark_name()] = run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Time of `slow` over time of `fast`, or 0 when either did not run.
    double Ratio(const std::string& slow, const std::string& fast) const {
        const auto s = times_.find(slow);
        const auto f = times_.find(fast);
        if (s == times_.end() || f == times_.end() || f->second <= 0) {
            return 0;
        }
        return s->second / f->second;
    }

private:
    std::map<std::string, double> times_;
};

struct RatioLine {
    std::string label;  // what is compared
    std::string peer;   // benchmark name of the peer
    std::string ours;   // benchmark name of ours
    double target;      // the peer's time over ours must reach this; 0 for none
};

// The main of a benchmark file: runs everything, then prints "label: peer/ours = R (target
// T) ok|BELOW" for each line.
inline int RunWithRatios(int argc, char** argv, const std::vector<RatioLine>& lines) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
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
        if (line.target <= 0) {
            std::printf("%s: peer time / our time = %.2f\n", line.label.c_str(), ratio);
            continue;
        }
        std::printf("%s: peer time / our time = %.2f (target >= %.2f) %s\n", line.label.c_str(),
                    ratio, line.target, ratio >= line.target ? "ok" : "BELOW");
    }
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench_support
