#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <tessel_link/binding/loopback_channel.h>
#include <tessel_link/common/dynamic_caster.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/components/event_management.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/net/socket_channel.h>

#include "command.h"
#include "serve_events.h"

namespace tessel_cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kJobEvents = 1;
constexpr std::uint32_t kTaskEvents = 2;

std::string TimeOfDay(std::int64_t milliseconds) {
    const std::time_t seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min,
                  parts.tm_sec, static_cast<int>(milliseconds % 1000));
    return text;
}

// Prints each event it is handed, and counts them for the whole demo.
class PrintingSink final : public EventManagement::EventDispatcher {
public:
    PrintingSink(const char* name, std::mutex& lock, std::condition_variable& arrived,
                 int& delivered)
        : name_(name), lock_(lock), arrived_(arrived), delivered_(delivered) {}

    Common::Error Dispatch(const std::shared_ptr<EventManagement::Event>& event) override {
        {
            const std::lock_guard<std::mutex> hold(lock_);
            std::printf("deliver  sink=%s type=%u time=%s message=%s\n", name_, event->Type,
                        TimeOfDay(event->Time).c_str(),
                        Common::Utf16ToUtf8(event->Message).c_str());
            std::fflush(stdout);
            ++delivered_;
        }
        arrived_.notify_all();
        return Common::ErrorSuccess;
    }

private:
    const char* name_;
    std::mutex& lock_;
    std::condition_variable& arrived_;
    int& delivered_;
};

int Demo(unsigned long long count, bool silent, const std::string& connect) {
    // The service in the process behind the loopback, or the one of a host over a socket.
    std::shared_ptr<DemoEventService> service;
    Core::ChannelPointer channel;
    if (connect.empty()) {
        DemoEventOptions options;
        options.Silent = silent;
        service = std::make_shared<DemoEventService>(options);
        auto loopback = std::make_shared<Binding::LoopbackChannel>();
        loopback->Register(std::make_unique<EventManagement::EventManager_Dispatcher>(service));
        channel = loopback;
    } else {
        Net::Address address;
        if (Common::Error error = Net::Address::Parse(connect, address); error.Failed()) {
            return UsageError(error.ToString());
        }
        channel = std::make_shared<Net::SocketChannel>(address);
    }
    Core::ComponentSlot component;
    if (CreateProxy(132, &channel, &component) != Core::ProxyCreated) {
        return Fail("the event manager's proxy could not be created");
    }
    auto* manager = Common::QueryInterface<EventManagement::EventManager>(*component);
    if (manager == nullptr) {
        return Fail("the event manager's proxy has no EventManager interface");
    }

    std::mutex lock;
    std::condition_variable arrived;
    int delivered = 0;
    PrintingSink console("console", lock, arrived, delivered);
    PrintingSink agent("agent", lock, arrived, delivered);
    // The console hears of jobs and tasks, the agent of tasks only.
    const struct {
        PrintingSink* Sink;
        const char* Name;
        std::uint32_t Type;
    } subscriptions[] = {{&console, "console", kJobEvents},
                         {&console, "console", kTaskEvents},
                         {&agent, "agent", kTaskEvents}};
    for (const auto& subscription : subscriptions) {
        const Common::Error error = manager->Subscribe(subscription.Type, subscription.Sink);
        if (error.Failed()) {
            char code[16];
            std::snprintf(code, sizeof code, "0x%08x", error.Code());
            return Fail(std::string("subscribing failed: ") + code);
        }
        std::printf("subscribe sink=%s type=%u\n", subscription.Name, subscription.Type);
    }

    int expected = 0;
    bool raiseFailed = false;
    for (unsigned long long i = 1; i <= count; ++i) {
        const std::uint32_t type = i % 2 == 1 ? kJobEvents : kTaskEvents;
        const EventManagement::Event event = MakeDemoEvent(
            type, (type == kJobEvents ? "job " : "task ") + std::to_string(i) + " changed");
        if (service != nullptr) {
            service->Raise(event);
        } else if (const Common::Error raised = manager->Dispatch(std::make_shared<EventManagement::Event>(event));
                   raised.Failed()) {
            std::fprintf(stderr, "tessel: raising an event failed: %s\n", raised.ToString().c_str());
            raiseFailed = true;
            break;
        }
        expected += event.Type == kJobEvents ? 1 : 2;
        // A pause between events, so that each is fetched and delivered on its own.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    bool complete = !raiseFailed;
    if (complete) {
        std::unique_lock<std::mutex> hold(lock);
        complete = arrived.wait_for(hold, std::chrono::seconds(10),
                                    [&] { return delivered >= expected; });
    }

    for (const auto& subscription : subscriptions) {
        const auto start = Clock::now();
        const Common::Error removed = manager->Unsubscribe(subscription.Type, subscription.Sink);
        const double took =
            std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const std::lock_guard<std::mutex> hold(lock);
        std::printf("unsubscribe sink=%s type=%u took=%.1f ms\n", subscription.Name,
                    subscription.Type, took);
        if (removed.Failed()) {
            std::fprintf(stderr, "tessel: unsubscribe failed: %s\n", removed.ToString().c_str());
            complete = false;
        }
    }
    component.reset();
    if (service != nullptr) {
        service->Release();
    }
    if (!complete) {
        return Fail("not every event was delivered, or a removal failed");
    }
    return 0;
}

CliRun Setup(CliOptions& cli) {
    struct Given {
        std::string events;
        bool silent = false;
        std::string connect;
    };
    auto given = std::make_shared<Given>();
    cli.AddOption("--events", given->events, "how many events the service raises (6)").TypeName("N");
    cli.AddFlag("--silent", given->silent, "the service never answers the requests that close a queue");
    cli.AddOption("--connect", given->connect, "the service of `tessel serve` at ADDRESS").TypeName("ADDRESS");
    return [given, &cli] {
        unsigned long long count = 6;
        if (cli.Given("--events") && (!ParseDecimal(given->events, count) || count == 0 || count > 1000)) {
            return UsageError("--events takes a number from 1 to 1000");
        }
        if (given->silent && !given->connect.empty()) {
            return UsageError("--silent is for the service in the process, not with --connect");
        }
        return Demo(count, given->silent, given->connect);
    };
}

const CliCommandRegistration kEventsDemo(
    {"events demo", "[--events N] [--silent | --connect ADDRESS]",
     "Subscribe two sinks to events of an in-process service and show the deliveries.",
     "Runs a short session against an event service inside the process, reached through\n"
     "the loopback channel. The sink \"console\" subscribes to job events (type 1) and task\n"
     "events (type 2), the sink \"agent\" to task events. The service then raises N events\n"
     "(6 unless --events says otherwise), jobs and tasks in turn; each delivery prints the\n"
     "sink, the event type, the event's time (UTC) and its message, as it arrives on the\n"
     "channel's worker. Then every subscription is removed, and each removal prints how\n"
     "long it took: removing the last sink of a type closes the service's queue. With\n"
     "--silent the service never answers the requests that close a queue, and each of\n"
     "those removals gives up after about one second.\n"
     "With --connect ADDRESS (tcp://HOST:PORT or unix:/PATH) the sinks subscribe to the event\n"
     "service of `tessel serve` over a socket instead, and the events are raised by calling\n"
     "its Dispatch; the events of others raised there meanwhile are delivered too.",
     Setup});

}  // namespace
}  // namespace tessel_cli
