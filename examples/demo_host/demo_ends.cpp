#include "demo_ends.h"

#include <tessel_link/common/guid.h>
#include <tessel_link/common/unicode.h>

#include <iomanip>

namespace Demo {

using Serialization::MetaInfo;

namespace {

std::string Quoted(const std::string& text) {
    std::ostringstream out;
    out << std::quoted(text);
    return out.str();
}

std::string ErrorText(const Common::Error& error) {
    std::ostringstream out;
    out << "0x" << std::hex << error.Code();
    if (error.Succeeded()) {
        out << " (success)";
    } else if (!error.Text().empty()) {
        out << " " << Quoted(Common::Utf16ToUtf8(error.Text()));
    }
    return out.str();
}

}  // namespace

Serialization::Serializer& PrintingSerializer::Line(const MetaInfo& meta, const char* type,
                                                    const std::string& text) {
    out_ << std::string(2 * open_.size(), ' ') << meta.Name << ": " << type << " " << text << "\n";
    values_[meta.Name] = text;
    return *this;
}

Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const Serialization::Blob& value) {
    return Line(meta, "blob", std::to_string(value.Size()) + " bytes");
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::vector<unsigned char>& value) {
    return Line(meta, "bytes", std::to_string(value.size()) + " bytes");
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::uint16_t& value) {
    return Line(meta, "uint16", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::int16_t& value) {
    return Line(meta, "int16", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::string& value) {
    out_ << std::string(2 * open_.size(), ' ') << meta.Name << ": string " << Quoted(value) << "\n";
    values_[meta.Name] = value;
    return *this;
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::int64_t& value) {
    return Line(meta, "int64", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::int32_t& value) {
    return Line(meta, "int32", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::uint64_t& value) {
    return Line(meta, "uint64", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta, const double& value) {
    return Line(meta, "double", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::uint32_t& value) {
    return Line(meta, "uint32", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const std::u16string& value) {
    return Line(meta, "wstring", Quoted(Common::Utf16ToUtf8(value)));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta,
                                                     const Common::Error& value) {
    return Line(meta, "error", ErrorText(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta, Common::Guid value) {
    return Line(meta, "guid", Common::ToString(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta, std::uint8_t value) {
    return Line(meta, "uint8", std::to_string(value));
}
Serialization::Serializer& PrintingSerializer::Write(const MetaInfo& meta, bool value) {
    return Line(meta, "bool", value ? "true" : "false");
}

void PrintingSerializer::Finish(std::vector<unsigned char>& bytes) {
    const std::string text = Text();
    bytes.assign(text.begin(), text.end());
}

Serialization::Blob PrintingSerializer::Finish() {
    const std::string text = Text();
    return Serialization::Blob(text.data(), text.size());
}

MetaInfo PrintingSerializer::CurrentMetaInfo() {
    return open_.empty() ? MetaInfo() : MetaInfo(open_.back());
}

void PrintingSerializer::BeginWriteMetaInfo(const MetaInfo& meta) {
    if (meta.Name.empty()) {
        return;
    }
    if (top_.empty()) {
        top_ = meta.Name;
    }
    out_ << std::string(2 * open_.size(), ' ') << meta.Name << "\n";
    open_.push_back(meta.Name);
}

void PrintingSerializer::FinishWriteMetaInfo(const MetaInfo& meta) {
    if (!meta.Name.empty() && !open_.empty()) {
        open_.pop_back();
    }
}

std::string ListedReply::Text() const {
    std::ostringstream out;
    out << element_ << "\n";
    for (const Entry& entry : entries_) {
        out << "  " << entry.Name << ": ";
        if (const auto* error = std::get_if<Common::Error>(&entry.Held)) {
            out << "error " << ErrorText(*error);
        } else if (const auto* text = std::get_if<std::string>(&entry.Held)) {
            out << "string " << Quoted(*text);
        } else {
            out << "uint32 " << std::get<std::uint32_t>(entry.Held);
        }
        out << "\n";
    }
    return out.str();
}

MetaInfo ListedReply::NextMetaInfo() {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (!used_[i]) {
            return MetaInfo(entries_[i].Name);
        }
    }
    return {};
}

void ListedReply::BeginReadMetaInfo(const MetaInfo& meta) {
    if (entered_ || meta.Name != element_) {
        throw Missing(meta.Name);
    }
    entered_ = true;
}

Common::Error ListedReply::Missing(const std::string& name) {
    return Common::Error(TL_ORIGIN("Demo::ListedReply::Read"), 0x9c0001,
                         ("no value \"" + name + "\" in the reply").c_str());
}

}  // namespace Demo
