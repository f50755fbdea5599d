#pragma once

// A request channel over a stream socket, for hosts that talk to a service in another
// process or on another machine:
//
//   Net::Address address;
//   if (Net::Address::Parse("unix:/run/tessel.sock", address).Failed()) ...
//   Core::ChannelPointer channel = std::make_shared<Net::SocketChannel>(address);
//   CreateProxy(188, &channel, &component);
//
// A call is one request frame out and one reply frame back (net/frame.h) on a connection
// of the channel's pool: a call takes an idle connection or opens a new one, and gives it
// back when the reply has come. Calls from many threads run at once, each on a connection
// of its own. A connection the peer closed while it was idle (the service restarted) is
// found out by the first call that uses it, which then goes again on a new connection, so
// that the call after a restart reaches the new service.
//
// Run waits at most the channel's call time-out; a call that has not ended by then is
// abandoned with its connection and answered with Binding::kErrorJobTimedOut. Start runs
// the call on a thread of its own without a time-out (the event proxy's fetches wait as long
// as the service has no events); Stop abandons it at once, without waiting for the service,
// and returns only when the job no longer touches the request or its handler.
//
// Every failure of the connection comes back from Run (or to the handler) as a
// Common::Error with a code of net/errors.h and the system's reason as its cause; nothing
// is thrown.

#include <chrono>
#include <cstdint>
#include <memory>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/error.h>
#include <tessel_link/net/address.h>
#include <tessel_link/net/export.h>
#include <tessel_link/net/frame.h>

namespace Net {

// How a socket channel calls: its time-out, reply limit and pool of connections.
struct ChannelOptions {
    // How long Run waits for a call, from connecting to the last byte of the reply; zero
    // waits for ever.
    std::chrono::milliseconds CallTimeout{30000};
    // The longest reply payload taken.
    std::uint32_t MaxFrameLength = kDefaultMaxFrameLength;
    // Idle connections kept for later calls; more are closed when their call ends.
    unsigned MaxIdleConnections = 16;
};

// A request channel over a TCP or Unix-domain socket: each call is one frame out and one
// frame back on a pooled connection.
class TL_NET_API SocketChannel : public Binding::RequestChannel {
public:
    // A channel to `address`; it connects at the first call.
    explicit SocketChannel(Address address, ChannelOptions options = {});
    ~SocketChannel() override;
    SocketChannel(const SocketChannel&) = delete;
    SocketChannel& operator=(const SocketChannel&) = delete;

    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>& job) override;

    // The address the channel calls.
    const Address& GetAddress() const;
    // Connections opened so far, for hosts that watch the pool.
    std::uint64_t ConnectionsOpened() const;

    class Pool;

private:
    std::shared_ptr<Pool> pool_;
};

}  // namespace Net
