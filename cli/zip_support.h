#pragma once

// What the zip commands share: opening an archive named on the command line, and reporting
// a failure as its code and text.

#include <cstdio>
#include <memory>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "command.h"
#include "file/zip_file.h"

namespace tessel_cli {

// "tessel: 0x0004000d The file is corrupted." on standard error; returns 1.
inline int FailWith(const Common::Error& error) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08x", error.Code());
    return Fail(std::string(code) + " " + Common::Utf16ToUtf8(error.Text()));
}

// The archive at `name` (a path as the shell gave it), or null with `error` set.
inline std::unique_ptr<File::zip_file_impl> OpenArchiveArgument(const std::string& name,
                                                                Common::Error& error) {
    std::u16string path;
    if (!Common::Utf8ToUtf16(name, path)) {
        path = Common::WidenLatin1(name);
    }
    std::unique_ptr<File::rio_file> file = File::OpenSystemFile(path, File::open_mode::read, error);
    if (!file) {
        return nullptr;
    }
    return File::zip_file_impl::Open(std::move(file), error);
}

}  // namespace tessel_cli
