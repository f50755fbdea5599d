#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/usn_journal.h>

#include "file/change_notification.h"
#include "file/watched_dir.h"
#include "zip_support.h"

namespace tessel_cli {
namespace {

std::u16string PathArgument(const std::string& name) {
    std::u16string path;
    if (!Common::Utf8ToUtf16(name, path)) {
        path = Common::WidenLatin1(name);
    }
    return path;
}

// The journal commands go through the directory object of the image, as a backup would.
bool RunCommand(const std::string& image, File::ioctl_command& command, Common::Error& error) {
    File::watched_dir dir(PathArgument(image), File::SystemNotifications());
    if (!dir.IOCTL(command)) {
        error = dir.GetError();
        return false;
    }
    return true;
}

int UsnRead(const std::string& image, const std::string& fromText) {
    unsigned long long from = 0;
    if (!fromText.empty() && (!ParseDecimal(fromText, from) || from > 0x7fffffffffffffffull)) {
        return UsageError("--from takes a USN in decimal");
    }

    Common::Error error;
    File::usn_journal_command journal;
    if (!RunCommand(image, journal, error)) {
        return FailWith(error);
    }
    std::unique_ptr<File::UsnJournalReader> reader;
    error = journal.Journal->CreateReader(static_cast<File::USN>(from), reader);
    if (error.Failed()) {
        return FailWith(error);
    }
    try {
        while (const File::USN_RECORD* r = reader->Read()) {
            const std::string name = Common::Utf16ToUtf8(File::UsnRecordName(*r));
            std::printf("%" PRId64 "\t%" PRIu64 "\t%" PRIu64 "\t0x%" PRIx32 "\t0x%" PRIx32 "\t%s\n",
                        r->Usn, r->FileReferenceNumber, r->ParentFileReferenceNumber, r->Reason,
                        r->FileAttributes, name.c_str());
        }
    } catch (const Common::Error& failure) {
        std::fflush(stdout);
        return FailWith(failure);
    }
    std::printf("next USN\t%" PRId64 "\n", reader->NextUsn());
    return 0;
}

int UsnLookup(const std::string& image, const std::string& frn) {
    unsigned long long reference = 0;
    if (!ParseDecimal(frn, reference)) {
        return UsageError("usn lookup takes an IMAGE and a file reference in decimal");
    }
    Common::Error error;
    File::file_record_info_command files;
    if (!RunCommand(image, files, error)) {
        return FailWith(error);
    }
    File::FileRecordInfo info;
    error = files.Reader->GetFileRecordInfo(reference, info);
    if (error.Failed()) {
        return FailWith(error);
    }
    std::printf("%" PRIu64 "\t%s\n", info.ParentFileReferenceNumber,
                Common::Utf16ToUtf8(info.Name).c_str());
    return 0;
}

CliRun SetupRead(CliOptions& cli) {
    auto image = std::make_shared<std::string>();
    auto from = std::make_shared<std::string>();
    cli.AddOption("--from", *from, "the USN to read from (0: the oldest record kept)").TypeName("USN");
    cli.AddOption("IMAGE", *image, "the journal image").Required();
    return [image, from, &cli] {
        if (cli.Given("--from") && from->empty()) {
            return UsageError("--from takes a USN in decimal");
        }
        return UsnRead(*image, *from);
    };
}

CliRun SetupLookup(CliOptions& cli) {
    auto words = std::make_shared<std::vector<std::string>>();
    cli.AddOption("IMAGE FRN", *words, "the journal image and a file reference").Required().Expected(2);
    return [words] { return UsnLookup((*words)[0], (*words)[1]); };
}

const CliCommandRegistration kUsnRead(
    {"usn read", "[--from USN] IMAGE", "List the records of a change journal image from a position.",
     "IMAGE is a change journal recorded in a file: the 56-byte journal data, then version 2\n"
     "records back to back. One line per record from USN (0, the default, means the oldest\n"
     "record kept): USN<TAB>FRN<TAB>PARENT_FRN<TAB>REASON<TAB>ATTRIBUTES<TAB>NAME, numbers in\n"
     "decimal, REASON and ATTRIBUTES in hexadecimal with 0x, NAME in UTF-8. The last line is\n"
     "\"next USN<TAB>N\", the position to read on from later. A start before the oldest record,\n"
     "a journal that moved between two reads or a damaged image prints the error's code and\n"
     "text, and exits with status 1.",
     SetupRead});

const CliCommandRegistration kUsnLookup(
    {"usn lookup", "IMAGE FRN", "Show the parent and name of a file reference in a journal image.",
     "Prints PARENT_FRN<TAB>NAME for the file reference FRN (decimal), from the last record of\n"
     "the image for it. A reference that the image doesn't know prints 0x0004002a and exits\n"
     "with status 1.",
     SetupLookup});

}  // namespace
}  // namespace tessel_cli
