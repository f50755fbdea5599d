#include <tessel_link/binding/loopback_channel.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <tessel_link/binding/call.h>
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

LoopbackChannel::LoopbackChannel() : LoopbackChannel(PacketObserver()) {}

LoopbackChannel::LoopbackChannel(PacketObserver observer) : observer_(std::move(observer)) {
    tables_.push_back(std::make_unique<const Table>());
    table_.store(tables_.back().get(), std::memory_order_release);
}

// The job of one call through the loopback.
class LoopbackChannel::Job final : public RequestJob {
public:
    Job(std::unique_ptr<Request> request, const ServiceDispatcher* dispatcher,
        const PacketObserver& observer)
        : request_(std::move(request)), dispatcher_(dispatcher), observer_(observer) {}

    Common::Error Run(JobManagement::JobHandler*) override {
        if (dispatcher_ == nullptr) {
            return Detail::UnknownComponentError(request_->GetComponentID());
        }
        try {
            return Serve();
        } catch (const Common::Error& error) {
            return error;
        }
    }

    // A loopback call is served on the caller's thread; there is no background form of it.
    Common::Error Start(JobManagement::JobHandler*) override {
        return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Start"));
    }
    Common::Error Stop() override {
        return NotSupported(TL_ORIGIN("Binding::LoopbackChannel::Job::Stop"));
    }

private:
    Common::Error Serve() {
        const auto category = static_cast<std::uint32_t>(request_->GetCategory());
        Serialization::Blob requestPacket;
        Serialization::Blob replyPacket;
        {
            // An observer is shown the request's packet, so it is written here, in the form
            // CreateDeserializer gives it.
            std::unique_ptr<Serialization::Deserializer> requestReader;
            if (observer_) {
                Serialization::XMLPacketSerializer requestWriter(kPacketFormatRevision, category);
                request_->WriteRequest(requestWriter);
                requestPacket = requestWriter.Finish();
                requestReader = std::make_unique<Serialization::XMLPacketDeserializer>(
                    requestPacket.Data(), requestPacket.Size(), kRootSubjectVersion);
            } else {
                requestReader = request_->CreateDeserializer(kRootSubjectVersion);
            }
            // The reply's block is taken over as it is, not copied.
            Serialization::XMLPacketSerializer replyWriter(kPacketFormatRevision, category);
            dispatcher_->Serve(request_->GetMethodNumber(), request_->GetInterfaceVersion(),
                               *requestReader, replyWriter);
            replyPacket = replyWriter.Finish();
        }
        if (observer_) {
            observer_(*request_, Bytes(requestPacket), Bytes(replyPacket));
        }
        return ReadReplyPacket(*request_, Bytes(replyPacket));
    }

    static std::span<const unsigned char> Bytes(const Serialization::Blob& blob) {
        return {blob.Data(), static_cast<std::size_t>(blob.Size())};
    }

    std::unique_ptr<Request> request_;
    const ServiceDispatcher* dispatcher_;
    const PacketObserver& observer_;
};

LoopbackChannel::~LoopbackChannel() = default;

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
    job = std::make_unique<Job>(std::move(request), dispatcher, observer_);
    return Common::ErrorSuccess;
}

}  // namespace Binding
