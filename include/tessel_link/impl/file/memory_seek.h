#pragma once

// Not API: the error of File::buf_ifile for a position outside its memory. Hosts read it
// through the file's error.

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace File::Detail {
// Records 0x40005 "Error occurred while searching in the file." for a position that lies
// outside a memory file.
TL_API Common::Error MemorySeekError(const char* function);
}  // namespace File::Detail
