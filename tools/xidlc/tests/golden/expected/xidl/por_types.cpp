// Generated from the interface definitions by tools/xidlc; edit the definitions instead.

#include "por/serialize/record_to_unit.h"
#include <tessel_link/xidl/records.h>

#include "facade/xidl_type_table.h"

namespace Core::Detail {

extern const XidlTypeEntry kXidlTypes[] = {
    {"Shapes::Point", &::Por::Serialization::CreateRecordUnit<::Shapes::Point>},
    {"Shapes::Outline", &::Por::Serialization::CreateRecordUnit<::Shapes::Outline>},
};

extern const std::size_t kXidlTypeCount = 2;

}  // namespace Core::Detail
