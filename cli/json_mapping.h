#pragma once

// Values of any type of the definitions as JSON, through the same codecs that write them
// into packets: a JsonWriter is a Serializer that builds JSON from the elements a codec
// writes, a JsonReader a Deserializer that answers a codec's reads from JSON. One rule maps
// the wire forms:
//
//   record, polymorphic     an object of its members ("polyType", "impl", "ClassID",
//                           "Object" stay members as they are on the wire)
//   enumeration             the name of its value, a string
//   sequence, set           an array
//   map                     an object when its keys are strings, else an array of
//                           {"first": key, "second": value}
//   optional                null, or the value
//   pointer                 the object pointed to
//   numbers, bool           numbers, true/false; a string that is UTF-16 in the library
//                           is UTF-8 in JSON
//   Guid                    "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"
//   blob, bytes             base64
//   error                   {"code": N, "text": "...", "cause": {...}}
//
// Secrets are plain text in JSON: Put and Take install an obscurer that keeps them as they
// are while they run, so that they are obscured only on their way into a packet. Read into a
// new value, a member that the JSON lacks keeps its default (containers and optionals are
// always read whole, so a lacking one is empty); a value of the wrong JSON type is refused
// with a JsonMismatch naming where it stands.

#include <cstdint>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <tessel_link/impl/serialize/codec.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/obscurer.h>
#include <tessel_link/serialize/serializer.h>

namespace tessel_cli {

using Json = nlohmann::ordered_json;

class JsonMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Keeps secrets in plain text on the calling thread while it lives.
class PlainSecrets {
public:
    PlainSecrets();
    ~PlainSecrets();
    PlainSecrets(const PlainSecrets&) = delete;
    PlainSecrets& operator=(const PlainSecrets&) = delete;

private:
    const Serialization::Obscurer* previous_;
};

// The short names of the enumeration types, by which the writer knows an enumeration's
// element: an element whose one child is a string under such a name. The generated tables
// fill it when the program starts.
std::set<std::string>& EnumerationNames();

class JsonWriter final : public Serialization::Serializer {
public:
    JsonWriter();

    // The object of everything written at the top level.
    Json Result() const;

    template <class T>
    void Put(const char* name, const T& value) {
        const PlainSecrets plain;
        Serialization::WriteMember(*this, Serialization::MetaInfo(name), value);
    }

    Serializer& Write(const Serialization::MetaInfo& meta, const Serialization::Blob& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::vector<unsigned char>& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::uint16_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::int16_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::string& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::int64_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::int32_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::uint64_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const double& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::uint32_t& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const std::u16string& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, const Common::Error& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, Common::Guid value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, std::uint8_t value) override;
    Serializer& Write(const Serialization::MetaInfo& meta, bool value) override;
    void Finish(std::vector<unsigned char>& bytes) override;
    Serialization::Blob Finish() override;
    Serialization::MetaInfo CurrentMetaInfo() override;
    void BeginWriteMetaInfo(const Serialization::MetaInfo& meta) override;
    void FinishWriteMetaInfo(const Serialization::MetaInfo& meta) override;
    void SetSubjectVersion(std::uint64_t version) override { version_ = version; }
    std::uint64_t GetSubjectVersion() override { return version_; }

private:
    struct Open {
        std::string Name;
        std::vector<std::pair<std::string, Json>> Children;
        bool HasText = false;
        Json Text;  // a value written without a name
    };
    Serializer& Add(const Serialization::MetaInfo& meta, Json value);
    static Json Close(Open& element);

    std::vector<Open> open_;
    std::uint64_t version_ = 0;
};

class JsonReader final : public Serialization::Deserializer {
public:
    // Reads from `object`, which must outlive the reader.
    explicit JsonReader(const Json& object);

    // Reads the member `name` when the object has it; false when it has not.
    template <class T>
    bool Take(const char* name, T& value) {
        if (!frames_.back().Node->contains(name)) {
            return false;
        }
        const PlainSecrets plain;
        Serialization::ReadMember(*this, Serialization::MetaInfo(name), value);
        return true;
    }

    Deserializer& Read(const Serialization::MetaInfo& meta, Serialization::Blob& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::vector<unsigned char>& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint16_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int16_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::string& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int64_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::int32_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint64_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, double& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint32_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::u16string& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, Common::Error& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, Common::Guid& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, std::uint8_t& value) override;
    Deserializer& Read(const Serialization::MetaInfo& meta, bool& value) override;
    Serialization::MetaInfo NextMetaInfo() override;
    void BeginReadMetaInfo(const Serialization::MetaInfo& meta) override;
    void FinishReadMetaInfo(const Serialization::MetaInfo& meta) override;
    std::uint64_t GetSubjectVersion() override { return 0; }

private:
    struct Frame {
        const Json* Node = nullptr;  // null: the element is absent, reads leave values alone
        std::string Path;
        std::size_t Next = 0;        // the next item of an array
        std::shared_ptr<Json> Made;  // a node built for a map or an optional
    };
    // The child `name` of the innermost element, taken (items of an array are consumed).
    const Json* Child(const std::string& name, std::string& path);
    template <class T>
    void Number(const Serialization::MetaInfo& meta, T& value);
    const Json* Scalar(const Serialization::MetaInfo& meta, std::string& path);

    std::vector<Frame> frames_;
};

// A Common::Error as JSON, and back.
Json ErrorToJson(const Common::Error& error);
Common::Error ErrorFromJson(const Json& value, const std::string& path);

}  // namespace tessel_cli
