#include "por/serialize/processing_nodes.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include <tessel_link/por/in_memory_factory.h>

#include <tessel_link/common/assert.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/por/errors.h>
#include <tessel_link/por/trait_names.h>
#include <tessel_link/por/util.h>

#include "common/thread_cache.h"
#include "por/holders.h"
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
// record after record, so each thread keeps the names it has made and hands out shared
// copies: a repeated name costs a lookup instead of an allocation, and the names of all
// records of a type share their text, which MemberOrders relies on. Map keys also become
// names, so the table is emptied when it grows large.
UnitName KnownMemberName(const std::string& name) {
    static constexpr std::size_t kMostNames = 4096;
    auto* known = Common::ThreadCache<std::unordered_map<std::string, UnitName>>::Get();
    if (known == nullptr) {
        return UnitName(name);
    }
    const auto found = known->find(name);
    if (found != known->end()) {
        return found->second;
    }
    if (known->size() >= kMostNames) {
        known->clear();
    }
    return known->emplace(name, UnitName(name)).first->second;
}

// The same, trying first the name that came after the previous one last time: the members
// of a record come in the same sequence every time, so most names cost one comparison.
UnitName MemberName(const std::string& name) {
    struct Guess {
        const char* after = nullptr;  // the text of the name before it
        std::size_t size = 0;
        UnitName name;
    };
    static constexpr std::size_t kGuesses = 256;
    struct Guesses {
        Guess Table[kGuesses];
    };
    Guesses* guesses = Common::ThreadCache<Guesses>::Get();
    if (guesses == nullptr) {
        return KnownMemberName(name);
    }
    thread_local const char* previous = nullptr;
    const auto key = reinterpret_cast<std::uintptr_t>(previous);
    Guess& guess = guesses->Table[((key >> 4) ^ (key >> 12)) % kGuesses];
    // The text is compared even when the pointers match: the previous name may be gone and
    // its memory taken by another.
    if (guess.after == previous && guess.size == name.size() && !guess.name.Empty() &&
        std::memcmp(guess.name.c_str(), name.data(), name.size()) == 0) {
        previous = guess.name.c_str();
        return guess.name;
    }
    UnitName made = KnownMemberName(name);
    guess.after = previous;
    guess.size = name.size();
    guess.name = made;
    previous = made.c_str();
    return made;
}

std::u16string Wide(const std::string& text) {
    return Common::Utf8ToUtf16Lenient(text);
}

UnitPtr NameUnit(const std::string& name, Construction::UnitFactory& factory, bool inMemory) {
    if (inMemory) {
        return std::make_unique<Object<ComplexValueHolder<WideString>>>(Wide(name));
    }
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

// The name order of the members of the records written last, so that the next record of a
// type puts its members in order without comparing their names. Records of one type come
// with the same names in the same order, and names from MemberName share their text, so a
// record is recognised by the text pointers of its names. The kept names hold their text,
// which therefore cannot be freed and its address reused for another name.
class MemberOrders {
public:
    // The positions of `children` in name order; null when two children share a name (a
    // later one then replaces an earlier one, which the composite itself sorts out).
    const std::vector<std::uint32_t>* Find(const std::vector<NamedUnit>& children) {
        std::uintptr_t h = children.size();
        for (const NamedUnit& child : children) {
            h = h * 31 + (reinterpret_cast<std::uintptr_t>(child.name.c_str()) >> 3);
        }
        // Two entries per bucket, so that two record types of one bucket do not take turns
        // driving each other out.
        const std::size_t bucket = (h ^ (h >> 17)) % (kEntries / 2);
        Entry* entry = &entries_[2 * bucket];
        if (!Matches(*entry, children)) {
            ++entry;
            if (!Matches(*entry, children)) {
                entry = &entries_[2 * bucket + (older_[bucket] ? 1 : 0)];
                Learn(*entry, children);
            }
        }
        older_[bucket] = entry == &entries_[2 * bucket];
        return entry->unique ? &entry->order : nullptr;
    }

private:
    struct Entry {
        std::vector<UnitName> names;
        std::vector<std::uint32_t> order;
        bool unique = false;
    };
    static constexpr std::size_t kEntries = 128;

    static bool Matches(const Entry& entry, const std::vector<NamedUnit>& children) {
        if (entry.names.size() != children.size()) {
            return false;
        }
        for (std::size_t i = 0; i < children.size(); ++i) {
            if (entry.names[i].c_str() != children[i].name.c_str()) {
                return false;
            }
        }
        return true;
    }

    static void Learn(Entry& entry, const std::vector<NamedUnit>& children) {
        entry.names.clear();
        entry.order.clear();
        for (std::size_t i = 0; i < children.size(); ++i) {
            entry.names.push_back(children[i].name);
            entry.order.push_back(static_cast<std::uint32_t>(i));
        }
        std::stable_sort(entry.order.begin(), entry.order.end(),
                         [&](std::uint32_t a, std::uint32_t b) {
                             return UnitName::Compare(children[a].name.c_str(),
                                                      children[b].name.c_str()) < 0;
                         });
        entry.unique = true;
        for (std::size_t i = 1; i < entry.order.size(); ++i) {
            if (children[entry.order[i - 1]].name == children[entry.order[i]].name) {
                entry.unique = false;
            }
        }
    }

    Entry entries_[kEntries];
    bool older_[kEntries / 2] = {};  // which entry of a bucket was used less recently
};

// A composite of the children, which are moved out, in order: a later child replaces an
// earlier one of the same name.
UnitPtr MakeComposite(std::vector<NamedUnit>& children, Construction::UnitFactory& factory,
                      bool inMemory) {
    MemberOrders* orders = inMemory ? Common::ThreadCache<MemberOrders>::Get() : nullptr;
    if (orders != nullptr) {
        auto composite = std::make_unique<Object<CompositeValueHolder>>();
        CompositeValueHolder& holder = composite->Value();
        holder.Reserve(children.size());
        if (const std::vector<std::uint32_t>* order = orders->Find(children)) {
            for (const std::uint32_t i : *order) {
                holder.AppendInOrder(std::make_unique<PropertyHolder>(
                    std::move(children[i].name), std::move(children[i].unit)));
            }
            return composite;
        }
        for (NamedUnit& child : children) {
            holder.Set(std::make_unique<PropertyHolder>(std::move(child.name), std::move(child.unit)));
        }
        return composite;
    }
    UnitPtr composite = factory.CreateComposite();
    Construction::CompositeValue& holder = Util::AsComposite(*composite);
    for (NamedUnit& child : children) {
        holder.Set(factory.CreateProperty(child.name, std::move(child.unit)));
    }
    return composite;
}

bool IsInMemory(const Construction::UnitFactory& factory) {
    return dynamic_cast<const Construction::InMemoryUnitFactory*>(&factory) != nullptr;
}

}  // namespace

void ApplyDescriptorTraits(Construction::Unit& unit, const MetaInfo& descriptor,
                           Construction::UnitFactory& factory) {
    if (descriptor.Version == 0 && !descriptor.TypeTraits && !descriptor.MemberTraits) {
        return;  // most members state nothing
    }
    if (descriptor.Version != 0) {
        Util::AddTrait(unit, kVersion, factory.CreateQword(descriptor.Version), factory);
    }
    ApplyTraitList(unit, descriptor.TypeTraits, factory);
    ApplyTraitList(unit, descriptor.MemberTraits, factory);
}

NodeKind FindNodeKind(std::string_view name) {
    switch (name.size()) {
        case 3:
            return name == "map" || name == "set" ? NodeKind::Container : NodeKind::Composite;
        case 3 + 1:
            return name == "list" ? NodeKind::Container : NodeKind::Composite;
        case 3 + 3:
            return name == "vector" ? NodeKind::Container : NodeKind::Composite;
        case 7:
            return name == "raw_ptr" ? NodeKind::RawPtr : NodeKind::Composite;
        case 8:
            if (name == "multimap") {
                return NodeKind::Container;
            }
            if (name == "auto_ptr" || name == "optional") {
                return name[0] == 'a' ? NodeKind::SmartPtr : NodeKind::OptionalType;
            }
            return NodeKind::Composite;
        case 10:
            return name == "shared_ptr" ? NodeKind::SmartPtr : NodeKind::Composite;
        case 12:
            return name == "checked_type" ? NodeKind::OptionalType : NodeKind::Composite;
        case 13:
            return name == "optional_type" ? NodeKind::OptionalType : NodeKind::Composite;
        default:
            return NodeKind::Composite;
    }
}

SimpleNode::SimpleNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory,
                       const char* className, NodeKind kind)
    : parent_(parent),
      descriptor_(std::move(descriptor)),
      factory_(&factory),
      inMemory_(IsInMemory(factory)),
      className_(className),
      kind_(kind) {}

void SimpleNode::Reopen(SimpleNode* parent, MetaInfo&& descriptor,
                        Construction::UnitFactory& factory) {
    Clear();
    parent_ = parent;
    descriptor_ = std::move(descriptor);
    if (factory_ != &factory) {
        factory_ = &factory;
        inMemory_ = IsInMemory(factory);
    }
}

void SimpleNode::Reopen(SimpleNode* parent, const MetaInfo& descriptor,
                        Construction::UnitFactory& factory) {
    MetaInfo copy(descriptor);
    Reopen(parent, std::move(copy), factory);
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
    ApplyDescriptorTraits(*unit_, descriptor_, *factory_);
    parent_->Process(descriptor_.Name, std::move(unit_));
}

void BridgeNode::Process(const std::string&, UnitPtr unit) {
    unit_ = std::move(unit);
}

void CompositeNode::Process(const std::string& name, UnitPtr unit) {
    children_.push_back(NamedUnit{MemberName(name), std::move(unit)});
}

void CompositeNode::Finalize() {
    if (children_.size() == 2) {
        NamedUnit* classId = &children_[0];
        NamedUnit* object = &children_[1];
        if (classId->name.Text() != kClassId) {
            std::swap(classId, object);
        }
        if (classId->name.Text() == kClassId && object->name.Text() == kObject &&
            Util::IsComposite(*object->unit)) {
            unit_ = std::move(object->unit);
            Util::AddTrait(*unit_, kIsPolymorph, std::move(classId->unit), *factory_);
            children_.clear();
            SimpleNode::Finalize();
            return;
        }
    }
    unit_ = MakeComposite(children_, *factory_, inMemory_);
    children_.clear();
    SimpleNode::Finalize();
}

void CompositeNode::Clear() {
    children_.clear();
    SimpleNode::Clear();
}

void ContainerNode::Process(const std::string&, UnitPtr unit) {
    children_.push_back(std::move(unit));
}

void ContainerNode::Finalize() {
    if (inMemory_) {
        auto array = std::make_unique<Object<ArrayValueHolder>>();
        array->Value().Reserve(children_.size());
        unit_ = std::move(array);
    } else {
        unit_ = factory_->CreateArray();
    }
    if (inMemory_) {
        auto& array = static_cast<Object<ArrayValueHolder>&>(*unit_);
        array.Traits().Add(std::make_unique<TraitHolder>(kIsContainer, NameUnit(descriptor_.Name, *factory_, true)));
        for (UnitPtr& child : children_) {
            array.Value().PushBack(std::move(child));
        }
    } else {
        Util::AddTrait(*unit_, kIsContainer, NameUnit(descriptor_.Name, *factory_, false), *factory_);
        Construction::ArrayValue& array = Util::AsArray(*unit_);
        for (UnitPtr& child : children_) {
            array.PushBack(std::move(child));
        }
    }
    children_.clear();
    SimpleNode::Finalize();
}

void ContainerNode::Clear() {
    children_.clear();
    SimpleNode::Clear();
}

void RawPtrNode::Clear() {
    mark_.reset();
    value_.reset();
    SimpleNode::Clear();
}

void SmartPtrNode::Clear() {
    classId_.reset();
    values_.clear();
    SimpleNode::Clear();
}

void OptionalTypeNode::Clear() {
    stateName_.clear();
    state_.reset();
    value_.reset();
    SimpleNode::Clear();
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
    unit_ = value_ ? std::move(value_) : factory_->CreateNil();
    Util::AddTrait(*unit_, kIsReference, factory_->CreateString(u"raw_ptr"), *factory_);
    Util::AddTrait(*unit_, kPtrMarkTrait, std::move(mark_), *factory_);
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
        unit_ = factory_->CreateNil();
    } else if (values_.size() == 1 &&
               (values_[0].first.empty() || (classId_ && values_[0].first == kObject))) {
        // A unit written whole, or the object of a class-ID form.
        unit_ = std::move(values_[0].second);
    } else {
        // The members of the record pointed to.
        unit_ = factory_->CreateComposite();
        Construction::CompositeValue& composite = Util::AsComposite(*unit_);
        for (auto& [name, unit] : values_) {
            composite.Set(factory_->CreateProperty(MemberName(name), std::move(unit)));
        }
    }
    values_.clear();
    Util::AddTrait(*unit_, kIsReference, NameUnit(descriptor_.Name, *factory_, inMemory_), *factory_);
    if (classId_) {
        Util::AddTrait(*unit_, kIsPolymorph, std::move(classId_), *factory_);
    }
    SimpleNode::Finalize();
}

void OptionalTypeNode::Process(const std::string& name, UnitPtr unit) {
    if (name == kIsNull || name == kIsInit) {
        stateName_ = name;
        state_ = std::move(unit);
    } else if (name == kValue) {
        if (Util::HasTrait(*unit, kIsOptional)) {
            UnitPtr wrapper = factory_->CreateComposite();
            Util::AddProperty(*wrapper, kValueProperty, std::move(unit), *factory_);
            Util::AddTrait(*wrapper, kIsRecursive, factory_->CreateNil(), *factory_);
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
    unit_ = value_ ? std::move(value_) : factory_->CreateNil();
    Util::AddTrait(*unit_, kIsOptional, NameUnit(descriptor_.Name, *factory_, inMemory_), *factory_);
    if (state_) {
        Util::AddTrait(*unit_, UnitName(stateName_), std::move(state_), *factory_);
    }
    SimpleNode::Finalize();
}

// ---- NodePool ----

namespace {

template <class Node>
std::unique_ptr<SimpleNode> MakeNode(SimpleNode* parent, MetaInfo&& descriptor,
                                     Construction::UnitFactory& factory) {
    return std::make_unique<Node>(parent, std::move(descriptor), factory);
}

// The pool of the thread, lent to one serializer at a time.
std::unique_ptr<NodePool>* ThreadPool() {
    return Common::ThreadCache<std::unique_ptr<NodePool>>::Get();
}

}  // namespace

std::unique_ptr<SimpleNode> NodePool::Open(NodeKind kind, SimpleNode* parent,
                                           MetaInfo&& descriptor,
                                           Construction::UnitFactory& factory) {
    auto& spare = spare_[static_cast<std::size_t>(kind)];
    if (!spare.empty()) {
        std::unique_ptr<SimpleNode> node = std::move(spare.back());
        spare.pop_back();
        node->Reopen(parent, std::move(descriptor), factory);
        return node;
    }
    switch (kind) {
        case NodeKind::Bridge:
            return MakeNode<BridgeNode>(parent, std::move(descriptor), factory);
        case NodeKind::Composite:
            return MakeNode<CompositeNode>(parent, std::move(descriptor), factory);
        case NodeKind::Container:
            return MakeNode<ContainerNode>(parent, std::move(descriptor), factory);
        case NodeKind::RawPtr:
            return MakeNode<RawPtrNode>(parent, std::move(descriptor), factory);
        case NodeKind::SmartPtr:
            return MakeNode<SmartPtrNode>(parent, std::move(descriptor), factory);
        case NodeKind::OptionalType:
            break;
    }
    return MakeNode<OptionalTypeNode>(parent, std::move(descriptor), factory);
}

void NodePool::Return(std::unique_ptr<SimpleNode> node) {
    // A few spares of each kind cover the depth of ordinary records.
    constexpr std::size_t kMostSpares = 16;
    auto& spare = spare_[static_cast<std::size_t>(node->Kind())];
    node->Clear();
    if (spare.size() < kMostSpares) {
        spare.push_back(std::move(node));
    }
}

std::unique_ptr<NodePool> NodePool::Borrow() {
    std::unique_ptr<NodePool>* kept = ThreadPool();
    if (kept != nullptr && *kept) {
        return std::move(*kept);
    }
    return std::make_unique<NodePool>();
}

void NodePool::GiveBack(std::unique_ptr<NodePool> pool) {
    std::unique_ptr<NodePool>* kept = ThreadPool();
    if (kept != nullptr && !*kept) {
        *kept = std::move(pool);
    }
}

}  // namespace Por::Serialization::Detail
