#include <tessel_link/por/kinds.h>

#include <string>

#include <tessel_link/common/unicode.h>

namespace Por {

namespace {

// One row of 17 bytes per kind, in type index order.
constexpr char kTypeNames[kTypeCount][17] = {
    "nil",   "boolean", "byte",   "sbyte", "word",   "sword", "dword",  "sdword",    "qword",
    "sqword", "double", "blob",   "guid",  "string", "error", "array", "composite",
};

}  // namespace

const char* GetNarrowTypeName(unsigned typeIndex) {
    return typeIndex < kTypeCount ? kTypeNames[typeIndex] : "";
}

std::u16string GetTypeName(unsigned typeIndex) {
    if (typeIndex < kTypeCount) {
        return Common::WidenLatin1(kTypeNames[typeIndex]);
    }
    return Common::WidenLatin1(std::to_string(typeIndex));
}

}  // namespace Por
