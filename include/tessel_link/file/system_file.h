#pragma once

#include <memory>
#include <string>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/file/file_object.h>

namespace File {

enum class open_mode {
    read,            // an existing file, for reading
    read_write,      // an existing file, for reading and writing
    create,          // a new or emptied file, for reading and writing
    open_or_create,  // an existing file or a new one, for reading and writing
    create_new,      // a file that must not exist yet, for reading and writing
};

// Opens a file of the operating system by its path. On failure the result is null and
// `error` tells why: a file-layer code with the system's code as its cause. A file opened
// for reading refuses to be written.
TL_API std::unique_ptr<rio_file> OpenSystemFile(const std::u16string& path, open_mode mode,
                                                Common::Error& error);

}  // namespace File
