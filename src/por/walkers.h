#pragma once

// Walks over two arrays or two composites side by side.

#include <tessel_link/por/view.h>

namespace Por::Util {

// Pairs of elements at equal indices, then the surplus of the longer array one by one.
// Any operation returning true stops the walk.
class TL_API ArrayElementsWalker {
public:
    virtual ~ArrayElementsWalker() = default;
    virtual bool ProcessPair(const View::Unit& left, const View::Unit& right) = 0;
    virtual bool ProcessLeftOverflow(const View::Unit& left) = 0;
    virtual bool ProcessRightOverflow(const View::Unit& right) = 0;
};

// For each left property in name order, the right one of the same name (a pair) or none
// (left overflow); when that was not stopped, each right property whose name the left
// lacks (right overflow). Any operation returning true stops the walk.
class TL_API CompositePropertyWalker {
public:
    virtual ~CompositePropertyWalker() = default;
    virtual bool ProcessPair(const View::Property& left, const View::Property& right) = 0;
    virtual bool ProcessLeftOverflow(const View::Property& left) = 0;
    virtual bool ProcessRightOverflow(const View::Property& right) = 0;
};

// Both return true when the walker stopped the walk.
TL_API bool WalkArrays(const View::ArrayValue& left, const View::ArrayValue& right,
                       ArrayElementsWalker& walker);
TL_API bool WalkComposites(const View::CompositeValue& left, const View::CompositeValue& right,
                           CompositePropertyWalker& walker);

}  // namespace Por::Util
