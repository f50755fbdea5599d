#include "binding/dispatch_errors.h"

#include <initializer_list>
#include <string>
#include <vector>

#include <tessel_link/impl/binding/table_dispatcher.h>
#include <tessel_link/common/messages.h>

#include "common/error_record.h"

namespace Binding::Detail {

namespace {

constexpr std::uint32_t kRowUnknownComponent = 187;
constexpr std::uint32_t kRowNoMethodInfo = 188;
constexpr std::uint32_t kRowVersionNotSupported = 158;

Common::Error MakeError(const Common::ErrorOrigin& origin, std::uint32_t code, std::uint32_t row,
                        std::initializer_list<std::uint64_t> arguments) {
    const char16_t* text = Common::GetMessageRow(row);
    std::string names;
    std::vector<Common::GenericValue> values;
    values.reserve(arguments.size() + 1);
    std::size_t index = 0;
    for (std::uint64_t argument : arguments) {
        names += std::to_string(index++);
        names += ',';
        values.push_back(Common::GenericValue{'N', argument, {}, {}});
    }
    names += "$module";
    values.push_back(Common::GenericValue{'A', 0, Common::kModuleIdentifier, {}});
    Common::ErrorRecord* record =
        Common::MakeGenericRecord(code, origin.LineTag, origin.File, origin.Func, origin.Line,
                                  text != nullptr ? std::u16string(text) : std::u16string(), names,
                                  values.data(), values.size());
    if (record == nullptr) {
        record = Common::OutOfMemoryRecord();
    }
    return Common::Adopt(record);
}

}  // namespace

Common::Error UnknownComponentError(std::uint32_t componentId) {
    return MakeError(TL_ORIGIN("Binding::LoopbackChannel::Send"), kErrorUnknownComponent,
                     kRowUnknownComponent, {componentId});
}

Common::Error UnknownMethodError(std::uint32_t componentId, std::uint32_t methodNumber) {
    return MakeError(TL_ORIGIN("Binding::TableDispatcher::Serve"), kErrorUnknownMethod,
                     kRowNoMethodInfo, {componentId, methodNumber});
}

Common::Error VersionNotSupportedError(std::uint32_t componentId, std::uint32_t methodNumber,
                                       std::uint64_t interfaceVersion) {
    return MakeError(TL_ORIGIN("Binding::TableDispatcher::Serve"), kErrorVersionNotSupported,
                     kRowVersionNotSupported, {componentId, methodNumber, interfaceVersion});
}

}  // namespace Binding::Detail
