// A binary document gives the same tree whichever way its bytes arrive: read in place from
// memory, in blocks, or a few bytes per read; and its texts decode as the plain decoder
// decodes them, at every length and with NULs and broken sequences anywhere.

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/unicode.h>
#include <tessel_link/file/memory_file.h>
#include <tessel_link/xml/xml_tag.h>

#include "binary_packet.h"

namespace {

// One element as the test expects to find it in the tree.
struct Element {
    std::string Name;
    std::vector<std::pair<std::string, std::string>> Attributes;  // raw bytes, in order
    std::vector<std::string> Texts;  // raw bytes, one more than children
    std::vector<Element> Children;
};

// The bytes of a literal, NULs included.
template <std::size_t N>
std::string Raw(const char (&bytes)[N]) {
    return std::string(bytes, N - 1);
}

// What the reader makes of the raw bytes of a text: up to the first NUL, leniently decoded.
std::u16string TextAsRead(std::string_view bytes) {
    return Common::Utf8ToUtf16Lenient(bytes.substr(0, bytes.find('\0')));
}

// Writes elements in either binary form.
class Encoder {
public:
    explicit Encoder(int revision) : writer_(revision) {}
    std::string Encode(const Element& root) {
        Write(root);
        return writer_.Bytes();
    }

private:
    void Write(const Element& e) {
        const bool old = writer_.Revision() == 1;
        writer_.Name(e.Name);
        if (old) {
            writer_.Byte(static_cast<unsigned char>(e.Attributes.size()));
        }
        for (const auto& [name, value] : e.Attributes) {
            writer_.Name(name);
            writer_.Text(value);
        }
        writer_.Number(old ? static_cast<std::uint32_t>(e.Texts.size()) : 0);
        writer_.Text(e.Texts[0]);
        for (std::size_t i = 0; i < e.Children.size(); ++i) {
            Write(e.Children[i]);
            writer_.Text(e.Texts[i + 1]);
        }
        if (!old) {
            writer_.Number(0);
        }
    }

    packet_test::BinaryWriter writer_;
};

// Texts that exercise the decoder: every length up to a few chunks of sixteen, ASCII with a
// NUL, a byte of a longer sequence, or a broken sequence at any place.
std::string RandomText(std::mt19937& random) {
    const int length = static_cast<int>(random() % 70);
    std::string text;
    while (static_cast<int>(text.size()) < length) {
        const unsigned pick = random() % 100;
        if (pick < 80) {
            text += static_cast<char>('a' + random() % 26);
        } else if (pick < 83) {
            text += '\0';
        } else if (pick < 90) {
            text += "\xC3\xA9";  // two bytes
        } else if (pick < 94) {
            text += "\xE2\x82\xAC";  // three bytes
        } else if (pick < 97) {
            text += "\xF0\x9F\x98\x80";  // four bytes, two units
        } else {
            text += static_cast<char>(0x80 + random() % 0x80);  // broken
        }
    }
    return text;
}

Element RandomElement(std::mt19937& random, const std::vector<std::string>& names, int depth) {
    Element e;
    e.Name = names[random() % names.size()];
    const int attributes = static_cast<int>(random() % 4);
    for (int i = 0; i < attributes; ++i) {
        e.Attributes.emplace_back(names[random() % names.size()], RandomText(random));
    }
    const int children = depth < 4 ? static_cast<int>(random() % 6) : 0;
    e.Texts.push_back(RandomText(random));
    for (int i = 0; i < children; ++i) {
        e.Children.push_back(RandomElement(random, names, depth + 1));
        e.Texts.push_back(RandomText(random));
    }
    return e;
}

void ExpectTagMatches(const Element& expected, const Xml::XmlTag* tag) {
    ASSERT_NE(tag, nullptr);
    ASSERT_EQ(tag->Name(), expected.Name);
    std::map<std::string, std::u16string> attributes;  // a repeated name keeps the first
    for (const auto& [name, value] : expected.Attributes) {
        attributes.emplace(name, TextAsRead(value));
    }
    ASSERT_EQ(tag->Attributes().size(), attributes.size()) << expected.Name;
    for (const auto& [name, value] : attributes) {
        const auto found = tag->Attributes().Find(name);
        ASSERT_TRUE(found.has_value()) << name;
        EXPECT_EQ(std::u16string(*found), value) << name;
    }
    ASSERT_EQ(tag->Children().size(), expected.Children.size());
    for (std::size_t i = 0; i < expected.Texts.size(); ++i) {
        EXPECT_EQ(std::u16string(tag->Text()[i]), TextAsRead(expected.Texts[i])) << expected.Name;
    }
    for (std::size_t i = 0; i < expected.Children.size(); ++i) {
        ExpectTagMatches(expected.Children[i], tag->Children()[i]);
    }
}

// A file that is not in memory as far as the reader can tell, handing out at most `most`
// bytes per read.
class Trickle : public File::memory_file {
public:
    Trickle(const std::string& bytes, std::uint64_t most)
        : memory_file(std::vector<unsigned char>(bytes.begin(), bytes.end())), most_(most) {}
    bool Read(void* buffer, std::uint64_t count, std::uint64_t& read) override {
        return memory_file::Read(buffer, std::min(count, most_), read);
    }

private:
    std::uint64_t most_;
};

struct Outcome {
    bool Ok = false;
    std::uint32_t FileError = 0;
    Xml::XmlDocument Document;
};

Outcome ReadFrom(File::i_file& file) {
    Outcome outcome;
    std::uint32_t line = 0, column = 0;
    outcome.Ok = Xml::ReadDocument(outcome.Document, file, line, column);
    outcome.FileError = file.GetError().Code();
    return outcome;
}

// The document read three ways: in place, in whole blocks, and a few bytes at a time.
std::vector<Outcome> ReadEveryWay(const std::string& bytes) {
    std::vector<Outcome> outcomes;
    {
        // An exact copy on the heap: reading a byte beyond it is caught by the sanitizers.
        const std::unique_ptr<char[]> exact(new char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        File::buf_ifile<char> file(exact.get(), bytes.size());
        outcomes.push_back(ReadFrom(file));
    }
    Trickle blocks(bytes, ~std::uint64_t{0});
    outcomes.push_back(ReadFrom(blocks));
    Trickle trickle(bytes, 7);
    outcomes.push_back(ReadFrom(trickle));
    return outcomes;
}

TEST(BinaryFormInput, RandomDocumentsReadAlikeEveryWay) {
    std::mt19937 random(20261126);
    // More names than the reader's table of small numbers holds, so that both of its ways of
    // resolving a number are taken.
    std::vector<std::string> names;
    for (int i = 0; i < 1500; ++i) {
        names.push_back("n" + std::to_string(i));
    }
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        Element root;
        root.Name = "root";
        root.Texts.push_back(RandomText(random));
        for (int i = 0; i < 60; ++i) {
            root.Children.push_back(RandomElement(random, names, 1));
            root.Texts.push_back(RandomText(random));
        }
        for (const int revision : {1, 2}) {
            SCOPED_TRACE(revision);
            const std::string bytes = Encoder(revision).Encode(root);
            for (const Outcome& outcome : ReadEveryWay(bytes)) {
                ASSERT_TRUE(outcome.Ok);
                ExpectTagMatches(root, outcome.Document.Root());
            }
        }
    }
}

TEST(BinaryFormInput, TextsAtTheVeryEndOfTheInput) {
    // The last text of the input, of every short length, with nothing readable behind it:
    // the document is cut there, so every read fails, yet the texts decode exactly.
    for (std::size_t length = 0; length < 40; ++length) {
        SCOPED_TRACE(length);
        std::string text(length, 'x');
        if (length > 3) {
            text[length - 2] = '\xC3';  // a sequence cut short by the end of the text
        }
        std::string bytes = Raw("BXML\x02\x00");
        bytes += Raw("\x01\x01r\x00");           // <r>, no attributes
        bytes += static_cast<char>(length * 2);  // its text item
        bytes += text;
        for (const Outcome& outcome : ReadEveryWay(bytes)) {
            EXPECT_FALSE(outcome.Ok);
            EXPECT_EQ(outcome.FileError, 0x40002u);
            ASSERT_NE(outcome.Document.Root(), nullptr);
            EXPECT_EQ(std::u16string(outcome.Document.Root()->Text()[0]), TextAsRead(text));
        }
    }
}

TEST(BinaryFormInput, EveryCutFailsAlikeEveryWay) {
    std::mt19937 random(7);
    std::vector<std::string> names = {"a", "bb", "ccc"};
    Element root = RandomElement(random, names, 1);
    root.Children.push_back(RandomElement(random, names, 2));
    root.Texts.push_back("tail");
    const std::string bytes = Encoder(2).Encode(root);
    for (std::size_t cut = 6; cut < bytes.size(); ++cut) {
        SCOPED_TRACE(cut);
        const auto outcomes = ReadEveryWay(bytes.substr(0, cut));
        for (const Outcome& outcome : outcomes) {
            EXPECT_FALSE(outcome.Ok);
            EXPECT_EQ(outcome.FileError, 0x40002u);
        }
        // The part read before the cut is the same tree whichever way it arrived.
        const Xml::XmlTag* first = outcomes[0].Document.Root();
        for (const Outcome& outcome : outcomes) {
            const Xml::XmlTag* other = outcome.Document.Root();
            ASSERT_EQ(first == nullptr, other == nullptr);
            if (first != nullptr) {
                EXPECT_EQ(first->Name(), other->Name());
                EXPECT_EQ(first->Children().size(), other->Children().size());
                EXPECT_EQ(std::u16string(first->Text()[0]), std::u16string(other->Text()[0]));
            }
        }
    }
}

TEST(BinaryFormInput, MemoryIsReadFromItsPositionAndLeftBehindTheRoot) {
    const std::string document = Raw("BXML\x02\x00\x01\x01" "a" "\x00\x02" "t\x00");
    const std::string bytes = "junk" + document + "behind";
    File::buf_ifile<char> file(bytes.data(), bytes.size());
    file.Seek(4);
    Xml::XmlDocument tree;
    std::uint32_t line = 0, column = 0;
    ASSERT_TRUE(Xml::ReadDocument(tree, file, line, column));
    EXPECT_EQ(tree.Root()->Name(), "a");
    EXPECT_EQ(std::u16string(tree.Root()->Text()[0]), u"t");
    EXPECT_EQ(file.Position(), 4 + document.size());
}

TEST(BinaryFormInput, LongNumbersWrapAsTheyAlwaysHave) {
    // A name reference of seven groups: the groups beyond the fifth fold into the low bits.
    // Written whole and split over reads, it names the same element.
    std::string bytes = Raw("BXML\x02\x00");
    bytes += Raw("\x81\x80\x80\x80\x80\x82\x00");  // 1 | (2 << 35 folded to 2 << 3) = 17
    bytes += Raw("\x01z\x00\x00\x00");
    for (const Outcome& outcome : ReadEveryWay(bytes)) {
        ASSERT_TRUE(outcome.Ok);
        EXPECT_EQ(outcome.Document.Root()->Name(), "z");
    }
}

}  // namespace
