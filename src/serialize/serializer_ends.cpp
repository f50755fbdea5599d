#include <exception>

#include <tessel_link/common/trace.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

Serializer::~Serializer() = default;
Deserializer::~Deserializer() = default;

bool Deserializer::NextIs(const MetaInfo& meta) {
    return NextMetaInfo() == meta;
}

std::size_t Deserializer::CountNext(const MetaInfo& /*meta*/) {
    return 0;
}

void Detail::LogFinishFailure(const Common::Error& error) {
    Common::TraceError(4, error);
}

namespace {

void Begin(Serializer& end, const MetaInfo& meta) {
    end.BeginWriteMetaInfo(meta);
}
void Finish(Serializer& end, const MetaInfo& meta) {
    end.FinishWriteMetaInfo(meta);
}
void Begin(Deserializer& end, const MetaInfo& meta) {
    end.BeginReadMetaInfo(meta);
}
void Finish(Deserializer& end, const MetaInfo& meta) {
    end.FinishReadMetaInfo(meta);
}

}  // namespace

template <class End>
ElementScope<End>::ElementScope(End& end, const MetaInfo& meta)
    : end_(end), meta_(&meta) {
    Begin(end_, *meta_);
}

template <class End>
ElementScope<End>::ElementScope(End& end, MetaInfo&& meta)
    : end_(end), owned_(std::move(meta)), meta_(&*owned_) {
    Begin(end_, *meta_);
}

template <class End>
ElementScope<End>::~ElementScope() noexcept(false) {
    if (dismissed_) {
        return;
    }
    try {
        Finish(end_, *meta_);
    } catch (const Common::Error& error) {
        Detail::LogFinishFailure(error);
    } catch (...) {
        // Only asked when a close failed: the question costs a thread-local lookup, and
        // every element of a packet is opened and closed through a guard. Any exception in
        // flight counts, also one that was unwinding before the guard was made (a guard in
        // a destructor run by unwinding): a throw out of here would then end the program.
        if (std::uncaught_exceptions() > 0) {
            return;
        }
        throw;
    }
}

template class ElementScope<Serializer>;
template class ElementScope<Deserializer>;

}  // namespace Serialization
