#include "por/holders.h"

#include <algorithm>
#include <cstring>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/in_memory_factory.h>

#include "por/por_errors.h"

namespace Por {

// Arrays and composites built one item at a time start with room for a few items: most hold
// a handful, and growing from one by doubling would cost three allocations for four items.
constexpr std::size_t kFirstCapacity = 4;


namespace Detail {

namespace {

// Container destructors nested deeper than this hand their children on instead of
// destroying them in place.
constexpr unsigned kDeferralDepth = 200;

struct PendingDestruction {
    std::vector<UnitPtr> Units;
    std::vector<PropertyPtr> Properties;
    std::vector<TraitPtr> Traits;

    bool Empty() const { return Units.empty() && Properties.empty() && Traits.empty(); }
};

thread_local unsigned t_depth = 0;
thread_local PendingDestruction* t_pending = nullptr;

template <class Ptr>
void DestroyLast(std::vector<Ptr>& items) {
    Ptr item = std::move(items.back());
    items.pop_back();
    item.reset();
}

// Destroys what was handed on. Runs at depth 1, so that the scopes of the destructors it
// calls never reach 0 and start a drain of their own.
void Drain() {
    PendingDestruction* pending = t_pending;
    t_depth = 1;
    while (!pending->Empty()) {
        if (!pending->Units.empty()) {
            DestroyLast(pending->Units);
        } else if (!pending->Properties.empty()) {
            DestroyLast(pending->Properties);
        } else {
            DestroyLast(pending->Traits);
        }
    }
    t_depth = 0;
    t_pending = nullptr;
    delete pending;
}

PendingDestruction& Pending() {
    if (t_pending == nullptr) {
        t_pending = new PendingDestruction;
    }
    return *t_pending;
}

}  // namespace

DestructionScope::DestructionScope() noexcept : defers_(++t_depth > kDeferralDepth) {}

DestructionScope::~DestructionScope() {
    if (--t_depth == 0 && t_pending != nullptr) {
        Drain();
    }
}

void DestructionScope::Defer(UnitPtr unit) {
    Pending().Units.push_back(std::move(unit));
}
void DestructionScope::Defer(PropertyPtr property) {
    Pending().Properties.push_back(std::move(property));
}
void DestructionScope::Defer(TraitPtr trait) {
    Pending().Traits.push_back(std::move(trait));
}

// Destroys the items of a container inside a scope.
template <class Items>
void DestroyItems(Items& items) {
    DestructionScope scope;
    if (scope.Defers()) {
        for (auto& item : items) {
            scope.Defer(std::move(item));
        }
    }
    items.clear();
}

// ---- TraitList ----

void TraitList::reserve(std::size_t count) {
    if (count <= capacity_) {
        return;
    }
    auto bigger = std::make_unique<TraitPtr[]>(count);
    std::move(begin(), end(), bigger.get());
    for (TraitPtr& moved : inline_) {
        moved.reset();
    }
    heap_ = std::move(bigger);
    capacity_ = static_cast<std::uint32_t>(count);
}

void TraitList::insert(std::size_t index, TraitPtr trait) {
    if (size_ == capacity_) {
        reserve(2 * static_cast<std::size_t>(capacity_));
    }
    TraitPtr* items = data();
    std::move_backward(items + index, items + size_, items + size_ + 1);
    items[index] = std::move(trait);
    ++size_;
}

void TraitList::take(std::size_t first, std::size_t last, std::vector<TraitPtr>& out) {
    TraitPtr* items = data();
    out.insert(out.end(), std::make_move_iterator(items + first),
               std::make_move_iterator(items + last));
    std::move(items + last, items + size_, items + first);
    size_ -= static_cast<std::uint32_t>(last - first);
}

void TraitList::clear() noexcept {
    TraitPtr* items = data();
    for (std::size_t i = size_; i > 0; --i) {
        items[i - 1].reset();
    }
    size_ = 0;
}

}  // namespace Detail

// ---- ArrayValueHolder ----

namespace {
// How many elements or properties a walk asks the memory for ahead of the one it visits.
constexpr std::size_t kPrefetchDistance = 8;
}  // namespace

ArrayValueHolder::~ArrayValueHolder() {
    Detail::DestroyItems(elements_);
}

template <class Item>
bool ArrayValueHolder::Each(ItemProcessor<Item>& processor) const {
    // Walks are bound by memory latency: ask for the next few elements ahead of time.
    const std::size_t ahead = std::min<std::size_t>(elements_.size(), kPrefetchDistance);
    for (std::size_t i = 0; i < ahead; ++i) {
        __builtin_prefetch(elements_[i].get());
    }
    // By index, so that a processor that changes the array does not invalidate the walk.
    for (std::size_t i = 0; i < elements_.size(); ++i) {
        if (i + kPrefetchDistance < elements_.size()) {
            __builtin_prefetch(elements_[i + kPrefetchDistance].get());
        }
        if (processor.Process(*elements_[i])) {
            return true;
        }
    }
    return false;
}

void ArrayValueHolder::Front(ItemProcessor<const View::Unit>& processor) const {
    if (!elements_.empty()) {
        processor.Process(*elements_.front());
    }
}
void ArrayValueHolder::Back(ItemProcessor<const View::Unit>& processor) const {
    if (!elements_.empty()) {
        processor.Process(*elements_.back());
    }
}
void ArrayValueHolder::At(std::uint64_t index, ItemProcessor<const View::Unit>& processor) const {
    Util::Detail::CheckOutOfRange(index, elements_.size());
    processor.Process(*elements_[index]);
}
bool ArrayValueHolder::ForEach(ItemProcessor<const View::Unit>& processor) const {
    return Each(processor);
}

void ArrayValueHolder::Back(ItemProcessor<Modification::Unit>& processor) {
    if (!elements_.empty()) {
        processor.Process(*elements_.back());
    }
}
void ArrayValueHolder::Front(ItemProcessor<Modification::Unit>& processor) {
    if (!elements_.empty()) {
        processor.Process(*elements_.front());
    }
}
void ArrayValueHolder::At(std::uint64_t index, ItemProcessor<Modification::Unit>& processor) {
    Util::Detail::CheckOutOfRange(index, elements_.size());
    processor.Process(*elements_[index]);
}
bool ArrayValueHolder::ForEach(ItemProcessor<Modification::Unit>& processor) {
    return Each(processor);
}

void ArrayValueHolder::Clear() {
    UnitList old;
    old.swap(elements_);
    Detail::DestroyItems(old);
}

namespace {
UnitPtr InMemoryCopy(UnitPtr unit, const char* function) {
    Util::Detail::CheckNotNull(unit.get(), function);
    // A throw-away factory: the copy is made of in-memory units whatever the source was.
    Construction::InMemoryUnitFactory factory;
    return Util::CopyUnit(*unit, factory);
}
}  // namespace

void ArrayValueHolder::InsertCopy(std::uint64_t index, UnitPtr unit) {
    Util::Detail::CheckOutOfRange(index, elements_.size() + 1);
    Place(index, InMemoryCopy(std::move(unit), "Por::ArrayValueHolder::InsertCopy"));
}

void ArrayValueHolder::RemoveAt(std::uint64_t index) {
    Util::Detail::CheckOutOfRange(index, elements_.size());
    UnitPtr removed = std::move(elements_[index]);
    elements_.erase(elements_.begin() + static_cast<std::ptrdiff_t>(index));
}

void ArrayValueHolder::PushBackCopy(UnitPtr unit) {
    elements_.push_back(InMemoryCopy(std::move(unit), "Por::ArrayValueHolder::PushBackCopy"));
}

void ArrayValueHolder::PushFrontCopy(UnitPtr unit) {
    Place(0, InMemoryCopy(std::move(unit), "Por::ArrayValueHolder::PushFrontCopy"));
}

void ArrayValueHolder::PopBack() {
    if (!elements_.empty()) {
        UnitPtr removed = std::move(elements_.back());
        elements_.pop_back();
    }
}

void ArrayValueHolder::PopFront() {
    if (!elements_.empty()) {
        UnitPtr removed = std::move(elements_.front());
        elements_.erase(elements_.begin());
    }
}

void ArrayValueHolder::Back(ItemProcessor<Construction::Unit>& processor) {
    if (!elements_.empty()) {
        processor.Process(*elements_.back());
    }
}
void ArrayValueHolder::Front(ItemProcessor<Construction::Unit>& processor) {
    if (!elements_.empty()) {
        processor.Process(*elements_.front());
    }
}
void ArrayValueHolder::At(std::uint64_t index, ItemProcessor<Construction::Unit>& processor) {
    Util::Detail::CheckOutOfRange(index, elements_.size());
    processor.Process(*elements_[index]);
}
bool ArrayValueHolder::ForEach(ItemProcessor<Construction::Unit>& processor) {
    return Each(processor);
}

void ArrayValueHolder::Insert(std::uint64_t index, UnitPtr unit) {
    Util::Detail::CheckOutOfRange(index, elements_.size() + 1);
    Util::Detail::CheckNotNull(unit.get(), "Por::ArrayValueHolder::Insert");
    Place(index, std::move(unit));
}

void ArrayValueHolder::PushBack(UnitPtr unit) {
    Util::Detail::CheckNotNull(unit.get(), "Por::ArrayValueHolder::PushBack");
    if (elements_.capacity() == 0) {
        elements_.reserve(kFirstCapacity);
    }
    elements_.push_back(std::move(unit));
}

void ArrayValueHolder::PushFront(UnitPtr unit) {
    Util::Detail::CheckNotNull(unit.get(), "Por::ArrayValueHolder::PushFront");
    Place(0, std::move(unit));
}

void ArrayValueHolder::Place(std::uint64_t index, UnitPtr unit) {
    elements_.insert(elements_.begin() + static_cast<std::ptrdiff_t>(index), std::move(unit));
}

// ---- CompositeValueHolder ----

namespace {

bool NameLess(const PropertyPtr& property, const char* name) {
    return std::strcmp(property->GetName().c_str(), name) < 0;
}

template <class Item>
class PropertyIterator final : public IteratorState<Item> {
public:
    explicit PropertyIterator(const PropertyList& properties)
        : properties_(properties) {}
    Item& Current() override { return *properties_[position_]; }
    void Advance() override {
        if (position_ < properties_.size()) {
            ++position_;
        }
    }
    bool Valid() const override { return position_ < properties_.size(); }

private:
    const PropertyList& properties_;
    std::size_t position_ = 0;
};

}  // namespace

CompositeValueHolder::~CompositeValueHolder() {
    Detail::DestroyItems(properties_);
}

PropertyList::const_iterator CompositeValueHolder::LowerBound(
    const UnitName& name) const {
    return std::lower_bound(properties_.begin(), properties_.end(), name.c_str(), NameLess);
}

Construction::Property* CompositeValueHolder::Lookup(const UnitName& name) const {
    if (properties_.empty() || NameLess(properties_.back(), name.c_str())) {
        return nullptr;  // builders ask for each new name before adding it behind the others
    }
    const auto it = LowerBound(name);
    if (it == properties_.end() || (*it)->GetName() != name) {
        return nullptr;
    }
    return it->get();
}

template <class Item>
bool CompositeValueHolder::Each(ItemProcessor<Item>& processor) const {
    const std::size_t ahead = std::min<std::size_t>(properties_.size(), kPrefetchDistance);
    for (std::size_t i = 0; i < ahead; ++i) {
        __builtin_prefetch(properties_[i].get());
    }
    for (std::size_t i = 0; i < properties_.size(); ++i) {
        if (i + kPrefetchDistance < properties_.size()) {
            __builtin_prefetch(properties_[i + kPrefetchDistance].get());
        }
        if (i + 1 < properties_.size()) {
            __builtin_prefetch(&static_cast<const View::Property&>(*properties_[i + 1]).GetUnit());
        }
        if (processor.Process(*properties_[i])) {
            return true;
        }
    }
    return false;
}

bool CompositeValueHolder::ForEach(ItemProcessor<const View::Property>& processor) const {
    return Each(processor);
}

bool CompositeValueHolder::Find(const UnitName& name,
                                ItemProcessor<const View::Property>& processor) const {
    const Construction::Property* property = Lookup(name);
    if (property == nullptr) {
        return false;
    }
    processor.Process(*property);
    return true;
}

std::shared_ptr<IteratorState<const View::Property>> CompositeValueHolder::GetIterator() const {
    return std::make_shared<PropertyIterator<const View::Property>>(properties_);
}

bool CompositeValueHolder::ForEach(ItemProcessor<Modification::Property>& processor) {
    return Each(processor);
}

bool CompositeValueHolder::Find(const UnitName& name,
                                ItemProcessor<Modification::Property>& processor) {
    Construction::Property* property = Lookup(name);
    if (property == nullptr) {
        return false;
    }
    processor.Process(*property);
    return true;
}

bool CompositeValueHolder::ForEach(ItemProcessor<Construction::Property>& processor) {
    return Each(processor);
}

bool CompositeValueHolder::Find(const UnitName& name,
                                ItemProcessor<Construction::Property>& processor) {
    Construction::Property* property = Lookup(name);
    if (property == nullptr) {
        return false;
    }
    processor.Process(*property);
    return true;
}

std::shared_ptr<IteratorState<Construction::Property>> CompositeValueHolder::GetIterator() {
    return std::make_shared<PropertyIterator<Construction::Property>>(properties_);
}

void CompositeValueHolder::Set(PropertyPtr property) {
    Util::Detail::CheckNotNull(property.get(), "Por::CompositeValueHolder::Set");
    const char* name = property->GetName().c_str();
    // Properties usually arrive in name order (copies, generated records): try the end first.
    if (properties_.empty() || NameLess(properties_.back(), name)) {
        if (properties_.capacity() == 0) {
            properties_.reserve(kFirstCapacity);
        }
        properties_.push_back(std::move(property));
        return;
    }
    const auto it = std::lower_bound(properties_.begin(), properties_.end(), name, NameLess);
    if (it != properties_.end() && std::strcmp((*it)->GetName().c_str(), name) == 0) {
        PropertyPtr replaced = std::exchange(properties_[it - properties_.begin()], std::move(property));
        return;
    }
    properties_.insert(it, std::move(property));
}

void CompositeValueHolder::Remove(const UnitName& name) {
    const auto it = LowerBound(name);
    if (it != properties_.end() && (*it)->GetName() == name) {
        PropertyPtr removed = std::move(properties_[it - properties_.begin()]);
        properties_.erase(it);
    }
}

// ---- TraitsHolderImpl ----

namespace {

// Trait order: the name byte-wise, then the unit by the unit order.
int CompareTraitKeys(const View::Trait& a, const View::Trait& b) {
    const int byName = UnitName::Compare(a.GetName().c_str(), b.GetName().c_str());
    if (byName != 0) {
        return byName;
    }
    return Util::Compare(a.GetUnit(), b.GetUnit());
}

struct TraitNameLess {
    static bool Less(const char* a, const char* b) { return a != b && std::strcmp(a, b) < 0; }
    bool operator()(const TraitPtr& trait, const char* name) const {
        return Less(trait->GetName().c_str(), name);
    }
    bool operator()(const char* name, const TraitPtr& trait) const {
        return Less(name, trait->GetName().c_str());
    }
};

}  // namespace

TraitsHolderImpl::~TraitsHolderImpl() {
    Detail::DestroyItems(traits_);
}

bool TraitsHolderImpl::ForEachByName(const UnitName& name,
                                     ItemProcessor<const View::Trait>& processor) const {
    const auto range =
        std::equal_range(traits_.begin(), traits_.end(), name.c_str(), TraitNameLess{});
    for (auto it = range.first; it != range.second; ++it) {
        if (processor.Process(**it)) {
            return true;
        }
    }
    return false;
}

bool TraitsHolderImpl::ForEach(ItemProcessor<const View::Trait>& processor) const {
    for (std::size_t i = 0; i < traits_.size(); ++i) {
        if (processor.Process(*traits_[i])) {
            return true;
        }
    }
    return false;
}

std::uint32_t TraitsHolderImpl::Remove(const UnitName& name) {
    const auto range =
        std::equal_range(traits_.begin(), traits_.end(), name.c_str(), TraitNameLess{});
    const auto count = static_cast<std::uint32_t>(range.second - range.first);
    if (count != 0) {
        // Destroyed once the list is whole again.
        std::vector<TraitPtr> removed;
        traits_.take(static_cast<std::size_t>(range.first - traits_.begin()),
                     static_cast<std::size_t>(range.second - traits_.begin()), removed);
    }
    return count;
}

void TraitsHolderImpl::Add(TraitPtr trait) {
    Util::Detail::CheckNotNull(trait.get(), "Por::TraitsHolderImpl::Add");
    // A binary search on (name, unit) that also finds an equal trait, which is dropped.
    std::size_t low = 0;
    std::size_t high = traits_.size();
    if (high != 0) {
        const int last = CompareTraitKeys(*traits_.back(), *trait);
        if (last == 0) {
            return;
        }
        if (last < 0) {
            low = high;
        } else {
            --high;
        }
    }
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        const int order = CompareTraitKeys(*traits_[middle], *trait);
        if (order == 0) {
            return;
        }
        if (order < 0) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    traits_.insert(low, std::move(trait));
}

// ---- PropertyHolder, TraitHolder ----

PropertyHolder::PropertyHolder(const UnitName& name, UnitPtr unit)
    : unit_(std::move(unit)), name_(name) {
    Util::Detail::CheckNotNull(unit_.get(), "Por::PropertyHolder::PropertyHolder");
}

PropertyHolder::PropertyHolder(UnitName&& name, UnitPtr unit)
    : unit_(std::move(unit)), name_(std::move(name)) {
    Util::Detail::CheckNotNull(unit_.get(), "Por::PropertyHolder::PropertyHolder");
}

TraitHolder::TraitHolder(const UnitName& name, UnitPtr unit)
    : unit_(std::move(unit)), name_(name) {
    Util::Detail::CheckNotNull(unit_.get(), "Por::TraitHolder::TraitHolder");
}

TraitHolder::TraitHolder(UnitName&& name, UnitPtr unit)
    : unit_(std::move(unit)), name_(std::move(name)) {
    Util::Detail::CheckNotNull(unit_.get(), "Por::TraitHolder::TraitHolder");
}

}  // namespace Por
