#pragma once

// The demo host's own serializer ends: one that takes a request's arguments, and one that
// answers a request from a short list of named values.

#include <tessel_link/common/error.h>
#include <tessel_link/serialize/deserializer.h>
#include <tessel_link/serialize/serializer.h>

#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

namespace Demo {

// Takes the arguments of a request as the stand-in service needs them: every value as
// text, by name. (A service on the other side would read them from the packet.)
class ArgumentCapture : public Serialization::Serializer {
public:
    const std::map<std::string, std::string>& Values() const { return values_; }
    // The name of the first element written: the request's element.
    const std::string& TopElement() const { return top_; }

#define DEMO_WRITE(Type)                                                          \
    Serializer& Write(const Serialization::MetaInfo& meta, Type value) override { \
        values_[meta.Name] = AsText(value);                                       \
        return *this;                                                             \
    }
    DEMO_WRITE(const Serialization::Blob&)
    DEMO_WRITE(const std::vector<unsigned char>&)
    DEMO_WRITE(const std::uint16_t&)
    DEMO_WRITE(const std::int16_t&)
    DEMO_WRITE(const std::string&)
    DEMO_WRITE(const std::int64_t&)
    DEMO_WRITE(const std::int32_t&)
    DEMO_WRITE(const std::uint64_t&)
    DEMO_WRITE(const double&)
    DEMO_WRITE(const std::uint32_t&)
    DEMO_WRITE(const std::u16string&)
    DEMO_WRITE(const Common::Error&)
    DEMO_WRITE(Common::Guid)
    DEMO_WRITE(std::uint8_t)
    DEMO_WRITE(bool)
#undef DEMO_WRITE

    void Finish(std::vector<unsigned char>& bytes) override {
        bytes.clear();
    }
    Serialization::Blob Finish() override {
        return {};
    }
    Serialization::MetaInfo CurrentMetaInfo() override {
        return {};
    }
    void BeginWriteMetaInfo(const Serialization::MetaInfo& meta) override {
        if (top_.empty()) {
            top_ = meta.Name;
        }
    }
    void FinishWriteMetaInfo(const Serialization::MetaInfo&) override {}
    void SetSubjectVersion(std::uint64_t version) override {
        version_ = version;
    }
    std::uint64_t GetSubjectVersion() override {
        return version_;
    }

private:
    static std::string AsText(const std::string& value) {
        return value;
    }
    static std::string AsText(const std::u16string& value);
    template <class T>
    static std::string AsText(const T& value) {
        if constexpr (std::is_arithmetic_v<T>) {
            return std::to_string(value);
        } else {
            return "?";
        }
    }

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
