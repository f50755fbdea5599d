#pragma once

// The service end of socket channels: listens at an address, reads request frames and
// serves each call with the dispatcher registered for its component, the same dispatchers
// a loopback channel uses:
//
//   Net::ServiceHost host;
//   host.Register(std::make_unique<TestManagement::TestManager_Dispatcher>(service));
//   Common::Error error = host.Start(address);   // returns once it listens
//   ...
//   host.Stop();
//
// Calls are served on a pool of `Threads` threads, several at once. Up to one thread per core,
// and no more than half the pool, each runs an event loop with a share of the connections and
// serves their calls where it reads them, without handing them to another thread. The rest are
// spares: when every thread of a loop has been inside a call for a few milliseconds, a spare
// joins that loop until one of them is free again, so that a call that blocks in its service
// holds up its own connection only, as long as spares are left (`Threads` minus the loops).
//
// A frame of a format the host does not speak, with unknown flags or longer than
// MaxFrameLength is answered with a failure frame and its connection closed; bytes that are no frame at all close the connection without an answer. A request
// packet that cannot be read, a component without a dispatcher or a method the component
// does not have is answered with a failure frame, and the connection goes on. None of these
// touch the other connections.

#include <cstdint>
#include <memory>

#include <tessel_link/binding/service_dispatcher.h>
#include <tessel_link/common/error.h>
#include <tessel_link/net/address.h>
#include <tessel_link/net/export.h>
#include <tessel_link/net/frame.h>

namespace Net {

// How a host serves: its pool of threads and the longest frame it takes.
struct HostOptions {
    unsigned Threads = 4;  // the pool: event loops and spares for calls that block
    std::uint32_t MaxFrameLength = kDefaultMaxFrameLength;  // longer frames are refused
};

// What a host has seen, for operators and tests.
struct HostCounters {
    std::uint64_t Connections = 0;  // accepted
    std::uint64_t Calls = 0;        // answered with a reply packet
    std::uint64_t Failures = 0;     // answered with a failure frame
    std::uint64_t Dropped = 0;      // connections closed for bytes that are no frame
};

// The serving end of socket channels: accepts connections, reads request frames and serves
// each call with the registered dispatchers on a bounded pool of threads.
class TL_NET_API ServiceHost {
public:
    // A host that serves nothing yet and does not listen until Start.
    explicit ServiceHost(HostOptions options = {});
    // Stops the host.
    ~ServiceHost();
    ServiceHost(const ServiceHost&) = delete;
    ServiceHost& operator=(const ServiceHost&) = delete;

    // Serves the dispatcher's component from now on, in place of one registered before.
    void Register(std::unique_ptr<Binding::ServiceDispatcher> dispatcher);

    // Listens at `address` and starts the threads. A Unix socket's file is replaced when it
    // is there already and removed again by Stop. Fails with kErrorListenFailed and the
    // system's reason; a host starts once.
    Common::Error Start(const Address& address);

    // Closes the listener and every connection and joins the threads: calls under way in a
    // service must be able to end.
    void Stop();

    // Where the host listens: with the port the system chose for port 0.
    Address BoundAddress() const;
    // What the host has seen so far.
    HostCounters Counters() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Net
