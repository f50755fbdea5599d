// Walking a tree of 100,000 files and reading name, type, size and modification time of
// each: the directory objects beside std::filesystem::recursive_directory_iterator and
// nftw, in one run. The tree is made once in the temporary directory and removed at exit;
// TESSEL_WALK_TREE names a directory to use instead, made when missing and kept, so that a
// profiler can skip making and removing the tree.
//
// The directory objects walk twice: with GetEntryInfo, the one call that gives all four, as a
// program that wants them writes it, and with one getter for each.
//
// The walks see the same tree with a warm cache, and their repetitions are interleaved (nine
// of each unless the command line says otherwise), so that a change of the machine's load
// hits all of them alike. Behind the ratios of CPU time the benchmark prints each walk's
// user-space and system time per entry, from the thread's resource usage, since the walks
// make the same system calls for an entry (one fstatat) and differ in user space only.

#include <fcntl.h>
#include <ftw.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/file/system_dir.h>

#include "ratio_reporter.h"

namespace {

namespace fs = std::filesystem;

constexpr int kTop = 10;
constexpr int kMiddle = 10;
constexpr int kFiles = 1000;  // per leaf directory: 100,000 in all

struct Totals {
    std::uint64_t entries = 0;
    std::uint64_t bytes = 0;
    std::int64_t times = 0;
    std::uint64_t nameLength = 0;
};

class Tree {
public:
    Tree() {
        const char* given = std::getenv("TESSEL_WALK_TREE");
        if (given != nullptr && given[0] != '\0') {
            root = given;
            keep_ = true;
            struct stat s {};
            if (::stat((root + "/top0").c_str(), &s) == 0) {
                return;  // made by an earlier run
            }
            ::mkdir(root.c_str(), 0755);
        } else {
            std::string pattern = (fs::temp_directory_path() / "tessel_walk_XXXXXX").string();
            if (::mkdtemp(pattern.data()) == nullptr) {
                std::abort();
            }
            root = pattern;
        }
        std::string content;
        for (int t = 0; t < kTop; ++t) {
            const std::string top = root + "/top" + std::to_string(t);
            ::mkdir(top.c_str(), 0755);
            for (int m = 0; m < kMiddle; ++m) {
                const std::string middle = top + "/dir" + std::to_string(m);
                ::mkdir(middle.c_str(), 0755);
                for (int f = 0; f < kFiles; ++f) {
                    const std::string file = middle + "/file_" + std::to_string(f) + ".dat";
                    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                    if (fd >= 0) {
                        // Small sizes that differ, without filling the disk.
                        content.assign(static_cast<std::size_t>(f % 7), 'x');
                        if (!content.empty() && ::write(fd, content.data(), content.size()) < 0) {
                            std::abort();
                        }
                        ::close(fd);
                    }
                }
            }
        }
    }
    ~Tree() {
        if (!keep_) {
            std::error_code ignored;
            fs::remove_all(root, ignored);
        }
    }

    std::string root;

private:
    bool keep_ = false;
};

Tree& TheTree() {
    static Tree tree;
    return tree;
}

// User-space and system time of the calling thread, in nanoseconds.
struct ThreadTimes {
    double user = 0;
    double system = 0;

    static ThreadTimes Now() {
        struct rusage usage {};
        ::getrusage(RUSAGE_THREAD, &usage);
        const auto ns = [](const struct timeval& t) {
            return static_cast<double>(t.tv_sec) * 1e9 + static_cast<double>(t.tv_usec) * 1e3;
        };
        return {ns(usage.ru_utime), ns(usage.ru_stime)};
    }
};

// Per entry, for every timed run of every walk (the runs that size the repetitions
// included), and the number of walks made in all; printed at the end.
std::map<std::string, std::vector<ThreadTimes>> perEntry;
std::map<std::string, std::uint64_t> walks;

// Measures the thread's times around the timed loop of one repetition.
class EntryTimes {
public:
    EntryTimes(benchmark::State& state, std::string walk)
        : state_(state), walk_(std::move(walk)), start_(ThreadTimes::Now()) {}
    ~EntryTimes() {
        const ThreadTimes end = ThreadTimes::Now();
        const double entries = static_cast<double>(state_.iterations()) * entries_;
        if (entries <= 0) {
            return;
        }
        const ThreadTimes each{(end.user - start_.user) / entries,
                               (end.system - start_.system) / entries};
        state_.counters["user_ns"] = each.user;
        state_.counters["sys_ns"] = each.system;
        perEntry[walk_].push_back(each);
        walks[walk_] += static_cast<std::uint64_t>(state_.iterations());
    }
    void Count(std::uint64_t entries) {
        entries_ = static_cast<double>(entries);
        state_.counters["entries"] = entries_;
    }

private:
    benchmark::State& state_;
    std::string walk_;
    ThreadTimes start_;
    double entries_ = 0;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n == 0 ? 0 : n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

void PrintPerEntry() {
    std::printf("\nper entry, median (smallest to largest) of the timed runs:\n");
    for (const auto& [name, runs] : perEntry) {
        std::vector<double> user, system;
        for (const ThreadTimes& t : runs) {
            user.push_back(t.user);
            system.push_back(t.system);
        }
        std::printf(
            "  %-16s user %6.1f ns (%.1f to %.1f), system %7.1f ns (%.1f to %.1f); %llu walks\n",
            name.c_str(), Median(user), *std::min_element(user.begin(), user.end()),
            *std::max_element(user.begin(), user.end()), Median(system),
            *std::min_element(system.begin(), system.end()),
            *std::max_element(system.begin(), system.end()),
            static_cast<unsigned long long>(walks[name]));
    }
}

// The walk as a program that wants these four things of every entry writes it: one call
// gives them all.
void WalkOurs(File::i_dir& dir, Totals& totals) {
    const std::unique_ptr<File::i_dir::iterator> it(dir.GetIterator());
    File::dir_entry_info info;
    for (; !it->Failed(); it->Next()) {
        it->GetEntryInfo(info);
        totals.entries += 1;
        totals.nameLength += info.NameLength;
        totals.bytes += info.Size;
        totals.times += info.WriteTime;
        if (info.Type == File::entry_dir) {
            const std::unique_ptr<File::i_dir> sub(dir.OpenDir(*it));
            if (sub) {
                WalkOurs(*sub, totals);
            }
        }
    }
}

// The same with one getter for each thing.
void WalkOursByGetters(File::i_dir& dir, Totals& totals) {
    const std::unique_ptr<File::i_dir::iterator> it(dir.GetIterator());
    for (; !it->Failed(); it->Next()) {
        const char16_t* name = it->GetName();
        const std::uint32_t type = it->GetType();
        totals.entries += 1;
        totals.nameLength += std::char_traits<char16_t>::length(name);
        totals.bytes += it->GetSize();
        totals.times += it->GetWriteTime();
        if (type == File::entry_dir) {
            const std::unique_ptr<File::i_dir> sub(dir.OpenDir(*it));
            if (sub) {
                WalkOursByGetters(*sub, totals);
            }
        }
    }
}

void BM_Walk_Ours(benchmark::State& state) {
    const std::u16string root = File::NativeNameToWide(TheTree().root);
    EntryTimes times(state, "ours");
    for (auto _ : state) {
        Totals totals;
        Common::Error error;
        const auto dir = File::OpenSystemDir(root, error);
        WalkOurs(*dir, totals);
        benchmark::DoNotOptimize(totals);
        times.Count(totals.entries);
    }
}

void BM_Walk_OursByGetters(benchmark::State& state) {
    const std::u16string root = File::NativeNameToWide(TheTree().root);
    EntryTimes times(state, "ours by getters");
    for (auto _ : state) {
        Totals totals;
        Common::Error error;
        const auto dir = File::OpenSystemDir(root, error);
        WalkOursByGetters(*dir, totals);
        benchmark::DoNotOptimize(totals);
        times.Count(totals.entries);
    }
}

void BM_Walk_StdFilesystem(benchmark::State& state) {
    const fs::path root = TheTree().root;
    EntryTimes times(state, "std::filesystem");
    for (auto _ : state) {
        Totals totals;
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(root, ec);
             it != fs::recursive_directory_iterator(); it.increment(ec)) {
            const fs::directory_entry& entry = *it;
            totals.entries += 1;
            totals.nameLength += entry.path().filename().native().size();
            const bool directory = entry.is_directory(ec);
            if (!directory) {
                totals.bytes += entry.file_size(ec);
            }
            totals.times += entry.last_write_time(ec).time_since_epoch().count();
        }
        benchmark::DoNotOptimize(totals);
        times.Count(totals.entries);
    }
}

Totals* nftwTotals = nullptr;

int Visit(const char* path, const struct stat* st, int type, struct FTW* where) {
    nftwTotals->entries += 1;
    nftwTotals->nameLength += std::char_traits<char>::length(path + where->base);
    nftwTotals->bytes += type == FTW_F ? static_cast<std::uint64_t>(st->st_size) : 0;
    nftwTotals->times += st->st_mtim.tv_sec * 1000 + st->st_mtim.tv_nsec / 1000000;
    return 0;
}

void BM_Walk_Nftw(benchmark::State& state) {
    const std::string root = TheTree().root;
    EntryTimes times(state, "nftw");
    for (auto _ : state) {
        Totals totals;
        nftwTotals = &totals;
        ::nftw(root.c_str(), Visit, 64, FTW_PHYS);
        totals.entries -= 1;  // nftw visits the root too
        benchmark::DoNotOptimize(totals);
        times.Count(totals.entries);
    }
}

BENCHMARK(BM_Walk_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_OursByGetters)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_StdFilesystem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_Nftw)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    TheTree();  // made before the clocks start
    // Defaults first, so that the command line overrides them.
    char interleave[] = "--benchmark_enable_random_interleaving=true";
    char repetitions[] = "--benchmark_repetitions=9";
    std::vector<char*> arguments{argv[0], interleave, repetitions};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    const int result = bench_support::RunWithRatios(
        static_cast<int>(arguments.size()), arguments.data(),
        {{"walk of 100,000 files vs std::filesystem", "BM_Walk_StdFilesystem", "BM_Walk_Ours", 1.0},
         {"walk of 100,000 files vs nftw", "BM_Walk_Nftw", "BM_Walk_Ours", 1.0},
         // The getters make four virtual calls where GetEntryInfo makes one: a few per cent.
         {"walk of 100,000 files, one getter each, vs nftw", "BM_Walk_Nftw",
          "BM_Walk_OursByGetters", 0.95}});
    PrintPerEntry();
    return result;
}
