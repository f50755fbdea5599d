#pragma once

// What the change-notification service asks of the operating system: watches of one
// directory each, manual-reset wake events, and a wait for the first of several of them.
// Each platform has one implementation; tests put a fake in its place to reach the failure
// paths and to make changes at will.

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace Platform {

// A watch or an event. 0 is never a valid one, and neither is -1.
using ChangeHandle = std::intptr_t;

class ChangeNotifications {
public:
    virtual ~ChangeNotifications() = default;

    // Watches the directory `path` itself (not its tree) for created, deleted and renamed
    // entries and for writes that change a size or a last-write time.
    virtual SystemError Watch(const std::u16string& path, ChangeHandle& watch) = 0;
    // After the watch was reported by WaitAny: it will be reported again for any change from
    // then on, including those made while its owner was busy.
    virtual SystemError Rearm(ChangeHandle watch) = 0;
    virtual void Unwatch(ChangeHandle watch) = 0;

    virtual SystemError CreateEvent(ChangeHandle& event) = 0;
    virtual void SetEvent(ChangeHandle event) = 0;
    virtual void ResetEvent(ChangeHandle event) = 0;
    virtual void CloseEvent(ChangeHandle event) = 0;

    // Waits without limit until `event` is set or one of `watches` reports a change, and
    // gives 0 for the event or 1 + the index of the first watch with a change. The event
    // stays set; a watch that is reported is quiet until it is re-armed.
    virtual SystemError WaitAny(ChangeHandle event, const ChangeHandle* watches,
                                std::size_t count, std::size_t& signalled) = 0;
};

// The implementation of this platform, for the life of the process.
ChangeNotifications& SystemChangeNotifications();

}  // namespace Platform
