#include <tessel_link/net/socket_channel.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

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

// One connection of the pool with the event loop that drives it. Each connection has a loop
// of its own, run by the thread of the call that holds the connection, so that a call needs
// no thread beside its caller's and a time-out or a Stop ends just this call.
struct Connection {
    explicit Connection(std::uint32_t maxPayload) : Reader(maxPayload) {}

    asio::io_context Context{1};
    Detail::Socket Socket{Context};
    FrameReader Reader;
    bool Used = false;  // has carried a call before
};

// What Stop needs to reach a call under way.
struct CallControl {
    std::mutex Lock;
    bool Stopped = false;
    Connection* Active = nullptr;
};

// How one attempt on one connection ended.
struct Attempt {
    enum class End { Replied, Failed, TimedOut, Stopped };
    End How = End::Failed;
    Common::Error Error;
    std::size_t Received = 0;  // reply bytes that came before a failure
};

// The asynchronous steps of one exchange: connect when needed, write the request frame,
// read until the reply frame is whole.
class ExchangeSteps {
public:
    ExchangeSteps(Connection& connection, const std::vector<unsigned char>& request, Frame& reply)
        : connection_(connection), request_(request), reply_(reply) {}

    void Begin(const std::vector<Detail::Endpoint>* endpoints) {
        if (endpoints != nullptr) {
            asio::async_connect(connection_.Socket, *endpoints,
                                [this](const std::error_code& error, const Detail::Endpoint&) {
                                    if (error) {
                                        Fail(kErrorConnectFailed, Detail::kRowConnectFailed, error);
                                        return;
                                    }
                                    // Calls are small and answered at once: no delay of the
                                    // frame's last segment. A Unix socket refuses the option.
                                    std::error_code ignored;
                                    connection_.Socket.set_option(asio::ip::tcp::no_delay(true),
                                                                  ignored);
                                    Write();
                                });
        } else {
            Write();
        }
    }

    bool Done() const { return done_; }
    Attempt& Result() { return result_; }

private:
    void Write() {
        asio::async_write(connection_.Socket, asio::buffer(request_),
                          [this](const std::error_code& error, std::size_t) {
                              if (error) {
                                  Fail(kErrorConnectionLost, Detail::kRowConnectionLost, error);
                                  return;
                              }
                              Read();
                          });
    }

    void Read() {
        FrameReader& reader = connection_.Reader;
        const std::span<unsigned char> space = reader.Prepare(Detail::ReadSize(reader));
        connection_.Socket.async_read_some(
            asio::buffer(space.data(), space.size()),
            [this](const std::error_code& error, std::size_t count) {
                if (error) {
                    Fail(kErrorConnectionLost, Detail::kRowConnectionLost, error);
                    return;
                }
                result_.Received += count;
                connection_.Reader.Commit(count);
                const FrameStatus status = connection_.Reader.Next(reply_);
                if (status == FrameStatus::NeedMore) {
                    Read();
                } else if (status == FrameStatus::Complete) {
                    result_.How = Attempt::End::Replied;
                    done_ = true;
                } else {
                    result_.Error = NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorBadFrame,
                                             Detail::kRowConnectivity,
                                             "the reply is no frame this side can read");
                    result_.How = Attempt::End::Failed;
                    done_ = true;
                }
            });
    }

    void Fail(std::uint32_t code, std::uint32_t row, const std::error_code& error) {
        result_.Error = NetError(TL_ORIGIN("Net::SocketChannel::Run"), code, row, error);
        result_.How = Attempt::End::Failed;
        done_ = true;
    }

    Connection& connection_;
    const std::vector<unsigned char>& request_;
    Frame& reply_;
    Attempt result_;
    bool done_ = false;
};

}  // namespace

class SocketChannel::Pool {
public:
    Pool(Address address, ChannelOptions options)
        : address_(std::move(address)), options_(options) {}

    const Address& GetAddress() const { return address_; }
    std::chrono::milliseconds Timeout() const { return options_.CallTimeout; }
    std::uint64_t Opened() const { return opened_.load(std::memory_order_relaxed); }

    // Sends the request and takes its reply frame; the request's targets are not touched.
    // `timeout` zero waits for ever.
    Common::Error Call(const Binding::Request& request, std::chrono::milliseconds timeout,
                       CallControl& control, Frame& reply) {
        std::vector<unsigned char> frame;
        FrameHeader header;
        header.ComponentId = request.GetComponentID();
        header.MethodNumber = request.GetMethodNumber();
        header.InterfaceVersion = request.GetInterfaceVersion();
        header.Category = static_cast<std::uint32_t>(request.GetCategory());
        try {
            Serialization::XMLPacketSerializer writer(Binding::kPacketFormatRevision,
                                                      header.Category);
            request.WriteRequest(writer);
            const Serialization::Blob packet = writer.Finish();
            frame = EncodeFrame(header, {packet.Data(), static_cast<std::size_t>(packet.Size())});
        } catch (const Common::Error& error) {
            return error;
        }
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (int attempt = 0;; ++attempt) {
            std::unique_ptr<Connection> connection = Take();
            const bool reused = connection->Used;
            const Attempt end = Exchange(*connection, frame, reply, timeout.count() == 0 ? nullptr : &deadline,
                                         control);
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
    std::unique_ptr<Connection> Take() {
        {
            const std::lock_guard<std::mutex> lock(lock_);
            if (!idle_.empty()) {
                std::unique_ptr<Connection> connection = std::move(idle_.back());
                idle_.pop_back();
                return connection;
            }
        }
        return std::make_unique<Connection>(options_.MaxFrameLength);
    }

    void Give(std::unique_ptr<Connection> connection) {
        const std::lock_guard<std::mutex> lock(lock_);
        if (idle_.size() < options_.MaxIdleConnections) {
            idle_.push_back(std::move(connection));
        }
    }

    Attempt Exchange(Connection& connection, const std::vector<unsigned char>& frame, Frame& reply,
                     const std::chrono::steady_clock::time_point* deadline, CallControl& control) {
        std::vector<Detail::Endpoint> endpoints;
        if (!connection.Socket.is_open()) {
            std::error_code error;
            endpoints = Detail::Resolve(address_, error);
            if (error || endpoints.empty()) {
                Attempt failed;
                failed.Error = NetError(TL_ORIGIN("Net::SocketChannel::Run"), kErrorConnectFailed,
                                        Detail::kRowConnectFailed, error);
                return failed;
            }
            opened_.fetch_add(1, std::memory_order_relaxed);
        }
        connection.Reader.Reset();
        connection.Context.restart();
        {
            const std::lock_guard<std::mutex> lock(control.Lock);
            if (control.Stopped) {
                Attempt stopped;
                stopped.How = Attempt::End::Stopped;
                return stopped;
            }
            control.Active = &connection;
        }
        ExchangeSteps exchange(connection, frame, reply);
        exchange.Begin(endpoints.empty() ? nullptr : &endpoints);
        if (deadline != nullptr) {
            connection.Context.run_until(*deadline);
        } else {
            connection.Context.run();
        }
        bool stopped = false;
        {
            const std::lock_guard<std::mutex> lock(control.Lock);
            control.Active = nullptr;
            stopped = control.Stopped;
        }
        if (!exchange.Done() || stopped) {
            // Abandoned: the connection goes, and its handlers end before the exchange does.
            std::error_code ignored;
            connection.Socket.close(ignored);
            connection.Context.restart();
            connection.Context.run();
            Attempt end;
            end.How = stopped ? Attempt::End::Stopped : Attempt::End::TimedOut;
            return end;
        }
        if (exchange.Result().How != Attempt::End::Replied) {
            std::error_code ignored;
            connection.Socket.close(ignored);
        }
        return exchange.Result();
    }

    const Address address_;
    const ChannelOptions options_;
    std::mutex lock_;
    std::vector<std::unique_ptr<Connection>> idle_;
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
            core_->Control.Active->Context.stop();
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
