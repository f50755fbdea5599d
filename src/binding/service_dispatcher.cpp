#include <tessel_link/impl/binding/table_dispatcher.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include <tessel_link/common/messages.h>
#include <tessel_link/impl/serialize/scope_guards.h>

#include "binding/dispatch_errors.h"

namespace Binding {

namespace Detail {

const Serialization::MetaInfo& ResultMeta() {
    static const Serialization::MetaInfo meta("result");
    return meta;
}

}  // namespace Detail

ServiceDispatcher::~ServiceDispatcher() = default;

namespace {

// The rows of methods given one by one; they point into `methods`, which outlives them.
std::vector<ServiceMethodRow> RowsOf(std::initializer_list<ServiceMethod> methods) {
    std::vector<ServiceMethodRow> rows;
    rows.reserve(methods.size());
    for (const ServiceMethod& method : methods) {
        rows.push_back({method.Number, method.Name, method.IntroducedVersion,
                        method.Parameters.data(), method.Parameters.size(), method.Serve,
                        method.Invoke});
    }
    return rows;
}

}  // namespace

TableDispatcher::TableDispatcher(std::uint32_t componentId, std::string interfaceName,
                                 std::uint64_t interfaceVersion, void* implementation,
                                 std::initializer_list<ServiceMethod> methods)
    : TableDispatcher(componentId, std::move(interfaceName), interfaceVersion, implementation,
                      std::span<const ServiceMethodRow>(RowsOf(methods))) {}

TableDispatcher::TableDispatcher(std::uint32_t componentId, std::string interfaceName,
                                 std::uint64_t interfaceVersion, void* implementation,
                                 std::span<const ServiceMethodRow> methods)
    : componentId_(componentId),
      interfaceName_(std::move(interfaceName)),
      interfaceVersion_(interfaceVersion),
      implementation_(implementation) {
    std::uint32_t highest = 0;
    for (const ServiceMethodRow& method : methods) {
        highest = std::max(highest, method.Number);
    }
    rows_.resize(highest);
    for (const ServiceMethodRow& method : methods) {
        AddRow(method);
    }
}

void TableDispatcher::AddRow(const ServiceMethodRow& method) {
    if (method.Number == 0) {
        return;
    }
    Row& row = rows_[method.Number - 1];
    row.Method.Number = method.Number;
    row.Method.IntroducedVersion = method.IntroducedVersion;
    row.Method.Name = method.Name;
    const std::string suffix = "_" + interfaceName_ + "_" + method.Name;
    row.Method.RequestElement = Serialization::MetaInfo("request" + suffix);
    row.Method.ReplyElement = Serialization::MetaInfo("reply" + suffix);
    for (std::size_t i = 0; i < method.ParameterCount; ++i) {
        row.Method.ArgumentMeta.emplace_back(method.Parameters[i].Name);
        row.Method.ArgumentKinds.push_back(method.Parameters[i].Kind);
    }
    row.ServeRow = method.Serve;
    row.Invoke = method.Invoke;
}

TableDispatcher::~TableDispatcher() = default;

std::uint32_t TableDispatcher::GetComponentID() const {
    return componentId_;
}

void TableDispatcher::Serve(std::uint32_t methodNumber, std::uint64_t interfaceVersion,
                            Serialization::Deserializer& request,
                            Serialization::Serializer& reply) const {
    if (methodNumber == 0 || methodNumber > rows_.size() ||
        rows_[methodNumber - 1].ServeRow == nullptr) {
        throw Detail::UnknownMethodError(componentId_, methodNumber);
    }
    const Row& row = rows_[methodNumber - 1];
    // A caller of an older interface cannot mean a method that came later under this number.
    if (interfaceVersion < row.Method.IntroducedVersion) {
        throw Detail::VersionNotSupportedError(componentId_, methodNumber, interfaceVersion);
    }
    row.ServeRow(row.Method, row.Invoke, implementation_, request, reply);
}

}  // namespace Binding
