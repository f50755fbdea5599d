#include <tessel_link/por/assign.h>

#include <array>

#include <tessel_link/por/compare.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/util.h>

#include "por/deep_stack.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

constexpr const char kAssignFunction[] = "Por::Util::Assign";

// What the two passes do at the three places where they differ, and whether values are set.
class AssignStrategy {
public:
    virtual ~AssignStrategy() = default;
    virtual void PrepareArray(Modification::ArrayValue& target) = 0;
    virtual void AddElement(Modification::ArrayValue& target, const View::Unit& element) = 0;
    virtual void AssignUnits(Modification::Property& target, const View::Property& source) = 0;
    virtual bool SetsValues() const = 0;
};

void EnsureAt(Modification::Unit& target, const View::Unit& source, unsigned depth);
void AssignAt(Modification::Unit& target, const View::Unit& source,
              Construction::UnitFactory& factory, unsigned depth);

// Raises when a unit lies deeper than the copy of an array element may go, so that the
// perform pass cannot fail half-way on a tree too deep to copy.
void EnsureCopyableHere(const View::Unit& unit, unsigned depth);

void EnsureCopyable(const View::Unit& unit, unsigned depth) {
    Por::Detail::Descend(depth, kAssignFunction, [&] { EnsureCopyableHere(unit, depth); });
}

void EnsureCopyableHere(const View::Unit& unit, unsigned depth) {
    auto child = MakeProcessor<const View::Unit>(
        [&](const View::Unit& u) { EnsureCopyable(u, depth + 1); });
    auto property = MakeProcessor<const View::Property>(
        [&](const View::Property& p) { EnsureCopyable(p.GetUnit(), depth + 1); });
    auto trait = MakeProcessor<const View::Trait>(
        [&](const View::Trait& t) { EnsureCopyable(t.GetUnit(), depth + 1); });
    VisitValue(unit, [&](const auto& value) {
        using Value = std::remove_cvref_t<decltype(value)>;
        if constexpr (ValueKindOf<Value> == ArrayType) {
            value.ForEach(child);
        } else if constexpr (ValueKindOf<Value> == CompositeType) {
            value.ForEach(property);
        }
    });
    unit.GetTraits().ForEach(trait);
}

class CheckAssignStrategy final : public AssignStrategy {
public:
    explicit CheckAssignStrategy(unsigned depth) : depth_(depth) {}
    void PrepareArray(Modification::ArrayValue&) override {}
    void AddElement(Modification::ArrayValue&, const View::Unit& element) override {
        EnsureCopyable(element, 0);
    }
    void AssignUnits(Modification::Property& target, const View::Property& source) override {
        EnsureAt(target.GetUnit(), source.GetUnit(), depth_ + 1);
    }
    bool SetsValues() const override { return false; }

private:
    unsigned depth_;
};

class PerformAssignStrategy final : public AssignStrategy {
public:
    PerformAssignStrategy(Construction::UnitFactory& factory, unsigned depth)
        : factory_(factory), depth_(depth) {}
    void PrepareArray(Modification::ArrayValue& target) override { target.Clear(); }
    void AddElement(Modification::ArrayValue& target, const View::Unit& element) override {
        target.PushBackCopy(CopyUnit(element, factory_));
    }
    void AssignUnits(Modification::Property& target, const View::Property& source) override {
        AssignAt(target.GetUnit(), source.GetUnit(), factory_, depth_ + 1);
    }
    bool SetsValues() const override { return true; }

private:
    Construction::UnitFactory& factory_;
    unsigned depth_;
};

// Over the source's elements.
class ArrayElementsCopier final : public ItemProcessor<const View::Unit> {
public:
    ArrayElementsCopier(Modification::ArrayValue& target, AssignStrategy& strategy)
        : target_(target), strategy_(strategy) {}
    bool Process(const View::Unit& element) override {
        strategy_.AddElement(target_, element);
        return false;
    }

private:
    Modification::ArrayValue& target_;
    AssignStrategy& strategy_;
};

// Over the found target property.
class PropertyValueSetter final : public ItemProcessor<Modification::Property> {
public:
    PropertyValueSetter(const View::Property& source, AssignStrategy& strategy)
        : source_(source), strategy_(strategy) {}
    bool Process(Modification::Property& target) override {
        strategy_.AssignUnits(target, source_);
        return true;
    }

private:
    const View::Property& source_;
    AssignStrategy& strategy_;
};

// Over the source's properties: each must exist in the target.
class AssignPropertyFilter final : public ItemProcessor<const View::Property> {
public:
    AssignPropertyFilter(Modification::CompositeValue& target, AssignStrategy& strategy)
        : target_(target), strategy_(strategy) {}
    bool Process(const View::Property& source) override {
        PropertyValueSetter setter(source, strategy_);
        if (!target_.Find(source.GetName(), setter)) {
            throw Por::Detail::MakeRowError(TL_ORIGIN("Por::Util::AssignPropertyFilter::Process"),
                                       kErrorAssignProperties, Por::Detail::kRowAssignProperties);
        }
        return false;
    }

private:
    Modification::CompositeValue& target_;
    AssignStrategy& strategy_;
};

// "Por::Util::AssignValue<to,from>::Apply", one text per cell of the kind matrix, so that
// each failing cell names itself in the error's origin.
constexpr std::size_t kCellNameSize = 64;

constexpr std::array<char, kCellNameSize> MakeCellName(unsigned to, unsigned from) {
    constexpr const char* kNames[kTypeCount] = {
        "nil",   "boolean", "byte", "sbyte", "word",   "sword", "dword", "sdword",   "qword",
        "sqword", "double", "blob", "guid",  "string", "error", "array", "composite"};
    std::array<char, kCellNameSize> text{};
    std::size_t n = 0;
    auto append = [&](const char* part) {
        while (*part != '\0') {
            text[n++] = *part++;
        }
    };
    append("Por::Util::AssignValue<");
    append(kNames[to]);
    append(",");
    append(kNames[from]);
    append(">::Apply");
    return text;
}

template <unsigned To, unsigned From>
struct CellName {
    static constexpr std::array<char, kCellNameSize> kText = MakeCellName(To, From);
};

// One cell of the matrix of kinds.
template <class To, class From>
struct AssignValue {
    static void Apply(To& to, const From& from, AssignStrategy& strategy) {
        constexpr unsigned toType = ValueKindOf<To>;
        constexpr unsigned fromType = ValueKindOf<From>;
        if constexpr (toType != fromType) {
            throw Por::Detail::MakeRowError(TL_ORIGIN((CellName<toType, fromType>::kText.data())),
                                       kErrorAssignTypes, Por::Detail::kRowAssignTypes);
        } else if constexpr (toType == NilType) {
            // Nothing to do.
        } else if constexpr (toType == ArrayType) {
            strategy.PrepareArray(to);
            ArrayElementsCopier copier(to, strategy);
            from.ForEach(copier);
        } else if constexpr (toType == CompositeType) {
            AssignPropertyFilter filter(to, strategy);
            from.ForEach(filter);
        } else {
            if (strategy.SetsValues()) {
                to.Set(from.Get());
            }
        }
    }
};

void Dispatch(Modification::Unit& target, const View::Unit& source, AssignStrategy& strategy) {
    VisitValue(target, [&](auto& to) {
        VisitValue(source, [&](const auto& from) {
            using To = std::remove_reference_t<decltype(to)>;
            using From = std::remove_cvref_t<decltype(from)>;
            AssignValue<To, From>::Apply(to, from, strategy);
        });
    });
}

void EnsureAtHere(Modification::Unit& target, const View::Unit& source, unsigned depth);

void EnsureAt(Modification::Unit& target, const View::Unit& source, unsigned depth) {
    Por::Detail::Descend(depth, kAssignFunction, [&] { EnsureAtHere(target, source, depth); });
}

void EnsureAtHere(Modification::Unit& target, const View::Unit& source, unsigned depth) {
    // Traits are a precondition only: every trait of the source must be in the target.
    if (!TraitsInclude(target, source)) {
        throw Por::Detail::MakeRowError(
            TL_ORIGIN("Por::Util::CheckAssignStrategy::EnsureUnitsCanBeAssigned"),
            kErrorAssignTraits, Por::Detail::kRowAssignTraits);
    }
    CheckAssignStrategy check(depth);
    Dispatch(target, source, check);
}

// The perform pass: the whole tree was checked before it began, so nothing below fails for
// a reason the check knows, and no level checks its subtree again.
void AssignAt(Modification::Unit& target, const View::Unit& source,
              Construction::UnitFactory& factory, unsigned depth) {
    Por::Detail::Descend(depth, kAssignFunction, [&] {
        PerformAssignStrategy perform(factory, depth);
        Dispatch(target, source, perform);
    });
}

}  // namespace

void EnsureUnitsCanBeAssigned(Modification::Unit& target, const View::Unit& source) {
    EnsureAt(target, source, 0);
}

void Assign(Modification::Unit& target, const View::Unit& source,
            Construction::UnitFactory& factory) {
    EnsureAt(target, source, 0);
    AssignAt(target, source, factory, 0);
}

}  // namespace Por::Util
