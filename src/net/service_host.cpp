#include <tessel_link/net/service_host.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <thread>
#include <vector>

#include <unistd.h>
#include <sys/stat.h>

#include <asio/basic_socket_acceptor.hpp>
#include <asio/buffer.hpp>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>

#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "net/net_support.h"

namespace Net {

using Detail::NetError;

namespace {

// How often a spare thread looks for an event loop that a long call holds up. A call that
// blocks delays the other connections of its loop by one to two periods at most.
constexpr std::chrono::milliseconds kWatchPeriod{5};

// Event loops for a pool of `threads` threads: one per core, yet no more than half the pool,
// so that the other half are spares for calls that block.
unsigned LoopCount(unsigned threads) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return std::max(1u, std::min(cores, threads / 2));
}

// A reply frame ready to go: the header, and the packet or the serialized error, written
// together by one gather write.
struct ReplyFrame {
    std::array<unsigned char, kFrameHeaderSize> Head{};
    Serialization::Blob Packet;
    std::vector<unsigned char> Failure;

    std::span<const unsigned char> Payload() const {
        if (!Failure.empty()) {
            return Failure;
        }
        return {Packet.Data(), static_cast<std::size_t>(Packet.Size())};
    }
};

ReplyFrame MakeReply(FrameHeader header, Serialization::Blob packet) {
    ReplyFrame reply;
    header.PayloadLength = static_cast<std::uint32_t>(packet.Size());
    reply.Head = EncodeHeader(header);
    reply.Packet = std::move(packet);
    return reply;
}

ReplyFrame FailureFrame(const FrameHeader& request, const Common::Error& error) {
    FrameHeader header = request;
    header.Version = kFrameVersion;
    header.Flags = kFlagReply | kFlagFailure;
    ReplyFrame reply;
    reply.Failure = error.Serialize();
    header.PayloadLength = static_cast<std::uint32_t>(reply.Failure.size());
    reply.Head = EncodeHeader(header);
    return reply;
}

}  // namespace

// The host runs one event loop per core, each with one thread of its own and a share of
// the connections. A loop's thread serves a call where it read its frame and writes the
// reply at once, so that a call costs no hand-over between threads and the loop takes
// every connection that became ready in one wait. The other threads of the pool are spares:
// one of them looks every watch period for a loop whose threads have all been inside the
// same calls since its last look, and joins that loop until one of its threads is free
// again, so that a call that blocks in its service (an event fetch) holds up its own
// connection only.
class ServiceHost::Impl {
public:
    explicit Impl(HostOptions options) : options_(options) {
        if (options_.Threads == 0) {
            options_.Threads = 1;
        }
        const unsigned loops = LoopCount(options_.Threads);
        for (unsigned i = 0; i < loops; ++i) {
            loops_.push_back(std::make_unique<Loop>());
            loops_.back()->Activity = &activity_;
        }
        acceptor_ = std::make_unique<Acceptor>(loops_.front()->Context);
    }

    void Register(std::unique_ptr<Binding::ServiceDispatcher> dispatcher) {
        if (dispatcher == nullptr) {
            return;
        }
        const std::unique_lock<std::shared_mutex> lock(tableLock_);
        // A replaced dispatcher stays until the host goes: calls under way still use it.
        const Binding::ServiceDispatcher* raw = dispatcher.get();
        owned_.push_back(std::move(dispatcher));
        table_[raw->GetComponentID()] = raw;
    }

    Common::Error Start(const Address& address) {
        if (started_) {
            return NetError(TL_ORIGIN("Net::ServiceHost::Start"), kErrorListenFailed,
                            Detail::kRowConnectFailed, "the host has been started before");
        }
        std::error_code error;
        std::vector<Detail::Endpoint> endpoints = Detail::Resolve(address, error);
        if (error || endpoints.empty()) {
            return NetError(TL_ORIGIN("Net::ServiceHost::Start"), kErrorListenFailed,
                            Detail::kRowConnectFailed, error);
        }
        if (address.Type == Address::Kind::Unix) {
            // A socket file left by a host that ended without Stop would refuse the bind.
            struct stat info {};
            if (::lstat(address.Path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode)) {
                ::unlink(address.Path.c_str());
            }
        }
        const Detail::Endpoint& endpoint = endpoints.front();
        Acceptor& acceptor = *acceptor_;
        acceptor.open(endpoint.protocol(), error);
        if (!error && address.Type == Address::Kind::Tcp) {
            acceptor.set_option(asio::socket_base::reuse_address(true), error);
        }
        if (!error) {
            acceptor.bind(endpoint, error);
        }
        if (!error) {
            acceptor.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            std::error_code ignored;
            acceptor.close(ignored);
            return NetError(TL_ORIGIN("Net::ServiceHost::Start"), kErrorListenFailed,
                            Detail::kRowConnectFailed, error);
        }
        bound_ = address;
        if (address.Type == Address::Kind::Tcp) {
            const Detail::Endpoint local = acceptor.local_endpoint(error);
            if (!error && local.size() >= sizeof(sockaddr_in)) {
                const auto* in = reinterpret_cast<const sockaddr_in*>(local.data());
                bound_.Port = ntohs(in->sin_port);
            }
        }
        started_ = true;
        Accept();
        for (const auto& loop : loops_) {
            threads_.emplace_back([loop = loop.get()] { loop->Context.run(); });
        }
        for (std::size_t i = loops_.size(); i < options_.Threads; ++i) {
            threads_.emplace_back([this] { Spare(); });
        }
        return Common::ErrorSuccess;
    }

    void Stop() {
        if (!started_ || stopped_) {
            return;
        }
        stopped_ = true;
        {
            const std::lock_guard<std::mutex> lock(spareLock_);
            stopping_ = true;
        }
        spareWake_.notify_all();
        // A watcher asleep until the next call wakes as if one had begun; the count is not
        // read again after this.
        activity_.Calls.fetch_add(1);
        activity_.Wakes.fetch_add(1);
        activity_.Wakes.notify_all();
        for (const auto& loop : loops_) {
            loop->Work.reset();
            loop->Context.stop();
        }
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
        // No thread runs the loops any more: the sockets close here, and their handlers go
        // with the loops.
        std::error_code ignored;
        acceptor_->close(ignored);
        {
            const std::lock_guard<std::mutex> lock(sessionsLock_);
            for (const auto& session : sessions_) {
                session->Close();
            }
            sessions_.clear();
        }
        if (bound_.Type == Address::Kind::Unix) {
            ::unlink(bound_.Path.c_str());
        }
    }

    Address BoundAddress() const { return bound_; }

    HostCounters Counters() const {
        HostCounters counters;
        counters.Connections = connections_.load(std::memory_order_relaxed);
        counters.Calls = calls_.load(std::memory_order_relaxed);
        counters.Failures = failures_.load(std::memory_order_relaxed);
        counters.Dropped = dropped_.load(std::memory_order_relaxed);
        return counters;
    }

    ~Impl() { Stop(); }

private:
    using Acceptor = asio::basic_socket_acceptor<Detail::Protocol>;

    // Calls in progress on every loop, and whether the watching spare sleeps until the next
    // one begins: an idle host wakes no thread at all.
    struct CallActivity {
        std::atomic<int> Calls{0};
        std::atomic<bool> WatcherAsleep{false};
        // Counts the wake-ups of the watcher. It sleeps on this, not on Calls: a whole call
        // that begins and ends between its look at Calls and its sleep leaves Calls as it
        // was, but not this.
        std::atomic<std::uint32_t> Wakes{0};
    };

    // An event loop and what the spares watch of it.
    struct Loop {
        asio::io_context Context;
        asio::executor_work_guard<asio::io_context::executor_type> Work{
            asio::make_work_guard(Context)};
        std::atomic<int> Free{1};  // threads running the loop outside a call; its own first
        std::atomic<std::uint64_t> Begun{0};  // calls begun on the loop
        std::uint64_t Seen = 0;  // Begun at the watcher's last look, under spareLock_
        CallActivity* Activity = nullptr;  // the host's, shared by every loop
    };

    // Counts a call in its loop while it is served.
    class Serving {
    public:
        explicit Serving(Loop& loop) : loop_(loop) {
            loop_.Begun.fetch_add(1, std::memory_order_relaxed);
            loop_.Free.fetch_sub(1, std::memory_order_relaxed);
            // Sequentially consistent with the watcher's side of the same pair: either this
            // call sees the watcher asleep and wakes it, or the watcher sees this call.
            CallActivity& activity = *loop_.Activity;
            if (activity.Calls.fetch_add(1) == 0 && activity.WatcherAsleep.load()) {
                activity.WatcherAsleep.store(false);
                activity.Wakes.fetch_add(1);
                activity.Wakes.notify_one();
            }
        }
        ~Serving() {
            loop_.Activity->Calls.fetch_sub(1, std::memory_order_relaxed);
            loop_.Free.fetch_add(1, std::memory_order_relaxed);
        }
        Serving(const Serving&) = delete;
        Serving& operator=(const Serving&) = delete;

    private:
        Loop& loop_;
    };

    // One accepted connection: reads frames, serves them one after the other, writes the
    // replies. One step of it is under way at a time, so it needs no lock of its own.
    class Session : public std::enable_shared_from_this<Session> {
    public:
        Session(Impl& host, Loop& loop, Detail::Socket socket)
            : host_(host), loop_(loop), socket_(std::move(socket)),
              reader_(host.options_.MaxFrameLength) {}

        void Begin() {
            // Replies are written at once where the socket takes them (see Send).
            std::error_code error;
            socket_.non_blocking(true, error);
            Read();
        }

        void Close() {
            std::error_code ignored;
            socket_.close(ignored);
        }

    private:
        void Read() {
            const std::span<unsigned char> space =
                reader_.Prepare(Detail::ReadSize(reader_));
            socket_.async_read_some(asio::buffer(space.data(), space.size()),
                                    [self = shared_from_this()](const std::error_code& error,
                                                                std::size_t count) {
                                        if (error) {
                                            self->End();
                                            return;
                                        }
                                        self->reader_.Commit(count);
                                        self->Process();
                                    });
        }

        // Serves the frames that have come, one after the other, until one is missing bytes,
        // a reply waits for the socket or the connection ends.
        void Process() {
            for (;;) {
                switch (reader_.Next(request_)) {
                    case FrameStatus::NeedMore:
                        Read();
                        return;
                    case FrameStatus::Complete: {
                        if (request_.Header.IsReply() || request_.Header.IsFailure()) {
                            Refuse(request_.Header, "a request frame with the flags of a reply");
                            return;
                        }
                        ReplyFrame reply;
                        {
                            const Serving serving(loop_);
                            reply = host_.Serve(request_);
                        }
                        if (!Send(std::move(reply), true)) {
                            return;
                        }
                        continue;
                    }
                    case FrameStatus::BadMagic:
                        host_.dropped_.fetch_add(1, std::memory_order_relaxed);
                        End();
                        return;
                    case FrameStatus::BadVersion:
                        Refuse(*reader_.PendingHeader(), "a frame of a format version this host does not speak");
                        return;
                    case FrameStatus::BadFlags:
                        Refuse(*reader_.PendingHeader(), "a frame with unknown flags");
                        return;
                    case FrameStatus::TooLong:
                        Refuse(*reader_.PendingHeader(), "a frame longer than the host takes");
                        return;
                }
            }
        }

        // Answers a frame that ends the connection.
        void Refuse(const FrameHeader& header, const char* why) {
            host_.failures_.fetch_add(1, std::memory_order_relaxed);
            Send(FailureFrame(header, NetError(TL_ORIGIN("Net::ServiceHost::Serve"), kErrorBadFrame,
                                               Detail::kRowConnectivity, why)),
                 false);
        }

        // The part of the reply not yet written, from `written` bytes on.
        std::array<asio::const_buffer, 2> Unwritten(std::size_t written) const {
            const std::span<const unsigned char> payload = out_.Payload();
            const std::size_t head = std::min(written, out_.Head.size());
            const std::size_t body = written - head;
            return {asio::buffer(out_.Head.data() + head, out_.Head.size() - head),
                    asio::buffer(payload.data() + body, payload.size() - body)};
        }

        // Writes a frame, header and payload in one gather write; true when it went whole at
        // once and the session goes on with the next frame on this thread. Most replies fit
        // the socket's buffer: written here, they spare a completion handed through the loop.
        // The rest of a longer one is written in the background, and its completion goes on
        // with the next frame.
        bool Send(ReplyFrame frame, bool goOn) {
            out_ = std::move(frame);
            const std::size_t total = out_.Head.size() + out_.Payload().size();
            std::error_code error;
            std::size_t written = socket_.write_some(Unwritten(0), error);
            if (error == asio::error::would_block || error == asio::error::try_again) {
                error.clear();
                written = 0;
            }
            if (error) {
                End();
                return false;
            }
            if (written == total) {
                if (!goOn) {
                    End();
                }
                return goOn;
            }
            asio::async_write(socket_, Unwritten(written),
                              [self = shared_from_this(), goOn](const std::error_code& failure,
                                                                std::size_t) {
                                  if (failure || !goOn) {
                                      self->End();
                                      return;
                                  }
                                  // More frames may have come with the last read.
                                  self->Process();
                              });
            return false;
        }

        void End() {
            Close();
            host_.Forget(shared_from_this());
        }

        Impl& host_;
        Loop& loop_;
        Detail::Socket socket_;
        FrameReader reader_;
        Frame request_;  // kept, so that its payload's storage serves the next call too
        ReplyFrame out_;
    };

    ReplyFrame Serve(const Frame& request) {
        const Binding::ServiceDispatcher* dispatcher = nullptr;
        {
            const std::shared_lock<std::shared_mutex> lock(tableLock_);
            const auto at = table_.find(request.Header.ComponentId);
            dispatcher = at == table_.end() ? nullptr : at->second;
        }
        if (dispatcher == nullptr) {
            failures_.fetch_add(1, std::memory_order_relaxed);
            const std::string text =
                "Cannot find a component with ID '" + std::to_string(request.Header.ComponentId) + "'.";
            return FailureFrame(request.Header,
                                Common::Error(TL_ORIGIN("Net::ServiceHost::Serve"),
                                              Binding::kErrorUnknownComponent, text.c_str()));
        }
        try {
            Serialization::XMLPacketDeserializer reader(request.Payload.data(), request.Payload.size(),
                                                        Binding::kRootSubjectVersion);
            Serialization::XMLPacketSerializer writer(Binding::kPacketFormatRevision,
                                                      request.Header.Category);
            dispatcher->Serve(request.Header.MethodNumber, request.Header.InterfaceVersion, reader,
                              writer);
            FrameHeader header = request.Header;
            header.Flags = kFlagReply;
            ReplyFrame reply = MakeReply(header, writer.Finish());
            calls_.fetch_add(1, std::memory_order_relaxed);
            return reply;
        } catch (const Common::Error& error) {
            failures_.fetch_add(1, std::memory_order_relaxed);
            return FailureFrame(request.Header, error);
        } catch (const std::exception& error) {
            // A service that throws anything else must not take the host down.
            failures_.fetch_add(1, std::memory_order_relaxed);
            return FailureFrame(request.Header,
                                NetError(TL_ORIGIN("Net::ServiceHost::Serve"), kErrorBadFrame,
                                         Detail::kRowConnectivity, error.what()));
        }
    }

    // Accepts on the first loop and gives each connection to the next loop in turn.
    void Accept() {
        Loop& loop = *loops_[nextLoop_];
        nextLoop_ = (nextLoop_ + 1) % loops_.size();
        acceptor_->async_accept(loop.Context, [this, &loop](const std::error_code& error,
                                                            Detail::Socket socket) {
            if (error == asio::error::operation_aborted || !acceptor_->is_open()) {
                return;
            }
            if (!error) {
                std::error_code ignored;
                socket.set_option(asio::ip::tcp::no_delay(true), ignored);
                auto session = std::make_shared<Session>(*this, loop, std::move(socket));
                {
                    const std::lock_guard<std::mutex> lock(sessionsLock_);
                    sessions_.insert(session);
                }
                connections_.fetch_add(1, std::memory_order_relaxed);
                session->Begin();
            }
            // A failed accept (out of descriptors, a connection reset before it was taken)
            // ends only that one.
            Accept();
        });
    }

    void Forget(const std::shared_ptr<Session>& session) {
        const std::lock_guard<std::mutex> lock(sessionsLock_);
        sessions_.erase(session);
    }

    // A spare thread: it watches the loops while no other spare does, and joins a loop that
    // a long call holds up.
    void Spare() {
        std::unique_lock<std::mutex> lock(spareLock_);
        while (!stopping_) {
            if (watching_) {
                spareWake_.wait(lock);
                continue;
            }
            watching_ = true;
            Loop* held = nullptr;
            while (!stopping_ && held == nullptr) {
                spareWake_.wait_for(lock, kWatchPeriod);
                bool quiet = false;
                held = HeldLoop(quiet);
                // Sleeping only after a whole period without a new call keeps a host that
                // serves one caller back to back from waking the watcher at every call.
                if (quiet && activity_.Calls.load(std::memory_order_relaxed) == 0) {
                    SleepUntilACall(lock);
                }
            }
            watching_ = false;
            if (held == nullptr) {
                break;
            }
            spareWake_.notify_one();  // another spare takes the watch over
            lock.unlock();
            Help(*held);
            lock.lock();
        }
    }

    // No call is in progress: nothing can be held up until one begins. Takes and gives back
    // `lock`, so that Stop can get through.
    void SleepUntilACall(std::unique_lock<std::mutex>& lock) {
        lock.unlock();
        const std::uint32_t wakes = activity_.Wakes.load();
        activity_.WatcherAsleep.store(true);
        if (activity_.Calls.load() == 0) {
            activity_.Wakes.wait(wakes);
        }
        activity_.WatcherAsleep.store(false);
        lock.lock();
    }

    // A loop whose threads are all inside calls that began before the last look: no call
    // has begun on it since, so its other connections wait. `quiet` tells whether no call
    // has begun on any loop. Under spareLock_.
    Loop* HeldLoop(bool& quiet) {
        Loop* held = nullptr;
        quiet = true;
        for (const auto& loop : loops_) {
            const std::uint64_t begun = loop->Begun.load(std::memory_order_relaxed);
            quiet = quiet && begun == loop->Seen;
            if (held == nullptr && begun == loop->Seen &&
                loop->Free.load(std::memory_order_relaxed) <= 0) {
                held = loop.get();
            }
            loop->Seen = begun;
        }
        return held;
    }

    // Runs the loop beside its held threads until another of them is free again.
    static void Help(Loop& loop) {
        loop.Free.fetch_add(1, std::memory_order_relaxed);
        while (!loop.Context.stopped()) {
            loop.Context.run_one_for(kWatchPeriod);
            if (loop.Free.load(std::memory_order_relaxed) >= 2) {
                break;
            }
        }
        loop.Free.fetch_sub(1, std::memory_order_relaxed);
        // The last handler run here may have queued its next step (the rest of a long
        // reply) without waking the loop's own thread, which may sleep in the wait with
        // nothing to wake it: an empty handler posted from outside the loop wakes it.
        asio::post(loop.Context, [] {});
    }

    HostOptions options_;
    CallActivity activity_;  // before the loops, which point to it
    std::vector<std::unique_ptr<Loop>> loops_;
    std::unique_ptr<Acceptor> acceptor_;  // on the first loop; goes before the loops
    std::size_t nextLoop_ = 0;  // the loop of the next connection, touched by Accept only
    std::vector<std::thread> threads_;
    Address bound_;
    bool started_ = false;
    bool stopped_ = false;

    std::mutex spareLock_;
    std::condition_variable spareWake_;
    bool stopping_ = false;
    bool watching_ = false;

    std::shared_mutex tableLock_;
    std::map<std::uint32_t, const Binding::ServiceDispatcher*> table_;
    std::vector<std::unique_ptr<Binding::ServiceDispatcher>> owned_;

    std::mutex sessionsLock_;
    std::set<std::shared_ptr<Session>> sessions_;

    std::atomic<std::uint64_t> connections_{0};
    std::atomic<std::uint64_t> calls_{0};
    std::atomic<std::uint64_t> failures_{0};
    std::atomic<std::uint64_t> dropped_{0};
};

ServiceHost::ServiceHost(HostOptions options) : impl_(std::make_unique<Impl>(options)) {}

ServiceHost::~ServiceHost() {
    impl_->Stop();
}

void ServiceHost::Register(std::unique_ptr<Binding::ServiceDispatcher> dispatcher) {
    impl_->Register(std::move(dispatcher));
}

Common::Error ServiceHost::Start(const Address& address) {
    return impl_->Start(address);
}

void ServiceHost::Stop() {
    impl_->Stop();
}

Address ServiceHost::BoundAddress() const {
    return impl_->BoundAddress();
}

HostCounters ServiceHost::Counters() const {
    return impl_->Counters();
}

}  // namespace Net
