#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "zip_support.h"

namespace tessel_cli {
namespace {

int Alloc(const std::string& name) {
    std::u16string path;
    if (!Common::Utf8ToUtf16(name, path)) {
        path = Common::WidenLatin1(name);
    }
    Common::Error error;
    const auto file = File::OpenSystemFile(path, File::open_mode::read, error);
    if (!file) {
        return FailWith(error);
    }
    File::allocation_map_command map;
    if (!file->IOCTL(map)) {
        return FailWith(file->GetError());
    }
    for (std::uint64_t i = 0; i < map.RangeCount(); ++i) {
        std::printf("%" PRIu64 "\t%" PRIu64 "\n", map.RangeOffset(i), map.RangeLength(i));
    }
    return std::fflush(stdout) == 0 ? 0 : Fail("cannot write to standard output");
}

CliRun Setup(CliOptions& cli) {
    auto file = std::make_shared<std::string>();
    cli.AddOption("FILE", *file, "the file").Required();
    return [file] { return Alloc(*file); };
}

const CliCommandRegistration kAlloc(
    {"alloc", "FILE", "Print the allocated ranges of a file.",
     "One line per range that holds data, in order: its offset and its length in bytes,\n"
     "separated by a tab. The holes of a sparse file are the gaps between the lines; a file\n"
     "without data prints nothing. A failure prints the error's code and text on standard\n"
     "error and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
