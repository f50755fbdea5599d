#pragma once

// The nodes of a PORSerializer: one per open element, each collecting what its children
// write and turning it into one unit when the element ends.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <tessel_link/por/construction.h>
#include <tessel_link/serialize/meta_info.h>

namespace Por::Serialization::Detail {

using ::Serialization::MetaInfo;

// Adds the descriptor's version ("Version", when not 0) and its type and member traits.
void ApplyDescriptorTraits(Construction::Unit& unit, const MetaInfo& descriptor,
                           Construction::UnitFactory& factory);

// What a node is; the index of its spare list in a NodePool.
enum class NodeKind : std::uint8_t {
    Bridge,
    Composite,
    Container,
    RawPtr,
    SmartPtr,
    OptionalType,
};
inline constexpr std::size_t kNodeKinds = 6;

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
               const char* className, NodeKind kind);

    void TakeUnit(UnitPtr& unit) override { unit = std::move(unit_); }
    const std::string& GetName() const override { return descriptor_.Name; }
    // The common end: a node without a parent keeps its unit; any other needs one, gets the
    // descriptor's traits on it and passes it to the parent under its own name.
    void Finalize() override;

    const MetaInfo& Descriptor() const { return descriptor_; }
    const char* ClassName() const { return className_; }
    NodeKind Kind() const { return kind_; }

    // Serves again, for another element: what the node held is dropped, the room it took
    // is kept.
    void Reopen(SimpleNode* parent, MetaInfo&& descriptor, Construction::UnitFactory& factory);
    void Reopen(SimpleNode* parent, const MetaInfo& descriptor, Construction::UnitFactory& factory);
    // Drops what the node holds.
    virtual void Clear() { unit_.reset(); }

protected:
    SimpleNode* parent_;
    MetaInfo descriptor_;
    Construction::UnitFactory* factory_;
    // The factory makes the in-memory units, so nodes may build them directly.
    bool inMemory_;
    const char* className_;
    NodeKind kind_;
    UnitPtr unit_;
};

// Passes its single child up under its own name.
class BridgeNode final : public SimpleNode {
public:
    BridgeNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "BridgeNode", NodeKind::Bridge) {}
    void Process(const std::string& name, UnitPtr unit) override;
};

// A child of a record: its name and unit.
struct NamedUnit {
    UnitName name;
    UnitPtr unit;
};

// A record: its children become properties, a later one replacing an earlier one of the
// same name. The pair "ClassID" and a composite "Object" is a polymorphic object: the object
// itself, with the class ID as its trait "IsPolymorph".
class CompositeNode final : public SimpleNode {
public:
    CompositeNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "CompositeNode",
                     NodeKind::Composite) {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;
    void Clear() override;

private:
    // The children wait here until the end, when their count is known and the composite is
    // made with room for all of them at once.
    std::vector<NamedUnit> children_;
};

// A container: an array of its children with the trait "IsContainer" naming the form.
class ContainerNode final : public SimpleNode {
public:
    ContainerNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "ContainerNode",
                     NodeKind::Container) {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;
    void Clear() override;

private:
    std::vector<UnitPtr> children_;
};

// A raw pointer: its value ("ptr_value", nil when absent) with "IsReference" "raw_ptr" and
// its identity mark as the trait "ptr_mark".
class RawPtrNode final : public SimpleNode {
public:
    RawPtrNode(SimpleNode* parent, MetaInfo descriptor, Construction::UnitFactory& factory)
        : SimpleNode(parent, std::move(descriptor), factory, "RawPtrNode", NodeKind::RawPtr) {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;
    void Clear() override;

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
        : SimpleNode(parent, std::move(descriptor), factory, "SmartPtrNode", NodeKind::SmartPtr) {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;
    void Clear() override;

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
        : SimpleNode(parent, std::move(descriptor), factory, "OptionalTypeNode",
                     NodeKind::OptionalType) {}
    void Process(const std::string& name, UnitPtr unit) override;
    void Finalize() override;
    void Clear() override;

private:
    std::string stateName_;
    UnitPtr state_;
    UnitPtr value_;
};

// The kind of node that a wrapper element's name opens; Composite for a record or member,
// which opens no node of its own until the next event decides.
NodeKind FindNodeKind(std::string_view name);

// The nodes of finished elements, kept for the next ones: a serializer opens and closes a
// node for every record and container it writes, and the spare nodes keep both the node and
// the room of its lists. Each thread keeps one pool between serializers.
class NodePool {
public:
    std::unique_ptr<SimpleNode> Open(NodeKind kind, SimpleNode* parent, MetaInfo&& descriptor,
                                     Construction::UnitFactory& factory);
    // Takes a node back; what it holds is dropped.
    void Return(std::unique_ptr<SimpleNode> node);

    // The pool of the calling thread, or a new one while that is in use.
    static std::unique_ptr<NodePool> Borrow();
    static void GiveBack(std::unique_ptr<NodePool> pool);

    // The room of a serializer's stack of open nodes, empty between serializers.
    std::vector<std::unique_ptr<SimpleNode>> stackRoom;

private:
    std::vector<std::unique_ptr<SimpleNode>> spare_[kNodeKinds];
};

}  // namespace Por::Serialization::Detail
