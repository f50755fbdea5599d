#pragma once

// The demo host's own serializer ends: one that prints what a request writes, and one that
// answers a request from a short list of named values.

#include <tessel_link/common/error.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace Demo {

// Writes every element and value as an indented line, "name: type value".
class PrintingSerializer : public Serialization::Serializer {
public:
    std::string Text() const { return out_.str(); }
    // The narrow strings and numbers written, by name, for the demo service to answer from.
    const std::map<std::string, std::string>& Values() const { return values_; }
    // The name of the first element written: the request's element.
    const std::string& TopElement() const { return top_; }

    Serializer& Write(const Serialization::MetaInfo& meta,
                      const Serialization::Blob& value) override;
    Serializer& Write(const Serialization::MetaInfo& meta,
                      const std::vector<unsigned char>& value) override;
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
    Serializer& Line(const Serialization::MetaInfo& meta, const char* type,
                     const std::string& text);

    std::ostringstream out_;
    std::vector<std::string> open_;
    std::map<std::string, std::string> values_;
    std::string top_;
    std::uint64_t version_ = 0;
};

// A reply of one element holding named values, read in any order; a value is used once.
class ListedReply : public Serialization::Deserializer {
public:
    using Value = std::variant<Common::Error, std::string, std::uint32_t>;
    struct Entry {
        std::string Name;
        Value Held;
    };

    ListedReply(std::string element, std::vector<Entry> entries)
        : element_(std::move(element)),
          entries_(std::move(entries)),
          used_(entries_.size(), false) {}

    // The reply as indented lines, in the form PrintingSerializer uses.
    std::string Text() const;

#define DEMO_READ(Type)                                                             \
    Deserializer& Read(const Serialization::MetaInfo& meta, Type& value) override { \
        return Take(meta, value);                                                   \
    }
    DEMO_READ(Serialization::Blob)
    DEMO_READ(std::vector<unsigned char>)
    DEMO_READ(std::uint16_t)
    DEMO_READ(std::int16_t)
    DEMO_READ(std::string)
    DEMO_READ(std::int64_t)
    DEMO_READ(std::int32_t)
    DEMO_READ(std::uint64_t)
    DEMO_READ(double)
    DEMO_READ(std::uint32_t)
    DEMO_READ(std::u16string)
    DEMO_READ(Common::Error)
    DEMO_READ(Common::Guid)
    DEMO_READ(std::uint8_t)
    DEMO_READ(bool)
#undef DEMO_READ

    Serialization::MetaInfo NextMetaInfo() override;
    void BeginReadMetaInfo(const Serialization::MetaInfo& meta) override;
    void FinishReadMetaInfo(const Serialization::MetaInfo&) override {}
    std::uint64_t GetSubjectVersion() override {
        return 0;
    }

private:
    template <class T>
    static constexpr bool kListed =
        std::is_same_v<T, Common::Error> || std::is_same_v<T, std::string> ||
        std::is_same_v<T, std::uint32_t>;

    // The first unused value of the name, when it has the type asked for.
    template <class T>
    Deserializer& Take(const Serialization::MetaInfo& meta, T& value) {
        if constexpr (kListed<T>) {
            for (std::size_t i = 0; i < entries_.size(); ++i) {
                if (used_[i] || entries_[i].Name != meta.Name) {
                    continue;
                }
                used_[i] = true;
                if (const T* held = std::get_if<T>(&entries_[i].Held)) {
                    value = *held;
                    return *this;
                }
                break;
            }
        }
        throw Missing(meta.Name);
    }

    static Common::Error Missing(const std::string& name);

    std::string element_;
    std::vector<Entry> entries_;
    std::vector<bool> used_;
    bool entered_ = false;
};

}  // namespace Demo
