// ReadDocument reads a document whole in one pass and falls back to the streaming lexer for
// documents that do not read whole. Both paths must give the same result on every input:
// the same success, the same tree and the same position. Here they are held side by side on
// documents that exercise each rule, and on every one-byte change of them.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "file/file_errors.h"
#include "xml/read_document.h"
#include "xml/xml_chars.h"
#include "xml/xml_tree_builder.h"
#include "xml/xml_whole_reader.h"
#include "xml_test_support.h"

namespace {

// A file that is not known to lie in memory, so that nothing can take a shortcut over it.
class PlainFile : public File::i_file {
public:
    explicit PlainFile(std::string_view bytes) : bytes_(bytes) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = std::min<std::uint64_t>(count, bytes_.size() - position_);
        std::memcpy(buffer, bytes_.data() + position_, read);
        position_ += read;
        return true;
    }

private:
    std::string_view bytes_;
    std::size_t position_ = 0;
};

// The tree as one string: names, attributes in order, texts and children, nested.
void Dump(const Xml::XmlTag* tag, std::u16string& out) {
    out += u'<';
    for (char c : tag->Name()) {
        out += static_cast<char16_t>(static_cast<unsigned char>(c));
    }
    for (const auto attribute : tag->Attributes()) {
        out += u' ';
        for (char c : attribute.Name) {
            out += static_cast<char16_t>(static_cast<unsigned char>(c));
        }
        out += u"=[";
        out += attribute.Value;
        out += u']';
    }
    out += u'>';
    const auto texts = tag->Text();
    const auto children = tag->Children();
    for (std::size_t i = 0; i < children.size(); ++i) {
        out += u'[';
        out += texts[i];
        out += u']';
        if (children[i]->Parent() != tag) {
            out += u"(wrong parent)";
        }
        Dump(children[i], out);
    }
    out += u'[';
    out += texts.back();
    out += u"]</>";
}

struct Outcome {
    bool Ok;
    std::uint32_t Line;
    std::uint32_t Column;
    std::u16string Tree;
};

Outcome Whole(std::string_view bytes) {
    auto r = xml_test::Read(bytes);
    Outcome o{r.Ok, r.Line, r.Column, {}};
    if (r.Root() != nullptr) {
        Dump(r.Root(), o.Tree);
    }
    return o;
}

Outcome Streaming(std::string_view bytes) {
    PlainFile file(bytes);
    Xml::XmlDocument document;
    Outcome o{false, 0, 0, {}};
    o.Ok = Xml::ReadDocumentStreaming(document, file, o.Line, o.Column);
    if (document.Root() != nullptr) {
        Dump(document.Root(), o.Tree);
    }
    return o;
}

// Documents that touch every rule of the reader, valid ones first.
const std::vector<std::string>& Documents() {
    static const std::vector<std::string> docs = {
        "<a>x<b/>y<c>z</c></a>",
        "\xEF\xBB\xBF<?xml version=\"1.0\"?>\n<!DOCTYPE a SYSTEM \"a.dtd\">\n<!-- c -- d -->\n"
        "<a><!-- i -->t<?pi x?></a>\n<!-- after -->",
        "<a> x  y </a>",
        "<a>\n\tx\r\n y\n</a>",
        "<a>&#32;x &amp; y&lt;&gt;&apos;&quot;&#x1F600;&#0000067;&#55296;</a>",
        "<a> <b/>  <c/> </a>",
        "<a>x <!-- c --> y</a>",
        "<a xml:space=\"preserve\"> x <b> \t</b> </a>",
        "<a><b xml:space='preserve'> p </b>  q <c> r </c></a>",
        "<a><b xml:space='preserve'/> \n<!--c-->x</a>",
        "<a><b xml:space='preserve'>p</b><!-- c --> \t x</a>",
        "<a b=' x  y ' c=\"it's\" d='say \"hi\"' e='' f = '&lt;&#32;'/>",
        "<a z='1' b=\"2\" m='3'><a z='4'/></a>",
        "<a b='1'c='2'/>",
        "<a>caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xEF\xBF\xBD</a>",
        "<a><![CDATA[p\r\nq <&> ]] ]>\t]]> <![CDATA[]]>x</a>",
        "<a>x <![CDATA[y]]></a>",
        "<a></a >",
        "<a></a>\n  \n",
        "<a/><?unterminated",
        "<a/><!-- unterminated",
        "<a/><![CDATA[",  // the input ends inside the section: no text behind the root
        "<a/><![CDATA[x",
        "<a/><![CDATA[\r\r",
        "<a/>\t<![CDATA[",  // a blank before a section is text
        "<a/> <!--c--><![CDATA[",
        "<a/><!--c--><?p?><![CDATA[",
        "<a xml:space='preserve'/>",
        "<a xml:space='preserve'/><!--c-->",
        "<a xml:space='preserve'/> ",
        "<r><n1.-_:x a:b='\xC3\xA9'>t</n1.-_:x></r>",
        // Tags without attributes, which may be leaves of plain text, and shapes that are not.
        "<r><a>x y</a><b> x</b><c>x &amp;</c><d>x <e/>z</d><f></f><g>x  </g><h>x</h ></r>",
        "<r>t <a>x</a> <a>\xC3\xA9</a><a><![CDATA[c]]></a><a>x<!--c--></a><ab>x</ab></r>",
        "<r><a>x</ab></r>",
        "<r xml:space='preserve'><a> x </a><b>y</b></r>",
        // Tags with attributes, empty or not, under either rule.
        "<r> <e a='1' /> <e a='2'/>x<e a='3'>y</e><e a='4' xml:space='preserve'/> z</r>",
        "<r xml:space='preserve'> <e a='1'/> <e a='2' xml:space='preserve'> </e> </r>",
        // Failures of every kind.
        "",
        "just text",
        "<a>",
        "<a></b>",
        "<a></a>tail",
        "<a></a><b/>",
        "<a b></a>",
        "<a b=1></a>",
        "<a b=\"1\" b=\"2\"/>",
        "<a b='<'/>",
        "<a>&unknown;</a>",
        "<a>&#x110000;</a>",
        "<a>&#X41;</a>",
        "<!DOCTYPE a [<!ENTITY x \"y\">]><a/>",
        "<a><!-- \x01 --></a>",
        "<a>\xC0\x80</a>",
        "<a>\xED\xA0\x80</a>",
        "<a>\xEF\xBF\xBE</a>",
        "<a>\xF4\x90\x80\x80</a>",
        "<a>\n  <b>ok\xC3\xA9x\xC3</b></a>",
        "<a>\n\t<b>x</c></a>",
        "<a><![CDATA[x</a>",
        "<a/ >",
        "<![CDATA[x]]><a/>",
        "<a/><![CDATA[x]]>",
        std::string("<a>x\0</a>", 9),
    };
    return docs;
}

// Whether the one-pass reader alone takes the document: it must take exactly the documents
// that read, or they would all go the slow way.
bool ReadsWhole(std::string_view doc) {
    std::vector<unsigned char> bytes(doc.begin(), doc.end());
    bytes.resize(doc.size() + Xml::kWholeTextPadding, 0);
    Xml::XmlDocument document;
    Xml::XmlTreeBuilder builder(document);
    return Xml::ReadWholeText(bytes.data(), doc.size(), builder) != nullptr;
}

void ExpectSame(std::string_view doc) {
    const Outcome whole = Whole(doc);
    const Outcome streaming = Streaming(doc);
    const std::string shown = testing::PrintToString(std::string(doc));
    if (doc.substr(0, 4) != "BXML") {
        EXPECT_EQ(ReadsWhole(doc), streaming.Ok) << shown;
    }
    EXPECT_EQ(whole.Ok, streaming.Ok) << shown;
    EXPECT_EQ(whole.Line, streaming.Line) << shown;
    EXPECT_EQ(whole.Column, streaming.Column) << shown;
    EXPECT_TRUE(whole.Tree == streaming.Tree) << shown;
}

TEST(ReadingPaths, AgreeOnDocumentsOfEveryRule) {
    for (const std::string& doc : Documents()) {
        ExpectSame(doc);
    }
    // The valid ones read whole.
    EXPECT_TRUE(Whole(Documents()[0]).Ok);
    EXPECT_TRUE(Whole(Documents()[9]).Ok);
}

TEST(ReadingPaths, AgreeOnEveryOneByteChange) {
    // Each byte removed, and each byte replaced by one that matters to some rule.
    const std::string replacements = std::string("<>/&;'\"= \t\n\r!?-[]x:#\xC3\xA9\x80") +
                                     std::string(1, '\0');
    for (const std::string& doc : Documents()) {
        for (std::size_t i = 0; i < doc.size(); ++i) {
            std::string removed = doc;
            removed.erase(i, 1);
            ExpectSame(removed);
            for (char c : replacements) {
                std::string changed = doc;
                changed[i] = c;
                ExpectSame(changed);
            }
        }
    }
}

TEST(ReadingPaths, AgreeAcrossBlockBoundaries) {
    // Long texts, names, values and references against the streaming reader's 32 KiB blocks.
    for (std::size_t pad : {32750u, 32763u, 32767u, 32768u, 32769u}) {
        const std::string name(30, 'n');
        ExpectSame("<r><" + name + " v='" + std::string(pad, 'v') + " w  x'>" +
                   std::string(pad, 'x') + "  \xE2\x82\xAC&#x1F600;</" + name + "> </r>");
        ExpectSame("<r xml:space='preserve'>" + std::string(pad, ' ') + "<![CDATA[" +
                   std::string(pad, 'c') + "]]>\n</r>");
    }
}

TEST(ReadingPaths, AgreeOnSingleBlanksAtEveryBlockOffset) {
    // A single blank goes along with the byte behind it, which at the last place of a block
    // of sixteen lies in the next block. Every offset, with every kind of byte behind.
    const std::vector<std::string> behind = {"y", "<b/>", "&amp;", "\xC3\xA9", " ", "\n", "'", "\""};
    for (std::size_t lead = 1; lead < 40; ++lead) {
        const std::string words = std::string(lead / 2, 'w') + '.' + std::string(lead - lead / 2, 'v');
        for (const std::string& next : behind) {
            ExpectSame("<r>" + words + " " + next + "z</r>");
            ExpectSame("<r><a>" + words + " " + next + "z</a></r>");
            ExpectSame("<r k='1'>" + words + " " + next + "z</r>");
            ExpectSame("<r v='" + words + " " + next + "z'/>");
            ExpectSame("<r v=\"" + words + " " + next + "z\"/>");
        }
        ExpectSame("<r v='" + words + " '/>");
        ExpectSame("<r v='" + words + "' w=\"" + words + " \"/>");
    }
}

TEST(ReadingPaths, AgreeOnNamesThatDifferInAnyByte) {
    // The name expected next, and the name an end tag must repeat, are compared whole; a
    // change of any byte, one byte more or one less must be told apart at every length.
    for (std::size_t size = 1; size <= 20; ++size) {
        std::string name;
        for (std::size_t i = 0; i < size; ++i) {
            name += static_cast<char>('a' + i % 26);
        }
        std::vector<std::string> others = {name + "q", name + ".", name.substr(0, size - 1)};
        for (std::size_t at = 0; at < size; ++at) {
            others.push_back(name);
            others.back()[at] = 'Q';
        }
        for (const std::string& other : others) {
            if (other.empty()) {
                continue;
            }
            ExpectSame("<r><" + name + ">t</" + other + "></r>");
            ExpectSame("<r><e " + name + "='1' x='2'/><e " + other + "='3' x='4'/><e " + name +
                       "='5' x='6'/></r>");
            ExpectSame("<r><" + name + "/><" + other + "/><" + name + "/><" + other + " " + name +
                       "='1'/></r>");
        }
    }
}

}  // namespace

namespace {

TEST(ReadingPaths, PositionCountedInBulkMatchesCountingByteByByte) {
    // Line feeds and tabs on every offset around the sixteen-byte blocks of the bulk count.
    std::uint32_t seed = 12345;
    for (int round = 0; round < 2000; ++round) {
        // Short stretches, and long ones where the byte counters must be folded in time.
        const std::size_t size = round % 10 == 0 ? 20000 + round : round % 331;
        std::string bytes(size, 'x');
        for (char& b : bytes) {
            seed = seed * 1103515245u + 12345u;
            const unsigned pick = (seed >> 16) % (size > 1000 ? 64 : 16);
            b = pick == 0 ? '\n' : pick == 1 ? '\t' : pick == 2 ? '\xC3' : 'x';
        }
        const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
        std::uint32_t line = 3, column = 5, bulkLine = 3, bulkColumn = 5;
        Xml::Detail::CountBytes(first, first + bytes.size(), line, column);
        Xml::Detail::CountLongStretch(first, first + bytes.size(), bulkLine, bulkColumn);
        ASSERT_EQ(bulkLine, line) << round;
        ASSERT_EQ(bulkColumn, column) << round;
        // The copy that counts on the way: the same bytes, feeds and tabs.
        std::vector<unsigned char> copy(bytes.size() + 1, 0xAA);
        std::uint64_t feeds = 7;
        bool tabs = false;
        Xml::Detail::CopyCountingFeeds(copy.data(), first, bytes.size(), feeds, tabs);
        ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), copy.begin(),
                               [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }))
            << round;
        ASSERT_EQ(copy.back(), 0xAA) << round;
        ASSERT_EQ(feeds, 7 + static_cast<std::uint64_t>(std::count(bytes.begin(), bytes.end(), '\n')))
            << round;
        ASSERT_EQ(tabs, bytes.find('\t') != std::string::npos) << round;
    }
}

}  // namespace

namespace {

// A file that hands out at most `piece` bytes a read and fails at read number `failing`
// (from 0; never when negative), as a pipe or a failing disk would.
class UnevenFile : public File::i_file {
public:
    UnevenFile(std::string_view bytes, std::size_t piece, int failing)
        : bytes_(bytes), piece_(piece), failing_(failing) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        read = 0;
        if (Failed()) {
            return false;
        }
        if (reads_++ == failing_) {
            // Some bytes arrive with the failure; a reader must not take them.
            read = std::min<std::uint64_t>(count, bytes_.size() - position_);
            std::memcpy(buffer, bytes_.data() + position_, read);
            RecordError(File::MakeFileError(TL_ORIGIN("test"), File::kDriveNotReady));
            return false;
        }
        read = std::min<std::uint64_t>({count, piece_, bytes_.size() - position_});
        std::memcpy(buffer, bytes_.data() + position_, read);
        position_ += read;
        return true;
    }

private:
    std::string_view bytes_;
    std::size_t piece_;
    int failing_;
    int reads_ = 0;
    std::size_t position_ = 0;
};

TEST(ReadingPaths, ShortReadsAndFailingReadsGiveTheStreamingResult) {
    const std::string doc = "<r a='1'><x>" + std::string(70000, 'x') + "</x>\n<y>t</y></r>\n";
    for (std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{5000}, std::size_t{1} << 20}) {
        for (int failing : {-1, 0, 1, 2, 3, 4, 5}) {
            UnevenFile file(doc, piece, failing);
            UnevenFile again(doc, piece, failing);
            Xml::XmlDocument read;
            Xml::XmlDocument streamed;
            std::uint32_t line = 0, column = 0, streamLine = 0, streamColumn = 0;
            const bool ok = Xml::ReadDocument(read, file, line, column);
            const bool streamOk = Xml::ReadDocumentStreaming(streamed, again, streamLine, streamColumn);
            EXPECT_EQ(ok, streamOk) << piece << ' ' << failing;
            // Short reads alone do not fail a document; a failed read always does. Whole
            // pieces take five reads: four bytes, two blocks, the rest and the end, which
            // fails the document too when it fails.
            EXPECT_EQ(ok, failing < 0 || (piece == std::size_t{1} << 20 && failing == 5))
                << piece << ' ' << failing;
            EXPECT_EQ(line, streamLine) << piece << ' ' << failing;
            EXPECT_EQ(column, streamColumn) << piece << ' ' << failing;
            std::u16string tree, streamTree;
            if (read.Root() != nullptr) {
                Dump(read.Root(), tree);
            }
            if (streamed.Root() != nullptr) {
                Dump(streamed.Root(), streamTree);
            }
            EXPECT_TRUE(tree == streamTree) << piece << ' ' << failing;
        }
    }
}

TEST(ReadingPaths, FilesInMemoryAreReadFromTheirPosition) {
    // The size of a file in memory is taken from its position on, and a binary document
    // split over short first reads is still told by its magic.
    File::memory_file memory(std::vector<unsigned char>{'j', 'u', 'n', 'k', '<', 'a', '>', 't', '<', '/', 'a', '>'});
    memory.Seek(4);
    Xml::XmlDocument document;
    std::uint32_t line = 0, column = 0;
    ASSERT_TRUE(Xml::ReadDocument(document, memory, line, column));
    EXPECT_EQ(xml_test::Text(document.Root()), u"t");
    // Taken whole, it is left at its end as if it had been read there.
    EXPECT_EQ(memory.Position(), 12u);
    const std::string bytes = "<a>\n\t<b>u</b>\n</a>";
    File::buf_ifile<char> view(bytes.data(), bytes.size());
    ASSERT_TRUE(Xml::ReadDocument(document, view, line, column));
    EXPECT_EQ(view.Position(), bytes.size());
    EXPECT_EQ(line, 3u);
    EXPECT_EQ(column, 5u);

    UnevenFile binary("BXML", 1, -1);
    EXPECT_FALSE(Xml::ReadDocument(document, binary, line, column));
    EXPECT_EQ(line, 1u);
    EXPECT_EQ(column, 1u);
    UnevenFile text("BXM", 1, -1);
    EXPECT_FALSE(Xml::ReadDocument(document, text, line, column));
}

}  // namespace
