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
#include "common/thread_cache.h"

namespace Binding {

namespace {

// "The operation is not supported."
constexpr std::uint32_t kRowNotSupported = 564;

// The largest block for request packets that a thread keeps between its calls.
constexpr std::size_t kKeptRequestBytes = 64 * 1024;

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

// What one call through the loopback needs, wherever it is served: the request, the
// component's dispatcher (null for an unknown component) and the channel's observer.
class LoopbackChannel::Call {
public:
    Call(std::unique_ptr<Request> request, const ServiceDispatcher* dispatcher,
         const PacketObserver& observer)
        : request_(std::move(request)), dispatcher_(dispatcher), observer_(&observer) {}

    // Lets the service answer into `replyPacket`; the request's targets stay untouched.
    Common::Error Serve(Serialization::Blob& replyPacket) {
        if (dispatcher_ == nullptr) {
            return Detail::UnknownComponentError(request_->GetComponentID());
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
            request_->ReadReply(capture);
            return capture.Result();
        } catch (const Common::Error& error) {
            return error;
        }
    }

    // Serves the call and reads its reply.
    Common::Error Complete() {
        Serialization::Blob reply;
        const Common::Error served = Serve(reply);
        return served.Failed() ? served : ReadReply(reply);
    }

private:
    // The request's packet is written here as CreateDeserializer writes it (the same
    // revision and the low word of the request's category), so that an observer can be
    // shown its bytes and a call without one needs no packet of its own: the reader copies
    // what it needs while it is built, and the bytes go into a block that the thread keeps
    // for its next call.
    void ServePacket(Serialization::Blob& replyPacket) {
        Request& request = *request_;
        const auto category = static_cast<std::uint32_t>(request.GetCategory());
        std::vector<unsigned char> observed;
        {
            Serialization::XMLPacketSerializer requestWriter(kPacketFormatRevision, category);
            request.WriteRequest(requestWriter);
            // Only ever in use between Finish and the reader's constructor, where no code of
            // a service or a host runs, so a call made while serving another finds it free.
            auto* scratch = Common::ThreadCache<std::vector<unsigned char>>::Get();
            auto& bytes = *observer_ || scratch == nullptr ? observed : *scratch;
            requestWriter.Finish(bytes);
            Serialization::XMLPacketDeserializer requestReader(bytes.data(), bytes.size(),
                                                               kRootSubjectVersion);
            if (scratch != nullptr && scratch->capacity() > kKeptRequestBytes) {
                *scratch = std::vector<unsigned char>();
            }
            // The reply's block is taken over as it is, not copied.
            Serialization::XMLPacketSerializer replyWriter(kPacketFormatRevision, category);
            dispatcher_->Serve(request.GetMethodNumber(), request.GetInterfaceVersion(),
                               requestReader, replyWriter);
            replyPacket = replyWriter.Finish();
        }
        if (*observer_) {
            (*observer_)(request, observed,
                         {replyPacket.Data(), static_cast<std::size_t>(replyPacket.Size())});
        }
    }

    std::unique_ptr<Request> request_;
    const ServiceDispatcher* dispatcher_;
    const PacketObserver* observer_;
};

// The job of one call through the loopback. Run serves the call on the caller's thread with
// the job's own state. Start moves the call into a core shared with a worker, so that the
// job object may be destroyed (which stops it) while its worker is still busy.
class LoopbackChannel::Job final : public RequestJob {
public:
    Job(std::unique_ptr<Request> request, const ServiceDispatcher* dispatcher,
        const PacketObserver& observer, LoopbackChannel& channel)
        : call_(std::move(request), dispatcher, observer), channel_(channel) {}

    ~Job() override { (void)Stop(); }

    Common::Error Run(JobManagement::JobHandler*) override {
        Use expected = Use::Fresh;
        if (!use_.compare_exchange_strong(expected, Use::Ran, std::memory_order_acq_rel)) {
            return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Run"));
        }
        return call_.Complete();
    }

    Common::Error Start(JobManagement::JobHandler* handler) override {
        if (handler == nullptr) {
            return NullPointerError(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"),
                                    "handler != nullptr");
        }
        const std::lock_guard<std::mutex> lock(startLock_);
        Use expected = Use::Fresh;
        if (!use_.compare_exchange_strong(expected, Use::Started, std::memory_order_acq_rel)) {
            return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"));
        }
        core_ = std::make_shared<Core>(std::move(call_), handler);
        if (!channel_.pool_->Post([core = core_] { Work(*core); })) {
            const std::lock_guard<std::mutex> coreLock(core_->Lock);
            core_->Step = Phase::Done;
            return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"));
        }
        return Common::ErrorSuccess;
    }

    Common::Error Stop() override {
        // A job that ran on its caller's thread has ended with Run; nothing is left to stop.
        if (use_.load(std::memory_order_acquire) == Use::Ran) {
            return Common::ErrorSuccess;
        }
        Core* core = nullptr;
        {
            const std::lock_guard<std::mutex> lock(startLock_);
            Use expected = Use::Fresh;
            if (use_.compare_exchange_strong(expected, Use::Stopped, std::memory_order_acq_rel)) {
                return Common::ErrorSuccess;
            }
            core = core_.get();
        }
        if (core == nullptr) {
            return Common::ErrorSuccess;
        }
        // Not under startLock_: a handler that stops its own job must get through while
        // another thread waits here for it.
        std::unique_lock<std::mutex> lock(core->Lock);
        core->Stopped = true;
        // The service call is not waited for; reading the reply and the handler are, as the
        // request's targets and the handler may go once Stop has returned. The handler's own
        // thread must not wait for itself.
        core->Ended.wait(lock, [core] {
            return core->Step != Phase::Finishing || core->Finisher == std::this_thread::get_id();
        });
        return Common::ErrorSuccess;
    }

private:
    // What the job has been used for: each job serves at most once.
    enum class Use { Fresh, Ran, Started, Stopped };
    enum class Phase { Queued, Serving, Finishing, Done };

    struct Core {
        Core(Call&& call, JobManagement::JobHandler* handler)
            : Served(std::move(call)), Handler(handler) {}

        Call Served;
        JobManagement::JobHandler* const Handler;
        std::mutex Lock;
        std::condition_variable Ended;
        Phase Step = Phase::Queued;
        bool Stopped = false;
        std::thread::id Finisher;
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
        const Common::Error served = core.Served.Serve(reply);
        {
            const std::lock_guard<std::mutex> lock(core.Lock);
            if (core.Stopped) {
                core.Step = Phase::Done;
                return;
            }
            core.Step = Phase::Finishing;
            core.Finisher = std::this_thread::get_id();
        }
        const Common::Error result = served.Failed() ? served : core.Served.ReadReply(reply);
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

    Call call_;
    std::atomic<Use> use_{Use::Fresh};
    // Orders Start against Stop, so that Stop finds the core that Start made.
    std::mutex startLock_;
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
