#pragma once

// The module's data archive: a ZIP archive beside the library, named like the library's
// file with ".dat" in place of its extension, that carries data a deployer may replace
// without a rebuild (the message table among it). When there is no such file, the library's
// own file is tried as the archive, so the data may also be appended to the library.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <tessel_link/file/dir_object.h>

namespace File {

// `modulePath` less its extension, plus ".dat". The extension starts at the last '.' after
// the last '/'; a '.' at the very start doesn't count, and a '\' doesn't end the search.
// A shared object's version numbers count as part of its ".so" extension.
std::u16string DataArchivePath(std::u16string_view modulePath);

// Opens the data archive of the module at `modulePath`: its ".dat" file, or, when that
// cannot be opened as an archive, the module's file itself. Null when neither is one.
std::unique_ptr<si_dir> OpenDataArchive(const std::u16string& modulePath);

// The data archive of this library, opened on the first call and kept for the process;
// null when there is none. Safe to call from several threads.
si_dir* GetModuleArchive();

// Reads the member `name` of `archive` whole into `block`, checksum included. False, with
// `block` empty, on any failure.
bool ReadMember(si_dir& archive, const char16_t* name, std::vector<unsigned char>& block);

}  // namespace File
