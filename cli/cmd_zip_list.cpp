#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

#include "json_out.h"
#include "zip_support.h"

namespace tessel_cli {
namespace {

// A stored name for JSON: as it is when it is UTF-8, else each byte as the character of the
// same value, which is how the library itself widens names.
std::string StoredName(std::string_view stored) {
    std::u16string wide;
    if (Common::Utf8ToUtf16(stored, wide)) {
        return std::string(stored);
    }
    return Common::Utf16ToUtf8(Common::WidenLatin1(stored));
}

int ZipList(const std::string& file, bool json) {
    Common::Error error;
    const auto archive = OpenArchiveArgument(file, error);
    if (!archive) {
        return FailWith(error);
    }
    std::string out = json ? "[" : "";
    bool first = true;
    for (auto entry = archive->Entries(); entry && !entry->Failed(); entry->Next()) {
        const File::zip_central_entry e = entry->Entry();
        char numbers[96];
        if (json) {
            std::snprintf(numbers, sizeof numbers, "%08" PRIx32, e.Crc32);
            const JsonOut row = {{"name", StoredName(e.Name)},
                                 {"method", static_cast<unsigned>(e.Method)},
                                 {"compressed", e.CompressedSize},
                                 {"size", e.Size},
                                 {"crc32", numbers}};
            out += (first ? "\n  " : ",\n  ") + JsonLine(row);
        } else {
            std::snprintf(numbers, sizeof numbers, "\t%u\t%" PRIu32 "\t%" PRIu32 "\t%08" PRIx32 "\n",
                          static_cast<unsigned>(e.Method), e.CompressedSize, e.Size, e.Crc32);
            out.append(e.Name);
            out += numbers;
        }
        first = false;
    }
    if (json) {
        out += first ? "]\n" : "\n]\n";
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto file = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    cli.AddOption("FILE", *file, "the archive").Required();
    cli.AddFlag("--json", *json, "print a JSON array");
    return [file, json] { return ZipList(*file, *json); };
}

const CliCommandRegistration kZipList(
    {"zip list", "FILE [--json]", "List the entries of a ZIP archive in the order of its directory.",
     "One line per entry: NAME<TAB>METHOD<TAB>COMPRESSED<TAB>SIZE<TAB>CRC32, where NAME is\n"
     "the stored name byte for byte, METHOD the number of the compression method (0 stored,\n"
     "8 deflated), COMPRESSED and SIZE are byte counts, and CRC32 has eight lowercase hex\n"
     "digits. With --json: an array of objects with the keys name, method, compressed, size\n"
     "and crc32 (a string of eight hex digits); a name that is not UTF-8 shows each byte as\n"
     "the character of the same value. An archive that cannot be read prints its error's\n"
     "code (0x and eight hex digits) and text, and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
