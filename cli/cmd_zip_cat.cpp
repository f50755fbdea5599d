#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "zip_support.h"

namespace tessel_cli {
namespace {

int ZipCat(const std::string& file, const std::string& name) {
    Common::Error error;
    const auto archive = OpenArchiveArgument(file, error);
    if (!archive) {
        return FailWith(error);
    }
    // The name's bytes stand for themselves, as the archive's names do.
    const std::unique_ptr<File::si_file> member(
        archive->OpenI(Common::WidenLatin1(name).c_str(), 0));
    if (!member) {
        return FailWith(archive->GetError());
    }
    static unsigned char buffer[1 << 16];
    for (;;) {
        std::uint64_t read = 0;
        if (!member->Read(buffer, sizeof buffer, read)) {
            std::fflush(stdout);
            return FailWith(member->GetError());
        }
        if (read == 0) {
            break;  // the end, with its checksum confirmed
        }
        if (std::fwrite(buffer, 1, static_cast<std::size_t>(read), stdout) != read) {
            return Fail("cannot write to standard output");
        }
    }
    return std::fflush(stdout) == 0 ? 0 : Fail("cannot write to standard output");
}

CliRun Setup(CliOptions& cli) {
    auto words = std::make_shared<std::vector<std::string>>();
    cli.AddOption("FILE MEMBER", *words, "the archive and the member's name").Required().Expected(2);
    return [words] { return ZipCat((*words)[0], (*words)[1]); };
}

const CliCommandRegistration kZipCat(
    {"zip cat", "FILE MEMBER", "Write one member of a ZIP archive to standard output.",
     "MEMBER is found as the library finds entries: ASCII letters match in either case, and\n"
     "a '\\' matches a '/' of the stored name. Its bytes are checked against the stored\n"
     "checksum at the end. A failure prints the error's code (0x and eight hex digits) and\n"
     "text on standard error and exits with status 1; bytes already written stay written.",
     Setup});

}  // namespace
}  // namespace tessel_cli
