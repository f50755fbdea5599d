#pragma once

// The loopback channel: serves every call inside the process, for a host's tests and fake
// services.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace Binding {

// A channel that serves every call inside the process, for hosts that test themselves and
// for fake services: a host stands up a service of any component in a few lines:
//
//   auto loopback = std::make_shared<Binding::LoopbackChannel>();
//   loopback->Register(std::make_unique<TestManagement::TestManager_Dispatcher>(myManager));
//   Core::ChannelPointer channel = loopback;
//   Core::ComponentSlot component;
//   CreateProxy(188, &channel, &component);
//
// The job of a call writes the request's packet (as CreateDeserializer writes it), lets the
// component's dispatcher read it and write the reply into a fresh packet, and reads that
// packet back as ReadReplyPacket does: each call crosses the same bytes as it would between
// processes. Run serves the call on the calling thread and returns the reply's "result" as
// it was read from the packet.
//
// A call for a component without a dispatcher, or for a method its dispatcher does not
// have, fails with an error from Run; nothing else reaches the service.
//
// Send may be called from any number of threads, also while dispatchers are registered;
// the call path takes no lock. A job must run before the channel is destroyed.
//
// Jobs in the background. Start hands the call to a worker of the channel and returns; the
// worker serves it and calls the handler's OnJobFinished with the outcome (no other slot of
// the handler is called). Stop ends a job without waiting for the service: a job not yet
// begun never runs; one whose service call is under way has its reply dropped when the call
// returns, without touching the request's out arguments and without calling the handler.
// Only a handler that is running already is waited for, unless Stop is called from inside
// that very handler. Destroying a started job stops it.
//
// The workers form a pool of at most `maxWorkers` threads, made when first needed and kept
// until the channel goes; jobs wait in order when all of them are busy. A service call that
// blocks holds its worker, so the limit must exceed the number of such calls a host keeps
// running at once (the event proxy keeps one per subscribed event type). Destroying the
// channel drops jobs that have not begun and joins the workers, so the service calls under
// way must be able to end.
//
// What a host's own channel must do for the same contract: Start returns at once and runs
// the call elsewhere; the handler hears OnJobFinished exactly once, unless the job was
// stopped first; Stop never waits for the remote side (a fetch that blocks until the
// service has events is ended by the event proxy with a separate cancel request sent after
// Stop), but must not return while the job still writes the out arguments or runs the
// handler on another thread, as those may die right after Stop.
class TL_API LoopbackChannel : public RequestChannel {
public:
    // Shown both packets of a call once the reply is written, before the reply is read:
    // for hosts that log or display the traffic. It runs on the calling thread.
    using PacketObserver =
        std::function<void(const Request& request, std::span<const unsigned char> requestPacket,
                           std::span<const unsigned char> replyPacket)>;

    static constexpr unsigned kDefaultMaxWorkers = 32;  // calls served at once

    LoopbackChannel();
    // A channel that shows every packet pair to `observer` and serves up to `maxWorkers` calls at once.
    explicit LoopbackChannel(PacketObserver observer, unsigned maxWorkers = kDefaultMaxWorkers);
    ~LoopbackChannel() override;
    LoopbackChannel(const LoopbackChannel&) = delete;
    LoopbackChannel& operator=(const LoopbackChannel&) = delete;

    // Serves the dispatcher's component from now on. A dispatcher registered earlier for
    // the same component is no longer used for new calls; it stays alive with the channel,
    // so that calls under way finish with it.
    void Register(std::unique_ptr<ServiceDispatcher> dispatcher);

    // The dispatcher of a component, or null.
    const ServiceDispatcher* Find(std::uint32_t componentId) const;

    // Takes the call and makes the job that serves it.
    Common::Error Send(std::unique_ptr<Request> request, std::unique_ptr<RequestJob>& job) override;

    // The number of worker threads made so far.
    unsigned WorkerCount() const;

private:
    struct Table;
    class Call;
    class Job;
    class WorkerPool;

    const PacketObserver observer_;

    // The table in force: read without a lock, replaced whole under registerLock_. Every
    // table and dispatcher ever published is kept until the channel goes.
    std::atomic<const Table*> table_;
    std::mutex registerLock_;
    std::vector<std::unique_ptr<const Table>> tables_;
    std::vector<std::unique_ptr<ServiceDispatcher>> dispatchers_;
    // Declared last, so that it goes first: its workers still use the dispatchers.
    std::unique_ptr<WorkerPool> pool_;
};

}  // namespace Binding
