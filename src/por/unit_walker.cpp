#include <tessel_link/por/unit_walker.h>

#include <tessel_link/por/visitors.h>

#include "por/deep_stack.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

void WalkAt(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker, unsigned depth);

// Sends the value event of each kind.
struct ValueSender {
    TraitValueGuide& guide;
    UnitWalker& walker;
    unsigned depth;
    bool recursive;

    void operator()(const View::NilValue&) { walker.OnNil(); }
    void operator()(const View::ScalarValue<bool>& v) { walker.OnBoolean(v.Get()); }
    void operator()(const View::ScalarValue<std::uint8_t>& v) { walker.OnByte(v.Get()); }
    void operator()(const View::ScalarValue<std::int8_t>& v) { walker.OnSbyte(v.Get()); }
    void operator()(const View::ScalarValue<std::uint16_t>& v) { walker.OnWord(v.Get()); }
    void operator()(const View::ScalarValue<std::int16_t>& v) { walker.OnSword(v.Get()); }
    void operator()(const View::ScalarValue<std::uint32_t>& v) { walker.OnDword(v.Get()); }
    void operator()(const View::ScalarValue<std::int32_t>& v) { walker.OnSdword(v.Get()); }
    void operator()(const View::ScalarValue<std::uint64_t>& v) { walker.OnQword(v.Get()); }
    void operator()(const View::ScalarValue<std::int64_t>& v) { walker.OnSqword(v.Get()); }
    void operator()(const View::ScalarValue<double>& v) { walker.OnDouble(v.Get()); }
    void operator()(const View::ComplexValue<ByteVector>& v) { walker.OnBlob(v.Get()); }
    void operator()(const View::ComplexValue<Common::Guid>& v) { walker.OnGuid(v.Get()); }
    void operator()(const View::ComplexValue<WideString>& v) { walker.OnString(v.Get()); }
    void operator()(const View::ComplexValue<Common::Error>& v) { walker.OnError(v.Get()); }

    void operator()(const View::ArrayValue& array) {
        walker.BeginArray();
        if (recursive) {
            auto each = MakeProcessor<const View::Unit>(
                [&](const View::Unit& element) { WalkAt(element, guide, walker, depth + 1); });
            array.ForEach(each);
        }
    }

    void operator()(const View::CompositeValue& composite) {
        walker.BeginComposite();
        if (recursive) {
            auto each = MakeProcessor<const View::Property>([&](const View::Property& property) {
                walker.BeginProperty(property.GetName());
                WalkAt(property.GetUnit(), guide, walker, depth + 1);
            });
            composite.ForEach(each);
        }
    }
};

class HierarchyWalkerCrossroad final : public TraitValueCrossroad {
public:
    HierarchyWalkerCrossroad(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker,
                             unsigned depth)
        : unit_(unit), guide_(guide), walker_(walker), depth_(depth) {}

    void WalkValue(bool recursive) override {
        ValueSender sender{guide_, walker_, depth_, recursive};
        VisitValue(unit_, sender);
    }

    void WalkTraits() override {
        auto each = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
            walker_.BeginTrait(trait.GetName());
            WalkAt(trait.GetUnit(), guide_, walker_, depth_ + 1);
        });
        unit_.GetTraits().ForEach(each);
    }

private:
    const View::Unit& unit_;
    TraitValueGuide& guide_;
    UnitWalker& walker_;
    unsigned depth_;
};

void WalkAtHere(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker, unsigned depth);

void WalkAt(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker, unsigned depth) {
    Por::Detail::Descend(depth, "Por::Util::WalkHierarchy",
                         [&] { WalkAtHere(unit, guide, walker, depth); });
}

void WalkAtHere(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker, unsigned depth) {
    walker.BeginUnit();
    HierarchyWalkerCrossroad crossroad(unit, guide, walker, depth);
    guide.Choose(crossroad);
    walker.EndUnit();
}

}  // namespace

void WalkHierarchy(const View::Unit& unit, TraitValueGuide& guide, UnitWalker& walker) {
    WalkAt(unit, guide, walker, 0);
}

}  // namespace Por::Util
