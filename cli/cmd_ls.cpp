#include <sys/stat.h>
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_dir.h>
#include <tessel_link/file/token_substitution.h>

#include "command.h"
#include "error_chain.h"
#include "file/dir_iterator.h"
#include "file/roots.h"
#include "json_out.h"

namespace tessel_cli {
namespace {

const char* TypeWord(std::uint32_t type) {
    switch (type) {
        case File::entry_file:
            return "file";
        case File::entry_dir:
            return "dir";
        case File::entry_link:
            return "link";
        default:
            return "other";
    }
}

const char* DriveWord(std::uint32_t type) {
    switch (type) {
        case File::drive_removable:
            return "removable";
        case File::drive_fixed:
            return "fixed";
        case File::drive_remote:
            return "network";
        case File::drive_optical:
            return "optical";
        case File::drive_ramdisk:
            return "ramdisk";
        default:
            return "unknown";
    }
}

struct Row {
    std::u16string name;
    std::uint32_t type = File::entry_other;
    std::uint64_t size = 0, allocated = 0, links = 0, mode = 0, uid = 0;
    std::int64_t mtime = 0;
    std::u16string target;
    const char* drive = nullptr;
};

std::string Format(const Row& row, bool json, bool longForm) {
    if (json) {
        JsonOut out = {{"name", JsonName(row.name)},
                       {"type", TypeWord(row.type)},
                       {"size", row.size},
                       {"allocated", row.allocated},
                       {"links", row.links},
                       {"mode", row.mode},
                       {"uid", row.uid},
                       {"mtime_ms", row.mtime},
                       {"target", row.type == File::entry_link ? JsonOut(JsonName(row.target)) : JsonOut()}};
        if (row.drive != nullptr) {
            out["drive"] = row.drive;
        }
        return JsonLine(out);
    }
    char numbers[160];
    if (!longForm) {
        return PlainName(row.name) + "\n";
    }
    std::snprintf(numbers, sizeof numbers,
                  "%-5s %12" PRIu64 " %12" PRIu64 " %4" PRIu64 " %06" PRIo64 " %6" PRIu64
                  " %14" PRId64 " ",
                  TypeWord(row.type), row.size, row.allocated, row.links, row.mode, row.uid,
                  row.mtime);
    std::string out = numbers + PlainName(row.name);
    if (row.drive != nullptr) {
        out += std::string(" (") + row.drive + ")";
    }
    if (row.type == File::entry_link) {
        out += " -> " + PlainName(row.target);
    }
    return out + "\n";
}

struct LsOptions {
    bool json = false;
    bool longForm = false;
    std::string as;
    std::string path;
};

int Ls(const LsOptions& options, bool asGiven) {
    const bool json = options.json;
    const bool longForm = options.longForm;
    const std::string& path = options.path;
    // Under --as the directory carries a token of that user, and lists with its access.
    std::shared_ptr<File::SubstToken> token;
    if (asGiven) {
        std::u16string user;
        if (!Common::Utf8ToUtf16(options.as, user)) {
            return UsageError("--as takes a user name in UTF-8");
        }
        const Common::Error logon = File::SubstToken::CreateLogonToken(user, nullptr, token);
        if (logon.Failed()) {
            return FailWithChain(logon);
        }
    }
    Common::Error error;
    const std::unique_ptr<File::rio_dir> dir =
        File::OpenSystemDir(File::NativeNameToWide(path), token, error);
    if (!dir) {
        return FailWithChain(error);
    }
    const std::unique_ptr<File::i_dir::iterator> it(dir->GetIterator());
    if (!it) {
        return FailWithChain(dir->GetError());
    }
    std::string out = json ? "[" : "";
    bool first = true;
    for (; !it->Failed(); it->Next()) {
        Row row;
        row.name = it->GetName();
        if (auto* mount = dynamic_cast<File::mount_iterator*>(it.get())) {
            row.type = File::entry_dir;
            row.drive = DriveWord(mount->GetType());
        } else {
            auto* entry = dynamic_cast<File::nt_dir_iterator*>(it.get());
            row.type = it->GetType();
            if (json || longForm) {
                row.size = it->GetSize();
                row.allocated = entry != nullptr ? entry->GetAllocatedSize() : 0;
                row.links = it->GetLinkCount();
                row.mode = it->GetUnixMode() & 07777;
                row.uid = it->GetUnixOwner();
                row.mtime = it->GetWriteTime();
                if (row.type == File::entry_link) {
                    const char16_t* target = it->GetSymLinkTarget();
                    row.target = target != nullptr ? target : u"";
                }
                if (it->Failed()) {
                    break;  // an entry that vanished or can't be read: reported below
                }
            }
        }
        if (json) {
            out += first ? "\n  " : ",\n  ";
        }
        out += Format(row, json, longForm);
        first = false;
    }
    if (it->GetError().Code() != 0x40002) {
        std::fwrite(out.data(), 1, out.size(), stdout);
        return FailWithChain(it->GetError());
    }
    if (json) {
        out += first ? "]\n" : "\n]\n";
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto options = std::make_shared<LsOptions>();
    cli.AddFlag("--json", options->json, "print a JSON array");
    cli.AddFlag("--long", options->longForm, "print every field of an entry");
    cli.AddOption("--as", options->as, "list with the file access of USER").TypeName("USER");
    cli.AddOption("PATH", options->path, "the directory; the mount points without it");
    return [options, &cli] { return Ls(*options, cli.Given("--as")); };
}

const CliCommandRegistration kLs(
    {"ls", "[--json] [--long] [--as USER] [PATH]", "List a directory, or the mount points.",
     "One line per entry, in the order the file system gives, with the name exactly as the\n"
     "system has it: control characters are written \\xHH and a backslash is doubled. With\n"
     "--long each line is TYPE SIZE ALLOCATED LINKS MODE UID MTIME_MS NAME, and -> TARGET\n"
     "for a symbolic link; TYPE is file, dir, link or other, MODE is octal, MTIME_MS is\n"
     "milliseconds since 1970. With --json: an array of objects with the fields name, type,\n"
     "size, allocated, links, mode, uid, mtime_ms and target (null unless a link); a byte of\n"
     "a name that is not UTF-8 is written as the escape \\udcXX of its value.\n"
     "Without PATH (or with an empty one) the mount points are listed, each with its drive\n"
     "class (fixed, removable, network, optical, ramdisk, unknown).\n"
     "--as USER lists with the file access of USER (a name of the user database, or\n"
     "DOMAIN\\name), as a token of that user gives it; reading another user's entries needs\n"
     "the rights to act for them (root).\n"
     "A failure prints the error with its causes and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
