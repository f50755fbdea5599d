#pragma once

// Zip archives: reading and writing archives through the file objects.

#include <memory>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>
#include <tessel_link/file/dir_object.h>

namespace File {

// Opens a ZIP archive held in `archive` (any random-access input: a file on disk, a block
// of memory, a region with other data in front of the archive) as a read-only directory.
//
// Entries come in the order of the archive's directory, named by their stored bytes, each
// widened to one UTF-16 unit. Open them by name (ASCII letters in either case; '\' in the
// name stands for '/'), by iterator or by identifier; an entry reads as a sized file that
// cannot rewind, and its checksum is verified by the read that meets its end. Entries of
// one archive may be read from several threads at once.
//
// Returns null, with `error` set, when the archive cannot be read: a null result is never
// half open. The directory owns `archive` from here on, whether or not it opens.
TL_API std::unique_ptr<si_dir> OpenZipArchive(std::unique_ptr<ri_file> archive,
                                              Common::Error& error);

}  // namespace File
