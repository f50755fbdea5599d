#pragma once

// The system's directories as another user sees them: every call goes to the directories
// of the system inside a scope of a user's token, so that a directory that carries a token
// hands the same access to all it opens and lists. The scope is as short as one call, as
// token substitution wants, so no thread is left acting for someone else between calls.

#include <memory>

#include <tessel_link/file/token_substitution.h>

#include "platform/dir_io.h"

namespace File {

// A DirIo shared by a directory and everything made from it, which can outlive the
// directory (an iterator, a subdirectory).
using SharedDirIo = std::shared_ptr<Platform::DirIo>;

// `io` without ownership, for implementations that live as long as the process or the test.
SharedDirIo Unowned(Platform::DirIo& io);

// `inner` with every call made as `token`'s user; `inner` itself when the token is null.
SharedDirIo ActingAs(SharedDirIo inner, std::shared_ptr<SubstToken> token);

}  // namespace File
