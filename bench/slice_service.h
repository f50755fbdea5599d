#pragma once

// The service that the call benchmarks call: one method without parameters and one that
// lists 1,000 records, its dispatcher, and the two proxy calls written as a generated proxy
// writes them, so that every channel is measured with the same calls.

#include <memory>
#include <string>
#include <vector>

#include <tessel_link/binding/request_channel.h>
#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/impl/binding/call.h>
#include <tessel_link/impl/binding/request_impl.h>
#include <tessel_link/impl/binding/service_method.h>
#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/xidl/records.h>

#include "sample_slices.h"

namespace bench_support {

using Slices = std::vector<ArchiveManagement::SliceInfo>;
constexpr std::size_t kRecords = 1000;
constexpr std::uint32_t kComponent = 950;

inline const Slices& Records() {
    static const Slices slices = [] {
        Slices list;
        for (std::size_t i = 0; i < kRecords; ++i) {
            list.push_back(ListedSlice(i));
        }
        return list;
    }();
    return slices;
}

// The service of the benchmark: one method without parameters, one that lists records.
class SliceManager {
public:
    virtual ~SliceManager() = default;
    virtual Common::Error Ping() = 0;
    virtual Common::Error ListSlices(Slices& slices) = 0;
};

class SliceService final : public SliceManager {
public:
    Common::Error Ping() override { return Common::ErrorSuccess; }
    Common::Error ListSlices(Slices& slices) override {
        slices = Records();
        return Common::ErrorSuccess;
    }
};

class SliceDispatcher final : public Binding::ComponentDispatcher<SliceManager> {
public:
    SliceDispatcher()
        : ComponentDispatcher(kComponent, "SliceManager", 1, std::make_shared<SliceService>(),
                              {Binding::Serve<SliceManager, &SliceManager::Ping>(1, "Ping", 1),
                               Binding::Serve<SliceManager, &SliceManager::ListSlices>(
                                   2, "ListSlices", 1, {{"slices", Binding::ArgumentKind::Out}})}) {
    }
};

inline Binding::MethodDescriptor Describe(std::uint32_t number, const char* name) {
    Binding::MethodDescriptor method;
    method.ComponentID = kComponent;
    method.MethodNumber = number;
    method.ComponentName = "SliceManager";
    method.MethodName = name;
    method.InterfaceVersion = 1;
    method.IntroducedVersion = 1;
    method.Category = Binding::kAllCategories;
    return method;
}

// What a generated proxy method does.
inline Common::Error Ping(Binding::RequestChannel& channel) {
    return Binding::Detail::CallRemote(
        channel, [] { return Binding::Detail::CreateRequest<void()>(Describe(1, "Ping")); });
}

inline Common::Error ListSlices(Binding::RequestChannel& channel, Slices& slices) {
    return Binding::Detail::CallRemote(channel, [&] {
        return Binding::Detail::CreateRequest<void(Slices&)>(
            Describe(2, "ListSlices"), {slices, "slices", Binding::ArgumentKind::Out});
    });
}

}  // namespace bench_support
