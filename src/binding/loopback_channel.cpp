#include <tessel_link/binding/loopback_channel.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <thread>
#include <utility>
#include <vector>

#include <tessel_link/binding/job_control.h>

#include <tessel_link/impl/binding/call.h>
#include <tessel_link/binding/reply_reading.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/serialize/xml_packet_deserializer.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

#include "binding/binding_errors.h"
#include "binding/dispatch_errors.h"

namespace Binding {

namespace {

// "The operation is not supported."
constexpr std::uint32_t kRowNotSupported = 564;

Common::Error NotSupported(const Common::ErrorOrigin& origin) {
    return Common::Error(origin, Detail::kNotSupported, Common::GetMessageRow(kRowNotSupported));
}

}  // namespace

// The dispatchers in force, sorted by component ID.
struct LoopbackChannel::Table {
    std::vector<std::pair<std::uint32_t, const ServiceDispatcher*>> Entries;

    const ServiceDispatcher* Find(std::uint32_t componentId) const {
        const auto at =
            std::lower_bound(Entries.begin(), Entries.end(), componentId,
                             [](const auto& entry, std::uint32_t id) { return entry.first < id; });
        return at != Entries.end() && at->first == componentId ? at->second : nullptr;
    }
};

// The workers of background jobs: at most `max` threads, made on demand, each taking jobs
// from one queue in order. The state is shared with the threads, so that a worker whose job
// let the channel go (and with it the pool) still finds it when the job returns.
class LoopbackChannel::WorkerPool {
public:
    explicit WorkerPool(unsigned max) : max_(max == 0 ? 1 : max), state_(std::make_shared<State>()) {}

    ~WorkerPool() {
        std::deque<std::function<void()>> dropped;
        std::vector<std::thread> threads;
        {
            const std::lock_guard<std::mutex> lock(state_->Lock);
            state_->Closing = true;
            dropped.swap(state_->Queue);
            threads.swap(state_->Threads);
        }
        state_->Wake.notify_all();
        dropped.clear();
        for (std::thread& thread : threads) {
            // The last reference to the channel may drop inside one of its own jobs.
            if (thread.get_id() == std::this_thread::get_id()) {
                thread.detach();
            } else {
                thread.join();
            }
        }
    }

    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // False once the pool is closing.
    bool Post(std::function<void()> task) {
        const std::lock_guard<std::mutex> lock(state_->Lock);
        if (state_->Closing) {
            return false;
        }
        state_->Queue.push_back(std::move(task));
        if (state_->Idle < state_->Queue.size() && state_->Threads.size() < max_) {
            state_->Threads.emplace_back(&WorkerPool::Work, state_);
        } else {
            state_->Wake.notify_one();
        }
        return true;
    }

    unsigned Count() const {
        const std::lock_guard<std::mutex> lock(state_->Lock);
        return static_cast<unsigned>(state_->Threads.size());
    }

private:
    struct State {
        std::mutex Lock;
        std::condition_variable Wake;
        std::deque<std::function<void()>> Queue;
        std::vector<std::thread> Threads;
        std::size_t Idle = 0;
        bool Closing = false;
    };

    static void Work(std::shared_ptr<State> state) {
        std::unique_lock<std::mutex> lock(state->Lock);
        for (;;) {
            while (!state->Closing && state->Queue.empty()) {
                ++state->Idle;
                state->Wake.wait(lock);
                --state->Idle;
            }
            if (state->Closing) {
                return;
            }
            std::function<void()> task = std::move(state->Queue.front());
            state->Queue.pop_front();
            lock.unlock();
            task();
            task = nullptr;
            lock.lock();
        }
    }

    const unsigned max_;
    std::shared_ptr<State> state_;
};

// The job of one call through the loopback. What a worker needs lives in a shared core, so
// that the job object may be destroyed (which stops it) while its worker is still busy.
class LoopbackChannel::Job final : public RequestJob {
public:
    Job(std::unique_ptr<Request> request, const ServiceDispatcher* dispatcher,
        const PacketObserver& observer, LoopbackChannel& channel)
        : core_(std::make_shared<Core>(std::move(request), dispatcher, observer)),
          channel_(channel) {}

    ~Job() override { (void)Stop(); }

    Common::Error Run(JobManagement::JobHandler*) override {
        {
            const std::lock_guard<std::mutex> lock(core_->Lock);
            if (core_->Step != Phase::Idle || core_->Stopped) {
                return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Run"));
            }
            core_->Step = Phase::Done;
        }
        Serialization::Blob reply;
        const Common::Error served = core_->Serve(reply);
        return served.Failed() ? served : core_->ReadReply(reply);
    }

    Common::Error Start(JobManagement::JobHandler* handler) override {
        if (handler == nullptr) {
            return NullPointerError(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"),
                                    "handler != nullptr");
        }
        {
            const std::lock_guard<std::mutex> lock(core_->Lock);
            if (core_->Step != Phase::Idle || core_->Stopped) {
                return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"));
            }
            core_->Step = Phase::Queued;
            core_->Handler = handler;
        }
        if (!channel_.pool_->Post([core = core_] { Work(*core); })) {
            const std::lock_guard<std::mutex> lock(core_->Lock);
            core_->Step = Phase::Done;
            return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"));
        }
        return Common::ErrorSuccess;
    }

    Common::Error Stop() override {
        std::unique_lock<std::mutex> lock(core_->Lock);
        core_->Stopped = true;
        // The service call is not waited for; reading the reply and the handler are, as the
        // request's targets and the handler may go once Stop has returned. The handler's own
        // thread must not wait for itself.
        core_->Ended.wait(lock, [this] {
            return core_->Step != Phase::Finishing ||
                   core_->Finisher == std::this_thread::get_id();
        });
        return Common::ErrorSuccess;
    }

private:
    enum class Phase { Idle, Queued, Serving, Finishing, Done };

    struct Core {
        Core(std::unique_ptr<Request> request, const ServiceDispatcher* dispatcher,
             const PacketObserver& observer)
            : RequestObject(std::move(request)), Dispatcher(dispatcher), Observer(observer) {}

        // Lets the service answer into `replyPacket`; the request's targets stay untouched.
        Common::Error Serve(Serialization::Blob& replyPacket) {
            if (Dispatcher == nullptr) {
                return Detail::UnknownComponentError(RequestObject->GetComponentID());
            }
            try {
                ServePacket(replyPacket);
                return Common::ErrorSuccess;
            } catch (const Common::Error& error) {
                return error;
            }
        }

        // Reads the reply into the request's targets and returns the call's outcome, as
        // ReadReplyPacket does. The reader keeps what it needs of the packet, so the packet's
        // block (as large as the reply, and more) is given back before the out values are
        // made, not after: the records then reuse its memory instead of adding to it.
        Common::Error ReadReply(Serialization::Blob& replyPacket) {
            try {
                Serialization::XMLPacketDeserializer reader(replyPacket.Data(), replyPacket.Size(),
                                                            kRootSubjectVersion);
                replyPacket = Serialization::Blob();
                ReplyResultCapture capture(reader);
                RequestObject->ReadReply(capture);
                return capture.Result();
            } catch (const Common::Error& error) {
                return error;
            }
        }

        std::mutex Lock;
        std::condition_variable Ended;
        Phase Step = Phase::Idle;
        bool Stopped = false;
        std::thread::id Finisher;
        JobManagement::JobHandler* Handler = nullptr;

        std::unique_ptr<Request> RequestObject;
        const ServiceDispatcher* Dispatcher;
        const PacketObserver& Observer;

    private:
        void ServePacket(Serialization::Blob& replyPacket) {
            Request& request = *RequestObject;
            const auto category = static_cast<std::uint32_t>(request.GetCategory());
            Serialization::Blob requestPacket;
            {
                // An observer is shown the request's packet, so it is written here, in the
                // form CreateDeserializer gives it.
                std::unique_ptr<Serialization::Deserializer> requestReader;
                if (Observer) {
                    Serialization::XMLPacketSerializer requestWriter(kPacketFormatRevision,
                                                                     category);
                    request.WriteRequest(requestWriter);
                    requestPacket = requestWriter.Finish();
                    requestReader = std::make_unique<Serialization::XMLPacketDeserializer>(
                        requestPacket.Data(), requestPacket.Size(), kRootSubjectVersion);
                } else {
                    requestReader = request.CreateDeserializer(kRootSubjectVersion);
                }
                // The reply's block is taken over as it is, not copied.
                Serialization::XMLPacketSerializer replyWriter(kPacketFormatRevision, category);
                Dispatcher->Serve(request.GetMethodNumber(), request.GetInterfaceVersion(),
                                  *requestReader, replyWriter);
                replyPacket = replyWriter.Finish();
            }
            if (Observer) {
                Observer(request, Bytes(requestPacket), Bytes(replyPacket));
            }
        }
    };

    // A started job on its worker.
    static void Work(Core& core) {
        {
            const std::lock_guard<std::mutex> lock(core.Lock);
            if (core.Stopped) {
                core.Step = Phase::Done;
                return;
            }
            core.Step = Phase::Serving;
        }
        Serialization::Blob reply;
        const Common::Error served = core.Serve(reply);
        {
            const std::lock_guard<std::mutex> lock(core.Lock);
            if (core.Stopped) {
                core.Step = Phase::Done;
                return;
            }
            core.Step = Phase::Finishing;
            core.Finisher = std::this_thread::get_id();
        }
        const Common::Error result = served.Failed() ? served : core.ReadReply(reply);
        try {
            core.Handler->OnJobFinished(result);
        } catch (...) {
            // A handler's failure ends with the handler; the worker goes on.
        }
        {
            const std::lock_guard<std::mutex> lock(core.Lock);
            core.Step = Phase::Done;
        }
        core.Ended.notify_all();
    }

    static std::span<const unsigned char> Bytes(const Serialization::Blob& blob) {
        return {blob.Data(), static_cast<std::size_t>(blob.Size())};
    }

    std::shared_ptr<Core> core_;
    LoopbackChannel& channel_;
};

LoopbackChannel::LoopbackChannel() : LoopbackChannel(PacketObserver()) {}

LoopbackChannel::LoopbackChannel(PacketObserver observer, unsigned maxWorkers)
    : observer_(std::move(observer)), pool_(std::make_unique<WorkerPool>(maxWorkers)) {
    tables_.push_back(std::make_unique<const Table>());
    table_.store(tables_.back().get(), std::memory_order_release);
}

LoopbackChannel::~LoopbackChannel() {
    pool_.reset();
}

unsigned LoopbackChannel::WorkerCount() const {
    return pool_->Count();
}

void LoopbackChannel::Register(std::unique_ptr<ServiceDispatcher> dispatcher) {
    if (dispatcher == nullptr) {
        return;
    }
    const std::uint32_t id = dispatcher->GetComponentID();
    const std::lock_guard<std::mutex> lock(registerLock_);
    auto next = std::make_unique<Table>(*table_.load(std::memory_order_relaxed));
    const auto at =
        std::lower_bound(next->Entries.begin(), next->Entries.end(), id,
                         [](const auto& entry, std::uint32_t key) { return entry.first < key; });
    if (at != next->Entries.end() && at->first == id) {
        at->second = dispatcher.get();
    } else {
        next->Entries.insert(at, {id, dispatcher.get()});
    }
    dispatchers_.push_back(std::move(dispatcher));
    tables_.push_back(std::move(next));
    table_.store(tables_.back().get(), std::memory_order_release);
}

const ServiceDispatcher* LoopbackChannel::Find(std::uint32_t componentId) const {
    return table_.load(std::memory_order_acquire)->Find(componentId);
}

Common::Error LoopbackChannel::Send(std::unique_ptr<Request> request,
                                    std::unique_ptr<RequestJob>& job) {
    if (request == nullptr) {
        return NullPointerError(TL_ORIGIN("Binding::LoopbackChannel::Send"), "request != nullptr");
    }
    // An unknown component is answered by the job, as a service would answer it.
    const ServiceDispatcher* dispatcher = Find(request->GetComponentID());
    job = std::make_unique<Job>(std::move(request), dispatcher, observer_, *this);
    return Common::ErrorSuccess;
}

}  // namespace Binding
