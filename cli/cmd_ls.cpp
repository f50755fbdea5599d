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
#include "error_chain.h"
#include "file/dir_iterator.h"
#include "file/roots.h"
#include "json_text.h"
#include "value_options.h"

namespace tessel_cli {
namespace {

// A name for JSON: UTF-8, and a byte that is not UTF-8 as the escape of the lone surrogate
// that stands for it (\udc80 to \udcff), so the bytes can be recovered exactly.
std::string JsonName(std::u16string_view wide) {
    std::string out = "\"";
    std::u16string run;
    const auto flush = [&] {
        const std::string text = JsonString(Common::Utf16ToUtf8(run));
        out.append(text, 1, text.size() - 2);
        run.clear();
    };
    for (std::size_t i = 0; i < wide.size(); ++i) {
        const char16_t c = wide[i];
        const bool high = c >= 0xd800 && c <= 0xdbff;
        const bool paired = high && i + 1 < wide.size() && wide[i + 1] >= 0xdc00 &&
                            wide[i + 1] <= 0xdfff;
        if (paired) {
            run.push_back(c);
            run.push_back(wide[++i]);
        } else if (c >= 0xd800 && c <= 0xdfff) {
            flush();
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            run.push_back(c);
        }
    }
    flush();
    out.push_back('"');
    return out;
}

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
    char numbers[160];
    if (json) {
        std::snprintf(numbers, sizeof numbers,
                      ", \"type\": \"%s\", \"size\": %" PRIu64 ", \"allocated\": %" PRIu64
                      ", \"links\": %" PRIu64 ", \"mode\": %" PRIu64 ", \"uid\": %" PRIu64
                      ", \"mtime_ms\": %" PRId64 ", \"target\": ",
                      TypeWord(row.type), row.size, row.allocated, row.links, row.mode, row.uid,
                      row.mtime);
        std::string out = "{\"name\": " + JsonName(row.name) + numbers +
                          (row.type == File::entry_link ? JsonName(row.target) : "null");
        if (row.drive != nullptr) {
            out += std::string(", \"drive\": \"") + row.drive + "\"";
        }
        return out + "}";
    }
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

int Ls(const Arguments& args) {
    const bool json = args.Has("--json");
    const bool longForm = args.Has("--long");
    Arguments valued;  // the words without the two flags, for the option with a value
    for (const std::string& word : args.words) {
        if (word != "--json" && word != "--long") {
            valued.words.push_back(word);
        }
    }
    const ValueOptions split = SplitValueOptions(valued, {"--as"});
    if (!split.error.empty()) {
        return UsageError(split.error);
    }
    if (split.positional.size() > 1) {
        return UsageError("ls takes at most one PATH");
    }
    const std::string path = split.positional.empty() ? std::string() : split.positional[0];
    // Under --as the directory carries a token of that user, and lists with its access.
    std::shared_ptr<File::SubstToken> token;
    if (const auto as = split.values.find("--as"); as != split.values.end()) {
        std::u16string user;
        if (!Common::Utf8ToUtf16(as->second, user)) {
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

const CommandRegistration kLs(
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
     Ls});

}  // namespace
}  // namespace tessel_cli
