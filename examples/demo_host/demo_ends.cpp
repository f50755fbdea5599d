#include "demo_ends.h"

#include <tessel_link/common/unicode.h>

#include <iomanip>
#include <sstream>

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

std::string ArgumentCapture::AsText(const std::u16string& value) {
    return Common::Utf16ToUtf8(value);
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
