// Runs a fuzz target once over each input it is given, without libFuzzer: the seed corpora
// and any crash kept for a bug become ordinary tests of every build, so a reader that falls
// back on hostile input it once survived fails the test suite, not the next fuzzing session.
//
// Usage: replay_<name> PATH...   (a file, or a directory whose regular files are all read)

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
// Defined by the targets that set up something first, as libFuzzer calls it.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool ReadAll(const std::filesystem::path& path, std::vector<std::uint8_t>& bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// The files named, a directory standing for its regular files in name order, so that the
// inputs run in the same order everywhere.
bool CollectInputs(int argc, char** argv, std::vector<std::filesystem::path>& inputs) {
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::error_code error;
        if (std::filesystem::is_directory(path, error)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(path, error)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
            if (error) {
                std::fprintf(stderr, "cannot list %s: %s\n", argv[i], error.message().c_str());
                return false;
            }
            std::sort(files.begin(), files.end());
            inputs.insert(inputs.end(), files.begin(), files.end());
        } else if (std::filesystem::is_regular_file(path, error)) {
            inputs.push_back(path);
        } else {
            std::fprintf(stderr, "no such input: %s\n", argv[i]);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE-OR-DIRECTORY...\n", argv[0]);
        return 2;
    }
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    std::vector<std::filesystem::path> inputs;
    if (!CollectInputs(argc, argv, inputs)) {
        return 2;
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs\n");
        return 2;
    }
    std::vector<std::uint8_t> bytes;
    for (const auto& input : inputs) {
        if (!ReadAll(input, bytes)) {
            std::fprintf(stderr, "cannot read %s\n", input.c_str());
            return 2;
        }
        // A crash names the input that caused it.
        std::fprintf(stderr, "%s (%zu bytes)\n", input.c_str(), bytes.size());
        // An empty vector may have no storage: the target gets a valid pointer all the same.
        static const std::uint8_t kNone = 0;
        LLVMFuzzerTestOneInput(bytes.empty() ? &kNone : bytes.data(), bytes.size());
    }
    std::printf("%zu inputs ran\n", inputs.size());
    return 0;
}
