#include <tessel_link/xml/xml_tag.h>

#include <vector>

#include "xml/binary_xml.h"
#include "xml/xml_lexer.h"
#include "xml/xml_store.h"
#include "xml/xml_tree_builder.h"

namespace Xml {

namespace {

using Token = XmlToken;

// Reads the root element and its subtree from the lexer, the root's StartTag having been
// taken and opened. Elements are read with an explicit stack, so the depth of a document
// costs heap rather than stack, and it is bounded by kMaxXmlDepth.
class TextDocumentReader {
public:
    TextDocumentReader(XmlLexer& lexer, XmlTreeBuilder& builder)
        : lexer_(lexer), builder_(builder) {}

    bool ReadRoot() {
        EnterElement(false);
        Token token = lexer_.Next();
        bool inContent = false;
        for (;;) {
            if (!inContent) {
                switch (token) {
                    case Token::TagClose:
                        token = lexer_.Next();
                        inContent = true;
                        continue;
                    case Token::EmptyTagClose:
                        token = lexer_.Next();
                        if (!LeaveElement()) {
                            return token == Token::End;
                        }
                        inContent = true;
                        continue;
                    case Token::AttributeName:
                        token = ReadAttribute();
                        if (token == Token::Error) {
                            return false;
                        }
                        continue;
                    default:
                        return false;
                }
            }
            switch (token) {
                case Token::Text:
                    // The lexer gathers the text; it is taken at the next tag.
                    token = lexer_.Next();
                    continue;
                case Token::StartTag:
                    if (builder_.Depth() >= kMaxXmlDepth) {
                        return false;
                    }
                    TakeText();
                    builder_.Open(builder_.Intern(lexer_.TokenName()));
                    EnterElement(preserve_.back());
                    token = lexer_.Next();
                    inContent = false;
                    continue;
                case Token::EndTag:
                    TakeText();
                    if (!Detail::SameBytes(lexer_.TokenName(), builder_.OpenName()) ||
                        lexer_.Next() != Token::TagClose) {
                        return false;
                    }
                    token = lexer_.Next();
                    if (!LeaveElement()) {
                        return token == Token::End;
                    }
                    continue;
                default:
                    return false;
            }
        }
    }

private:
    // An element is read with the Preserve it inherits; its own xml:space may turn it on.
    void EnterElement(bool inherited) {
        preserve_.push_back(inherited);
        lexer_.SetPreserve(inherited);
    }

    // Closes the open element; false when that was the root. The parent's Preserve holds
    // again, for the token already fetched as well as for the rest.
    bool LeaveElement() {
        builder_.Close();
        preserve_.pop_back();
        if (preserve_.empty()) {
            return false;
        }
        lexer_.SetPreserve(preserve_.back());
        return true;
    }

    void TakeText() {
        builder_.SetText(lexer_.TokenText());
        lexer_.ClearText();
    }

    // On AttributeName: reads '=' and the value, and returns the token behind the value,
    // or Error.
    Token ReadAttribute() {
        const Detail::XmlName* name = builder_.Intern(lexer_.TokenName());
        if (lexer_.Next() != Token::AttributeEquals) {
            return Token::Error;
        }
        Token token = lexer_.Next();
        while (token == Token::Text) {
            token = lexer_.Next();
        }
        const std::u16string_view value = lexer_.TokenText();
        if (!builder_.AddAttribute(name, value)) {
            return Token::Error;
        }
        if (name->View() == "xml:space" && value == u"preserve") {
            preserve_.back() = true;
            lexer_.SetPreserve(true);
        }
        lexer_.ClearText();
        return token;
    }

    XmlLexer& lexer_;
    XmlTreeBuilder& builder_;
    std::vector<bool> preserve_;  // per open element
};

}  // namespace

bool ReadDocument(XmlDocument& document, File::i_file& file, std::uint32_t& line,
                  std::uint32_t& column) {
    document.Reset();
    XmlLexer lexer(file);
    const Token first = lexer.Next();
    bool ok = false;
    if (first == Token::Binary) {
        ok = ReadBinaryDocument(document, file);
    } else if (first == Token::StartTag) {
        XmlTreeBuilder builder(document);
        builder.Open(builder.Intern(lexer.TokenName()));
        TextDocumentReader reader(lexer, builder);
        ok = reader.ReadRoot() && !file.Failed();
    }
    lexer.Where(line, column);
    return ok;
}

}  // namespace Xml
