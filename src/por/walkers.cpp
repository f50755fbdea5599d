#include "por/walkers.h"

#include <algorithm>
#include <vector>

namespace Por::Util {

namespace {

// Items of one side of a walk, gathered by its ForEach: on the stack for the usual few, on the
// heap beyond that.
template <class Item, std::size_t Inline>
class ItemList {
public:
    void Add(const Item& item) {
        if (count_ < Inline) {
            inline_[count_] = item;
        } else {
            if (count_ == Inline) {
                heap_.assign(inline_, inline_ + Inline);
            }
            heap_.push_back(item);
        }
        ++count_;
    }
    std::size_t Size() const { return count_; }
    Item& operator[](std::size_t i) { return count_ <= Inline ? inline_[i] : heap_[i]; }

private:
    Item inline_[Inline];
    std::vector<Item> heap_;
    std::size_t count_ = 0;
};

}  // namespace

bool WalkArrays(const View::ArrayValue& left, const View::ArrayValue& right,
                ArrayElementsWalker& walker) {
    // The right side is gathered first, the left one walked beside it.
    ItemList<const View::Unit*, 32> rightItems;
    auto collect = MakeProcessor<const View::Unit>([&](const View::Unit& u) { rightItems.Add(&u); });
    right.ForEach(collect);
    const std::size_t rightSize = rightItems.Size();

    std::size_t index = 0;
    bool stopped = false;
    auto leftSide = MakeProcessor<const View::Unit>([&](const View::Unit& l) {
        if (index < rightSize) {
            stopped = walker.ProcessPair(l, *rightItems[index]);
        } else {
            stopped = walker.ProcessLeftOverflow(l);
        }
        ++index;
        return stopped;
    });
    left.ForEach(leftSide);
    for (std::size_t i = index; i < rightSize && !stopped; ++i) {
        stopped = walker.ProcessRightOverflow(*rightItems[i]);
    }
    return stopped;
}

bool WalkComposites(const View::CompositeValue& left, const View::CompositeValue& right,
                    CompositePropertyWalker& walker) {
    // Both sides come in name order, so one merge pass pairs them. The right side is gathered
    // first, and its units are asked for ahead of the pairs that will read them.
    struct Entry {
        const View::Property* property;
        bool paired;
    };
    ItemList<Entry, 16> entries;
    auto collect = MakeProcessor<const View::Property>([&](const View::Property& p) {
        __builtin_prefetch(&p.GetUnit());
        entries.Add(Entry{&p, false});
    });
    right.ForEach(collect);
    const std::size_t count = entries.Size();

    std::size_t next = 0;
    bool stopped = false;
    auto leftSide = MakeProcessor<const View::Property>([&](const View::Property& l) {
        const char* name = l.GetName().c_str();
        int order = 1;
        while (next < count &&
               (order = UnitName::Compare(entries[next].property->GetName().c_str(), name)) < 0) {
            ++next;
        }
        if (next < count && order == 0) {
            entries[next].paired = true;
            stopped = walker.ProcessPair(l, *entries[next].property);
            ++next;
        } else {
            stopped = walker.ProcessLeftOverflow(l);
        }
        return stopped;
    });
    left.ForEach(leftSide);
    for (std::size_t i = 0; i < count && !stopped; ++i) {
        if (!entries[i].paired) {
            stopped = walker.ProcessRightOverflow(*entries[i].property);
        }
    }
    return stopped;
}

}  // namespace Por::Util
