#pragma once

// A test helper for hosts (used by scripted_channel.h): a serializer that records what is
// written as a tree, and a deserializer that answers from such a tree, with the XML packet
// reader's tolerance (values found by name, extra children ignored, a missing value thrown
// as an error).

#include <tessel_link/common/error.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Testing {

// Any value a serializer writes.
using Value =
    std::variant<Serialization::Blob, std::vector<unsigned char>, std::uint16_t, std::int16_t,
                 std::string, std::int64_t, std::int32_t, std::uint64_t, double, std::uint32_t,
                 std::u16string, Common::Error, Common::Guid, std::uint8_t, bool>;

// An element (no value) or a value, with its children in order.
struct Node {
    std::string Name;  // the element's or value's name
    std::optional<Value> Held;  // the value; none for an element
    std::vector<Node> Children;  // in the order written

    // The names of the children, in order.
    std::vector<std::string> ChildNames() const {
        std::vector<std::string> names;
        for (const Node& child : Children) {
            names.push_back(child.Name);
        }
        return names;
    }
    // The first child of that name, or null.
    const Node* Child(const std::string& name) const {
        for (const Node& child : Children) {
            if (child.Name == name) {
                return &child;
            }
        }
        return nullptr;
    }
    // The value of the first child of that name when it holds a T, or null.
    template <class T>
    const T* ValueOf(const std::string& name) const {
        const Node* child = Child(name);
        return child != nullptr && child->Held ? std::get_if<T>(&*child->Held) : nullptr;
    }
};

// An element with its children.
inline Node Element(std::string name, std::vector<Node> children = {}) {
    return Node{std::move(name), std::nullopt, std::move(children)};
}
// A value under its name.
template <class T>
Node ValueNode(std::string name, T value) {
    return Node{std::move(name), Value(std::move(value)), {}};
}

// A failure as the fakes report it.
inline Common::Error FakeFailure(const char* func) {
    return Common::Error(TL_ORIGIN(func), 0x9c0001);
}

// A serializer that records what is written as a tree of nodes.
class RecordingSerializer : public Serialization::Serializer {
public:
    Node Root;  // holds the top element(s) written

    // The single element written at the top, or null.
    const Node* Top() const { return Root.Children.size() == 1 ? &Root.Children[0] : nullptr; }

// One Write override per value type: records the value as a child of the open element.
#define TL_FAKE_WRITE(Type)                                                       \
    Serializer& Write(const Serialization::MetaInfo& meta, Type value) override { \
        open_.back()->Children.push_back(ValueNode(meta.Name, Value(value)));     \
        return *this;                                                             \
    }
    TL_FAKE_WRITE(const Serialization::Blob&)
    TL_FAKE_WRITE(const std::vector<unsigned char>&)
    TL_FAKE_WRITE(const std::uint16_t&)
    TL_FAKE_WRITE(const std::int16_t&)
    TL_FAKE_WRITE(const std::string&)
    TL_FAKE_WRITE(const std::int64_t&)
    TL_FAKE_WRITE(const std::int32_t&)
    TL_FAKE_WRITE(const std::uint64_t&)
    TL_FAKE_WRITE(const double&)
    TL_FAKE_WRITE(const std::uint32_t&)
    TL_FAKE_WRITE(const std::u16string&)
    TL_FAKE_WRITE(const Common::Error&)
    TL_FAKE_WRITE(Common::Guid)
    TL_FAKE_WRITE(std::uint8_t)
    TL_FAKE_WRITE(bool)
#undef TL_FAKE_WRITE

    void Finish(std::vector<unsigned char>& bytes) override {
        bytes.clear();
    }
    Serialization::Blob Finish() override {
        return {};
    }
    Serialization::MetaInfo CurrentMetaInfo() override {
        return Serialization::MetaInfo(open_.back()->Name);
    }
    void BeginWriteMetaInfo(const Serialization::MetaInfo& meta) override {
        if (meta.Name.empty()) {
            return;
        }
        open_.back()->Children.push_back(Element(meta.Name));
        open_.push_back(&open_.back()->Children.back());
    }
    void FinishWriteMetaInfo(const Serialization::MetaInfo& meta) override {
        if (meta.Name.empty()) {
            return;
        }
        if (open_.size() == 1 || open_.back()->Name != meta.Name) {
            throw FakeFailure("Testing::RecordingSerializer::FinishWriteMetaInfo");
        }
        open_.pop_back();
    }
    void SetSubjectVersion(std::uint64_t version) override {
        version_ = version;
    }
    std::uint64_t GetSubjectVersion() override {
        return version_;
    }

private:
    std::vector<Node*> open_{&Root};
    std::uint64_t version_ = 0;
};

// A deserializer that reads from a tree of nodes, as RecordingSerializer recorded it.
class ScriptedDeserializer : public Serialization::Deserializer {
public:
    // `top` is the one element of the packet, as RecordingSerializer::Top would give it.
    explicit ScriptedDeserializer(Node top) : root_(Element("", {std::move(top)})) { Enter(root_); }
    ScriptedDeserializer(const ScriptedDeserializer&) = delete;
    ScriptedDeserializer& operator=(const ScriptedDeserializer&) = delete;

    // Names of the values read, in order.
    std::vector<std::string> Reads;

// One Read override per value type: takes the value of that name from the open element.
#define TL_FAKE_READ(Type)                                                                    \
    Deserializer& Read(const Serialization::MetaInfo& meta, Type& value) override {           \
        value = std::get<Type>(                                                               \
            Take(meta.Name, [](const Value& v) { return std::holds_alternative<Type>(v); })); \
        return *this;                                                                         \
    }
    TL_FAKE_READ(Serialization::Blob)
    TL_FAKE_READ(std::vector<unsigned char>)
    TL_FAKE_READ(std::uint16_t)
    TL_FAKE_READ(std::int16_t)
    TL_FAKE_READ(std::string)
    TL_FAKE_READ(std::int64_t)
    TL_FAKE_READ(std::int32_t)
    TL_FAKE_READ(std::uint64_t)
    TL_FAKE_READ(double)
    TL_FAKE_READ(std::uint32_t)
    TL_FAKE_READ(std::u16string)
    TL_FAKE_READ(Common::Error)
    TL_FAKE_READ(Common::Guid)
    TL_FAKE_READ(std::uint8_t)
    TL_FAKE_READ(bool)
#undef TL_FAKE_READ

    Serialization::MetaInfo NextMetaInfo() override {
        const Cursor& cursor = cursors_.back();
        for (std::size_t i = 0; i < cursor.Used.size(); ++i) {
            if (!cursor.Used[i]) {
                return Serialization::MetaInfo(cursor.At->Children[i].Name);
            }
        }
        return {};
    }
    void BeginReadMetaInfo(const Serialization::MetaInfo& meta) override {
        if (meta.Name.empty()) {
            return;
        }
        Cursor& cursor = cursors_.back();
        const std::size_t i = Find(cursor, meta.Name, [](const Node& n) { return !n.Held; });
        cursor.Used[i] = true;
        Enter(cursor.At->Children[i]);
    }
    void FinishReadMetaInfo(const Serialization::MetaInfo& meta) override {
        if (!meta.Name.empty() && cursors_.size() > 1) {
            cursors_.pop_back();
        }
    }
    std::uint64_t GetSubjectVersion() override {
        return 0;
    }

private:
    struct Cursor {
        const Node* At;
        std::vector<bool> Used;
    };

    void Enter(const Node& node) {
        cursors_.push_back({&node, std::vector<bool>(node.Children.size())});
    }

    template <class Accept>
    std::size_t Find(const Cursor& cursor, const std::string& name, Accept accept) const {
        for (std::size_t i = 0; i < cursor.Used.size(); ++i) {
            const Node& child = cursor.At->Children[i];
            if (!cursor.Used[i] && child.Name == name && accept(child)) {
                return i;
            }
        }
        throw FakeFailure("Testing::ScriptedDeserializer::Find");
    }

    template <class HasType>
    const Value& Take(const std::string& name, HasType hasType) {
        Cursor& cursor = cursors_.back();
        const std::size_t i = Find(cursor, name, [](const Node& n) { return n.Held.has_value(); });
        const Node& child = cursor.At->Children[i];
        cursor.Used[i] = true;
        Reads.push_back(name);
        if (!hasType(*child.Held)) {
            throw FakeFailure("Testing::ScriptedDeserializer::Read");
        }
        return *child.Held;
    }

    Node root_;
    std::vector<Cursor> cursors_;
};

}  // namespace Testing
