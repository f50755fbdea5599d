#include <csignal>
#include <cstdio>
#include <memory>
#include <string>

#include <pthread.h>

#include <CLI/CLI.hpp>

#include <tessel_link/components/compatibility_management.h>
#include <tessel_link/components/instance_management.h>
#include <tessel_link/components/test_management.h>
#include <tessel_link/net/service_host.h>

#include "command.h"
#include "demo_services.h"
#include "serve_archives.h"

namespace tessel_cli {
namespace {

constexpr const char* kDefaultListen = "tcp://127.0.0.1:7450";

int Serve(const std::string& listen, unsigned threads) {
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

CliRun Setup(CLI::App& app) {
    auto listen = std::make_shared<std::string>(kDefaultListen);
    auto threads = std::make_shared<unsigned>(4);
    app.add_option("--listen", *listen, "tcp://HOST:PORT or unix:/PATH")->capture_default_str();
    app.add_option("--threads", *threads, "threads that serve calls")->check(CLI::Range(1, 256))->capture_default_str();
    return [listen, threads] { return Serve(*listen, *threads); };
}

const CliCommandRegistration kServe(
    {"serve", "[--listen ADDRESS] [--threads N]",
     "Serve the example components over a socket until interrupted.",
     "Port 0 takes a free port. The host serves the in-memory instance manager (129), the test\n"
     "manager (188), the compatibility manager (17) and an in-memory archive manager (161), and\n"
     "prints \"listening on ADDRESS\" once it accepts calls. SIGINT or SIGTERM ends it.",
     Setup});

}  // namespace
}  // namespace tessel_cli
