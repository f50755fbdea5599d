#include <tessel_link/net/socket_channel.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include <poll.h>

#include <asio/buffer.hpp>
#include <asio/connect.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>

#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/job_control.h>
#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "net/net_support.h"

namespace Net {

using Detail::NetError;

namespace {

// One connection of the pool. A call writes its frame and reads the reply on the caller's
// thread with plain socket calls, waiting in poll between them: a call costs a write, a wait
// and a read, and needs no thread beside its caller's. The connection's event loop serves
// only to connect with a time-out.
struct Connection {
    explicit Connection(std::uint32_t maxPayload) : Reader(maxPayload) {}

    asio::io_context Context{1};
    Detail::Socket Socket{Context};
    FrameReader Reader;
    bool Used = false;  // has carried a call before
};

// What Stop needs to reach a call under way: while it connects, its loop is stopped; once it
// exchanges frames, its socket is shut down, which wakes the wait at once.
struct CallControl {
    std::mutex Lock;
    bool Stopped = false;
    Connection* Active = nullptr;
    bool Connecting = false;
};

// How one attempt on one connection ended.
struct Attempt {
    enum class End { Replied, Failed, TimedOut, Stopped };
    End How = End::Failed;
    Common::Error Error;
    std::size_t Received = 0;  // reply bytes that came before a failure
};

using Deadline = std::chrono::steady_clock::time_point;

// Waits until the socket can be read (or written); false with `timedOut` set when the
// deadline passes first, false with `error` set when the wait fails.
bool Await(Detail::Socket& socket, bool forWrite, const Deadline* deadline, bool& timedOut,
           std::error_code& error) {
    timedOut = false;
    for (;;) {
        int wait = -1;
        if (deadline != nullptr) {
            const auto left = *deadline - std::chrono::steady_clock::now();
            if (left <= std::chrono::steady_clock::duration::zero()) {
                timedOut = true;
                return false;
            }
            // Rounded up, so that the wait never ends just before the deadline; a long one
            // is taken in pieces.
            const auto millis = std::chrono::ceil<std::chrono::milliseconds>(left).count();
            wait = static_cast<int>(std::min<decltype(millis)>(millis, 1 << 30));
        }
        // Asio's own waits on a socket have no time-out; poll on its descriptor does.
        pollfd watched{};
        watched.fd = socket.native_handle();
        watched.events = forWrite ? POLLOUT : POLLIN;
        const int ready = ::poll(&watched, 1, wait);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            error = std::error_code(errno, std::system_category());
            return false;
        }
    }
}

bool WouldBlock(const std::error_code& error) {
    return error == asio::error::would_block || error == asio::error::try_again;
}

Attempt Failure(std::uint32_t code, std::uint32_t row, const std::error_code& error,
                std::size_t received = 0) {
    Attempt failed;
    failed.Error = NetError(TL_ORIGIN("Net::SocketChannel::Run"), code, row, error);
    failed.How = Attempt::End::Failed;
    failed.Received = received;
    return failed;
}

Attempt TimedOut() {
    Attempt end;
    end.How = Attempt::End::TimedOut;
    return end;
}

// Writes the request frame, header and packet in one gather write where the socket takes
// them, and reads until the reply frame is whole.
Attempt ExchangeFrames(Connection& connection, std::span<const unsigned char> head,
                       std::span<const unsigned char> packet, Frame& reply,
                       const Deadline* deadline) {
    const std::size_t total = head.size() + packet.size();
    std::size_t sent = 0;
    bool timedOut = false;
    std::error_code error;
    while (sent < total) {
        const std::size_t headSent = std::min(sent, head.size());
        const std::array<asio::const_buffer, 2> rest = {
            asio::buffer(head.data() + headSent, head.size() - headSent),
            asio::buffer(packet.data() + (sent - headSent), packet.size() - (sent - headSent))};
        const std::size_t count = connection.Socket.write_some(rest, error);
        if (WouldBlock(error)) {
            error.clear();
            if (!Await(connection.Socket, true, deadline, timedOut, error)) {
                return timedOut ? TimedOut()
                                : Failure(kErrorConnectionLost, Detail::kRowConnectionLost, error);
            }
            continue;
        }
        if (error) {
            return Failure(kErrorConnectionLost, Detail::kRowConnectionLost, error);
        }
        sent += count;
    }
    FrameReader& reader = connection.Reader;
    std::size_t received = 0;
    for (;;) {
        if (!Await(connection.Socket, false, deadline, timedOut, error)) {
            return timedOut ? TimedOut()
                            : Failure(kErrorConnectionLost, Detail::kRowConnectionLost, error,
                                      received);
        }
        const std::span<unsigned char> space = reader.Prepare(Detail::ReadSize(reader));
        const std::size_t count =
            connection.Socket.read_some(asio::buffer(space.data(), space.size()), error);
        if (WouldBlock(error)) {
            error.clear();
            continue;
        }
        if (error) {
            return Failure(kErrorConnectionLost, Detail::kRowConnectionLost, error, received);
        }
        received += count;
        reader.Commit(count);
        const FrameStatus status = reader.Next(reply);
        if (status == FrameStatus::NeedMore) {
            continue;
        }
        Attempt end;
        end.Received = received;
        if (status == FrameStatus::Complete) {
            end.How = Attempt::End::Replied;
        } else {
            end.Error = NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorBadFrame,
                                 Detail::kRowConnectivity, "the reply is no frame this side can read");
        }
        return end;
    }
}

}  // namespace

class SocketChannel::Pool {
public:
    Pool(Address address, ChannelOptions options)
        : address_(std::move(address)), options_(options), slots_(options.MaxIdleConnections) {}

    ~Pool() {
        for (Slot& slot : slots_) {
            delete slot.Idle.load(std::memory_order_acquire);
        }
    }

    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    const Address& GetAddress() const { return address_; }
    std::chrono::milliseconds Timeout() const { return options_.CallTimeout; }
    std::uint64_t Opened() const { return opened_.load(std::memory_order_relaxed); }

    // Sends the request and takes its reply frame; the request's targets are not touched.
    // `timeout` zero waits for ever.
    Common::Error Call(const Binding::Request& request, std::chrono::milliseconds timeout,
                       CallControl& control, Frame& reply) {
        FrameHeader header;
        header.ComponentId = request.GetComponentID();
        header.MethodNumber = request.GetMethodNumber();
        header.InterfaceVersion = request.GetInterfaceVersion();
        header.Category = static_cast<std::uint32_t>(request.GetCategory());
        // The packet goes out as it was written, behind a header of its own: no copy into a
        // frame.
        Serialization::Blob packet;
        try {
            Serialization::XMLPacketSerializer writer(Binding::kPacketFormatRevision,
                                                      header.Category);
            request.WriteRequest(writer);
            packet = writer.Finish();
        } catch (const Common::Error& error) {
            return error;
        }
        header.PayloadLength = static_cast<std::uint32_t>(packet.Size());
        const std::array<unsigned char, kFrameHeaderSize> head = EncodeHeader(header);
        const std::span<const unsigned char> payload(packet.Data(),
                                                     static_cast<std::size_t>(packet.Size()));
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (int attempt = 0;; ++attempt) {
            std::unique_ptr<Connection> connection = Take();
            const bool reused = connection->Used;
            const Attempt end = Exchange(*connection, head, payload, reply,
                                         timeout.count() == 0 ? nullptr : &deadline, control);
            switch (end.How) {
                case Attempt::End::Replied: {
                    const FrameHeader& got = reply.Header;
                    if (!got.IsReply() || got.ComponentId != header.ComponentId ||
                        got.MethodNumber != header.MethodNumber) {
                        return NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorBadFrame,
                                        Detail::kRowConnectivity,
                                        "the reply frame answers another call");
                    }
                    connection->Used = true;
                    Give(std::move(connection));
                    return Common::ErrorSuccess;
                }
                case Attempt::End::TimedOut:
                    return NetError(TL_ORIGIN("Net::SocketChannel::Run"), Binding::kErrorJobTimedOut,
                                    Detail::kRowTimedOut);
                case Attempt::End::Stopped:
                    return NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorConnectionLost,
                                    Detail::kRowConnectionLost, "the call was abandoned");
                case Attempt::End::Failed:
                    // A connection that lay idle may have been closed by a peer that has
                    // restarted since: when nothing of a reply came, the call never reached
                    // a service, and goes once more on a new connection.
                    if (reused && end.Received == 0 && attempt == 0 &&
                        end.Error.Code() == kErrorConnectionLost) {
                        continue;
                    }
                    return end.Error;
            }
        }
    }

private:
    // Idle connections lie in slots of their own. Each thread starts looking at a slot of its
    // own, so that threads calling at once do not meet on a lock, and a thread mostly takes
    // back the connection it used last.
    static std::size_t ThreadSlot() {
        static std::atomic<std::size_t> next{0};
        thread_local const std::size_t mine = next.fetch_add(1, std::memory_order_relaxed);
        return mine;
    }

    std::unique_ptr<Connection> Take() {
        const std::size_t count = slots_.size();
        const std::size_t first = ThreadSlot();
        for (std::size_t i = 0; i < count; ++i) {
            Connection* idle = slots_[(first + i) % count].Idle.exchange(nullptr, std::memory_order_acquire);
            if (idle != nullptr) {
                return std::unique_ptr<Connection>(idle);
            }
        }
        return std::make_unique<Connection>(options_.MaxFrameLength);
    }

    // Keeps the connection for a later call, or closes it when every slot is taken.
    void Give(std::unique_ptr<Connection> connection) {
        const std::size_t count = slots_.size();
        const std::size_t first = ThreadSlot();
        for (std::size_t i = 0; i < count; ++i) {
            Connection* expected = nullptr;
            if (slots_[(first + i) % count].Idle.compare_exchange_strong(
                    expected, connection.get(), std::memory_order_release, std::memory_order_relaxed)) {
                (void)connection.release();
                return;
            }
        }
    }

    // Marks the connection as the call's, for Stop; false when the call is stopped already.
    static bool Enter(CallControl& control, Connection& connection, bool connecting) {
        const std::lock_guard<std::mutex> lock(control.Lock);
        if (control.Stopped) {
            return false;
        }
        control.Active = &connection;
        control.Connecting = connecting;
        return true;
    }

    // Takes the connection from Stop's reach; true when the call was stopped meanwhile.
    static bool Leave(CallControl& control) {
        const std::lock_guard<std::mutex> lock(control.Lock);
        control.Active = nullptr;
        control.Connecting = false;
        return control.Stopped;
    }

    static Attempt Stopped() {
        Attempt end;
        end.How = Attempt::End::Stopped;
        return end;
    }

    // Opens the connection through its event loop, which a deadline or Stop can end; nothing
    // when it is open.
    std::optional<Attempt> Connect(Connection& connection, const Deadline* deadline, CallControl& control) {
        std::error_code error;
        const std::vector<Detail::Endpoint> endpoints = Detail::Resolve(address_, error);
        if (error || endpoints.empty()) {
            return Failure(kErrorConnectFailed, Detail::kRowConnectFailed, error);
        }
        opened_.fetch_add(1, std::memory_order_relaxed);
        if (!Enter(control, connection, true)) {
            return Stopped();
        }
        bool done = false;
        connection.Context.restart();
        asio::async_connect(connection.Socket, endpoints,
                            [&done, &error](const std::error_code& failure, const Detail::Endpoint&) {
                                error = failure;
                                done = true;
                            });
        if (deadline != nullptr) {
            connection.Context.run_until(*deadline);
        } else {
            connection.Context.run();
        }
        const bool stopped = Leave(control);
        if (!done) {
            // Abandoned: the socket goes, and the connect's handler ends before this does.
            std::error_code ignored;
            connection.Socket.close(ignored);
            connection.Context.restart();
            connection.Context.run();
            return stopped ? Stopped() : TimedOut();
        }
        if (stopped) {
            return Stopped();
        }
        if (error) {
            return Failure(kErrorConnectFailed, Detail::kRowConnectFailed, error);
        }
        // Calls are small and answered at once: no delay of the frame's last segment. A Unix
        // socket refuses the option. Socket calls return at once; the waits are in poll.
        std::error_code ignored;
        connection.Socket.set_option(asio::ip::tcp::no_delay(true), ignored);
        connection.Socket.non_blocking(true, error);
        if (error) {
            return Failure(kErrorConnectFailed, Detail::kRowConnectFailed, error);
        }
        return std::nullopt;
    }

    Attempt Exchange(Connection& connection, std::span<const unsigned char> head,
                     std::span<const unsigned char> payload, Frame& reply, const Deadline* deadline,
                     CallControl& control) {
        if (!connection.Socket.is_open()) {
            std::optional<Attempt> failed = Connect(connection, deadline, control);
            if (failed) {
                std::error_code ignored;
                connection.Socket.close(ignored);
                return *failed;
            }
        }
        connection.Reader.Reset();
        Attempt end;
        if (!Enter(control, connection, false)) {
            end = Stopped();
        } else {
            end = ExchangeFrames(connection, head, payload, reply, deadline);
            if (Leave(control)) {
                end = Stopped();
            }
        }
        if (end.How != Attempt::End::Replied) {
            // A connection whose exchange did not end cleanly has lost its framing.
            std::error_code ignored;
            connection.Socket.close(ignored);
        }
        return end;
    }

    const Address address_;
    const ChannelOptions options_;
    // A slot to a cache line, so that threads on their own slots do not share one.
    struct alignas(64) Slot {
        std::atomic<Connection*> Idle{nullptr};
    };
    std::vector<Slot> slots_;
    std::atomic<std::uint64_t> opened_{0};
};

namespace {

Common::Error ReplyOutcome(Binding::Request& request, const Frame& reply) {
    if (reply.Header.IsFailure()) {
        Common::Error error = Common::Error::Deserialize(reply.Payload.data(), reply.Payload.size());
        if (error.Succeeded()) {
            return NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorBadFrame,
                            Detail::kRowConnectivity, "a failure reply without an error");
        }
        return error;
    }
    try {
        return Binding::ReadReplyPacket(request, reply.Payload);
    } catch (const Common::Error& error) {
        return error;
    }
}

// "The operation is not supported."
constexpr std::uint32_t kNotSupported = 0x4000e;

Common::Error NotSupported(const Common::ErrorOrigin& origin) {
    return Common::Error(origin, kNotSupported, Common::GetMessageRow(564));
}

// The job of one call. What its thread needs lives in a shared core, so that the job may be
// destroyed (which stops it) while its thread still ends.
class SocketJob final : public Binding::RequestJob {
public:
    SocketJob(std::unique_ptr<Binding::Request> request, std::shared_ptr<SocketChannel::Pool> pool,
              std::chrono::milliseconds timeout)
        : core_(std::make_shared<Core>()) {
        core_->RequestObject = std::move(request);
        core_->ChannelPool = std::move(pool);
        core_->Timeout = timeout;
    }

    ~SocketJob() override {
        (void)Stop();
        if (core_->Worker.joinable()) {
            if (core_->Worker.get_id() == std::this_thread::get_id()) {
                core_->Worker.detach();
            } else {
                core_->Worker.join();
            }
        }
    }

    Common::Error Run(JobManagement::JobHandler*) override {
        {
            const std::lock_guard<std::mutex> lock(core_->Control.Lock);
            if (core_->Step != Phase::Idle || core_->Control.Stopped) {
                return NotSupported(TL_ORIGIN("Net::SocketChannel::Job::Run"));
            }
            core_->Step = Phase::Done;
        }
        Frame reply;
        const Common::Error sent =
            core_->ChannelPool->Call(*core_->RequestObject, core_->Timeout, core_->Control, reply);
        return sent.Failed() ? sent : ReplyOutcome(*core_->RequestObject, reply);
    }

    Common::Error Start(JobManagement::JobHandler* handler) override {
        if (handler == nullptr) {
            return Common::Error(TL_ORIGIN("Net::SocketChannel::Job::Start"), Binding::kErrorNullPointer,
                                 "handler != nullptr");
        }
        const std::lock_guard<std::mutex> lock(core_->Control.Lock);
        if (core_->Step != Phase::Idle || core_->Control.Stopped) {
            return NotSupported(TL_ORIGIN("Net::SocketChannel::Job::Start"));
        }
        core_->Step = Phase::Serving;
        core_->Handler = handler;
        try {
            core_->Worker = std::thread(&SocketJob::Work, core_);
        } catch (const std::system_error&) {
            core_->Step = Phase::Done;
            return NotSupported(TL_ORIGIN("Net::SocketChannel::Job::Start"));
        }
        return Common::ErrorSuccess;
    }

    Common::Error Stop() override {
        std::unique_lock<std::mutex> lock(core_->Control.Lock);
        core_->Control.Stopped = true;
        if (core_->Control.Active != nullptr) {
            if (core_->Control.Connecting) {
                core_->Control.Active->Context.stop();
            } else {
                std::error_code ignored;
                core_->Control.Active->Socket.shutdown(asio::socket_base::shutdown_both, ignored);
            }
        }
        // The remote side is not waited for; reading the reply and the handler are, as the
        // request's targets and the handler may go once Stop has returned.
        core_->Ended.wait(lock, [this] {
            return core_->Step != Phase::Finishing || core_->Finisher == std::this_thread::get_id();
        });
        return Common::ErrorSuccess;
    }

private:
    enum class Phase { Idle, Serving, Finishing, Done };

    struct Core {
        CallControl Control;  // its lock guards the fields below too
        std::condition_variable Ended;
        Phase Step = Phase::Idle;
        std::thread::id Finisher;
        JobManagement::JobHandler* Handler = nullptr;
        std::thread Worker;

        std::unique_ptr<Binding::Request> RequestObject;
        std::shared_ptr<SocketChannel::Pool> ChannelPool;
        std::chrono::milliseconds Timeout{0};
    };

    static void Work(std::shared_ptr<Core> core) {
        Frame reply;
        // A started call has no time-out: it may wait as long as the service lets it.
        const Common::Error sent =
            core->ChannelPool->Call(*core->RequestObject, std::chrono::milliseconds(0), core->Control, reply);
        {
            const std::lock_guard<std::mutex> lock(core->Control.Lock);
            if (core->Control.Stopped) {
                core->Step = Phase::Done;
                return;
            }
            core->Step = Phase::Finishing;
            core->Finisher = std::this_thread::get_id();
        }
        const Common::Error result = sent.Failed() ? sent : ReplyOutcome(*core->RequestObject, reply);
        try {
            core->Handler->OnJobFinished(result);
        } catch (...) {
            // A handler's failure ends with the handler.
        }
        {
            const std::lock_guard<std::mutex> lock(core->Control.Lock);
            core->Step = Phase::Done;
        }
        core->Ended.notify_all();
    }

    std::shared_ptr<Core> core_;
};

}  // namespace

SocketChannel::SocketChannel(Address address, ChannelOptions options)
    : pool_(std::make_shared<Pool>(std::move(address), options)) {}

SocketChannel::~SocketChannel() = default;

const Address& SocketChannel::GetAddress() const {
    return pool_->GetAddress();
}

std::uint64_t SocketChannel::ConnectionsOpened() const {
    return pool_->Opened();
}

Common::Error SocketChannel::Send(std::unique_ptr<Binding::Request> request,
                                  std::unique_ptr<Binding::RequestJob>& job) {
    if (request == nullptr) {
        return Common::Error(TL_ORIGIN("Net::SocketChannel::Send"), Binding::kErrorNullPointer, "request != nullptr");
    }
    job = std::make_unique<SocketJob>(std::move(request), pool_, pool_->Timeout());
    return Common::ErrorSuccess;
}

}  // namespace Net
