#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/file/system_file.h>
#include <tessel_link/xml/xml_tag.h>

#include "command.h"
#include "json_out.h"

namespace tessel_cli {
namespace {

// Appends a JSON string: printable ASCII as it is, everything else as \uXXXX escapes of its
// UTF-16 units, so that lone surrogates survive.
template <typename Char>
void AppendQuoted(std::string& out, std::basic_string_view<Char> text) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (const Char ch : text) {
        const auto unit = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<Char>>(ch));
        if (unit == '"' || unit == '\\') {
            out += '\\';
            out += static_cast<char>(unit);
        } else if (unit >= 0x20 && unit < 0x7f) {
            out += static_cast<char>(unit);
        } else {
            out += "\\u";
            for (int shift = 12; shift >= 0; shift -= 4) {
                out += kHex[(unit >> shift) & 0xf];
            }
        }
    }
    out += '"';
}

JsonOut TagJson(const Xml::XmlTag& tag) {
    JsonOut attributes = JsonOut::object();
    for (const Xml::XmlAttribute attribute : tag.Attributes()) {
        attributes[std::string(attribute.Name)] = JsonName(attribute.Value);
    }
    JsonOut texts = JsonOut::array();
    for (const std::u16string_view text : tag.Text()) {
        texts.push_back(JsonName(text));
    }
    JsonOut children = JsonOut::array();
    for (const Xml::XmlTag* child : tag.Children()) {
        children.push_back(TagJson(*child));
    }
    JsonOut json;
    json["name"] = std::string(tag.Name());
    json["attributes"] = std::move(attributes);
    json["text"] = std::move(texts);
    json["children"] = std::move(children);
    return json;
}

// One line per element, indented by depth: the name with its attributes, then the
// non-empty texts in their places among the children.
void AppendTree(std::string& out, const Xml::XmlTag& tag, int depth) {
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    out += indent;
    out += tag.Name();
    for (const Xml::XmlAttribute attribute : tag.Attributes()) {
        out += ' ';
        out += attribute.Name;
        out += '=';
        AppendQuoted(out, attribute.Value);
    }
    out += '\n';
    const Xml::XmlTexts texts = tag.Text();
    const Xml::XmlChildren children = tag.Children();
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (!texts[i].empty()) {
            out += indent + "  ";
            AppendQuoted(out, texts[i]);
            out += '\n';
        }
        if (i < children.size()) {
            AppendTree(out, *children[i], depth + 1);
        }
    }
}

int XmlDump(const std::string& name, bool json) {
    Xml::XmlDocument document;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    bool ok = false;
    if (name == "-") {
        const std::string bytes((std::istreambuf_iterator<char>(std::cin)),
                                std::istreambuf_iterator<char>());
        File::buf_ifile<char> file(bytes.data(), bytes.size());
        ok = Xml::ReadDocument(document, file, line, column);
    } else {
        std::u16string path;
        if (!Common::Utf8ToUtf16(name, path)) {
            path = Common::WidenLatin1(name);
        }
        Common::Error error;
        const auto file = File::OpenSystemFile(path, File::open_mode::read, error);
        if (!file) {
            return Fail("cannot open " + name + ": " + Common::Utf16ToUtf8(error.Text()));
        }
        ok = Xml::ReadDocument(document, *file, line, column);
    }
    if (!ok) {
        std::fprintf(stderr, "line %u column %u\n", line, column);
        return 1;
    }
    std::string out;
    if (document.Root() != nullptr) {
        if (json) {
            out = JsonLine(TagJson(*document.Root()), JsonText::ascii) + '\n';
        } else {
            AppendTree(out, *document.Root(), 0);
        }
    }
    std::fwrite(out.data(), 1, out.size(), stdout);
    return 0;
}

CliRun Setup(CliOptions& cli) {
    auto name = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    cli.AddOption("FILE", *name, "the document, or - for standard input").Required();
    cli.AddFlag("--json", *json, "print the tree as JSON");
    return [name, json] { return XmlDump(*name, *json); };
}

const CliCommandRegistration kXmlDump(
    {"xml dump", "FILE|- [--json]", "Read an XML document (text or binary) and print its tree.",
     "FILE is read whole; - reads standard input. Without --json each element is one line,\n"
     "indented by depth, with its attributes; its non-empty texts stand on lines of their own\n"
     "between its children. With --json the tree is printed as\n"
     "  {\"name\": \"...\", \"attributes\": {\"name\": \"value\", ...}, \"text\": [\"...\", ...],\n"
     "   \"children\": [ ... ]}\n"
     "in ASCII: every other character as \\uXXXX escapes of its UTF-16 units (a lone\n"
     "surrogate too), control characters as JSON escapes. A document that fails to read\n"
     "prints \"line L column C\" on standard error and exits with status 1.",
     Setup});

}  // namespace
}  // namespace tessel_cli
