#include "por/por_errors.h"

#include <string>
#include <vector>

#include <tessel_link/common/messages.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/kinds.h>

#include "common/error_record.h"

namespace Por::Detail {

Common::Error MakeRowError(const Common::ErrorOrigin& origin, std::uint32_t code,
                           std::uint32_t row) {
    return Common::Error(origin, code, Common::GetMessageRow(row));
}

Common::Error MakeRowErrorWithArguments(const Common::ErrorOrigin& origin, std::uint32_t code,
                                        std::uint32_t row,
                                        std::initializer_list<std::u16string_view> arguments) {
    const char16_t* text = Common::GetMessageRow(row);
    std::string names;
    std::vector<Common::GenericValue> values;
    values.reserve(arguments.size() + 1);
    std::size_t index = 0;
    for (std::u16string_view argument : arguments) {
        names += std::to_string(index++);
        names += ',';
        values.push_back(Common::GenericValue{'W', 0, {}, std::u16string(argument)});
    }
    names += "$module";
    values.push_back(Common::GenericValue{'A', 0, Common::kModuleIdentifier, {}});
    Common::ErrorRecord* record = Common::MakeGenericRecord(
        code, origin.LineTag, origin.File, origin.Func, origin.Line,
        text != nullptr ? std::u16string(text) : std::u16string(), names, values.data(),
        values.size());
    if (record == nullptr) {
        record = Common::OutOfMemoryRecord();
    }
    return Common::Adopt(record);
}

void ThrowTooDeep(const char* function) {
    throw MakeRowError(TL_ORIGIN(function), kErrorOutOfRange, kRowOutOfRange);
}

}  // namespace Por::Detail

namespace Por::Util::Detail {

Common::Error MakeTypeMismatchError(unsigned expectedType, unsigned actualType) {
    Common::LogStack("Por::Util::Detail::MakeTypeMismatchError");
    return Por::Detail::MakeRowErrorWithArguments(
        TL_ORIGIN("Por::Util::Detail::MakeTypeMismatchError"), kErrorTypeMismatch,
        Por::Detail::kRowTypeMismatch, {GetTypeName(expectedType), GetTypeName(actualType)});
}

Common::Error MakePropertyTypeMismatchError(const UnitName& property, unsigned expectedType,
                                            unsigned actualType) {
    Common::LogStack("Por::Util::Detail::MakePropertyTypeMismatchError");
    return Por::Detail::MakeRowErrorWithArguments(
        TL_ORIGIN("Por::Util::Detail::MakePropertyTypeMismatchError"), kErrorTypeMismatch,
        Por::Detail::kRowPropertyTypeMismatch,
        {property.ToWide(), GetTypeName(expectedType), GetTypeName(actualType)});
}

void CheckOutOfRange(std::uint64_t index, std::uint64_t bound) {
    if (index >= bound) {
        throw Por::Detail::MakeRowError(TL_ORIGIN("Por::Util::Detail::CheckOutOfRange"),
                                        kErrorOutOfRange, Por::Detail::kRowOutOfRange);
    }
}

void CheckNotNull(const void* unit, const char* function) {
    if (unit == nullptr) {
        throw Por::Detail::MakeRowError(TL_ORIGIN(function), kErrorNullUnit,
                                        Por::Detail::kRowNullUnits);
    }
}

}  // namespace Por::Util::Detail
