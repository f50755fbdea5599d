"""Writes the POR side of the records: the table of every checked-in type, in its order of
registration, with its creator. A creator turns a default record into its unit tree through
the record's adapter (RecordToUnit, instantiated here once per type)."""

from xidl_cpp import BANNER, c_string

OUTPUT = "xidl/por_types.cpp"


def types_unit(model):
    types = model.checked_in()
    lines = [
        BANNER,
        '#include "por/serialize/record_to_unit.h"',
        "#include <tessel_link/xidl/records.h>",
        "",
        '#include "facade/xidl_type_table.h"',
        "",
        "namespace Core::Detail {",
        "",
        "extern const XidlTypeEntry kXidlTypes[] = {",
    ]
    for t in types:
        lines.append("    {%s, &::Por::Serialization::CreateRecordUnit<::%s>}," % (c_string(t.full_name), t.full_name))
    lines += [
        "};",
        "",
        "extern const std::size_t kXidlTypeCount = %d;" % len(types),
        "",
        "}  // namespace Core::Detail",
    ]
    return "\n".join(lines) + "\n"
