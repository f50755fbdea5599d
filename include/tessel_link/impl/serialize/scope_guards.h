#pragma once

// Not API: element guards that the library's codecs and serializers use.

#include <cstdint>
#include <exception>
#include <optional>

#include <tessel_link/export.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

namespace Detail {
// Logs a failure of finish at level 4.
TL_API void LogFinishFailure(const Common::Error& error);
}  // namespace Detail

// Opens an element on entry and closes it on leaving the scope. A Common::Error from the
// close is logged at level 4 and dropped; any other exception propagates. While another
// exception is unwinding, a failing close never masks it: its Common::Error is still
// logged and anything else is dropped (also when the exception in flight was unwinding
// before the guard was made, as for a guard in a destructor run by unwinding).
//
// A MetaInfo made for the guard (a temporary) is kept in the guard. A named one is only
// referred to: it is declared before the guard and so outlives it, and codecs open every
// element through a guard, so a copy of each name would cost more than the rest of the read.
template <class End>
class ElementScope {
public:
    ElementScope(End& end, const MetaInfo& meta);
    ElementScope(End& end, MetaInfo&& meta);
    ElementScope(const ElementScope&) = delete;
    ElementScope& operator=(const ElementScope&) = delete;
    ~ElementScope() noexcept(false);

    // The caller has closed the element by hand.
    void Dismiss() { dismissed_ = true; }
    const MetaInfo& Meta() const { return *meta_; }

private:
    End& end_;
    std::optional<MetaInfo> owned_;
    const MetaInfo* meta_;
    bool dismissed_ = false;
};

// Both guards are compiled once, in the library: generated codecs open many thousands of
// elements, and inlining the guard's unwinding logic at each of them would only cost build time.
extern template class TL_API ElementScope<Serializer>;
extern template class TL_API ElementScope<Deserializer>;

using WriteScope = ElementScope<Serializer>;
using ReadScope = ElementScope<Deserializer>;

// Before a member whose type has version N: if the version in force differs, sets N, puts
// N into the member's MetaInfo.Version, and restores the old version on leaving. When it
// equals N, MetaInfo.Version stays 0, so a version is stated only where it changes.
class SubjectVersionScope {
public:
    SubjectVersionScope(Serializer& serializer, MetaInfo& meta, std::uint64_t version)
        : serializer_(serializer), previous_(serializer.GetSubjectVersion()) {
        if (previous_ != version) {
            serializer_.SetSubjectVersion(version);
            meta.Version = version;
            changed_ = true;
        }
    }
    SubjectVersionScope(const SubjectVersionScope&) = delete;
    SubjectVersionScope& operator=(const SubjectVersionScope&) = delete;
    ~SubjectVersionScope() {
        if (changed_) {
            serializer_.SetSubjectVersion(previous_);
        }
    }

private:
    Serializer& serializer_;
    std::uint64_t previous_;
    bool changed_ = false;
};

}  // namespace Serialization
