#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "xml_test_support.h"

namespace {

using xml_test::Attribute;
using xml_test::Read;
using xml_test::Text;

TEST(TextReaderStructure, TextEntriesStandAroundChildren) {
    const auto r = Read("<a>x<b/>y<c>z</c></a>");
    ASSERT_TRUE(r.Ok);
    const Xml::XmlTag* a = r.Root();
    EXPECT_EQ(a->Name(), "a");
    EXPECT_EQ(a->Parent(), nullptr);
    ASSERT_EQ(a->Children().size(), 2u);
    ASSERT_EQ(a->Text().size(), 3u);
    EXPECT_EQ(Text(a, 0), u"x");
    EXPECT_EQ(Text(a, 1), u"y");
    EXPECT_EQ(Text(a, 2), u"");
    EXPECT_EQ(a->Children()[0]->Name(), "b");
    EXPECT_EQ(a->Children()[0]->Parent(), a);
    EXPECT_EQ(a->Children()[0]->Text().size(), 1u);
    EXPECT_EQ(Text(a->Children()[1]), u"z");
}

TEST(TextReaderStructure, EveryTagHasOneTextMoreThanChildren) {
    const auto r = Read("<r><a></a><b x='1'/><c>t<d/></c><e>only</e></r>");
    ASSERT_TRUE(r.Ok);
    for (const Xml::XmlTag* tag : r.Root()->Children()) {
        EXPECT_EQ(tag->Text().size(), tag->Children().size() + 1) << tag->Name();
    }
}

TEST(TextReaderStructure, AttributesAreSortedUniqueAndSeparatePerElement) {
    const auto r = Read("<a z='1' b=\"2\" m='3'><a z='4'/></a>");
    ASSERT_TRUE(r.Ok);
    std::string order;
    for (const auto& attribute : r.Root()->Attributes()) {
        order += attribute.Name;
    }
    EXPECT_EQ(order, "bmz");
    EXPECT_EQ(Attribute(r.Root(), "m"), u"3");
    // The same name on a child is no duplicate.
    EXPECT_EQ(Attribute(r.Root()->Children()[0], "z"), u"4");
    EXPECT_FALSE(r.Root()->Attributes().Contains("q"));

    // A repeated name fails where it stands, before its value: the step that yields it
    // begins at the quote before it, column 8, however long the values are.
    for (const char* twice : {"<a b=\"1\" b=\"2\"/>", "<a b='1' b='22222222' c='x'/>"}) {
        const auto failed = Read(twice);
        EXPECT_FALSE(failed.Ok) << twice;
        EXPECT_EQ(failed.Line, 1u) << twice;
        EXPECT_EQ(failed.Column, 8u) << twice;
        EXPECT_EQ(Attribute(failed.Root(), "b"), u"1") << twice;
    }
}

TEST(TextReaderStructure, AttributesStaySortedWhenTagsRepeatOrChangeTheirNames) {
    // Tags of one kind repeat their names in the same order, and the order found for one tag
    // is tried on the next: the same names in another order, a name replaced, fewer names.
    const auto r = Read(
        "<r><e b='1' a='2' c='3'/><e b='4' a='5' c='6'/><e c='7' a='8' b='9'/>"
        "<e b='1' d='2' c='3'/><e b='4' a='5'/><e b='6' a='7' c='8'/><e a='9' b='0' c='1'/></r>");
    ASSERT_TRUE(r.Ok);
    const std::vector<std::string> expected = {"a2b1c3", "a5b4c6", "a8b9c7", "b1c3d2",
                                               "a5b4",   "a7b6c8", "a9b0c1"};
    const auto children = r.Root()->Children();
    ASSERT_EQ(children.size(), expected.size());
    for (std::size_t i = 0; i < children.size(); ++i) {
        std::string seen;
        for (const auto& attribute : children[i]->Attributes()) {
            seen += attribute.Name;
            for (char16_t c : attribute.Value) {
                seen += static_cast<char>(c);
            }
        }
        EXPECT_EQ(seen, expected[i]) << i;
    }
}

TEST(TextReaderStructure, DocumentShapeIsChecked) {
    EXPECT_FALSE(Read("").Ok);
    EXPECT_FALSE(Read("just text").Ok);
    EXPECT_FALSE(Read("<a>").Ok);
    EXPECT_FALSE(Read("<a></b>").Ok);
    EXPECT_FALSE(Read("<a></a>tail").Ok);
    EXPECT_FALSE(Read("<a></a><b/>").Ok);
    EXPECT_FALSE(Read("<a b></a>").Ok);
    EXPECT_FALSE(Read("<a b=1></a>").Ok);
    EXPECT_TRUE(Read("<a></a >").Ok);
    EXPECT_TRUE(Read("<a/>").Ok);
    EXPECT_TRUE(Read("<a></a>\n  \n").Ok);
}

TEST(TextReaderStructure, PrologAndEpilogueMarkupIsSkipped) {
    const auto r = Read(
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE a SYSTEM \"a.dtd\">\n"
        "<!-- before -- still -->\n<a><!-- inner -->t<?pi x?></a>\n<!-- after -->");
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Text(r.Root()), u"t");
    EXPECT_FALSE(Read("<!DOCTYPE a [<!ENTITY x \"y\">]><a/>").Ok);
    EXPECT_FALSE(Read("<a><!-- \x01 --></a>").Ok);
}

TEST(TextReaderWhitespace, CollapsesAndStripsOutsidePreserve) {
    EXPECT_EQ(Text(Read("<a> x  y </a>").Root()), u"x y");
    EXPECT_EQ(Text(Read("<a>\n\tx\r\n y\n</a>").Root()), u"x y");
    EXPECT_EQ(Text(Read("<a>&#32;x</a>").Root()), u" x");
    EXPECT_EQ(Text(Read("<a>x &amp; y</a>").Root()), u"x & y");
    // White space between siblings leaves one blank between them, none at the edges.
    const auto r = Read("<a> <b/>  <c/> </a>");
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Text(r.Root(), 0), u"");
    EXPECT_EQ(Text(r.Root(), 1), u" ");
    EXPECT_EQ(Text(r.Root(), 2), u"");
    // A comment between words does not eat the blank.
    EXPECT_EQ(Text(Read("<a>x <!-- c --> y</a>").Root()), u"x y");
}

TEST(TextReaderWhitespace, XmlSpacePreserveKeepsEverythingBelowIt) {
    EXPECT_EQ(Text(Read("<a xml:space=\"preserve\"> x </a>").Root()), u" x ");
    const auto r = Read("<a xml:space='preserve'><b> \t</b><c xml:space='default'> y </c></a>");
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Text(r.Root()->Children()[0]), u" \t");
    // Another value does not switch an inherited preserve off.
    EXPECT_EQ(Text(r.Root()->Children()[1]), u" y ");
    // The parent's rule holds again behind a preserving child.
    const auto s = Read("<a><b xml:space='preserve'> p </b><c> q </c></a>");
    ASSERT_TRUE(s.Ok);
    EXPECT_EQ(Text(s.Root()->Children()[0]), u" p ");
    EXPECT_EQ(Text(s.Root()->Children()[1]), u"q");
}

TEST(TextReaderWhitespace, AttributeValuesAreAlwaysNormalised) {
    EXPECT_EQ(Attribute(Read("<a b=' x  y '/>").Root(), "b"), u"x y");
    EXPECT_EQ(Attribute(Read("<a xml:space='preserve' b=' x '/>").Root(), "b"), u"x");
    EXPECT_EQ(Attribute(Read("<a b=\"it's\" c='say \"hi\"'/>").Root(), "b"), u"it's");
    EXPECT_EQ(Attribute(Read("<a c='say \"hi\"'/>").Root(), "c"), u"say \"hi\"");
    EXPECT_EQ(Attribute(Read("<a b=''/>").Root(), "b"), u"");
    EXPECT_EQ(Attribute(Read("<a b = '&lt;&#32;'/>").Root(), "b"), u"< ");
    EXPECT_FALSE(Read("<a b='<'/>").Ok);
    EXPECT_FALSE(Read("<a b='\x01'/>").Ok);
}

TEST(TextReaderCharacters, EntitiesAndReferences) {
    EXPECT_EQ(Text(Read("<a>&lt;&gt;&amp;&apos;&quot;</a>").Root()), u"<>&'\"");
    EXPECT_EQ(Text(Read("<a>&#65;&#x42;&#x4a;&#0000067;</a>").Root()), u"ABJC");
    EXPECT_EQ(Text(Read("<a>&#x1F600;</a>").Root()), u"\U0001F600");
    // Surrogates and NUL are accepted as references; that is how lone surrogates travel.
    const std::u16string lone = Text(Read("<a>&#55296;&#0;</a>").Root());
    ASSERT_EQ(lone.size(), 2u);
    EXPECT_EQ(lone[0], 0xd800);
    EXPECT_EQ(lone[1], 0);
    for (const char* bad :
         {"<a>&unknown;</a>", "<a>&#x110000;</a>", "<a>&#X41;</a>", "<a>&#;</a>", "<a>&#x;</a>",
          "<a>&#65</a>", "<a>&LT;</a>", "<a>& </a>", "<a>&#99999999999999999999;</a>"}) {
        EXPECT_FALSE(Read(bad).Ok) << bad;
    }
}

TEST(TextReaderCharacters, StrictUtf8) {
    EXPECT_EQ(Text(Read("<a>caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80</a>").Root()),
              u"caf\u00e9 \u20ac \U0001F600");
    EXPECT_EQ(Text(Read("<a>\xEF\xBF\xBD</a>").Root()), u"\ufffd");
    for (const char* bad :
         {"<a>\xC0\x80</a>", "<a>\xC1\xBF</a>", "<a>\xE0\x80\x80</a>", "<a>\xED\xA0\x80</a>",
          "<a>\xEF\xBF\xBE</a>", "<a>\xEF\xBF\xBF</a>", "<a>\xF0\x80\x80\x80</a>",
          "<a>\xF4\x90\x80\x80</a>", "<a>\xF5\x80\x80\x80</a>", "<a>\x80</a>", "<a>\xC3</a>",
          "<a>x\x01</a>"}) {
        EXPECT_FALSE(Read(bad).Ok) << bad;
    }
    EXPECT_FALSE(Read(std::string("<a>x\0</a>", 9)).Ok);
    EXPECT_FALSE(Read(std::string("<a/>\0", 5)).Ok);
}

TEST(TextReaderCharacters, CDataKeepsTextAndDropsCarriageReturns) {
    EXPECT_EQ(Text(Read("<a><![CDATA[p\r\nq]]></a>").Root()), u"p\nq");
    EXPECT_EQ(Text(Read("<a><![CDATA[<&> ]] ]>\t]]></a>").Root()), u"<&> ]] ]>\t");
    EXPECT_EQ(Text(Read("<a>x <![CDATA[y]]></a>").Root()), u"x y");
    EXPECT_EQ(Text(Read("<a><![CDATA[]]></a>").Root()), u"");
    EXPECT_FALSE(Read("<a><![CDATA[\x02]]></a>").Ok);
    EXPECT_FALSE(Read("<a><![CDATA[x</a>").Ok);
}

TEST(TextReaderPosition, ReportsWhereReadingStopped) {
    auto r = Read("<a>\xff</a>");
    EXPECT_FALSE(r.Ok);
    EXPECT_EQ(r.Line, 1u);
    EXPECT_EQ(r.Column, 4u);  // the bad byte

    r = Read("<a>\n  <b>ok\xC3\xA9x\xC3</b></a>");
    EXPECT_FALSE(r.Ok);
    EXPECT_EQ(r.Line, 2u);
    EXPECT_EQ(r.Column, 11u);  // counted per byte: "  <b>ok" and two bytes, then "x"

    r = Read("<a>\n\t<b>x</c></a>");
    EXPECT_FALSE(r.Ok);
    EXPECT_EQ(r.Line, 2u);
    EXPECT_EQ(r.Column, 13u);  // a tab goes to the next stop of eight: the end tag at 13

    r = Read("");
    EXPECT_EQ(r.Line, 1u);
    EXPECT_EQ(r.Column, 1u);
}

TEST(TextReaderInput, LongTokensCrossBlockBoundaries) {
    // Texts, names and references that straddle the reader's 32 KiB blocks.
    for (std::size_t pad : {32760u, 32763u, 32765u, 32767u, 32768u, 65535u}) {
        const std::string name(40, 'n');
        std::string doc = "<r><" + name + ">" + std::string(pad, 'x') + "\xE2\x82\xAC&#x1F600;" +
                          "</" + name + "></r>";
        const auto r = Read(doc);
        ASSERT_TRUE(r.Ok) << pad;
        const Xml::XmlTag* child = r.Root()->Children()[0];
        EXPECT_EQ(child->Name(), name);
        const std::u16string text = Text(child);
        ASSERT_EQ(text.size(), pad + 3);
        EXPECT_EQ(text.substr(pad), u"\u20ac\U0001F600");
    }
}

TEST(TextReaderInput, CDataSequencesCrossBlockBoundaries) {
    // A four-byte character placed on every offset around the end of the first block.
    for (std::size_t pad = 32740; pad < 32770; ++pad) {
        const std::string doc =
            "<r><![CDATA[" + std::string(pad - 12, 'x') + "\xF0\x9F\x98\x80]]]]></r>";
        const auto r = Read(doc);
        ASSERT_TRUE(r.Ok) << pad;
        EXPECT_EQ(Text(r.Root()).substr(pad - 12), u"\U0001F600]]") << pad;
    }
}

TEST(TextReaderInput, ReadsFourBytesFirstThenWholeBlocks) {
    // Records what the reader asks for, so that a binary document can be read on from
    // offset 4 by another reader of the same file.
    class RecordingFile : public File::i_file {
    public:
        explicit RecordingFile(std::string bytes) : inner_(std::move(bytes)) {}
        bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
            asked.push_back(count);
            file_.Read(buffer, count, read);
            return true;
        }
        std::vector<std::uint64_t> asked;

    private:
        std::string inner_;
        File::buf_ifile<char> file_{inner_.data(), inner_.size()};
    };
    RecordingFile file("<a>" + std::string(40000, 'x') + "</a>");
    Xml::XmlDocument document;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    ASSERT_TRUE(Xml::ReadDocument(document, file, line, column));
    ASSERT_GE(file.asked.size(), 3u);
    EXPECT_EQ(file.asked[0], 4u);
    EXPECT_EQ(file.asked[1], 32768u);
    EXPECT_EQ(file.asked[2], 32768u);
}

TEST(TextReaderInput, ReadsFromTheCurrentPositionOfTheFile) {
    const std::string bytes = "junk<a>t</a>";
    File::buf_ifile<char> file(bytes.data(), bytes.size());
    file.Seek(4);
    Xml::XmlDocument document;
    std::uint32_t line = 0;
    std::uint32_t column = 0;
    ASSERT_TRUE(Xml::ReadDocument(document, file, line, column));
    EXPECT_EQ(xml_test::Text(document.Root()), u"t");
}

TEST(TextReaderLimits, DeepNestingFailsCleanly) {
    std::string deep;
    for (int i = 0; i < 1000000; ++i) {
        deep += "<a>";
    }
    EXPECT_FALSE(Read(deep).Ok);

    std::string fits;
    for (std::uint32_t i = 0; i < Xml::kMaxXmlDepth; ++i) {
        fits += "<a>";
    }
    for (std::uint32_t i = 0; i < Xml::kMaxXmlDepth; ++i) {
        fits += "</a>";
    }
    EXPECT_TRUE(Read(fits).Ok);
    EXPECT_FALSE(Read("<z>" + fits + "</z>").Ok);
}

TEST(TextReaderLimits, FailedReadKeepsThePartialTree) {
    const auto r = Read("<a><b>x</b><c>y");
    EXPECT_FALSE(r.Ok);
    ASSERT_NE(r.Root(), nullptr);
    ASSERT_EQ(r.Root()->Children().size(), 2u);
    EXPECT_EQ(Text(r.Root()->Children()[0]), u"x");
    EXPECT_EQ(r.Root()->Text().size(), 3u);
}

}  // namespace
