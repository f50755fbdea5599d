#pragma once

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
// The job of a call takes the request's own packet (CreateDeserializer), lets the
// component's dispatcher write the reply into a fresh packet, and reads that packet back
// with ReadReplyPacket: each call crosses the same bytes as it would between processes. Run
// returns the reply's "result" as it was read from the packet.
//
// A call for a component without a dispatcher, or for a method its dispatcher does not
// have, fails with an error from Run; nothing else reaches the service.
//
// Send may be called from any number of threads, also while dispatchers are registered;
// the call path takes no lock. A job must run before the channel is destroyed.
class TL_API LoopbackChannel : public RequestChannel {
public:
    // Shown both packets of a call once the reply is written, before the reply is read:
    // for hosts that log or display the traffic. It runs on the calling thread.
    using PacketObserver =
        std::function<void(const Request& request, std::span<const unsigned char> requestPacket,
                           std::span<const unsigned char> replyPacket)>;

    LoopbackChannel();
    explicit LoopbackChannel(PacketObserver observer);
    ~LoopbackChannel() override;
    LoopbackChannel(const LoopbackChannel&) = delete;
    LoopbackChannel& operator=(const LoopbackChannel&) = delete;

    // Serves the dispatcher's component from now on. A dispatcher registered earlier for
    // the same component is no longer used for new calls; it stays alive with the channel,
    // so that calls under way finish with it.
    void Register(std::unique_ptr<ServiceDispatcher> dispatcher);

    // The dispatcher of a component, or null.
    const ServiceDispatcher* Find(std::uint32_t componentId) const;

    Common::Error Send(std::unique_ptr<Request> request, std::unique_ptr<RequestJob>& job) override;

private:
    struct Table;
    class Job;

    const PacketObserver observer_;

    // The table in force: read without a lock, replaced whole under registerLock_. Every
    // table and dispatcher ever published is kept until the channel goes.
    std::atomic<const Table*> table_;
    std::mutex registerLock_;
    std::vector<std::unique_ptr<const Table>> tables_;
    std::vector<std::unique_ptr<ServiceDispatcher>> dispatchers_;
};

}  // namespace Binding
