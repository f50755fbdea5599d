#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/assert.h>

#include "xml_test_support.h"

namespace {

using xml_test::Attribute;
using xml_test::Read;
using xml_test::Text;

// Bytes from a list of numbers (each one byte) and strings.
struct Bytes {
    std::string data;
    Bytes& operator<<(int byte) {
        data.push_back(static_cast<char>(byte));
        return *this;
    }
    Bytes& operator<<(const std::string& text) {
        data += text;
        return *this;
    }
};

std::string NewForm() {
    return std::string("BXML\x02\x00", 6);
}
std::string OldForm() {
    return std::string("BXML\x01\x00", 6);
}

std::vector<std::string>& Fired() {
    static std::vector<std::string> fired;
    return fired;
}

class BinaryReader : public ::testing::Test {
protected:
    void SetUp() override {
        Fired().clear();
        previous_ = Common::SetAssertionObserver(
            [](const char* expression, const char*, int) { Fired().push_back(expression); });
    }
    void TearDown() override { Common::SetAssertionObserver(previous_); }

private:
    Common::AssertionObserver previous_ = nullptr;
};

TEST_F(BinaryReader, NewFormWorkedExample) {
    Bytes b;
    b << NewForm() << 1 << 1 << "a" << 2 << 1 << "x" << 2 << "1" << 0 << 2 << "t" << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(r.Root()->Name(), "a");
    EXPECT_EQ(Attribute(r.Root(), "x"), u"1");
    EXPECT_EQ(Text(r.Root()), u"t");
    EXPECT_TRUE(r.Root()->Children().empty());
}

TEST_F(BinaryReader, NewFormChildrenSharedNamesAndTextItems) {
    Bytes b;
    // <r>A<c>1</c>B<c>2</c>C</r>: the second "c" is only its number.
    b << NewForm() << 1 << 1 << "r" << 0 << 2 << "A"      //
      << 2 << 1 << "c" << 0 << 2 << "1" << 0 << 2 << "B"  //
      << 2 << 0 << 2 << "2" << 0 << 2 << "C" << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    ASSERT_EQ(r.Root()->Children().size(), 2u);
    EXPECT_EQ(r.Root()->Children()[1]->Name(), "c");
    EXPECT_EQ(Text(r.Root(), 0), u"A");
    EXPECT_EQ(Text(r.Root(), 1), u"B");
    EXPECT_EQ(Text(r.Root(), 2), u"C");
    EXPECT_EQ(Text(r.Root()->Children()[1]), u"2");

    // A text item with the flag set is raw data and adds no text.
    Bytes raw;
    raw << NewForm() << 1 << 1 << "r" << 0 << 7 << "xyz" << 0;
    const auto s = Read(raw.data);
    ASSERT_TRUE(s.Ok);
    EXPECT_EQ(Text(s.Root()), u"");
}

TEST_F(BinaryReader, LargeAndSmallNameNumbersResolveAlike) {
    // Numbers are the sender's choice: 1 and 3 sit in the table of small ones, 300,000 and
    // 5,000 in the map; each is defined once and then named by its number alone.
    Bytes b;
    b << NewForm() << 0xe0 << 0xa7 << 0x12 << 1 << "r" << 0 << 0                    // <r>, 300,000
      << 3 << 1 << "c" << 0x88 << 0x27 << 1 << "k" << 2 << "1" << 0 << 0 << 0 << 0  // <c k="1"/>
      << 3 << 0x88 << 0x27 << 2 << "2" << 0 << 0 << 0 << 0                         // <c k="2"/>
      << 1 << 1 << "d" << 0 << 0 << 0 << 0                                         // <d/>
      << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(r.Root()->Name(), "r");
    ASSERT_EQ(r.Root()->Children().size(), 3u);
    EXPECT_EQ(r.Root()->Children()[1]->Name(), "c");
    EXPECT_EQ(Attribute(r.Root()->Children()[0], "k"), u"1");
    EXPECT_EQ(Attribute(r.Root()->Children()[1], "k"), u"2");
    EXPECT_EQ(r.Root()->Children()[2]->Name(), "d");
}

TEST_F(BinaryReader, NewFormOddAttributeLength) {
    Bytes b;
    b << NewForm() << 1 << 1 << "a" << 2 << 1 << "x" << 3 << "q" << 0 << 0 << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Attribute(r.Root(), "x"), u"q");  // 3 / 2 = 1 byte
    ASSERT_EQ(Fired().size(), 1u);
    EXPECT_EQ(Fired()[0], "(textLength & 1) == 0");
}

TEST_F(BinaryReader, OldForm) {
    Bytes b;
    // <r k="v">x<c/>y</r>, with name 0 as an ordinary reference.
    b << OldForm() << 0 << 1 << "r" << 1 << 5 << 1 << "k" << 1 << "v" << 2 << 1 << "x"  //
      << 6 << 1 << "c" << 0 << 1 << 0 << 1 << "y";
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(r.Root()->Name(), "r");
    EXPECT_EQ(Attribute(r.Root(), "k"), u"v");
    ASSERT_EQ(r.Root()->Children().size(), 1u);
    EXPECT_EQ(r.Root()->Children()[0]->Name(), "c");
    EXPECT_EQ(Text(r.Root(), 0), u"x");
    EXPECT_EQ(Text(r.Root(), 1), u"y");
}

TEST_F(BinaryReader, TextsDecodeLenientlyAndStopAtNul) {
    Bytes b;
    b << NewForm() << 1 << 1 << "a" << 2 << 1 << "x" << 6 << std::string("p\0q", 3) << 0 << 8
      << "\xC3\xA9\xFFz" << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Attribute(r.Root(), "x"), u"p");
    EXPECT_EQ(Text(r.Root()), u"\u00e9\ufffdz");
}

TEST_F(BinaryReader, RepeatedAttributeKeepsTheFirstValue) {
    Bytes b;
    b << NewForm() << 1 << 1 << "a" << 2 << 1 << "x" << 2 << "1" << 2 << 2 << "2" << 0 << 0 << 0;
    const auto r = Read(b.data);
    ASSERT_TRUE(r.Ok);
    EXPECT_EQ(Attribute(r.Root(), "x"), u"1");
    EXPECT_EQ(r.Root()->Attributes().size(), 1u);
}

TEST_F(BinaryReader, HeaderAndEndOfInput) {
    EXPECT_FALSE(Read(std::string("BXML\x03\x00\x01\x01"
                                  "a\x00\x00\x00",
                                  12))
                     .Ok);
    EXPECT_FALSE(Read("BXML").Ok);

    // Cut off inside a string: false, and the part read stays.
    Bytes cut;
    cut << NewForm() << 1 << 1 << "r" << 0 << 0 << 2 << 1 << "c" << 0 << 20 << "abc";
    const auto r = Read(cut.data);
    EXPECT_FALSE(r.Ok);
    ASSERT_NE(r.Root(), nullptr);
    EXPECT_EQ(r.Root()->Name(), "r");
    EXPECT_EQ(r.Root()->Children().size(), 1u);

    // Bytes behind the root are not looked at.
    Bytes tail;
    tail << NewForm() << 1 << 1 << "a" << 0 << 0 << 0 << "garbage";
    EXPECT_TRUE(Read(tail.data).Ok);
}

TEST_F(BinaryReader, HostileLengthsAndCountsStayWithinTheInput) {
    // A text length of almost 2 GiB and a name length of 4 GiB in a tiny input.
    Bytes text;
    text << NewForm() << 1 << 1 << "a" << 0 << 0xfe << 0xff << 0xff << 0xff << 0x0f << "x";
    EXPECT_FALSE(Read(text.data).Ok);
    Bytes name;
    name << NewForm() << 1 << 0xff << 0xff << 0xff << 0xff << 0x0f << "a";
    EXPECT_FALSE(Read(name.data).Ok);
    // A text count of 0 in the old form: the assertion, then children until the input ends.
    Bytes zero;
    zero << OldForm() << 1 << 1 << "a" << 0 << 0 << 0;
    EXPECT_FALSE(Read(zero.data).Ok);
    EXPECT_EQ(Fired().front(), "textCount");
    // A number that never ends.
    EXPECT_FALSE(Read(NewForm() + std::string(100000, '\xff')).Ok);
}

TEST_F(BinaryReader, DeepNestingFailsCleanly) {
    Bytes deep;
    deep << NewForm() << 1 << 1 << "a" << 0 << 0;
    for (int i = 0; i < 1000000; ++i) {
        deep << 1 << 0 << 0;  // child "a", no attributes, empty text
    }
    EXPECT_FALSE(Read(deep.data).Ok);

    Bytes old;
    old << OldForm() << 1 << 1 << "a" << 0 << 2 << 0;
    for (int i = 0; i < 1000000; ++i) {
        old << 1 << 0 << 2 << 0;
    }
    EXPECT_FALSE(Read(old.data).Ok);
}

}  // namespace

namespace {

// A chain of `levels` nested elements "a" in each form.
std::string NestedText(int levels) {
    std::string out;
    for (int i = 0; i < levels; ++i) out += "<a>";
    for (int i = 0; i < levels; ++i) out += "</a>";
    return out;
}
std::string NestedNew(int levels) {
    Bytes b;
    b << NewForm() << 1 << 1 << "a" << 0 << 0;
    for (int i = 1; i < levels; ++i) b << 1 << 0 << 0;
    for (int i = 1; i < levels; ++i) b << 0 << 0;  // end of children, then the parent's text
    b << 0;                                         // end of the root's children
    return b.data;
}
std::string NestedOld(int levels) {
    Bytes b;
    b << OldForm() << 1 << 1 << "a" << 0 << (levels > 1 ? 2 : 1) << 0;
    for (int i = 1; i < levels; ++i) b << 1 << 0 << (i + 1 < levels ? 2 : 1) << 0;
    for (int i = 1; i < levels; ++i) b << 0;  // the text behind each child
    return b.data;
}

TEST(NestingBound, IsTheSameInEveryForm) {
    const int limit = static_cast<int>(Xml::kMaxXmlDepth);
    EXPECT_TRUE(Read(NestedText(limit)).Ok);
    EXPECT_FALSE(Read(NestedText(limit + 1)).Ok);
    EXPECT_TRUE(Read(NestedOld(limit)).Ok);
    EXPECT_FALSE(Read(NestedOld(limit + 1)).Ok);
    EXPECT_TRUE(Read(NestedNew(limit)).Ok);
    EXPECT_FALSE(Read(NestedNew(limit + 1)).Ok);
}

}  // namespace

namespace {

// Counts the reads that reach it. It holds on to `bytes`, as its base does.
class CountingFile : public File::buf_ifile<char> {
public:
    explicit CountingFile(const std::string& bytes) : buf_ifile(bytes.data(), bytes.size()) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        ++reads_;
        return buf_ifile::Read(buffer, count, read);
    }
    std::uint64_t reads_ = 0;
};

// A revision 2 document of `children` elements, each with an attribute and a text that
// straddle the reader's blocks.
std::string ManyChildren(int children) {
    Bytes b;
    b << NewForm() << 1 << 1 << "r" << 0 << 0;  // the root: no attributes, empty text
    for (int i = 0; i < children; ++i) {
        const std::string value = "v" + std::to_string(i);
        const std::string text = "text " + std::to_string(i);
        b << 2;
        if (i == 0) {
            b << 1 << "c";  // names are spelled out at their first use only
        }
        b << 3;
        if (i == 0) {
            b << 1 << "a";
        }
        b << static_cast<int>(value.size() * 2) << value << 0;  // one attribute
        b << static_cast<int>(text.size() * 2) << text << 0;    // its text, no children
        b << 0;                                                 // empty text behind it
    }
    b << 0;
    return b.data;
}

TEST_F(BinaryReader, InputIsReadInBlocks) {
    const std::string document = ManyChildren(20000);
    ASSERT_GT(document.size(), 3u * 65536u);
    {
        CountingFile file(document);
        Xml::XmlDocument tree;
        std::uint32_t line = 0, column = 0;
        ASSERT_TRUE(Xml::ReadDocument(tree, file, line, column));
        const auto& children = tree.Root()->Children();
        ASSERT_EQ(children.size(), 20000u);
        EXPECT_EQ(Attribute(children[12345], "a"), u"v12345");
        EXPECT_EQ(Text(children[19999]), u"text 19999");
        // Not a read per byte: a handful of block reads for a document of 300 KiB.
        EXPECT_LT(file.reads_, 16u);
    }

    // Cut anywhere, at a block's edge too, the document fails with the file's own
    // end-of-file error.
    for (const std::size_t cut : {std::size_t{7}, std::size_t{65535}, std::size_t{65536 + 6},
                                  std::size_t{65537 + 6}, document.size() - 1}) {
        SCOPED_TRACE(cut);
        const std::string cutDocument = document.substr(0, cut);
        CountingFile file(cutDocument);
        Xml::XmlDocument tree;
        std::uint32_t line = 0, column = 0;
        EXPECT_FALSE(Xml::ReadDocument(tree, file, line, column));
        EXPECT_EQ(file.GetError().Code(), 0x40002u);
    }
}

}  // namespace
