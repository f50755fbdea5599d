// Change notification on Linux: a watch is an inotify instance of its own watching one
// directory, so that it can stand in a poll set by itself; a wake event is an eventfd.

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <vector>

#include <tessel_link/file/system_dir.h>

#include "platform/change_notifications.h"
#include "platform/posix_errors.h"

namespace Platform {

namespace {

// Names (created, deleted, moved in or out), size and last write of the entries.
constexpr std::uint32_t kChangeMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                      IN_MODIFY | IN_ATTRIB | IN_ONLYDIR;


// Descriptor 0 would read as "no handle": move it up.
int AwayFromZero(int fd) {
    if (fd != 0) {
        return fd;
    }
    const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 1);
    const int saved = errno;
    ::close(fd);
    errno = saved;
    return moved;
}

// Reads until nothing is left; the descriptor is non-blocking.
void Drain(int fd) {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0 || (n < 0 && errno == EINTR)) {
            continue;
        }
        break;
    }
}

class InotifyChangeNotifications final : public ChangeNotifications {
public:
    SystemError Watch(const std::u16string& path, ChangeHandle& watch) override {
        watch = 0;
        const std::string name = File::WideNameToNative(path);
        if (name.empty() || name.find('\0') != std::string::npos) {
            return FromErrno(ENOENT);
        }
        const int fd = AwayFromZero(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (fd < 0) {
            return FromErrno(errno);
        }
        if (::inotify_add_watch(fd, name.c_str(), kChangeMask) < 0) {
            const int saved = errno;
            ::close(fd);
            return FromErrno(saved);
        }
        watch = fd;
        return {};
    }

    SystemError Rearm(ChangeHandle) override {
        return {};  // events since the report stay queued and report the watch at once
    }

    void Unwatch(ChangeHandle watch) override { ::close(static_cast<int>(watch)); }

    SystemError CreateEvent(ChangeHandle& event) override {
        const int fd = AwayFromZero(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
        if (fd < 0) {
            event = 0;
            return FromErrno(errno);
        }
        event = fd;
        return {};
    }

    void SetEvent(ChangeHandle event) override {
        const std::uint64_t one = 1;
        while (::write(static_cast<int>(event), &one, sizeof one) < 0 && errno == EINTR) {
        }
    }

    void ResetEvent(ChangeHandle event) override {
        std::uint64_t count;
        while (::read(static_cast<int>(event), &count, sizeof count) < 0 && errno == EINTR) {
        }
    }

    void CloseEvent(ChangeHandle event) override { ::close(static_cast<int>(event)); }

    SystemError WaitAny(ChangeHandle event, const ChangeHandle* watches, std::size_t count,
                        std::size_t& signalled) override {
        std::vector<pollfd> set(count + 1);
        set[0] = {static_cast<int>(event), POLLIN, 0};
        for (std::size_t i = 0; i < count; ++i) {
            set[i + 1] = {static_cast<int>(watches[i]), POLLIN, 0};
        }
        for (;;) {
            const int ready = ::poll(set.data(), set.size(), -1);
            if (ready < 0) {
                if (errno == EINTR) {
                    continue;
                }
                return FromErrno(errno);
            }
            for (std::size_t i = 0; i < set.size(); ++i) {
                if (set[i].revents != 0) {
                    if (i != 0) {
                        // The report consumes what is queued; what comes later reports again.
                        Drain(set[i].fd);
                    }
                    signalled = i;
                    return {};
                }
            }
        }
    }
};

}  // namespace

ChangeNotifications& SystemChangeNotifications() {
    static InotifyChangeNotifications instance;
    return instance;
}

}  // namespace Platform
