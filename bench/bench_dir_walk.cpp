// Walking a tree of 100,000 files and reading name, type, size and modification time of
// each: the directory objects beside std::filesystem::recursive_directory_iterator and
// nftw, in one run. The tree is made once in the temporary directory and removed at exit.

#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

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
        std::string pattern = (fs::temp_directory_path() / "tessel_walk_XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        root = pattern;
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
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    std::string root;
};

Tree& TheTree() {
    static Tree tree;
    return tree;
}

void WalkOurs(File::i_dir& dir, Totals& totals) {
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
                WalkOurs(*sub, totals);
            }
        }
    }
}

void BM_Walk_Ours(benchmark::State& state) {
    const std::u16string root = File::NativeNameToWide(TheTree().root);
    for (auto _ : state) {
        Totals totals;
        Common::Error error;
        const auto dir = File::OpenSystemDir(root, error);
        WalkOurs(*dir, totals);
        benchmark::DoNotOptimize(totals);
        state.counters["entries"] = static_cast<double>(totals.entries);
    }
}

void BM_Walk_StdFilesystem(benchmark::State& state) {
    const fs::path root = TheTree().root;
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
        state.counters["entries"] = static_cast<double>(totals.entries);
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
    for (auto _ : state) {
        Totals totals;
        nftwTotals = &totals;
        ::nftw(root.c_str(), Visit, 64, FTW_PHYS);
        totals.entries -= 1;  // nftw visits the root too
        benchmark::DoNotOptimize(totals);
        state.counters["entries"] = static_cast<double>(totals.entries);
    }
}

BENCHMARK(BM_Walk_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_StdFilesystem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Walk_Nftw)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    TheTree();  // made before the clocks start
    return bench_support::RunWithRatios(
        argc, argv,
        {{"walk of 100,000 files vs std::filesystem", "BM_Walk_StdFilesystem", "BM_Walk_Ours", 1.0},
         {"walk of 100,000 files vs nftw", "BM_Walk_Nftw", "BM_Walk_Ours", 1.0}});
}
