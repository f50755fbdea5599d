#include <tessel_link/por/unit_accumulator.h>

#include <tessel_link/por/assign.h>
#include <tessel_link/por/in_memory_factory.h>
#include <tessel_link/por/compare.h>
#include <tessel_link/por/util.h>

#include "por/holders.h"
#include "por/por_errors.h"

namespace Por::Util {

namespace {

// Moves the traits of a unit that is being replaced onto its successor.
void CarryTraits(const View::Unit& from, Construction::Unit& to,
                 Construction::UnitFactory& factory) {
    auto each = MakeProcessor<const View::Trait>([&](const View::Trait& trait) {
        to.GetTraits().Add(
            factory.CreateTrait(trait.GetName(), CopyUnit(trait.GetUnit(), factory)));
    });
    from.GetTraits().ForEach(each);
}

}  // namespace

UnitAccumulator::UnitAccumulator(Construction::UnitFactory& factory)
    : factory_(factory),
      inMemory_(dynamic_cast<Construction::InMemoryUnitFactory*>(&factory) != nullptr) {
    frames_.push_back(Frame{UnitName(), FrameKind::Root, nullptr, nullptr, 0});
}

UnitAccumulator::~UnitAccumulator() = default;

unsigned UnitAccumulator::TypeOf(Frame& frame) {
    if (frame.type == UnknownType) {
        frame.type = static_cast<std::uint8_t>(GetValueTypeIndex(*frame.unit));
    }
    return frame.type;
}

void UnitAccumulator::AddValue(UnitPtr value, unsigned type) {
    // Units of the in-memory factory are of the kind they were made as; another factory's
    // are asked when it matters.
    const auto known = static_cast<std::uint8_t>(inMemory_ ? type : UnknownType);
    Frame& top = Top();
    if (top.unit == nullptr) {
        top.owned = std::move(value);
        top.unit = top.owned.get();
        top.type = known;
        return;
    }
    const unsigned present = TypeOf(top);
    if (present == NilType) {
        // A nil stands for a value still to come. In a property the unit already had, the
        // new value replaces the property as a whole when the frame ends.
        CarryTraits(*top.unit, *value, factory_);
        if (top.kind == FrameKind::ExistingProperty) {
            top.kind = FrameKind::NewProperty;
        }
        top.owned = std::move(value);
        top.unit = top.owned.get();
        top.type = known;
        return;
    }
    if (top.kind == FrameKind::Root && present != ArrayType) {
        return;
    }
    if (top.kind == FrameKind::ExistingProperty && present < ArrayType) {
        Assign(*top.unit, *value, factory_);
        return;
    }
    Construction::Unit* element = value.get();
    frames_.push_back(Frame{UnitName(), FrameKind::Element, std::move(value), element, 0, known});
}

void UnitAccumulator::AddNil() {
    AddValue(factory_.CreateNil(), NilType);
}
void UnitAccumulator::AddBoolean(bool value) {
    AddValue(factory_.CreateBoolean(value), BooleanType);
}
void UnitAccumulator::AddByte(std::uint8_t value) {
    AddValue(factory_.CreateByte(value), ByteType);
}
void UnitAccumulator::AddSbyte(std::int8_t value) {
    AddValue(factory_.CreateSbyte(value), SbyteType);
}
void UnitAccumulator::AddWord(std::uint16_t value) {
    AddValue(factory_.CreateWord(value), WordType);
}
void UnitAccumulator::AddSword(std::int16_t value) {
    AddValue(factory_.CreateSword(value), SwordType);
}
void UnitAccumulator::AddDword(std::uint32_t value) {
    AddValue(factory_.CreateDword(value), DwordType);
}
void UnitAccumulator::AddSdword(std::int32_t value) {
    AddValue(factory_.CreateSdword(value), SdwordType);
}
void UnitAccumulator::AddQword(std::uint64_t value) {
    AddValue(factory_.CreateQword(value), QwordType);
}
void UnitAccumulator::AddSqword(std::int64_t value) {
    AddValue(factory_.CreateSqword(value), SqwordType);
}
void UnitAccumulator::AddDouble(double value) {
    AddValue(factory_.CreateDouble(value), DoubleType);
}
void UnitAccumulator::AddBlob(const ByteVector& value) {
    AddValue(factory_.CreateBlob(value), BlobType);
}
void UnitAccumulator::AddGuid(const Common::Guid& value) {
    AddValue(factory_.CreateGuid(value), GuidType);
}
void UnitAccumulator::AddString(const WideString& value) {
    AddValue(factory_.CreateString(value), StringType);
}
void UnitAccumulator::AddString(WideString&& value) {
    if (inMemory_) {
        AddValue(std::make_unique<Object<ComplexValueHolder<WideString>>>(std::move(value)), StringType);
    } else {
        AddValue(factory_.CreateString(value), StringType);
    }
}
void UnitAccumulator::AddError(const Common::Error& value) {
    AddValue(factory_.CreateError(value), ErrorType);
}

void UnitAccumulator::BeginArray() {
    Frame& top = Top();
    if (top.kind == FrameKind::ExistingProperty && top.unit != nullptr &&
        TypeOf(top) != NilType) {
        // The property's present array takes the elements that follow.
        top.counter = GetArraySize(*top.unit);
        top.kind = FrameKind::ExistingArray;
        return;
    }
    AddValue(factory_.CreateArray(), ArrayType);
}

void UnitAccumulator::BeginComposite() {
    Frame& top = Top();
    if (top.kind == FrameKind::ExistingProperty && top.unit != nullptr &&
        TypeOf(top) == CompositeType) {
        // The property's present composite takes the properties that follow.
        return;
    }
    AddValue(factory_.CreateComposite(), CompositeType);
}

void UnitAccumulator::BeginProperty(const UnitName& name) {
    Construction::Unit* present = nullptr;
    Frame& top = Top();
    if (top.unit != nullptr) {
        Construction::Property* property =
            inMemory_ && TypeOf(top) == CompositeType
                ? static_cast<Object<CompositeValueHolder>*>(top.unit)->Value().FindProperty(name)
                : GetProperty(*top.unit, name);
        if (property != nullptr) {
            present = &property->GetUnit();
        }
    }
    if (present != nullptr) {
        frames_.push_back(Frame{name, FrameKind::ExistingProperty, nullptr, present, 0});
    } else {
        frames_.push_back(Frame{name, FrameKind::NewProperty, nullptr, nullptr, 0});
    }
}

void UnitAccumulator::BeginTrait(const UnitName& name) {
    frames_.push_back(Frame{name, FrameKind::Trait, nullptr, nullptr, 0});
}

void UnitAccumulator::End() {
    Frame closed = std::move(Top());
    frames_.pop_back();
    if (closed.kind == FrameKind::Root) {
        finished_ = std::move(closed.owned);
        frames_.push_back(Frame{UnitName(), FrameKind::Root, nullptr, nullptr, 0});
        return;
    }
    if (closed.kind == FrameKind::ExistingProperty || closed.kind == FrameKind::ExistingArray) {
        return;
    }
    Frame& top = Top();
    Construction::Unit* parent = top.unit;
    Por::Util::Detail::CheckNotNull(parent, "Por::Util::UnitAccumulator::End");
    // The in-memory units are reached directly; another factory's through the interfaces.
    switch (closed.kind) {
        case FrameKind::NewProperty:
            Por::Util::Detail::CheckNotNull(closed.unit, "Por::Util::UnitAccumulator::End");
            if (inMemory_ && TypeOf(top) == CompositeType) {
                static_cast<Object<CompositeValueHolder>*>(parent)->Value().Set(
                    std::make_unique<PropertyHolder>(std::move(closed.name), std::move(closed.owned)));
            } else {
                AddProperty(*parent, closed.name, std::move(closed.owned), factory_);
            }
            break;
        case FrameKind::Trait:
            if (inMemory_ && closed.owned) {
                parent->GetTraits().Add(
                    std::make_unique<TraitHolder>(std::move(closed.name), std::move(closed.owned)));
            } else {
                AddTrait(*parent, closed.name, std::move(closed.owned), factory_);
            }
            break;
        case FrameKind::Element:
            if (inMemory_ && TypeOf(top) == ArrayType) {
                static_cast<Object<ArrayValueHolder>*>(parent)->Value().PushBack(
                    std::move(closed.owned));
            } else {
                AddArrayElement(*parent, std::move(closed.owned));
            }
            break;
        default:
            break;
    }
}

void UnitAccumulator::TakeUnit(UnitPtr& unit) {
    unit = std::move(finished_);
}

}  // namespace Por::Util
