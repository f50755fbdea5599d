// Reading every member of a 100 MB archive of stored and deflated members, against libzip
// reading the same archive. The archive is written once per run with libzip into the
// temporary directory and read back from there (from the page cache, after the first round).

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <zip.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "file/zip_file.h"
#include "ratio_reporter.h"

namespace {

constexpr std::size_t kMembers = 200;
constexpr std::size_t kMemberSize = 500 * 1000;  // 100 MB in all
constexpr std::size_t kReadBlock = 1 << 20;

// Text-like content that deflates to about a third, with a random tail in some members.
std::string MemberContent(std::size_t index) {
    static const char* const kWords[] = {"backup ", "archive ", "slice ", "volume ", "plan ",
                                         "task\n", "machine ", "location ", "0x4000d ", "guid "};
    std::mt19937 random(static_cast<unsigned>(index));
    std::string s;
    s.reserve(kMemberSize + 16);
    while (s.size() < kMemberSize) {
        s += kWords[random() % 10];
        if (random() % 8 == 0) {
            s += std::to_string(random());
        }
    }
    s.resize(kMemberSize);
    return s;
}

struct Archive {
    std::string path;
    std::uint64_t bytes = 0;  // uncompressed bytes of all members
    ~Archive() { std::remove(path.c_str()); }
};

const Archive& TheArchive() {
    static const Archive archive = [] {
        Archive a;
        a.path = (std::filesystem::temp_directory_path() /
                  ("bench_zip_" + std::to_string(::getpid()) + ".zip"))
                     .string();
        int error = 0;
        zip_t* z = zip_open(a.path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
        if (z == nullptr) {
            std::fprintf(stderr, "cannot create %s\n", a.path.c_str());
            std::exit(1);
        }
        std::vector<std::string> contents;
        contents.reserve(kMembers);
        for (std::size_t i = 0; i < kMembers; ++i) {
            contents.push_back(MemberContent(i));
            zip_source_t* source = zip_source_buffer(z, contents.back().data(), contents.back().size(), 0);
            const std::string name = "member_" + std::to_string(i) + (i % 2 ? ".txt" : ".bin");
            const zip_int64_t index = zip_file_add(z, name.c_str(), source, ZIP_FL_ENC_UTF_8);
            zip_set_file_compression(z, static_cast<zip_uint64_t>(index),
                                     i % 2 ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 6);
            a.bytes += contents.back().size();
        }
        if (zip_close(z) != 0) {
            std::fprintf(stderr, "cannot write %s\n", a.path.c_str());
            std::exit(1);
        }
        return a;
    }();
    return archive;
}

void BM_TesselZipReadAll(benchmark::State& state) {
    const Archive& archive = TheArchive();
    std::vector<unsigned char> buffer(kReadBlock);
    for (auto _ : state) {
        Common::Error error;
        auto file = File::OpenSystemFile(Common::WidenLatin1(archive.path), File::open_mode::read, error);
        auto zip = File::zip_file_impl::Open(std::move(file), error);
        if (!zip) {
            state.SkipWithError("cannot open the archive");
            return;
        }
        std::uint64_t total = 0;
        for (auto it = zip->Entries(); it && !it->Failed(); it->Next()) {
            const std::unique_ptr<File::si_file> entry(zip->OpenI(*it));
            std::uint64_t read = 0;
            // Up to and including the read that confirms the checksum.
            while (entry->Read(buffer.data(), buffer.size(), read) && read != 0) {
                total += read;
            }
            if (entry->Failed()) {
                state.SkipWithError("a member failed");
                return;
            }
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(archive.bytes * state.iterations()));
}
BENCHMARK(BM_TesselZipReadAll)->Unit(benchmark::kMillisecond);

void BM_LibzipReadAll(benchmark::State& state) {
    const Archive& archive = TheArchive();
    std::vector<unsigned char> buffer(kReadBlock);
    for (auto _ : state) {
        int error = 0;
        zip_t* z = zip_open(archive.path.c_str(), ZIP_RDONLY, &error);
        if (z == nullptr) {
            state.SkipWithError("cannot open the archive");
            return;
        }
        std::uint64_t total = 0;
        const zip_int64_t entries = zip_get_num_entries(z, 0);
        for (zip_int64_t i = 0; i < entries; ++i) {
            zip_file_t* f = zip_fopen_index(z, static_cast<zip_uint64_t>(i), 0);
            zip_int64_t read = 0;
            while ((read = zip_fread(f, buffer.data(), buffer.size())) > 0) {
                total += static_cast<std::uint64_t>(read);
            }
            zip_fclose(f);
            if (read < 0) {
                state.SkipWithError("a member failed");
                return;
            }
        }
        zip_close(z);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(archive.bytes * state.iterations()));
}
BENCHMARK(BM_LibzipReadAll)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    return bench_support::RunWithRatios(
        argc, argv,
        {{"read every member of 100 MB, stored and deflated", "BM_LibzipReadAll",
          "BM_TesselZipReadAll", 0.95}});
}
