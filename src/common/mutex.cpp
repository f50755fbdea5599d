#include "common/mutex.h"

#include <tessel_link/common/assert.h>

namespace Common {

// The assertion texts are kept as the system has always reported these two mistakes.

Mutex::~Mutex() {
    TL_ASSERT_TEXT(lock_.Owner() == 0, "MUTEX_DATA.OwningThread == 0 || (GetVersion() & 0x80000000)");
}

void Mutex::Unlock() noexcept {
    if (!lock_.Unlock()) {
        TL_ASSERT_TEXT(false,
                       "*reinterpret_cast<DWORD*>(&MUTEX_DATA.OwningThread) == "
                       "GetCurrentThreadId() || (GetVersion() & 0x80000000)");
    }
}

}  // namespace Common
