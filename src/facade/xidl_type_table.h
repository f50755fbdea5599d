#pragma once

// The types that are checked in with hosts, generated from the interface definitions in
// their order of registration, each with its creator.

#include <cstddef>

#include <tessel_link/facade/entry_points.h>

namespace Core::Detail {

struct XidlTypeEntry {
    const char* name;
    XidlTypeCreator creator;
};

extern const XidlTypeEntry kXidlTypes[];
extern const std::size_t kXidlTypeCount;

}  // namespace Core::Detail
