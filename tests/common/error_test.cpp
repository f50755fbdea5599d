#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/error_record.h"

namespace {

using Common::Error;

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
    e.Head()->Ops->GetText(e.Head(), text);
    EXPECT_EQ(text, u"Access is denied.");
    // The record holds only the header and its one slot: the text was not copied.
    EXPECT_EQ(e.Head()->Size, sizeof(Common::ErrorRecord) + 8);
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
}

TEST(ErrorCause, SecondCauseReplacesTheFirstOnUnsharedHead) {
    Error e(TL_ORIGIN("F"), 1);
    const Common::ErrorRecord* head = e.Head();
    e.AddCause(Error(TL_ORIGIN("F"), 2));
    e.AddCause(Error(TL_ORIGIN("F"), 3));
    EXPECT_EQ(e.Head(), head);  // changed in place
    EXPECT_EQ(e.Cause().Code(), 3u);
    EXPECT_TRUE(e.Cause().Cause().Empty());
}

TEST(ErrorCause, SharedHeadIsCopiedAndOtherOwnersKeepTheirView) {
    Error first(TL_ORIGIN("F"), 1, u"head");
    first.AddCause(Error(TL_ORIGIN("F"), 2));
    Error second = first;
    second.AddCause(Error(TL_ORIGIN("F"), 3));
    EXPECT_NE(first.Head(), second.Head());
    EXPECT_EQ(first.Cause().Code(), 2u);
    EXPECT_EQ(second.Cause().Code(), 3u);
    EXPECT_EQ(second.Text(), u"head");
    EXPECT_EQ(first.Head()->RefCount.load(), 1u);
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

TEST(ErrorDetach, RebuildsAsGeneric) {
    Error e(TL_ORIGIN("F"), 3, u"t");
    const Common::RecordOps* before = e.Head()->Ops;
    e.Detach();
    EXPECT_NE(e.Head()->Ops, before);
    EXPECT_EQ(e.Text(), u"t");
    Error none;
    none.Detach();
    EXPECT_TRUE(none.Empty());
}

TEST(ErrorOutOfMemory, StaticRecordIsNeverFreed) {
    Common::ErrorRecord* r = Common::OutOfMemoryRecord();
    const Error e = Error::Adopt(r);
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
