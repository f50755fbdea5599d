#include "por/serialize/processing_nodes.h"

#include <map>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>

#include "por/por_errors.h"

namespace Por::Serialization::Detail {

namespace {

const UnitName kVersion = UnitName::Literal(TraitNames::Version);
const UnitName kIsContainer = UnitName::Literal(TraitNames::IsContainer);
const UnitName kIsOptional = UnitName::Literal(TraitNames::IsOptional);
const UnitName kIsRecursive = UnitName::Literal(TraitNames::IsRecursive);
const UnitName kIsReference = UnitName::Literal(TraitNames::IsReference);
const UnitName kPtrMarkTrait = UnitName::Literal(TraitNames::PtrMark);
const UnitName kIsPolymorph = UnitName::Literal(TraitNames::IsPolymorph);
const UnitName kValueProperty = UnitName::Literal("value");

// The children that the wrapper nodes recognise.
const std::string kClassId = "ClassID";
const std::string kObject = "Object";
const std::string kPtrMark = "ptr_mark";
const std::string kPtrValue = "ptr_value";
const std::string kIsNull = "is_null";
const std::string kIsInit = "is_init";
const std::string kValue = "value";

// The name of a member as a unit name. Trees of one record type repeat the same member names
// record after record, so each thread keeps the names it made last, one per slot of a small
// table, and hands out shared copies: a repeated name costs a comparison instead of an
// allocation and a hash.
UnitName MemberName(const std::string& name) {
    struct Known {
        std::string text;
        UnitName name;
    };
    // Sized so that the members of the records in one tree rarely share a slot, and hashed
    // over every byte: names such as "Id" and "Index" must not keep evicting each other.
    static constexpr std::size_t kSlots = 1024;
    thread_local Known known[kSlots];
    std::uint32_t h = 2166136261u;
    for (const char c : name) {
        h = (h ^ static_cast<unsigned char>(c)) * 16777619u;
    }
    Known& slot = known[(h ^ (h >> 15)) % kSlots];
    if (slot.text != name || slot.name.Empty() != name.empty()) {
        slot.name = UnitName(name);
        slot.text = name;
    }
    return slot.name;
}

std::u16string Wide(const std::string& text) {
    return Common::Utf8ToUtf16Lenient(text);
}

UnitPtr NameUnit(const std::string& name, Construction::UnitFactory& factory) {
    return factory.CreateString(Wide(name));
}

[[noreturn]] void ThrowUnrecognized(const char* function, std::uint32_t row,
                                    const std::string& node, const std::string& child) {
    throw Por::Detail::MakeRowErrorWithArguments(TL_ORIGIN(function), kErrorSerializing, row,
                                                 {Wide(node), Wide(child)});
}

void ApplyTraitList(Construction::Unit& unit, const ::Serialization::MetaInfoTraitsPtr& traits,
                    Construction::UnitFactory& factory) {
    if (!traits) {
        return;
    }
    for (const ::Serialization::MetaInfoTrait& trait : *traits) {
        const std::string type = trait.Type != nullptr ? trait.Type : "";
        UnitPtr value;
        if (type == "StringValue") {
            value = factory.CreateString(Wide(trait.Value != nullptr ? trait.Value : ""));
        } else if (type == "NilValue") {
            value = factory.CreateNil();
        } else {
            TL_ASSERT(false && "Unknown trait value type!");
            continue;
        }
        Util::AddTrait(unit, UnitName(trait.Name != nullptr ? trait.Name : ""), std::move(value),
                       factory);
    }
}

template <class Node>
std::shared_ptr<SimpleNode> Create(SimpleNode* parent, const MetaInfo& descriptor,
                                   Construction::UnitFactory& factory) {
    return std::make_shared<Node>(parent, descriptor, factory);
}

}  // namespace

void ApplyDescriptorTraits(Construction::Unit& unit, const MetaInfo& descriptor,
                           Construction::UnitFactory& factory) {
    if (descriptor.Version != 0) {
        Util::AddTrait(unit, kVersion, factory.CreateQword(descriptor.Version), factory);
    }
    ApplyTraitList(unit, descriptor.TypeTraits, factory);
    ApplyTraitList(unit, descriptor.MemberTraits, factory);
}

NodeCreator FindNodeCreator(const std::string& name) {
    static const std::map<std::string, NodeCreator, std::less<>> creators = {
        {"vector", &Create<ContainerNode>},
        {"map", &Create<ContainerNode>},
        {"multimap", &Create<ContainerNode>},
        {"set", &Create<ContainerNode>},
        {"list", &Create<ContainerNode>},
        {"raw_ptr", &Create<RawPtrNode>},
        {"shared_ptr", &Create<SmartPtrNode>},
        {"auto_ptr", &Create<SmartPtrNode>},
        {"optional_type", &Create<OptionalTypeNode>},
        {"optional", &Create<OptionalTypeNode>},
        {"checked_type", &Create<OptionalTypeNode>},
    };
    const auto found = creators.find(name);
    return found != creators.end() ? found->second : nullptr;
}

void SimpleNode::Finalize() {
    if (parent_ == nullptr) {
        return;
    }
    if (!unit_) {
        throw Por::Detail::MakeRowErrorWithArguments(
            TL_ORIGIN("Por::Serialization::SimpleNode::Finalize"), kErrorSerializing,
            Por::Detail::kRowSerializingNoValue, {Wide(descriptor_.Name)});
    }
    ApplyDescriptorTraits(*unit_, descriptor_, factory_);
    parent_->Process(descriptor_.Name, std::move(unit_));
}

void BridgeNode::Process(const std::string&, UnitPtr unit) {
    unit_ = std::move(unit);
}

void CompositeNode::Process(const std::string& name, UnitPtr unit) {
    if (!composite_ && heldCount_ < 2) {
        held_[heldCount_].first = name;
        held_[heldCount_].second = std::move(unit);
        ++heldCount_;
        return;
    }
    if (!composite_) {
        StartComposite();
    }
    Util::AsComposite(*composite_).Set(factory_.CreateProperty(MemberName(name), std::move(unit)));
}

void CompositeNode::StartComposite() {
    composite_ = factory_.CreateComposite();
    Construction::CompositeValue& composite = Util::AsComposite(*composite_);
    for (std::size_t i = 0; i < heldCount_; ++i) {
        composite.Set(factory_.CreateProperty(MemberName(held_[i].first), std::move(held_[i].second)));
    }
    heldCount_ = 0;
}

void CompositeNode::Finalize() {
    if (!composite_ && heldCount_ == 2) {
        auto* classId = &held_[0];
        auto* object = &held_[1];
        if (classId->first != kClassId) {
            std::swap(classId, object);
        }
        if (classId->first == kClassId && object->first == kObject &&
            Util::IsComposite(*object->second)) {
            unit_ = std::move(object->second);
            Util::AddTrait(*unit_, kIsPolymorph, std::move(classId->second), factory_);
            heldCount_ = 0;
            SimpleNode::Finalize();
            return;
        }
    }
    if (!composite_) {
        StartComposite();
    }
    unit_ = std::move(composite_);
    SimpleNode::Finalize();
}

void ContainerNode::Process(const std::string&, UnitPtr unit) {
    children_.push_back(std::move(unit));
}

void ContainerNode::Finalize() {
    unit_ = factory_.CreateArray();
    Util::AddTrait(*unit_, kIsContainer, NameUnit(descriptor_.Name, factory_), factory_);
    Construction::ArrayValue& array = Util::AsArray(*unit_);
    for (UnitPtr& child : children_) {
        array.PushBack(std::move(child));
    }
    children_.clear();
    SimpleNode::Finalize();
}

void RawPtrNode::Process(const std::string& name, UnitPtr unit) {
    if (name == kPtrMark) {
        mark_ = std::move(unit);
    } else if (name == kPtrValue) {
        value_ = std::move(unit);
    } else {
        ThrowUnrecognized("Por::Serialization::RawPtrNode::Process",
                          Por::Detail::kRowSerializingPointer, descriptor_.Name, name);
    }
}

void RawPtrNode::Finalize() {
    unit_ = value_ ? std::move(value_) : factory_.CreateNil();
    Util::AddTrait(*unit_, kIsReference, factory_.CreateString(u"raw_ptr"), factory_);
    Util::AddTrait(*unit_, kPtrMarkTrait, std::move(mark_), factory_);
    SimpleNode::Finalize();
}

void SmartPtrNode::Process(const std::string& name, UnitPtr unit) {
    if (name == kClassId) {
        classId_ = std::move(unit);
    } else {
        values_.emplace_back(name, std::move(unit));
    }
}

void SmartPtrNode::Finalize() {
    if (values_.empty()) {
        unit_ = factory_.CreateNil();
    } else if (values_.size() == 1 &&
               (values_[0].first.empty() || (classId_ && values_[0].first == kObject))) {
        // A unit written whole, or the object of a class-ID form.
        unit_ = std::move(values_[0].second);
    } else {
        // The members of the record pointed to.
        unit_ = factory_.CreateComposite();
        Construction::CompositeValue& composite = Util::AsComposite(*unit_);
        for (auto& [name, unit] : values_) {
            composite.Set(factory_.CreateProperty(MemberName(name), std::move(unit)));
        }
    }
    values_.clear();
    Util::AddTrait(*unit_, kIsReference, NameUnit(descriptor_.Name, factory_), factory_);
    if (classId_) {
        Util::AddTrait(*unit_, kIsPolymorph, std::move(classId_), factory_);
    }
    SimpleNode::Finalize();
}

void OptionalTypeNode::Process(const std::string& name, UnitPtr unit) {
    if (name == kIsNull || name == kIsInit) {
        stateName_ = name;
        state_ = std::move(unit);
    } else if (name == kValue) {
        if (Util::HasTrait(*unit, kIsOptional)) {
            UnitPtr wrapper = factory_.CreateComposite();
            Util::AddProperty(*wrapper, kValueProperty, std::move(unit), factory_);
            Util::AddTrait(*wrapper, kIsRecursive, factory_.CreateNil(), factory_);
            value_ = std::move(wrapper);
        } else {
            value_ = std::move(unit);
        }
    } else {
        ThrowUnrecognized("Por::Serialization::OptionalTypeNode::Process",
                          Por::Detail::kRowSerializingOptional, descriptor_.Name, name);
    }
}

void OptionalTypeNode::Finalize() {
    unit_ = value_ ? std::move(value_) : factory_.CreateNil();
    Util::AddTrait(*unit_, kIsOptional, NameUnit(descriptor_.Name, factory_), factory_);
    if (state_) {
        Util::AddTrait(*unit_, UnitName(stateName_), std::move(state_), factory_);
    }
    SimpleNode::Finalize();
}

}  // namespace Por::Serialization::Detail
