#pragma once

// The nodes of a PORSerializer: one per open element, each collecting what its children
// write and turning it into one unit when the element ends.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <tessel_link/por/construction.h>
#include <tessel_link/serialize/meta_info.h>

namespace Por::Serialization::Detail {

using ::Serialization::MetaInfo;

// Adds the descriptor's version ("Version", when not 0) and its type and member traits.
void ApplyDescriptorTraits(Construction::Unit& unit, const MetaInfo& descriptor,
                           Construction::UnitFactory& factory);

class ProcessingNode {
public:
    virtual ~ProcessingNode() = default;
    virtual void TakeUnit(UnitPtr& unit) = 0;
    // A child has been written under `name`.
    virtual void Process(const std::string& name, UnitPtr unit) = 0;
    virtual const std::string& GetName() const = 0;
    // The element ends: the node makes its unit and hands it to its parent.
    virtual void Finalize() = 0;
};

class SimpleNode : public ProcessingNode {
public:
    SimpleNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory,
               const char* className)
        : parent_(parent),
          descriptor_(std::move(descriptor)),
          factory_(factory),
          className_(className) {}

    void TakeUnit(UnitPtr& unit) override { unit = std::move(unit_); }
    const std::string& GetName() const override { return descriptor_.Name; }
    // The common end: a node without a parent keeps its unit; any other needs one, gets the
    // descriptor's traits on it and passes it to the parent under its own name.
    void Finalize() override;

    const MetaInfo& Descriptor() const { return descriptor_; }
    const char* ClassName() const { return className_; }

protected:
    SimpleNode* parent_;
    MetaInfo descriptor_;
    Construction::UnitFactory& factory_;
    const char* className_;
    UnitPtr unit_;
};

// Passes its single child up under its own name.
class BridgeNode final : public SimpleNode {
public:
    BridgeNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "BridgeNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
};

// A record: its children become properties, a later one replacing an earlier one of the
// same name. The pair "ClassID" and a composite "Object" is a polymorphic object: the object
// itself, with the class ID as its trait "IsPolymorph".
class CompositeNode final : public SimpleNode {
public:
    CompositeNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "CompositeNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;

private:
    // Moves the held children into a new composite.
    void StartComposite();

    // Only a record of exactly two children can be the polymorphic pair, so the first two
    // wait here and every later child goes straight into the composite: a record of many
    // members never gathers them in a list of its own first.
    std::pair<std::string, UnitPtr> held_[2];
    std::size_t heldCount_ = 0;
    UnitPtr composite_;
};

// A container: an array of its children with the trait "IsContainer" naming the form.
class ContainerNode final : public SimpleNode {
public:
    ContainerNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "ContainerNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;

private:
    std::vector<UnitPtr> children_;
};

// A raw pointer: its value ("ptr_value", nil when absent) with "IsReference" "raw_ptr" and
// its identity mark as the trait "ptr_mark".
class RawPtrNode final : public SimpleNode {
public:
    RawPtrNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "RawPtrNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;

private:
    UnitPtr mark_;
    UnitPtr value_;
};

// A shared or owning pointer: what it points to (nil for null) with "IsReference" naming
// the pointer's form, and its class ID as "IsPolymorph" when one was written. The members of
// a record pointed to arrive one by one and are gathered into a composite.
class SmartPtrNode final : public SimpleNode {
public:
    SmartPtrNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "SmartPtrNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;

private:
    UnitPtr classId_;
    std::vector<std::pair<std::string, UnitPtr>> values_;
};

// An optional: its value (nil when absent) with "IsOptional" naming the form and its state
// ("is_null" or "is_init") as a trait of that name. An optional inside an optional is
// wrapped in a composite under "value" with the trait "IsRecursive".
class OptionalTypeNode final : public SimpleNode {
public:
    OptionalTypeNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "OptionalTypeNode") {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;

private:
    std::string stateName_;
    UnitPtr state_;
    UnitPtr value_;
};

using NodeCreator = std::shared_ptr<SimpleNode> (*)(SimpleNode* parent, const MetaInfo& descriptor,
                                                    Construction::UnitFactory& factory);

// The creator for a wrapper element's name, or null for a record or member.
NodeCreator FindNodeCreator(const std::string& name);

}  // namespace Por::Serialization::Detail
