#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/error_record.h"
#include "platform/posix_errors.h"

namespace {

using Common::Error;

const Common::ErrorRecord* Head(const Error& e) {
    return Common::Detail::ErrorAccess::Head(e);
}

std::string Narrow(const std::u16string& s) {
    return std::string(s.begin(), s.end());
}

TEST(ErrorConstruction, CodeZeroGivesSuccessWhateverTheKind) {
    EXPECT_TRUE(Error(TL_ORIGIN("f"), 0).Empty());
    EXPECT_TRUE(Error(TL_ORIGIN("f"), 0, u"text").Empty());
    EXPECT_TRUE(Error::WithPath(TL_ORIGIN("f"), 0, u"t", u"p").Empty());
    EXPECT_TRUE(Error().Succeeded());
    EXPECT_EQ(Common::ErrorSuccess.Code(), 0u);
}

TEST(ErrorConstruction, KindsAnswerTheirParameters) {
    const Error path = Error::WithFunctionAndPath(TL_ORIGIN("F"), 0x40007, u"open failed",
                                                  "CreateFileW", u"C:\\x");
    EXPECT_STREQ(path.GetNames(), "function,path,$module");
    EXPECT_STREQ(path.GetAnsi("function"), "CreateFileW");
    EXPECT_EQ(std::u16string(path.GetWide("path")), u"C:\\x");
    EXPECT_EQ(path.GetWide("function"), nullptr);
    EXPECT_STREQ(path.GetAnsi("$module"), "tessel_link_vsa64_42582");
    EXPECT_EQ(path.Text(), u"open failed");

    const Error hints = Error::WithPathAndHints(TL_ORIGIN("F"), 7, u"p", 42);
    EXPECT_STREQ(hints.GetNames(), "Path,Hints,$module");
    EXPECT_EQ(hints.GetNumber("Hints"), 42u);
    EXPECT_TRUE(hints.Text().empty());

    const Error narrow(TL_ORIGIN("F"), 9, "caf\xe9");
    EXPECT_EQ(narrow.Text(), u"caf\u00e9");

    const Error ordinal = Error::DelayLoadOrdinal(TL_ORIGIN("F"), 0x140fa3, "x.dll", 17);
    EXPECT_STREQ(ordinal.GetAnsi("path"), "x.dll");
    EXPECT_EQ(ordinal.GetNumber("function"), 17u);
    EXPECT_EQ(Error::Errno(TL_ORIGIN("F"), 20, 11).GetNumber("Errno"), 11u);
}

TEST(ErrorConstruction, MessageTableTextIsHeldByPointer) {
    const char16_t* row = Common::GetMessageRow(13);
    ASSERT_NE(row, nullptr);
    const Error e(TL_ORIGIN("F"), 5, row);
    std::u16string text;
    Head(e)->Ops->GetText(Head(e), text);
    EXPECT_EQ(text, u"Access is denied.");
    // The record holds only the header and its one slot: the text was not copied.
    EXPECT_EQ(Head(e)->Size, sizeof(Common::ErrorRecord) + 8);
}

TEST(ErrorSystem, StoredValues) {
    Error a(TL_ORIGIN("F"), 1);
    a.AddWindowsError(0);
    EXPECT_EQ(a.Cause().GetNumber("code"), 0u);
    a.AddWindowsError(5);
    EXPECT_EQ(a.Cause().GetNumber("code"), 0x80070005u);
    EXPECT_EQ(a.Cause().Code(), Error::kSystemCode);
    EXPECT_EQ(a.Cause().Text(), u"Access is denied");
    a.AddWindowsError(-3);
    EXPECT_EQ(a.Cause().GetNumber("code"), 0xfffffffdu);
    a.AddHResult(0x80004005u);
    EXPECT_EQ(a.Cause().GetNumber("code"), 0x80004005u);
    a.AddNTStatus(0xC0000022u);
    EXPECT_EQ(a.Cause().GetNumber("code"), 0xD0000022u);
    // The NT text keeps its line feed, and so its full stop.
    EXPECT_EQ(Narrow(a.Cause().Text()),
              "{Access Denied}\nA process has requested access to an object, but has not been "
              "granted those access rights.");
    EXPECT_STREQ(a.Cause().Origin().Func, "Common::Error::AddNTStatus");
    // The file is named by its place in the tree, whichever build directory (and whether
    // ccache, which hands the compiler relative paths) made it: its line tags stay the same.
    EXPECT_STREQ(a.Cause().Origin().File, "src/common/error.cpp");
    EXPECT_EQ(a.Cause().Origin().LineTag - a.Cause().Origin().Line,
              Common::LineTagBase("src/common/error.cpp"));
}

TEST(ErrorSystem, EveryCodeTheLibraryProducesHasACleanText) {
    // The Windows errors that the file layer translates, and the others the library raises.
    const int codes[] = {0,  1,  2,   3,   5,   8,    18,   19,   21,   32,   33,   38,   39,
                         50, 53, 67,  86,  87,  112,  122,  123,  183,  1005, 1203, 1219, 1223,
                         1231, 1232, 1326, 1330, 1331, 1450};
    for (int code : codes) {
        Error e(TL_ORIGIN("F"), 1);
        e.AddWindowsError(code);
        const std::u16string text = e.Cause().Text();
        EXPECT_FALSE(text.empty()) << code;
        EXPECT_EQ(text.find(u'\r'), std::u16string::npos) << code;
        EXPECT_NE(text.back(), u'\n') << code;
    }
}

TEST(ErrorSystem, EveryTranslatedErrnoHasAText) {
    // System failures on this platform reach errors through the errno translation.
    for (int errnum = 1; errnum < 134; ++errnum) {
        const std::uint32_t code = Platform::WindowsErrorFromErrno(errnum);
        if (code != 0) {
            EXPECT_FALSE(Common::SystemMessageText(0x80070000u | code).empty())
                << "errno " << errnum << " gives " << code;
        }
    }
}

TEST(ErrorSystem, CleaningKeepsTheFullStopOfMultiLineTexts) {
    // A text with a line feed left inside keeps its final full stop.
    const std::u16string multi = Common::SystemMessageText(0x800703ed);  // 1005
    EXPECT_NE(multi.find(u'\n'), std::u16string::npos);
    EXPECT_EQ(multi.back(), u'.');
    EXPECT_EQ(Narrow(Common::SystemMessageText(0x80070070)),
              "There is not enough space on the disk");
    EXPECT_EQ(Narrow(Common::SystemMessageText(0x80004005)), "Unspecified error");
    // A raw Windows code stored by AddHResult reads like its HRESULT form.
    EXPECT_EQ(Common::SystemMessageText(5), Common::SystemMessageText(0x80070005));
    // Codes without a text of our own stay empty.
    EXPECT_TRUE(Common::SystemMessageText(0x80070000 | 9999).empty());
    EXPECT_TRUE(Common::SystemMessageText(0x1DEADBEE).empty());
}

TEST(ErrorCause, SecondCauseReplacesTheFirstOnUnsharedHead) {
    Error e(TL_ORIGIN("F"), 1);
    const Common::ErrorRecord* head = Head(e);
    e.AddCause(Error(TL_ORIGIN("F"), 2));
    e.AddCause(Error(TL_ORIGIN("F"), 3));
    EXPECT_EQ(Head(e), head);  // changed in place
    EXPECT_EQ(e.Cause().Code(), 3u);
    EXPECT_TRUE(e.Cause().Cause().Empty());
}

TEST(ErrorCause, SharedHeadIsCopiedAndOtherOwnersKeepTheirView) {
    Error first(TL_ORIGIN("F"), 1, u"head");
    first.AddCause(Error(TL_ORIGIN("F"), 2));
    Error second = first;
    second.AddCause(Error(TL_ORIGIN("F"), 3));
    EXPECT_NE(Head(first), Head(second));
    EXPECT_EQ(first.Cause().Code(), 2u);
    EXPECT_EQ(second.Cause().Code(), 3u);
    EXPECT_EQ(second.Text(), u"head");
    EXPECT_EQ(Head(first)->RefCount.load(), 1u);
}

TEST(ErrorCause, EmptyErrorBecomesTheCause) {
    Error e;
    e.AddCause(Error(TL_ORIGIN("F"), 9));
    EXPECT_EQ(e.Code(), 9u);
    Error self(TL_ORIGIN("F"), 4);
    self.AddCause(self);  // never makes a cycle
    EXPECT_EQ(self.Cause().Code(), 4u);
    EXPECT_TRUE(self.Cause().Cause().Empty());
}

TEST(ErrorRelease, LongChainReleasesWithoutRecursion) {
    Error e;
    for (int i = 0; i < 200000; ++i) {
        Error head(TL_ORIGIN("F"), 1);
        head.AddCause(e);
        e = std::move(head);
    }
    e = Error();
    SUCCEED();
}

Error SampleChain() {
    Error e = Error::WithFunctionAndPath(TL_ORIGIN("Sample::Open"), 0x40007, u"Open \u00e9 \u4e2d",
                                         "CreateFileW", u"C:\\d\u00fcr");
    Error mid = Error::Trace(TL_ORIGIN("Sample::Mid"), 0x40001, u"mid", 3);
    mid.AddWindowsError(2);
    e.AddCause(mid);
    return e;
}

TEST(ErrorSerialize, RoundTripKeepsEverythingAndBecomesGeneric) {
    const Error original = SampleChain();
    const std::vector<unsigned char> bytes = original.Serialize();
    ASSERT_EQ(bytes[0], 0x01);
    const Error copy = Error::Deserialize(bytes.data(), bytes.size());

    Error a = original, b = copy;
    int depth = 0;
    for (; !a.Empty(); a = a.Cause(), b = b.Cause(), ++depth) {
        ASSERT_FALSE(b.Empty());
        EXPECT_EQ(a.Code(), b.Code());
        EXPECT_EQ(a.Origin().LineTag, b.Origin().LineTag);
        EXPECT_EQ(a.Text(), b.Text());
        EXPECT_STREQ(a.GetNames(), b.GetNames());
        EXPECT_STREQ(a.Origin().Func, b.Origin().Func);
        EXPECT_STREQ(a.Origin().File, b.Origin().File);
        EXPECT_EQ(a.Origin().Line, b.Origin().Line);
    }
    EXPECT_EQ(depth, 3);
    EXPECT_TRUE(b.Empty());
    EXPECT_STREQ(copy.GetAnsi("function"), "CreateFileW");
    EXPECT_EQ(std::u16string(copy.GetWide("path")), u"C:\\d\u00fcr");
    EXPECT_EQ(copy.Cause().GetNumber("TraceLevel"), 3u);
    EXPECT_EQ(copy.Cause().Cause().GetNumber("code"), 0x80070002u);
    // A generic record serializes to the same bytes again.
    EXPECT_EQ(copy.Serialize(), bytes);
}

TEST(ErrorSerialize, LongTextsOfEveryEncodedLength) {
    // Texts are encoded in pieces; cover every way a sequence can meet a piece's end.
    for (const std::u16string unit : {u"a", u"\u00e9", u"\u4e2d", u"\U0001F600"}) {
        std::u16string text;
        for (int length = 0; length < 140; ++length) {
            text += unit;
            const Error e(TL_ORIGIN("F"), 1, text.c_str());
            const std::vector<unsigned char> bytes = e.Serialize();
            EXPECT_EQ(Error::Deserialize(bytes.data(), bytes.size()).Text(), text)
                << text.size();
        }
    }
    // A lone surrogate becomes U+FFFD on the wire.
    const Error lone(TL_ORIGIN("F"), 1, u"x\xd800y");
    const std::vector<unsigned char> bytes = lone.Serialize();
    EXPECT_EQ(Error::Deserialize(bytes.data(), bytes.size()).Text(), u"x\ufffdy");
}

TEST(ErrorSerialize, ByteLayoutOfAPlainRecord) {
    const Error e(Common::ErrorOrigin{0x1122334455667788ull, nullptr, nullptr, 0}, 0x9c0004);
    const std::vector<unsigned char> bytes = e.Serialize();
    const unsigned char expected[] = {
        0x01, 0x04, 0x00, 0x9c, 0x00, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,
        0x00,  // empty text
        '$', 'm', 'o', 'd', 'u', 'l', 'e', 0, 'A',
        't', 'e', 's', 's', 'e', 'l', '_', 'l', 'i', 'n', 'k', '_', 'v', 's', 'a', '6', '4',
        '_', '4', '2', '5', '8', '2', 0,
        0x00,  // end of record
    };
    EXPECT_EQ(bytes, std::vector<unsigned char>(std::begin(expected), std::end(expected)));
}

TEST(ErrorSerialize, ByteLayoutOfParametersAndOrigin) {
    const Error e = Error::WithPath(
        Common::ErrorOrigin{0x0102030405060708ull, "a.cpp", "N::F", 0x21}, 0x40011,
        u"\u00e9", u"p\u4e2d");
    const std::vector<unsigned char> bytes = e.Serialize();
    std::vector<unsigned char> expected = {0x01, 0x11, 0x00, 0x04, 0x00,
                                           0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,
                                           0xc3, 0xa9, 0x00};
    const auto put = [&](std::initializer_list<unsigned char> b) {
        expected.insert(expected.end(), b);
    };
    const auto putText = [&](const char* s) {
        expected.insert(expected.end(), s, s + std::strlen(s) + 1);
    };
    putText("path");
    put({'W', 'p', 0xe4, 0xb8, 0xad, 0x00});
    putText("$module");
    put({'A'});
    putText("tessel_link_vsa64_42582");
    putText("$file");
    put({'A'});
    putText("a.cpp");
    putText("$func");
    put({'A'});
    putText("N::F");
    putText("$line");
    put({'N', 0x21, 0, 0, 0, 0, 0, 0, 0});
    put({0x00});
    EXPECT_EQ(bytes, expected);
}

TEST(ErrorSerialize, MessageTableTextTravelsAsText) {
    const Error e(TL_ORIGIN("F"), 5, Common::GetMessageRow(13));
    const std::vector<unsigned char> bytes = e.Serialize();
    const std::string wire(bytes.begin(), bytes.end());
    EXPECT_NE(wire.find(std::string("Access is denied.", 18)), std::string::npos);
    Error detached = e;
    detached.Detach();
    EXPECT_EQ(detached.Text(), u"Access is denied.");
    EXPECT_STREQ(detached.Origin().Func, "F");
}

TEST(ErrorDeserialize, RejectsBadBlocks) {
    std::vector<unsigned char> bytes = SampleChain().Serialize();
    EXPECT_TRUE(Error::Deserialize(bytes.data(), 0).Empty());
    EXPECT_TRUE(Error::Deserialize(bytes.data(), 12).Empty());
    bytes[0] = 2;
    EXPECT_TRUE(Error::Deserialize(bytes.data(), bytes.size()).Empty());
}

TEST(ErrorDeserialize, DamagedTailIsDropped) {
    const std::vector<unsigned char> bytes = SampleChain().Serialize();
    // Cut the block at every length: the chain grows record by record, and a record that is
    // cut anywhere is dropped whole.
    int previous = 0;
    for (std::size_t n = 13; n < bytes.size(); ++n) {
        int depth = 0;
        for (Error x = Error::Deserialize(bytes.data(), n); !x.Empty(); x = x.Cause()) {
            ++depth;
        }
        EXPECT_LE(depth, 2) << n;
        EXPECT_GE(depth, previous) << n;
        previous = depth;
    }
    EXPECT_EQ(previous, 2);
    const Error full = Error::Deserialize(bytes.data(), bytes.size());
    EXPECT_EQ(full.Cause().Cause().Code(), Error::kSystemCode);
}

TEST(ErrorDeserialize, MalformedParameterTypeEndsTheChain) {
    std::vector<unsigned char> bytes = Error(TL_ORIGIN("F"), 5).Serialize();
    // Change the type byte of $module from 'A' to 'Z'.
    for (std::size_t i = 0; i + 1 < bytes.size(); ++i) {
        if (bytes[i] == 'A' && bytes[i - 1] == 0 && bytes[i - 2] == 'e') {
            bytes[i] = 'Z';
            break;
        }
    }
    EXPECT_TRUE(Error::Deserialize(bytes.data(), bytes.size()).Empty());
}

TEST(ErrorDeserialize, InvalidUtf8TextIsMalformed) {
    std::vector<unsigned char> bytes = Error(TL_ORIGIN("F"), 5, u"ab").Serialize();
    bytes[13] = 0xff;
    EXPECT_TRUE(Error::Deserialize(bytes.data(), bytes.size()).Empty());
}

// A hand-made block of one record with the given parameter bytes.
std::vector<unsigned char> OneRecord(std::initializer_list<unsigned char> params) {
    std::vector<unsigned char> b = {0x01, 7, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 't', 0};
    b.insert(b.end(), params);
    return b;
}

TEST(ErrorDeserialize, GenericRecordAnswersByNameAndType) {
    const std::vector<unsigned char> b = OneRecord({
        'n', 0, 'N', 5, 0, 0, 0, 0, 0, 0, 0,       // number
        'a', 0, 'A', 'x', 0,                       // narrow
        'w', 0, 'W', 0xff, 'y', 0,                 // wide with an invalid byte
        '$', 'f', 'i', 'l', 'e', 0, 'W', 'z', 0,   // $file not narrow: a parameter
        '$', 'l', 'i', 'n', 'e', 0, 'N', 9, 0, 0, 0, 0, 0, 0, 0,
        0});
    const Error e = Error::Deserialize(b.data(), b.size());
    ASSERT_EQ(e.Code(), 7u);
    EXPECT_EQ(e.Text(), u"t");
    EXPECT_STREQ(e.GetNames(), "n,a,w,$file");
    EXPECT_EQ(e.GetNumber("n"), 5u);
    EXPECT_STREQ(e.GetAnsi("a"), "x");
    EXPECT_EQ(std::u16string(e.GetWide("w")), u"\ufffdy");
    EXPECT_EQ(std::u16string(e.GetWide("$file")), u"z");
    EXPECT_EQ(e.Origin().File, nullptr);
    EXPECT_EQ(e.Origin().Line, 9u);
    // Asked with the wrong type or an unknown name, a parameter is absent.
    EXPECT_EQ(e.GetAnsi("n"), nullptr);
    EXPECT_EQ(e.GetNumber("a"), 0u);
    EXPECT_EQ(e.GetWide("a"), nullptr);
    EXPECT_EQ(e.GetNumber("m"), 0u);
    EXPECT_EQ(e.GetAnsi("$module"), nullptr);
}

TEST(ErrorDeserialize, CutParametersDropTheRecord) {
    // A number needs eight bytes; a string its terminator; a name its type byte.
    const std::vector<std::vector<unsigned char>> cut = {
        OneRecord({'n', 0, 'N', 5, 0, 0, 0, 0, 0, 0}),
        OneRecord({'a', 0, 'A', 'x'}),
        OneRecord({'a', 0}),
        OneRecord({'a'}),
        OneRecord({'a', 0, 'A', 'x', 0}),  // no end of record
        OneRecord({'a', ',', 'b', 0, 'A', 'x', 0, 0}),  // a name that reads as two
    };
    for (const auto& b : cut) {
        EXPECT_TRUE(Error::Deserialize(b.data(), b.size()).Empty()) << b.size();
    }
}

TEST(ErrorDeserialize, ARecordKeepsItsFirst256Parameters) {
    // Every reading of all the parameters looks each up by name: a peer's record of
    // thousands would make printing or sending it take the square of their number.
    std::vector<unsigned char> entries = OneRecord({});
    for (int i = 0; i < 5000; ++i) {
        const std::string name = "p" + std::to_string(i);
        entries.insert(entries.end(), name.begin(), name.end());
        entries.insert(entries.end(), {0, 'N', static_cast<unsigned char>(i), 0, 0, 0, 0, 0, 0, 0});
    }
    entries.push_back(0);
    const Error e = Error::Deserialize(entries.data(), entries.size());
    ASSERT_EQ(e.Code(), 7u);
    const std::vector<Common::ErrorParameter> kept = e.Parameters();
    ASSERT_EQ(kept.size(), 256u);
    EXPECT_EQ(kept[255].Name, "p255");
    EXPECT_EQ(e.GetNumber("p255"), 255u);
    EXPECT_EQ(e.GetNumber("p256"), 0u);
    EXPECT_FALSE(e.ToString().empty());
}

TEST(ErrorDeserialize, CodeZeroEndsTheChain) {
    std::vector<unsigned char> b = Error(TL_ORIGIN("F"), 5).Serialize();
    const std::vector<unsigned char> second = Error(TL_ORIGIN("F"), 6).Serialize();
    b.insert(b.end(), 12, 0);  // a record header with code 0
    b.insert(b.end(), second.begin() + 1, second.end());
    const Error e = Error::Deserialize(b.data(), b.size());
    EXPECT_EQ(e.Code(), 5u);
    EXPECT_TRUE(e.Cause().Empty());
}

TEST(ErrorDeserialize, OriginStringsAreInterned) {
    const std::vector<unsigned char> b = SampleChain().Serialize();
    const Error one = Error::Deserialize(b.data(), b.size());
    const Error two = Error::Deserialize(b.data(), b.size());
    ASSERT_NE(one.Origin().Func, nullptr);
    EXPECT_EQ(one.Origin().Func, two.Origin().Func);
    EXPECT_EQ(one.Origin().File, two.Origin().File);
}

TEST(ErrorDetach, RebuildsAsGeneric) {
    Error e(TL_ORIGIN("F"), 3, u"t");
    const Common::RecordOps* before = Head(e)->Ops;
    e.Detach();
    EXPECT_NE(Head(e)->Ops, before);
    EXPECT_EQ(e.Text(), u"t");
    Error none;
    none.Detach();
    EXPECT_TRUE(none.Empty());
}

TEST(ErrorOutOfMemory, StaticRecordIsNeverFreed) {
    Common::ErrorRecord* r = Common::OutOfMemoryRecord();
    const Error e = Common::Adopt(r);
    EXPECT_EQ(e.Code(), Error::kOutOfMemoryCode);
    {
        Error copy = e;
        copy.AddCause(Error(TL_ORIGIN("F"), 2));  // shared: cloned, static record untouched
        EXPECT_EQ(copy.Cause().Code(), 2u);
    }
    EXPECT_TRUE(e.Cause().Empty());
    EXPECT_GE(r->RefCount.load(), 2u);
}

}  // namespace

namespace {

// Peers choose the origin strings of the errors they send; the set that keeps them for the
// process must not grow without end. Run in a child process, since it fills the set.
TEST(ErrorDeserializeDeathTest, OriginStringsFromPeersAreBounded) {
    ASSERT_EXIT(
        {
            std::vector<unsigned char> last;
            for (int i = 0; i < 40000; ++i) {
                const std::string file = "peer/file_" + std::to_string(i) + ".cpp";
                const Common::Error e(Common::ErrorOrigin{1, file.c_str(), "F", 7}, 5, u"t");
                last = e.Serialize();
                const Common::Error back = Common::Error::Deserialize(last.data(), last.size());
                if (back.Code() != 5 || back.Text() != u"t" || back.Origin().Line != 7) {
                    std::exit(1);
                }
            }
            // Past the bound the record still arrives whole, without the new file name.
            const Common::Error back = Common::Error::Deserialize(last.data(), last.size());
            std::exit(back.Origin().File == nullptr && back.Origin().Func != nullptr ? 0 : 2);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
