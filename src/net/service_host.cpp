#include <tessel_link/net/service_host.h>

#include <atomic>
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
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>

#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "net/net_support.h"

namespace Net {

using Detail::NetError;

class ServiceHost::Impl {
public:
    explicit Impl(HostOptions options)
        : options_(options), work_(asio::make_work_guard(context_)), acceptor_(context_) {
        if (options_.Threads == 0) {
            options_.Threads = 1;
        }
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
        acceptor_.open(endpoint.protocol(), error);
        if (!error && address.Type == Address::Kind::Tcp) {
            acceptor_.set_option(asio::socket_base::reuse_address(true), error);
        }
        if (!error) {
            acceptor_.bind(endpoint, error);
        }
        if (!error) {
            acceptor_.listen(asio::socket_base::max_listen_connections, error);
        }
        if (error) {
            std::error_code ignored;
            acceptor_.close(ignored);
            return NetError(TL_ORIGIN("Net::ServiceHost::Start"), kErrorListenFailed,
                            Detail::kRowConnectFailed, error);
        }
        bound_ = address;
        if (address.Type == Address::Kind::Tcp) {
            const Detail::Endpoint local = acceptor_.local_endpoint(error);
            if (!error && local.size() >= sizeof(sockaddr_in)) {
                const auto* in = reinterpret_cast<const sockaddr_in*>(local.data());
                bound_.Port = ntohs(in->sin_port);
            }
        }
        started_ = true;
        Accept();
        for (unsigned i = 0; i < options_.Threads; ++i) {
            threads_.emplace_back([this] { context_.run(); });
        }
        return Common::ErrorSuccess;
    }

    void Stop() {
        if (!started_ || stopped_) {
            return;
        }
        stopped_ = true;
        work_.reset();
        context_.stop();
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
        // No thread runs the loop any more: the sockets close here, and their handlers go
        // with the loop.
        std::error_code ignored;
        acceptor_.close(ignored);
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
    // One accepted connection: reads frames, serves them one after the other, writes the
    // replies. One step of it is under way at a time, so it needs no lock of its own.
    class Session : public std::enable_shared_from_this<Session> {
    public:
        Session(Impl& host, Detail::Socket socket)
            : host_(host), socket_(std::move(socket)), reader_(host.options_.MaxFrameLength) {}

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
                Frame request;
                switch (reader_.Next(request)) {
                    case FrameStatus::NeedMore:
                        Read();
                        return;
                    case FrameStatus::Complete:
                        if (request.Header.IsReply() || request.Header.IsFailure()) {
                            Refuse(request.Header, "a request frame with the flags of a reply");
                            return;
                        }
                        if (!Send(host_.Serve(request), true)) {
                            return;
                        }
                        continue;
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

        // Writes a frame; true when it went whole at once and the session goes on with the
        // next frame on this thread. Most replies fit the socket's buffer: written here, they
        // spare a completion handed through the loop, which often wakes another of the host's
        // threads. The rest of a longer one is written in the background, and its completion
        // goes on with the next frame.
        bool Send(std::vector<unsigned char> frame, bool goOn) {
            out_ = std::move(frame);
            std::error_code error;
            std::size_t written = socket_.write_some(asio::buffer(out_), error);
            if (error == asio::error::would_block || error == asio::error::try_again) {
                error.clear();
                written = 0;
            }
            if (error) {
                End();
                return false;
            }
            if (written == out_.size()) {
                if (!goOn) {
                    End();
                }
                return goOn;
            }
            asio::async_write(socket_, asio::buffer(out_.data() + written, out_.size() - written),
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
        Detail::Socket socket_;
        FrameReader reader_;
        std::vector<unsigned char> out_;
    };

    static std::vector<unsigned char> FailureFrame(const FrameHeader& request, const Common::Error& error) {
        FrameHeader header = request;
        header.Version = kFrameVersion;
        header.Flags = kFlagReply | kFlagFailure;
        const std::vector<unsigned char> payload = error.Serialize();
        return EncodeFrame(header, payload);
    }

    std::vector<unsigned char> Serve(const Frame& request) {
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
            const Serialization::Blob packet = writer.Finish();
            FrameHeader header = request.Header;
            header.Flags = kFlagReply;
            calls_.fetch_add(1, std::memory_order_relaxed);
            return EncodeFrame(header, {packet.Data(), static_cast<std::size_t>(packet.Size())});
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

    void Accept() {
        acceptor_.async_accept([this](const std::error_code& error, Detail::Socket socket) {
            if (error == asio::error::operation_aborted || !acceptor_.is_open()) {
                return;
            }
            if (!error) {
                std::error_code ignored;
                socket.set_option(asio::ip::tcp::no_delay(true), ignored);
                auto session = std::make_shared<Session>(*this, std::move(socket));
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

    HostOptions options_;
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    asio::basic_socket_acceptor<Detail::Protocol> acceptor_;
    std::vector<std::thread> threads_;
    Address bound_;
    bool started_ = false;
    bool stopped_ = false;

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
