#include <cinttypes>
#include <cstdio>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "cli_positionals.h"
#include "zip_support.h"

namespace tessel_cli {
namespace {

int Alloc(const Arguments& args) {
    if (!args.options.empty()) {
        return UsageError("unknown option " + args.options[0]);
    }
    if (args.positional.size() != 1) {
        return UsageError("alloc takes one FILE");
    }
    std::u16string path;
    if (!Common::Utf8ToUtf16(args.positional[0], path)) {
        path = Common::WidenLatin1(args.positional[0]);
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

const CliCommandRegistration kAlloc(
    {"alloc", "FILE", "Print the allocated ranges of a file.",
     "One line per range that holds data, in order: its offset and its length in bytes,\n"
     "separated by a tab. The holes of a sparse file are the gaps between the lines; a file\n"
     "without data prints nothing. A failure prints the error's code and text on standard\n"
     "error and exits with status 1.",
     &PositionalsOnly<&Alloc>});

}  // namespace
}  // namespace tessel_cli
