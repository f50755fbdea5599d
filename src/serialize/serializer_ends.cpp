#include <tessel_link/common/trace.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/scope_guards.h>
#include <tessel_link/serialize/serializer.h>

namespace Serialization {

Serializer::~Serializer() = default;
Deserializer::~Deserializer() = default;

void Detail::LogFinishFailure(const Common::Error& error) {
    Common::TraceError(4, error);
}

}  // namespace Serialization
