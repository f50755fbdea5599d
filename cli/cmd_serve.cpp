#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <cstdio>
#include <memory>
#include <string>

#include <pthread.h>

#include <tessel_link/components/compatibility_management.h>
#include <tessel_link/components/event_management.h>
#include <tessel_link/components/instance_management.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/net/service_host.h>

#include "command.h"
#include "demo_services.h"
#include "serve_archives.h"
#include "serve_events.h"

namespace tessel_cli {
namespace {

constexpr const char* kDefaultListen = "tcp://127.0.0.1:7450";

// The type of the events the host raises by itself, now and then.
constexpr std::uint32_t kTickEvents = 3;

int Serve(const std::string& listen, unsigned threads, unsigned tickMs) {
    Net::Address address;
    if (Common::Error error = Net::Address::Parse(listen, address); error.Failed()) {
        return UsageError(error.ToString());
    }
    Net::HostOptions hostOptions;
    hostOptions.Threads = threads;

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
    DemoEventOptions eventOptions;
    eventOptions.MaxFetchWait = std::chrono::milliseconds(250);
    auto events = std::make_shared<DemoEventService>(eventOptions);
    host.Register(std::make_unique<EventManagement::EventManager_Dispatcher>(events));
    if (Common::Error error = host.Start(address); error.Failed()) {
        return Fail(error.ToString());
    }
    std::printf("listening on %s\n", host.BoundAddress().ToString().c_str());
    std::fflush(stdout);
    // Waits for the signal, raising a tick event at each interval meanwhile.
    for (unsigned long long tick = 1;; ++tick) {
        if (tickMs == 0) {
            int signal = 0;
            sigwait(&stopSignals, &signal);
            break;
        }
        const timespec interval{static_cast<time_t>(tickMs / 1000), static_cast<long>(tickMs % 1000) * 1000000L};
        if (sigtimedwait(&stopSignals, nullptr, &interval) >= 0) {
            break;
        }
        if (errno == EAGAIN) {
            events->Raise(MakeDemoEvent(kTickEvents, "tick " + std::to_string(tick)));
        }
    }
    events->Close();  // fetches that wait end, so that the host's threads can
    host.Stop();
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto listen = std::make_shared<std::string>(kDefaultListen);
    auto threads = std::make_shared<unsigned>(4);
    auto tick = std::make_shared<unsigned>(1000);
    cli.AddOption("--listen", *listen, "tcp://HOST:PORT or unix:/PATH").ShowDefault();
    cli.AddOption("--threads", *threads, "threads that serve calls: an event loop per core, up to half of them, and spares for calls that block").Range(1, 256).ShowDefault();
    cli.AddOption("--tick", *tick, "milliseconds between two tick events; 0: none")
        .Range(0u, 3600000u)
        .TypeName("MS")
        .ShowDefault();
    return [listen, threads, tick] { return Serve(*listen, *threads, *tick); };
}

const CliCommandRegistration kServe(
    {"serve", "[--listen ADDRESS] [--threads N] [--tick MS]",
     "Serve the example components over a socket until interrupted.",
     "Port 0 takes a free port. The host serves the in-memory instance manager (129), the test\n"
     "manager (188), the compatibility manager (17), an in-memory archive manager (161) and an\n"
     "event service (132), and prints \"listening on ADDRESS\" once it accepts calls. The event\n"
     "service raises an event of type 3, \"tick N\", every MS milliseconds (1000 unless --tick\n"
     "says otherwise), and every event a caller hands its Dispatch; a fetch of a queue waits at\n"
     "most 250 ms for events, so that fetches cannot hold every thread (see `tessel events\n"
     "demo --connect`). SIGINT or SIGTERM ends it.",
     Setup});

}  // namespace
}  // namespace tessel_cli
