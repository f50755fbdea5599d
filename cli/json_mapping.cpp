#include "json_mapping.h"

#include <cmath>
#include <limits>
#include <memory>

#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>

#include "serialize/base64.h"

namespace tessel_cli {

namespace {

// Secrets as they are.
class PlainObscurer final : public Serialization::Obscurer {
public:
    std::u16string Obscure(const std::u16string& text) const override { return text; }
    std::u16string Unobscure(const std::u16string& text) const override { return text; }
    std::vector<unsigned char> ObscureBytes(const std::vector<unsigned char>& bytes) const override {
        return bytes;
    }
    std::vector<unsigned char> UnobscureBytes(const std::vector<unsigned char>& bytes) const override {
        return bytes;
    }
};

const PlainObscurer kPlain;

std::string Base64Text(const unsigned char* data, std::size_t size) {
    std::string text;
    Serialization::Base64::Append(text, data, size);
    return text;
}

[[noreturn]] void Mismatch(const std::string& path, const char* expected, const Json& got) {
    throw JsonMismatch(path + ": expected " + expected + ", found " + std::string(got.type_name()));
}

}  // namespace

PlainSecrets::PlainSecrets()
    : previous_(Serialization::ObscurerHolder::Instance().SetThreadObscurer(&kPlain)) {}

PlainSecrets::~PlainSecrets() {
    Serialization::ObscurerHolder::Instance().SetThreadObscurer(previous_);
}

std::set<std::string>& EnumerationNames() {
    static std::set<std::string> names;
    return names;
}

Json ErrorToJson(const Common::Error& error) {
    Json out = Json::object();
    out["code"] = error.Code();
    out["text"] = Common::Utf16ToUtf8(error.FormattedText());
    const Common::Error cause = error.Cause();
    if (!cause.Empty()) {
        out["cause"] = ErrorToJson(cause);
    }
    return out;
}

Common::Error ErrorFromJson(const Json& value, const std::string& path) {
    if (value.is_null()) {
        return Common::ErrorSuccess;
    }
    if (!value.is_object()) {
        Mismatch(path, "an error object", value);
    }
    const auto code = value.find("code");
    if (code == value.end() || !code->is_number_unsigned()) {
        throw JsonMismatch(path + ": an error needs its \"code\" as a number");
    }
    const auto text = value.find("text");
    const std::string message = text != value.end() && text->is_string() ? text->get<std::string>() : "";
    Common::Error error(TL_ORIGIN("tessel call"), code->get<std::uint32_t>(), message.c_str());
    const auto cause = value.find("cause");
    if (cause != value.end()) {
        error.AddCause(ErrorFromJson(*cause, path + ".cause"));
    }
    return error;
}

// --- writing ------------------------------------------------------------------------------

JsonWriter::JsonWriter() {
    open_.emplace_back();
}

Json JsonWriter::Close(Open& element) {
    if (element.HasText && element.Children.empty()) {
        return element.Text;
    }
    const std::string& name = element.Name;
    auto& children = element.Children;
    if (name == "vector") {
        Json array = Json::array();
        for (auto& child : children) {
            array.push_back(std::move(child.second));
        }
        return array;
    }
    if (name == "map") {
        bool named = true;
        for (const auto& child : children) {
            named = named && child.second.is_object() && child.second.contains("first") &&
                    child.second["first"].is_string();
        }
        if (named) {
            Json object = Json::object();
            for (auto& child : children) {
                object[child.second["first"].get<std::string>()] = std::move(child.second["second"]);
            }
            return object;
        }
        Json array = Json::array();
        for (auto& child : children) {
            array.push_back(std::move(child.second));
        }
        return array;
    }
    if (name == "optional_type") {
        for (auto& child : children) {
            if (child.first == "value") {
                return std::move(child.second);
            }
        }
        return nullptr;
    }
    if (children.size() == 1 && children.front().second.is_string() &&
        EnumerationNames().count(children.front().first) != 0) {
        return std::move(children.front().second);
    }
    // A member's element around the fixed element of a wire form is that form's value.
    if (children.size() == 1) {
        const std::string& only = children.front().first;
        if (only == "vector" || only == "map" || only == "optional_type" || only == "shared_ptr") {
            return std::move(children.front().second);
        }
    }
    Json object = Json::object();
    for (auto& child : children) {
        object[child.first] = std::move(child.second);
    }
    return object;
}

Json JsonWriter::Result() const {
    Open top = open_.front();
    Json out = Close(top);
    return out.is_object() ? out : Json::object();
}

Serialization::Serializer& JsonWriter::Add(const Serialization::MetaInfo& meta, Json value) {
    Open& into = open_.back();
    if (meta.Name.empty()) {
        into.HasText = true;
        into.Text = std::move(value);
    } else {
        into.Children.emplace_back(meta.Name, std::move(value));
    }
    return *this;
}

void JsonWriter::BeginWriteMetaInfo(const Serialization::MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    open_.emplace_back();
    open_.back().Name = meta.Name;
}

void JsonWriter::FinishWriteMetaInfo(const Serialization::MetaInfo& meta) {
    if (meta.Name.empty() || open_.size() < 2) {
        return;
    }
    Open element = std::move(open_.back());
    open_.pop_back();
    Json value = Close(element);
    open_.back().Children.emplace_back(element.Name, std::move(value));
}

Serialization::MetaInfo JsonWriter::CurrentMetaInfo() {
    return open_.size() < 2 ? Serialization::MetaInfo() : Serialization::MetaInfo(open_.back().Name);
}

void JsonWriter::Finish(std::vector<unsigned char>& bytes) {
    const std::string text = Result().dump(2);
    bytes.assign(text.begin(), text.end());
}

Serialization::Blob JsonWriter::Finish() {
    const std::string text = Result().dump(2);
    return Serialization::Blob(text.data(), text.size());
}

using Serialization::MetaInfo;

Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const Serialization::Blob& value) {
    return Add(meta, Base64Text(value.Data(), static_cast<std::size_t>(value.Size())));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::vector<unsigned char>& value) {
    return Add(meta, Base64Text(value.data(), value.size()));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::uint16_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::int16_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::string& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::int64_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::int32_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::uint64_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const double& value) {
    // JSON has no form for infinities and NaN.
    return Add(meta, std::isfinite(value) ? Json(value) : Json(nullptr));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::uint32_t& value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const std::u16string& value) {
    return Add(meta, Common::Utf16ToUtf8(value));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, const Common::Error& value) {
    return Add(meta, ErrorToJson(value));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, Common::Guid value) {
    return Add(meta, Common::ToString(value));
}
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, std::uint8_t value) { return Add(meta, value); }
Serialization::Serializer& JsonWriter::Write(const MetaInfo& meta, bool value) { return Add(meta, value); }

// --- reading ------------------------------------------------------------------------------

JsonReader::JsonReader(const Json& object) {
    Frame top;
    top.Node = &object;
    top.Path = "$";
    frames_.push_back(std::move(top));
}

const Json* JsonReader::Child(const std::string& name, std::string& path) {
    Frame& frame = frames_.back();
    if (frame.Node == nullptr) {
        return nullptr;
    }
    const Json& node = *frame.Node;
    if (node.is_array()) {
        if (frame.Next >= node.size()) {
            return nullptr;
        }
        path = frame.Path + "[" + std::to_string(frame.Next) + "]";
        return &node[frame.Next++];
    }
    if (node.is_object()) {
        const auto at = node.find(name);
        if (at == node.end()) {
            return nullptr;
        }
        path = frame.Path + "." + name;
        return &*at;
    }
    // A value that is no object stands for its element's one child (an enumeration's name).
    path = frame.Path;
    return &node;
}

void JsonReader::BeginReadMetaInfo(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        frames_.push_back(frames_.back());
        return;
    }
    Frame next;
    const Frame& here = frames_.back();
    const std::string& name = meta.Name;
    if (name == "vector" || name == "map" || name == "optional_type" || name == "shared_ptr") {
        // The fixed elements of the wire forms have no level of their own in JSON.
        next.Node = here.Node;
        next.Path = here.Path;
        if (next.Node != nullptr && name == "vector" && !next.Node->is_array()) {
            Mismatch(next.Path, "an array", *next.Node);
        }
        if (next.Node != nullptr && name == "map") {
            if (next.Node->is_object()) {
                auto pairs = std::make_shared<Json>(Json::array());
                for (const auto& [key, value] : next.Node->items()) {
                    pairs->push_back(Json{{"first", key}, {"second", value}});
                }
                next.Made = pairs;
                next.Node = pairs.get();
            } else if (!next.Node->is_array()) {
                Mismatch(next.Path, "an object or an array of pairs", *next.Node);
            }
        }
        if (next.Node != nullptr && name == "optional_type") {
            auto made = std::make_shared<Json>(Json::object());
            (*made)["is_null"] = next.Node->is_null();
            if (!next.Node->is_null()) {
                (*made)["value"] = *next.Node;
            }
            next.Made = made;
            next.Node = made.get();
        }
    } else {
        next.Node = Child(name, next.Path);
        if (next.Path.empty()) {
            next.Path = here.Path + "." + name;
        }
    }
    frames_.push_back(std::move(next));
}

void JsonReader::FinishReadMetaInfo(const MetaInfo&) {
    if (frames_.size() > 1) {
        frames_.pop_back();
    }
}

MetaInfo JsonReader::NextMetaInfo() {
    const Frame& frame = frames_.back();
    if (frame.Node == nullptr) {
        return MetaInfo();
    }
    if (frame.Node->is_array()) {
        return frame.Next < frame.Node->size() ? MetaInfo("item") : MetaInfo();
    }
    if (frame.Node->is_object() && !frame.Node->empty()) {
        return MetaInfo(frame.Node->begin().key());
    }
    return MetaInfo();
}

const Json* JsonReader::Scalar(const MetaInfo& meta, std::string& path) {
    if (meta.Name.empty()) {
        path = frames_.back().Path;
        return frames_.back().Node;
    }
    return Child(meta.Name, path);
}

template <class T>
void JsonReader::Number(const MetaInfo& meta, T& value) {
    std::string path;
    const Json* node = Scalar(meta, path);
    if (node == nullptr) {
        return;
    }
    if constexpr (std::is_floating_point_v<T>) {
        if (!node->is_number()) {
            Mismatch(path, "a number", *node);
        }
        value = node->get<T>();
    } else {
        if (!node->is_number_integer()) {
            Mismatch(path, "an integer", *node);
        }
        const bool fits = node->is_number_unsigned()
                              ? node->get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<T>::max())
                              : node->get<std::int64_t>() >= static_cast<std::int64_t>(std::numeric_limits<T>::min()) &&
                                    (node->get<std::int64_t>() < 0 ||
                                     static_cast<std::uint64_t>(node->get<std::int64_t>()) <=
                                         static_cast<std::uint64_t>(std::numeric_limits<T>::max()));
        if (!fits) {
            throw JsonMismatch(path + ": " + node->dump() + " is out of range");
        }
        value = node->get<T>();
    }
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::uint16_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::int16_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::int64_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::int32_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::uint64_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, double& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::uint32_t& value) { Number(meta, value); return *this; }
Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::uint8_t& value) { Number(meta, value); return *this; }

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, bool& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        if (!node->is_boolean()) {
            Mismatch(path, "true or false", *node);
        }
        value = node->get<bool>();
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::string& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        if (!node->is_string()) {
            Mismatch(path, "a string", *node);
        }
        value = node->get<std::string>();
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::u16string& value) {
    std::string text;
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        if (!node->is_string()) {
            Mismatch(path, "a string", *node);
        }
        value = Common::Utf8ToUtf16Lenient(node->get<std::string>());
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, Common::Guid& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        if (!node->is_string() || !Common::FromString(node->get<std::string>().c_str(), value)) {
            Mismatch(path, "a GUID", *node);
        }
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, std::vector<unsigned char>& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        if (!node->is_string() || !Serialization::Base64::Decode(node->get<std::string>(), value)) {
            Mismatch(path, "base64 text", *node);
        }
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, Serialization::Blob& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        std::vector<unsigned char> bytes;
        if (!node->is_string() || !Serialization::Base64::Decode(node->get<std::string>(), bytes)) {
            Mismatch(path, "base64 text", *node);
        }
        value = Serialization::Blob(bytes.data(), bytes.size());
    }
    return *this;
}

Serialization::Deserializer& JsonReader::Read(const MetaInfo& meta, Common::Error& value) {
    std::string path;
    if (const Json* node = Scalar(meta, path)) {
        value = ErrorFromJson(*node, path);
    }
    return *this;
}

}  // namespace tessel_cli
