#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/dir_notification.h>

#include "file/change_notification.h"
#include "file/watched_dir.h"
#include "zip_support.h"

namespace tessel_cli {
namespace {

// Prints the directory of each change and re-arms its watch, until enough were printed.
class PrintChanges final : public File::dir_notification {
public:
    explicit PrintChanges(unsigned long long limit) : limit_(limit) {}

    void Notify(File::i_dir& dir) override {
        const auto& watched = dynamic_cast<File::watched_dir&>(dir);
        {
            const std::lock_guard<std::mutex> hold(lock_);
            if (limit_ != 0 && printed_ >= limit_) {
                return;
            }
            const std::string path = Common::Utf16ToUtf8(watched.Path());
            std::printf("%s\n", path.c_str());
            std::fflush(stdout);
            ++printed_;
        }
        enough_.notify_all();
        dir.ContinueNotification();
    }

    // Waits until the limit is reached (never without one) or `timeout` has passed (never
    // when it is zero).
    void Wait(std::chrono::seconds timeout) {
        std::unique_lock<std::mutex> hold(lock_);
        const auto done = [&] { return limit_ != 0 && printed_ >= limit_; };
        if (timeout.count() == 0) {
            enough_.wait(hold, done);
        } else {
            enough_.wait_for(hold, timeout, done);
        }
    }

private:
    std::mutex lock_;
    std::condition_variable enough_;
    const unsigned long long limit_;
    unsigned long long printed_ = 0;
};

struct WatchOptions {
    std::string count;    // empty when not given
    std::string timeout;  // empty when not given
    std::vector<std::string> dirs;
};

int Watch(const WatchOptions& options, bool countGiven, bool timeoutGiven) {
    unsigned long long count = 0;
    unsigned long long timeout = 0;
    if (countGiven && (!ParseDecimal(options.count, count) || count == 0)) {
        return UsageError("--count takes a positive number");
    }
    if (timeoutGiven && (!ParseDecimal(options.timeout, timeout) || timeout == 0 || timeout > 100000000)) {
        return UsageError("--timeout takes a positive number of seconds");
    }

    auto* printer = new PrintChanges(count);
    std::vector<std::unique_ptr<File::watched_dir>> dirs;
    int status = 0;
    for (const std::string& name : options.dirs) {
        std::u16string path;
        if (!Common::Utf8ToUtf16(name, path)) {
            path = Common::WidenLatin1(name);
        }
        dirs.push_back(std::make_unique<File::watched_dir>(path, File::SystemNotifications()));
        if (!dirs.back()->EnableNotification(printer)) {
            status = FailWith(dirs.back()->GetError());
            break;
        }
    }
    if (status == 0) {
        printer->Wait(std::chrono::seconds(timeout));
    }
    dirs.clear();  // ends the watches; a callback still running finishes first
    printer->Release();
    return status;
}

CliRun Setup(CliOptions& cli) {
    auto options = std::make_shared<WatchOptions>();
    cli.AddOption("--count", options->count, "stop after N lines").TypeName("N");
    cli.AddOption("--timeout", options->timeout, "stop after SECONDS").TypeName("SECONDS");
    cli.AddOption("DIR", options->dirs, "the directories to watch").Required();
    return [options, &cli] { return Watch(*options, cli.Given("--count"), cli.Given("--timeout")); };
}

const CliCommandRegistration kWatch(
    {"watch", "[--count N] [--timeout SECONDS] DIR...",
     "Print the path of each watched directory when something in it changes.",
     "Watches each DIR itself (not its sub-directories) for entries created, deleted or\n"
     "renamed, and for writes to them. Each change prints one line with the DIR as given,\n"
     "and the watch is re-armed; changes made while a line is being printed are reported\n"
     "next. Stops after N lines (--count) or after SECONDS (--timeout), whichever comes\n"
     "first, and exits with status 0; without either it runs until it is killed. A directory\n"
     "that can't be watched prints the error's code and text, and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
