#pragma once

// The in-memory implementation of the unit model: value holders, traits and properties, and
// the unit object that puts a value holder and its traits side by side.

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <tessel_link/por/construction.h>
#include <tessel_link/por/util.h>

#include "por/node_arena.h"

namespace Por {

// The elements of an array and the properties of a composite.
using UnitList = std::vector<UnitPtr, Detail::ArenaAllocator<UnitPtr>>;
using PropertyList = std::vector<PropertyPtr, Detail::ArenaAllocator<PropertyPtr>>;

namespace Detail {

// Calls the visitor slot of a kind with a holder.
template <unsigned Index>
struct SlotCaller;
#define TL_POR_SLOT_CALLER(Kind, Value, Idx)       \
    template <>                                    \
    struct SlotCaller<Idx> {                       \
        template <class Visitor, class Holder>     \
        static void Call(Visitor& v, Holder& h) {  \
            v.On##Kind(h);                         \
        }                                          \
    };
TL_POR_FOR_EACH_KIND(TL_POR_SLOT_CALLER)
#undef TL_POR_SLOT_CALLER

// Keeps the destruction of a deep tree from exhausting the stack. The destructors of the
// container holders open a scope; below a certain nesting they hand their children to a
// per-thread list instead of destroying them, and the outermost scope destroys that list,
// item by item, when it closes.
class DestructionScope {
public:
    DestructionScope() noexcept;
    ~DestructionScope();
    DestructionScope(const DestructionScope&) = delete;
    DestructionScope& operator=(const DestructionScope&) = delete;

    bool Defers() const noexcept { return defers_; }
    void Defer(UnitPtr unit);
    void Defer(PropertyPtr property);
    void Defer(TraitPtr trait);

private:
    bool defers_;
};

}  // namespace Detail

class NilValueHolder final : public Construction::NilValue {
public:
    static constexpr unsigned kTypeIndex = NilType;
};

template <class T>
class ScalarValueHolder final : public Construction::ScalarValue<T> {
public:
    static constexpr unsigned kTypeIndex = Util::Detail::StoredKind<T>::Index;

    explicit ScalarValueHolder(T value) noexcept : value_(value) {}
    T Get() const override { return value_; }
    void Set(T value) override { value_ = value; }

private:
    T value_;
};

template <class T>
class ComplexValueHolder final : public Construction::ComplexValue<T> {
public:
    static constexpr unsigned kTypeIndex = Util::Detail::StoredKind<T>::Index;

    explicit ComplexValueHolder(const T& value) : value_(value) {}
    explicit ComplexValueHolder(T&& value) noexcept : value_(std::move(value)) {}
    const T& Get() const override { return value_; }
    void Set(const T& value) override {
        if (&value != &value_) {
            value_ = value;
        }
    }

private:
    T value_;
};

class ArrayValueHolder final : public Construction::ArrayValue {
public:
    static constexpr unsigned kTypeIndex = ArrayType;

    ArrayValueHolder() = default;
    ~ArrayValueHolder() override;

    bool IsEmpty() const override { return elements_.empty(); }
    std::uint64_t Size() const override { return elements_.size(); }

    // For the copier, which knows the count and never hands in null.
    void Reserve(std::size_t count) { elements_.reserve(count); }
    void Append(UnitPtr unit) { elements_.push_back(std::move(unit)); }
    // For walks over in-memory trees, which read the elements without a processor.
    const UnitList& Elements() const noexcept { return elements_; }

    void Front(ItemProcessor<const View::Unit>& processor) const override;
    void Back(ItemProcessor<const View::Unit>& processor) const override;
    void At(std::uint64_t index, ItemProcessor<const View::Unit>& processor) const override;
    bool ForEach(ItemProcessor<const View::Unit>& processor) const override;

    void Back(ItemProcessor<Modification::Unit>& processor) override;
    void Front(ItemProcessor<Modification::Unit>& processor) override;
    void At(std::uint64_t index, ItemProcessor<Modification::Unit>& processor) override;
    bool ForEach(ItemProcessor<Modification::Unit>& processor) override;
    void Clear() override;
    void InsertCopy(std::uint64_t index, UnitPtr unit) override;
    void RemoveAt(std::uint64_t index) override;
    void PushBackCopy(UnitPtr unit) override;
    void PushFrontCopy(UnitPtr unit) override;
    void PopBack() override;
    void PopFront() override;

    void Back(ItemProcessor<Construction::Unit>& processor) override;
    void Front(ItemProcessor<Construction::Unit>& processor) override;
    void At(std::uint64_t index, ItemProcessor<Construction::Unit>& processor) override;
    bool ForEach(ItemProcessor<Construction::Unit>& processor) override;
    void Insert(std::uint64_t index, UnitPtr unit) override;
    void PushBack(UnitPtr unit) override;
    void PushFront(UnitPtr unit) override;

private:
    template <class Item>
    bool Each(ItemProcessor<Item>& processor) const;
    void Place(std::uint64_t index, UnitPtr unit);

    UnitList elements_;
};

class CompositeValueHolder final : public Construction::CompositeValue {
public:
    static constexpr unsigned kTypeIndex = CompositeType;

    CompositeValueHolder() = default;
    ~CompositeValueHolder() override;

    bool ForEach(ItemProcessor<const View::Property>& processor) const override;
    bool Find(const UnitName& name, ItemProcessor<const View::Property>& processor) const override;
    std::shared_ptr<IteratorState<const View::Property>> GetIterator() const override;

    bool ForEach(ItemProcessor<Modification::Property>& processor) override;
    bool Find(const UnitName& name, ItemProcessor<Modification::Property>& processor) override;

    bool ForEach(ItemProcessor<Construction::Property>& processor) override;
    bool Find(const UnitName& name, ItemProcessor<Construction::Property>& processor) override;
    std::shared_ptr<IteratorState<Construction::Property>> GetIterator() override;
    void Set(PropertyPtr property) override;

    void Reserve(std::size_t count) { properties_.reserve(count); }
    // For builders that hand the properties over in name order, no two of one name, and
    // never null.
    void AppendInOrder(PropertyPtr property) { properties_.push_back(std::move(property)); }
    // The property of that name, or null.
    Construction::Property* FindProperty(const UnitName& name) const { return Lookup(name); }
    // The properties in name order, no two of one name.
    const PropertyList& Properties() const noexcept { return properties_; }
    void Remove(const UnitName& name) override;

private:
    // The first property whose name is not less than `name`.
    PropertyList::const_iterator LowerBound(const UnitName& name) const;
    Construction::Property* Lookup(const UnitName& name) const;
    template <class Item>
    bool Each(ItemProcessor<Item>& processor) const;

    PropertyList properties_;
};

namespace Detail {

// The traits of one unit, in order. Most units that have traits have one or two, so the first
// two stand in the list itself and only a longer list takes memory of its own.
class TraitList {
public:
    TraitList() = default;
    ~TraitList() { clear(); }
    TraitList(const TraitList&) = delete;
    TraitList& operator=(const TraitList&) = delete;

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    TraitPtr* begin() noexcept { return data(); }
    TraitPtr* end() noexcept { return data() + size_; }
    const TraitPtr* begin() const noexcept { return data(); }
    const TraitPtr* end() const noexcept { return data() + size_; }
    TraitPtr& operator[](std::size_t i) noexcept { return data()[i]; }
    const TraitPtr& operator[](std::size_t i) const noexcept { return data()[i]; }
    const TraitPtr& back() const noexcept { return data()[size_ - 1]; }

    void reserve(std::size_t count);
    void insert(std::size_t index, TraitPtr trait);
    // Moves the traits [first, last) out, in order, and closes the gap.
    void take(std::size_t first, std::size_t last, std::vector<TraitPtr>& out);
    void clear() noexcept;

private:
    static constexpr std::size_t kInline = 2;

    TraitPtr* data() noexcept { return heap_ ? heap_.get() : inline_; }
    const TraitPtr* data() const noexcept { return heap_ ? heap_.get() : inline_; }

    TraitPtr inline_[kInline];
    std::unique_ptr<TraitPtr[]> heap_;
    std::uint32_t size_ = 0;
    std::uint32_t capacity_ = kInline;
};

}  // namespace Detail

// The traits of one unit, sorted by name and then by unit order; no two equal.
class TraitsHolderImpl final : public Construction::Traits {
public:
    TL_POR_ARENA_ALLOCATED
    TraitsHolderImpl() = default;
    ~TraitsHolderImpl() override;

    bool ForEachByName(const UnitName& name, ItemProcessor<const View::Trait>& processor) const override;
    bool ForEach(ItemProcessor<const View::Trait>& processor) const override;
    std::uint32_t Remove(const UnitName& name) override;
    void Add(TraitPtr trait) override;

    void Reserve(std::size_t count) { traits_.reserve(count); }
    // The traits in order: by name, then by the unit order; no two equal.
    const Detail::TraitList& List() const noexcept { return traits_; }

private:
    Detail::TraitList traits_;
};

// The traits of every in-memory unit that has none: one shared, empty set.
class NoTraits final : public View::Traits {
public:
    bool ForEachByName(const UnitName&, ItemProcessor<const View::Trait>&) const override {
        return false;
    }
    bool ForEach(ItemProcessor<const View::Trait>&) const override { return false; }

    static const NoTraits& Instance() {
        static const NoTraits instance;
        return instance;
    }
};

// True for the shared empty set: the walks skip such units' traits without a call.
inline bool HasNoTraits(const View::Traits& traits) {
    return &traits == &NoTraits::Instance();
}

// The traits of a unit: a single pointer, null until the first trait, so that the many units
// without traits pay no more.
class TraitsHolder {
public:
    const View::Traits& Get() const {
        return impl_ ? static_cast<const View::Traits&>(*impl_) : NoTraits::Instance();
    }
    TraitsHolderImpl& GetOrCreate() {
        if (!impl_) {
            impl_ = std::make_unique<TraitsHolderImpl>();
        }
        return *impl_;
    }

private:
    std::unique_ptr<TraitsHolderImpl> impl_;
};

class PropertyHolder final : public Construction::Property {
public:
    TL_POR_ARENA_ALLOCATED
    // A null unit raises "POR: Null units are forbidden.".
    PropertyHolder(const UnitName& name, UnitPtr unit);
    PropertyHolder(UnitName&& name, UnitPtr unit);

    const UnitName& GetName() const override { return name_; }
    const View::Unit& GetUnit() const override { return *unit_; }
    Construction::Unit& GetUnit() override { return *unit_; }

private:
    // The unit and the name's text pointer lie right behind the vtable pointer, so that a
    // walk reads one cache line per property.
    UnitPtr unit_;
    UnitName name_;
};

class TraitHolder final : public View::Trait {
public:
    TL_POR_ARENA_ALLOCATED
    // A null unit raises "POR: Null units are forbidden.".
    TraitHolder(const UnitName& name, UnitPtr unit);
    TraitHolder(UnitName&& name, UnitPtr unit);

    const UnitName& GetName() const override { return name_; }
    const View::Unit& GetUnit() const override { return *unit_; }

private:
    UnitPtr unit_;
    UnitName name_;
};

// The unit: a value holder and the traits, side by side.
template <class Holder>
class Object final : public Construction::Unit {
public:
    TL_POR_ARENA_ALLOCATED
    template <class... Args>
    explicit Object(Args&&... args) : value_(std::forward<Args>(args)...) {}

    void Accept(View::UnitReader& visitor) const override {
        Detail::SlotCaller<Holder::kTypeIndex>::Call(visitor, value_);
    }
    void Accept(Modification::UnitModifier& visitor) override {
        Detail::SlotCaller<Holder::kTypeIndex>::Call(visitor, value_);
    }
    void Accept(Construction::UnitBuilder& visitor) override {
        Detail::SlotCaller<Holder::kTypeIndex>::Call(visitor, value_);
    }
    const View::Traits& GetTraits() const override { return traits_.Get(); }
    Construction::Traits& GetTraits() override { return traits_.GetOrCreate(); }

    Holder& Value() noexcept { return value_; }
    const Holder& Value() const noexcept { return value_; }
    TraitsHolderImpl& Traits() { return traits_.GetOrCreate(); }

private:
    // The traits pointer before the value, next to the vtable pointer: every walk reads it.
    TraitsHolder traits_;
    Holder value_;
};

// A deep copy made of in-memory units directly, without going through a factory's
// interface: the same result as Util::CopyUnit with an InMemoryUnitFactory, in fewer steps.
UnitPtr CopyToMemory(const View::Unit& source, unsigned depth);

}  // namespace Por
