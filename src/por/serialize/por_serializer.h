#pragma once

// Records as unit trees: a serializer whose output is a tree instead of a packet. Scalars
// become scalar units, records composites, containers arrays; pointers and optionals become
// their content with traits that tell what they were.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <tessel_link/por/construction.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

namespace Por::Serialization {

using ::Serialization::MetaInfo;

// A serializer that takes units whole. Found on a plain Serializer with
// Common::QueryInterface<PorAwareSerializer>.
class TL_API PorAwareSerializer : public ::Serialization::Serializer {
public:
    PorAwareSerializer();
    ~PorAwareSerializer() override;

    // Writes a copy of `unit` as the value described by `meta`; a null unit is written as a
    // nil with the trait "IsEmpty".
    virtual void WriteUnit(const MetaInfo& meta, const View::Unit* unit) = 0;
};

// A deserializer that hands units out whole. Found on a plain Deserializer with
// Common::QueryInterface<PorAwareDeserializer>.
class TL_API PorAwareDeserializer : public ::Serialization::Deserializer {
public:
    PorAwareDeserializer();
    ~PorAwareDeserializer() override;

    // The unit of the value described by `meta` (the open element itself for an empty
    // MetaInfo); null for a missing unit.
    virtual void ReadUnit(const MetaInfo& meta, std::shared_ptr<const View::Unit>& unit) = 0;
};

namespace Detail {
class SimpleNode;
class NodePool;
}

// Builds one tree. When a node is opened it is not known yet whether it is a record (named
// children) or a wrapper of one unnamed value, so its descriptor waits as "pending" until the
// next event decides: a named child makes it a composite, an unnamed value or a wrapper node
// ("vector", "map", "multimap", "set", "list", "raw_ptr", "shared_ptr", "auto_ptr",
// "optional_type", "optional", "checked_type") makes it a bridge that passes its one child up
// under its own name. Each unit receives the version ("Version", when not 0) and the traits
// of its descriptor.
//
// When the outermost node ends, its unit goes to the destination. A failure is thrown as
// Common::Error and uses the serializer up: every later call throws it again and the
// destination stays as it was.
class TL_API PORSerializer final : public PorAwareSerializer {
public:
    // Borrows both; the destination receives the finished tree.
    PORSerializer(Construction::UnitFactory& factory, UnitPtr& destination);
    ~PORSerializer() override;

    Serializer& Write(const MetaInfo& meta, const ::Serialization::Blob& value) override;
    Serializer& Write(const MetaInfo& meta, const std::vector<unsigned char>& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint16_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int16_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::string& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int64_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::int32_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint64_t& value) override;
    Serializer& Write(const MetaInfo& meta, const double& value) override;
    Serializer& Write(const MetaInfo& meta, const std::uint32_t& value) override;
    Serializer& Write(const MetaInfo& meta, const std::u16string& value) override;
    Serializer& Write(const MetaInfo& meta, const Common::Error& value) override;
    Serializer& Write(const MetaInfo& meta, Common::Guid value) override;
    Serializer& Write(const MetaInfo& meta, std::uint8_t value) override;
    Serializer& Write(const MetaInfo& meta, bool value) override;

    // There are no packet bytes: the vector is emptied, the blob is empty.
    void Finish(std::vector<unsigned char>& bytes) override;
    ::Serialization::Blob Finish() override;
    // The descriptor of the innermost open node (pending or made), or an empty one.
    MetaInfo CurrentMetaInfo() override;
    void BeginWriteMetaInfo(const MetaInfo& meta) override;
    void FinishWriteMetaInfo(const MetaInfo& meta) override;
    // A context value that the serializer only keeps.
    void SetSubjectVersion(std::uint64_t version) override;
    std::uint64_t GetSubjectVersion() override;

    void WriteUnit(const MetaInfo& meta, const View::Unit* unit) override;

    // The failure that used the serializer up; empty while there is none.
    const Common::Error& Failure() const noexcept { return failure_; }

    // A serializer for one tree: the calling thread's spare one when it has one, so that
    // trees made one after the other (a record at a time) do not each set one up.
    static std::unique_ptr<PORSerializer> Take(Construction::UnitFactory& factory,
                                               UnitPtr& destination);
    // Keeps a serializer whose tree is finished, without a failure, as the thread's spare.
    static void Keep(std::unique_ptr<PORSerializer> serializer);

private:
    // Takes the thread's pool of nodes and opens the root node; gives both back.
    void Attach();
    void Detach();

    void BeginNode(const MetaInfo& meta);
    void EndNode();
    void WriteValue(const MetaInfo& meta, UnitPtr unit);
    void Materialize(bool composite);
    Detail::SimpleNode& Parent();
    template <class Operation>
    void Guarded(Operation&& operation);

    void Push(std::unique_ptr<Detail::SimpleNode> node);
    void Pop();

    Construction::UnitFactory* factory_;
    UnitPtr* destination_;
    std::unique_ptr<Detail::NodePool> pool_;
    std::unique_ptr<Detail::SimpleNode> root_;
    std::vector<std::unique_ptr<Detail::SimpleNode>> stack_;
    MetaInfo pending_;
    bool hasPending_ = false;
    std::uint64_t context_ = 0;
    Common::Error failure_;
};

// A PORSerializer on the heap.
TL_API std::unique_ptr<PorAwareSerializer> CreatePORSerializer(Construction::UnitFactory& factory,
                                                               UnitPtr& destination);

}  // namespace Por::Serialization
