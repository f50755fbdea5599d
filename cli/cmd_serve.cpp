#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include <pthread.h>

#include <tessel_link/components/compatibility_management.h>
#include <tessel_link/components/instance_management.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/net/service_host.h>

#include "command.h"
#include "demo_services.h"
#include "serve_archives.h"
#include "value_options.h"

namespace tessel_cli {
namespace {

constexpr const char* kDefaultListen = "tcp://127.0.0.1:7450";

int Run(const Arguments& args) {
    const ValueOptions options = SplitValueOptions(args, {"--listen", "--threads"});
    if (!options.error.empty()) {
        return UsageError(options.error);
    }
    if (!options.positional.empty()) {
        return UsageError("serve takes no positional arguments");
    }
    const auto listen = options.values.find("--listen");
    Net::Address address;
    if (Common::Error error = Net::Address::Parse(listen == options.values.end() ? kDefaultListen : listen->second,
                                                  address);
        error.Failed()) {
        return UsageError(error.ToString());
    }
    Net::HostOptions hostOptions;
    if (const auto threads = options.values.find("--threads"); threads != options.values.end()) {
        unsigned long long count = 0;
        if (!ParseDecimal(threads->second, count) || count == 0 || count > 256) {
            return UsageError("--threads takes a number from 1 to 256");
        }
        hostOptions.Threads = static_cast<unsigned>(count);
    }

    // The signals that end the host are taken by this thread alone, before any other starts.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Net::ServiceHost host(hostOptions);
    host.Register(std::make_unique<InstanceManagement::InstanceManager_Dispatcher>(
        std::make_shared<Demo::InMemoryInstanceManager>()));
    host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(std::make_shared<Demo::TestService>()));
    host.Register(std::make_unique<CompatibilityManagement::CompatibilityManager_Dispatcher>(
        std::make_shared<Demo::CompatibilityService>()));
    host.Register(std::make_unique<ArchiveManagement::ArchiveManager_Dispatcher>(
        std::make_shared<InMemoryArchiveManager>()));
    if (Common::Error error = host.Start(address); error.Failed()) {
        return Fail(error.ToString());
    }
    std::printf("listening on %s\n", host.BoundAddress().ToString().c_str());
    std::fflush(stdout);
    int signal = 0;
    sigwait(&stopSignals, &signal);
    host.Stop();
    return 0;
}

const CommandRegistration kServe(
    {"serve", "[--listen ADDRESS] [--threads N]",
     "Serve the example components over a socket until interrupted.",
     "ADDRESS is tcp://HOST:PORT or unix:/PATH (default tcp://127.0.0.1:7450; port 0 takes a\n"
     "free port). The host serves the in-memory instance manager (129), the test manager (188),\n"
     "the compatibility manager (17) and an in-memory archive manager (161) on N threads\n"
     "(default 4), and prints \"listening on ADDRESS\" once it accepts calls. SIGINT or SIGTERM\n"
     "ends it.",
     Run});

}  // namespace
}  // namespace tessel_cli
