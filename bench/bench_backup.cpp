// Backing up and restoring a 1 GiB file and a tree of 10,000 small files: the backup chunks
// of each file restored into a second place as they come, beside cp --sparse=always
// --preserve=all and a tar --xattrs --acls -S pipe doing the same copy, in one run. Times are
// wall-clock, since the peers run as processes of their own. The data lives in
// $TESSEL_BENCH_DIR, else /dev/shm (so that the disk's own speed does not decide), else the
// temporary directory, and is removed at exit.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/file/system_dir.h>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kBigSize = 1ull << 30;
constexpr int kDirs = 10;
constexpr int kFilesPerDir = 1000;

// Backup and restore run as a pipe between two threads, as a tar pipe runs as two
// processes: the backup thread hands over chunk marks and blocks, the restore thread takes
// them. Like a system pipe, which moves bytes by the buffer, the two sides meet only for
// batches: the writer hands over what it gathered at the end of each file or every
// kBatchBytes, and the reader takes everything there is at once, so that neither a lock nor
// a wake-up is paid for every mark of every small file. Blocks of at most kInFlight bytes of
// memory are on their way, and used blocks go back to a pool, so that memory stays small
// and warm.
constexpr std::uint64_t kInFlight = 16u << 20;
constexpr std::uint64_t kBatchBytes = 256u << 10;

struct Item {
    enum Kind { begin_file, begin_chunk, block, end_chunk, end_file, finish } What = finish;
    std::uint32_t Type = 0;
    std::string Target;
    std::unique_ptr<File::raw_data> Block;
};

class Pipe {
public:
    // The writer's side.
    void Push(Item item) {
        if (item.What == Item::block) {
            gatheredMemory_ += item.Block->capacity;
            gatheredBytes_ += item.Block->size;
        }
        const bool flush = item.What == Item::end_file || item.What == Item::finish ||
                           gatheredBytes_ >= kBatchBytes;
        gathered_.push_back(std::move(item));
        if (flush) {
            Flush();
        }
    }
    std::unique_ptr<File::raw_data> Take(std::uint64_t capacity) {
        if (spare_.empty() && capacity >= 65536) {
            std::lock_guard<std::mutex> lock(mutex_);
            spare_.swap(pool_);
        }
        if (!spare_.empty() && spare_.back()->capacity >= capacity) {
            auto block = std::move(spare_.back());
            spare_.pop_back();
            block->size = 0;
            return block;
        }
        auto block = std::make_unique<File::raw_data>();
        block->buffer.reset(new unsigned char[capacity]);
        block->capacity = capacity;
        return block;
    }

    // The reader's side.
    Item Pop() {
        if (taken_.empty()) {
            std::unique_lock<std::mutex> lock(mutex_);
            ready_.wait(lock, [&] { return !items_.empty(); });
            taken_.swap(items_);
            memory_ = 0;
            if (writerWaits_) {
                roomy_.notify_one();
            }
        }
        Item item = std::move(taken_.front());
        taken_.pop_front();
        return item;
    }
    void Give(std::unique_ptr<File::raw_data> block) {
        if (block->capacity < 65536) {
            return;
        }
        returned_.push_back(std::move(block));
        if (returned_.size() >= 16) {
            std::lock_guard<std::mutex> lock(mutex_);
            for (auto& b : returned_) {
                pool_.push_back(std::move(b));
            }
            returned_.clear();
        }
    }

private:
    void Flush() {
        std::unique_lock<std::mutex> lock(mutex_);
        if (memory_ + gatheredMemory_ > kInFlight && memory_ != 0) {
            writerWaits_ = true;
            roomy_.wait(lock, [&] { return memory_ == 0; });
            writerWaits_ = false;
        }
        const bool wake = items_.empty();
        for (Item& item : gathered_) {
            items_.push_back(std::move(item));
        }
        memory_ += gatheredMemory_;
        gathered_.clear();
        gatheredMemory_ = 0;
        gatheredBytes_ = 0;
        if (wake) {
            ready_.notify_one();
        }
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    std::condition_variable roomy_;
    // Shared, under the mutex.
    std::deque<Item> items_;
    std::uint64_t memory_ = 0;
    bool writerWaits_ = false;
    std::vector<std::unique_ptr<File::raw_data>> pool_;
    // The writer's own.
    std::vector<Item> gathered_;
    std::uint64_t gatheredMemory_ = 0;
    std::uint64_t gatheredBytes_ = 0;
    std::vector<std::unique_ptr<File::raw_data>> spare_;
    // The reader's own.
    std::deque<Item> taken_;
    std::vector<std::unique_ptr<File::raw_data>> returned_;
};

class PipeStream final : public File::file_backup_stream {
public:
    explicit PipeStream(Pipe& pipe) : pipe_(pipe) {}
    ~PipeStream() override { pipe_.Push(Item{Item::end_chunk, 0, {}, nullptr}); }
    std::unique_ptr<File::raw_data> Create(std::uint64_t capacity) override {
        return pipe_.Take(capacity);
    }
    bool Write(std::unique_ptr<File::raw_data> block) override {
        pipe_.Push(Item{Item::block, 0, {}, std::move(block)});
        return true;
    }

private:
    Pipe& pipe_;
};

class PipeWriter final : public File::file_backup_writer {
public:
    explicit PipeWriter(Pipe& pipe) : pipe_(pipe) {}
    std::unique_ptr<File::file_backup_stream> CreateStream(std::uint32_t type) override {
        pipe_.Push(Item{Item::begin_chunk, type, {}, nullptr});
        return std::make_unique<PipeStream>(pipe_);
    }
    Common::Error GetError() const override { return Common::ErrorSuccess; }
    std::uint32_t Options() const override { return 0; }
    File::backup_user_callback* Callback() const override { return nullptr; }

private:
    Pipe& pipe_;
};

// One chunk as it comes through the pipe; what the restore leaves unread is drained, at the
// latest when the next chunk is asked for.
class PipeChunk final : public File::i_file {
public:
    PipeChunk(Pipe& pipe, PipeChunk*& open) : pipe_(pipe), open_(open) { open_ = this; }
    ~PipeChunk() override {
        Drain();
        if (open_ == this) {
            open_ = nullptr;
        }
    }
    void Drain() {
        while (!ended_) {
            Next();
        }
        if (block_) {
            pipe_.Give(std::move(block_));
        }
    }
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = 0;
        auto* out = static_cast<unsigned char*>(buffer);
        while (read < count) {
            if (!block_ || offset_ == block_->size) {
                if (ended_ || !Next()) {
                    break;
                }
                continue;
            }
            const std::uint64_t take = std::min(count - read, block_->size - offset_);
            std::memcpy(out + read, block_->buffer.get() + block_->offset + offset_, take);
            read += take;
            offset_ += take;
        }
        return true;
    }

private:
    bool Next() {
        if (block_) {
            pipe_.Give(std::move(block_));
        }
        offset_ = 0;
        Item item = pipe_.Pop();
        if (item.What != Item::block) {
            ended_ = true;
            return false;
        }
        block_ = std::move(item.Block);
        return true;
    }

    Pipe& pipe_;
    PipeChunk*& open_;
    std::unique_ptr<File::raw_data> block_;
    std::uint64_t offset_ = 0;
    bool ended_ = false;
};

class PipeSource final : public File::file_restore_source {
public:
    explicit PipeSource(Pipe& pipe) : pipe_(pipe) {}
    std::unique_ptr<File::i_file> NextChunk(std::uint32_t& type) override {
        if (open_ != nullptr) {
            open_->Drain();
        }
        if (done_) {
            return nullptr;
        }
        Item item = pipe_.Pop();
        if (item.What != Item::begin_chunk) {
            done_ = true;  // the end of the file
            return nullptr;
        }
        type = item.Type;
        return std::make_unique<PipeChunk>(pipe_, open_);
    }
    Common::Error GetError() const override { return Common::ErrorSuccess; }
    std::uint32_t Options() const override { return 0; }
    File::backup_user_callback* Callback() const override { return nullptr; }

private:
    Pipe& pipe_;
    PipeChunk* open_ = nullptr;
    bool done_ = false;
};

void Check(const Common::Error& error, const std::string& path) {
    if (error.Failed()) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.ToString().c_str());
        std::abort();
    }
}

// Copies each (from, to) pair through backup and restore, the two ends on two threads; a
// failure aborts, since it would make the figures void.
void CopyThrough(const std::vector<std::pair<std::string, std::string>>& pairs) {
    Pipe pipe;
    std::thread backup([&] {
        PipeWriter writer(pipe);
        for (const auto& [from, to] : pairs) {
            pipe.Push(Item{Item::begin_file, 0, to, nullptr});
            Check(File::BackupFile(File::NativeNameToWide(from), writer, nullptr), from);
            pipe.Push(Item{Item::end_file, 0, {}, nullptr});
        }
        pipe.Push(Item{Item::finish, 0, {}, nullptr});
    });
    for (Item item = pipe.Pop(); item.What == Item::begin_file; item = pipe.Pop()) {
        PipeSource source(pipe);
        Check(File::RestoreFile(File::NativeNameToWide(item.Target), source, nullptr), item.Target);
    }
    backup.join();
}

std::string BenchRoot() {
    if (const char* given = std::getenv("TESSEL_BENCH_DIR")) {
        return given;
    }
    if (::access("/dev/shm", W_OK) == 0) {
        return "/dev/shm";
    }
    return fs::temp_directory_path().string();
}

struct Data {
    Data() {
        std::string pattern = BenchRoot() + "/tessel_backup_XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::abort();
        }
        root = pattern;
        big = root + "/big";
        tree = root + "/tree";
        std::vector<std::uint64_t> block(1 << 17);
        std::uint64_t x = 0x9e3779b97f4a7c15ull;
        const int fd = ::open(big.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        for (std::uint64_t done = 0; done < kBigSize; done += block.size() * 8) {
            for (auto& v : block) {
                x ^= x << 13;
                x ^= x >> 7;
                x ^= x << 17;
                v = x;
            }
            if (::write(fd, block.data(), block.size() * 8) != ssize_t(block.size() * 8)) {
                std::abort();
            }
        }
        ::close(fd);
        ::mkdir(tree.c_str(), 0755);
        std::string content;
        for (int d = 0; d < kDirs; ++d) {
            const std::string dir = tree + "/d" + std::to_string(d);
            ::mkdir(dir.c_str(), 0755);
            for (int f = 0; f < kFilesPerDir; ++f) {
                const std::string file = dir + "/f" + std::to_string(f);
                content.assign(1000 + (f * 37) % 3000, static_cast<char>('a' + f % 26));
                const int out = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
                if (::write(out, content.data(), content.size()) != ssize_t(content.size())) {
                    std::abort();
                }
                ::close(out);
                if (f % 10 == 0) {
                    ::setxattr(file.c_str(), "user.tag", "backup", 6, 0);
                }
            }
        }
    }
    ~Data() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }

    std::string root;
    std::string big;
    std::string tree;
};

Data& TheData() {
    static Data data;
    return data;
}

// A fresh place for a copy, emptied again outside the clock.
std::string Target(benchmark::State& state, const char* name) {
    state.PauseTiming();
    const std::string out = TheData().root + "/" + name;
    std::error_code ignored;
    fs::remove_all(out, ignored);
    fs::create_directory(out);
    state.ResumeTiming();
    return out;
}

void Run(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "failed: %s\n", command.c_str());
        std::abort();
    }
}

std::string Quoted(const std::string& path) {
    return "'" + path + "'";
}

void BM_BigFile_Ours(benchmark::State& state) {
    for (auto _ : state) {
        const std::string out = Target(state, "out_ours");
        CopyThrough({{TheData().big, out + "/big"}});
    }
}

void BM_BigFile_Cp(benchmark::State& state) {
    for (auto _ : state) {
        const std::string out = Target(state, "out_cp");
        Run("cp --sparse=always --preserve=all " + Quoted(TheData().big) + " " + Quoted(out));
    }
}

void BM_BigFile_Tar(benchmark::State& state) {
    for (auto _ : state) {
        const std::string out = Target(state, "out_tar");
        Run("tar --xattrs --acls -S -cf - -C " + Quoted(TheData().root) + " big | tar --xattrs "
            "--acls -S -xf - -C " + Quoted(out));
    }
}

void BM_Tree_Ours(benchmark::State& state) {
    const fs::path from = TheData().tree;
    for (auto _ : state) {
        const fs::path out = fs::path(Target(state, "out_ours")) / "tree";
        std::vector<std::pair<std::string, std::string>> pairs{{from.string(), out.string()}};
        for (auto it = fs::recursive_directory_iterator(from);
             it != fs::recursive_directory_iterator(); ++it) {
            pairs.emplace_back(it->path().string(), (out / it->path().lexically_relative(from)).string());
        }
        CopyThrough(pairs);
    }
}

void BM_Tree_Cp(benchmark::State& state) {
    for (auto _ : state) {
        const std::string out = Target(state, "out_cp");
        Run("cp -r --sparse=always --preserve=all " + Quoted(TheData().tree) + " " + Quoted(out));
    }
}

void BM_Tree_Tar(benchmark::State& state) {
    for (auto _ : state) {
        const std::string out = Target(state, "out_tar");
        Run("tar --xattrs --acls -S -cf - -C " + Quoted(TheData().root) + " tree | tar --xattrs "
            "--acls -S -xf - -C " + Quoted(out));
    }
}

BENCHMARK(BM_BigFile_Ours)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_BigFile_Cp)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_BigFile_Tar)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Tree_Ours)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Tree_Cp)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Tree_Tar)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// Keeps the wall-clock time of every repetition.
class WallClockReporter final : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    double Median(const std::string& name) const {
        const auto at = times_.find(name);
        if (at == times_.end() || at->second.empty()) {
            return 0;
        }
        std::vector<double> v = at->second;
        std::sort(v.begin(), v.end());
        return v.size() % 2 == 1 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
    }

private:
    std::map<std::string, std::vector<double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    char repetitions[] = "--benchmark_repetitions=3";
    if (std::none_of(args.begin(), args.end(), [](const char* a) {
            return std::strncmp(a, "--benchmark_repetitions", 23) == 0;
        })) {
        args.push_back(repetitions);
    }
    int count = static_cast<int>(args.size());
    args.push_back(nullptr);
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
        return 1;
    }
    std::printf("data in %s\n", TheData().root.c_str());  // made before the clocks start
    WallClockReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // The target: within 1.2 times the faster peer's time, a ratio of at least 1 / 1.2.
    for (const char* what : {"BigFile", "Tree"}) {
        const std::string base = std::string("BM_") + what + "_";
        const double ours = reporter.Median(base + "Ours");
        const double cp = reporter.Median(base + "Cp");
        const double tar = reporter.Median(base + "Tar");
        if (ours <= 0 || cp <= 0 || tar <= 0) {
            continue;
        }
        const double faster = std::min(cp, tar);
        std::printf("%s: cp / ours = %.2f, tar / ours = %.2f, faster peer / ours = %.2f "
                    "(target >= 0.83) %s\n",
                    what, cp / ours, tar / ours, faster / ours, faster / ours >= 1 / 1.2 ? "ok" : "BELOW");
    }
    benchmark::Shutdown();
    return 0;
}
