// The binary unit form: exact bytes, round trips of every kind, and hostile input that must
// end in the corruption error.

#include <tessel_link/por/binary_form.h>

#include <random>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;
using Bytes = std::vector<unsigned char>;

Bytes Written(const UnitPtr& unit) {
    Bytes bytes;
    Por::Util::WriteBlob(*unit, bytes);
    return bytes;
}

UnitPtr Read(const Bytes& bytes) {
    return Por::Util::ReadBlob(bytes, F());
}

Bytes B(std::initializer_list<int> values) {
    Bytes bytes;
    for (int v : values) {
        bytes.push_back(static_cast<unsigned char>(v));
    }
    return bytes;
}

// A tree with every kind, nesting on both axes and traits on traits.
UnitPtr EveryKind() {
    Common::Error error(TL_ORIGIN("Test::Site"), 0x40007, u"outer");
    error.AddCause(Common::Error(TL_ORIGIN("Test::Inner"), 5, u"inner"));
    return With(Comp("nil", With(Nil(), "IsEmpty"), "bool", Bool(true), "byte", Byte(0xfe), "sbyte",
                     Sbyte(-2), "word", Word(0xbeef), "sword", Sword(-300), "dword",
                     Dword(0xdeadbeef), "sdword", Sdword(-70000), "qword",
                     Qword(0x0123456789abcdefull), "sqword", Sqword(-(1ll << 60)), "double",
                     Double(-0.1), "blob", Blob({0, 1, 0xff}), "noblob", Blob({}), "guid",
                     Guid(Common::Guid{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}}),
                     "string", Str(u"caf\u00e9 \U0001F600"), "empty", Str(u""), "error", Err(error),
                     "success", Err(Common::Error()), "list",
                     Arr(Arr(), Comp(), With(Dword(1), "T", With(Str(u"t"), "TT", Nil()))),
                     Por::UnitName(u"\u00fcml").c_str(), Dword(4)),
                "Version", Qword(7));
}

TEST(BinaryForm, SmallTreesHaveTheirExactBytes) {
    EXPECT_EQ(Written(Nil()), B({'U', 0x00, 'E'}));
    EXPECT_EQ(Written(Comp()), B({'U', 'C', 'E'}));
    EXPECT_EQ(Written(Dword(0x01020304)), B({'U', 6, 4, 3, 2, 1, 'E'}));
    EXPECT_EQ(Written(Bool(true)), B({'U', 1, 1, 'E'}));
    EXPECT_EQ(Written(Str(u"\u00e9")), B({'U', 0x0d, 2, 0, 0, 0, 0xe9, 0, 'E'}));
    // A trait comes after the value, also after a composite's properties.
    EXPECT_EQ(Written(With(Comp("a", Nil()), "t")),
              B({'U', 'C',  'P', 0x0d, 2, 0, 0,   0, 'a', 0, 'U', 0,  'E',  //
                 'T', 0x0d, 2,   0,    0, 0, 't', 0, 'U', 0, 'E', 'E'}));
    EXPECT_EQ(Written(Arr(Nil(), Byte(9))), B({'U', 'A', 'U', 0, 'E', 'U', 2, 9, 'E', 'E'}));
}

TEST(BinaryForm, EveryKindSurvivesARoundTrip) {
    const UnitPtr tree = EveryKind();
    const Bytes bytes = Written(tree);
    const UnitPtr back = Read(bytes);
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*tree, *back));
    EXPECT_EQ(Written(back), bytes);
    // A scalar root, a nil root with traits, an array root.
    for (const UnitPtr& unit : [] {
             std::vector<UnitPtr> v;
             v.push_back(Double(1e300));
             v.push_back(With(With(Nil(), "a", Str(u"1")), "a", Str(u"2")));
             v.push_back(Arr(Comp("x", Arr()), Nil()));
             return v;
         }()) {
        EXPECT_TRUE(Por::Util::UnitEqual(*unit, *Read(Written(unit))));
    }
}

TEST(BinaryForm, AnEmptyBlobIsAMissingUnit) {
    EXPECT_EQ(Read({}), nullptr);
    EXPECT_EQ(Por::Util::ReadBlob(nullptr, 0, F()), nullptr);
}

TEST(BinaryForm, ABadTagNamesTheBlobAndThePositionBehindIt) {
    for (int tag : {0x0f, 0x7f}) {
        const Common::Error e = Thrown([&] {
            Read(B({'U', 'C', 'P', 0x0d, 0, 0, 0, 0, 'U', tag}));
        });
        EXPECT_EQ(e.Code(), 0xfa0021u);
        EXPECT_EQ(e.Text(), u"POR: Unit object '{0}' is corrupted at position '{1}'.");
        EXPECT_EQ(std::u16string(e.GetWide("1")), u"10");
        EXPECT_EQ(std::u16string(e.GetWide("0")),
                  tag == 0x0f ? u"5543500d00000000550f" : u"5543500d00000000557f");
    }
}

TEST(BinaryForm, MalformedStructureIsCorruption) {
    const std::vector<Bytes> bad = {
        B({0}),                                                  // no "U" first
        B({'U', 'E'}),                                           // a unit without value
        B({'U', 0, 0, 'E'}),                                     // two values
        B({'U', 0, 'E', 'E'}),                                   // bytes behind the root
        B({'U', 0, 'E', 'U', 0, 'E'}),                           // a second root
        B({'U', 'C', 'U', 0, 'E', 'E'}),                         // a unit where a property belongs
        B({'U', 'A', 'P', 0x0d, 0, 0, 0, 0, 'U', 0, 'E', 'E'}),  // a property in an array
        B({'U', 0, 'T', 0x0d, 0, 0, 0, 0, 0, 'E'}),              // a trait without "U"
        B({'U', 0, 'T', 0x02, 0, 0, 0, 0, 'U', 0, 'E', 'E'}),    // a name that is no string
        B({'U', 0, 'T', 0x0d, 1, 0, 0, 0, 'x', 'U', 0, 'E', 'E'}),  // an odd byte count
        B({'U', 0x0d, 1, 0, 0, 0, 'x', 'E'}),
        B({'U', 0x0b, 0xff, 0xff, 0xff, 0xff, 'E'}),  // a count past the end
        B({'U', 0x0e, 9, 0, 0, 0, 'E'}),
        B({'U', 0x0c, 1, 2, 3}),     // a cut GUID
        B({'U', 'A', 'U', 0, 'E'}),  // the root never ends
        // A property named twice with values of different kinds.
        B({'U', 'C',  'P', 0x0d, 0, 0, 0,   0, 'U', 1,   1,  'E',
           'P', 0x0d, 0,   0,    0, 0, 'U', 2, 1,   'E', 'E'}),
    };
    for (const Bytes& bytes : bad) {
        const Common::Error e = Thrown([&] { Read(bytes); });
        EXPECT_EQ(e.Code(), 0xfa0021u) << ::testing::PrintToString(bytes);
    }
    // The failure of the tree itself travels as the cause.
    EXPECT_EQ(Thrown([&] { Read(bad.back()); }).Cause().Code(), 0xfa0011u);
}

TEST(BinaryForm, EveryCutAndEveryChangedByteEndsCleanly) {
    const Bytes bytes = Written(EveryKind());
    for (std::size_t size = 1; size < bytes.size(); ++size) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(Thrown([&] { Read(cut); }).Code(), 0xfa0021u) << size;
    }
    std::mt19937 random(7);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        Bytes changed = bytes;
        changed[i] = static_cast<unsigned char>(changed[i] ^ (1 + random() % 255));
        try {
            Read(changed);
        } catch (const Common::Error& e) {
            EXPECT_EQ(e.Code(), 0xfa0021u) << i;
        }
    }
}

UnitPtr Nested(unsigned depth) {
    UnitPtr unit = Nil();
    for (unsigned i = 0; i < depth; ++i) {
        unit = (i % 2 == 0) ? Comp("p", std::move(unit)) : With(Nil(), "t", std::move(unit));
    }
    return unit;
}

TEST(BinaryForm, DepthIsBoundedOnBothSides) {
    const unsigned limit = Por::Util::kMaxTreeDepth;
    const Bytes deepest = Written(Nested(limit));
    EXPECT_TRUE(Por::Util::UnitEqual(*Nested(limit), *Read(deepest)));
    EXPECT_EQ(Thrown([&] { Written(Nested(limit + 1)); }).Code(), 0xfa000fu);

    // One level more, by hand: wrap the deepest blob in an array.
    Bytes deeper = B({'U', 'A'});
    deeper.insert(deeper.end(), deepest.begin(), deepest.end());
    deeper.push_back('E');
    EXPECT_EQ(Thrown([&] { Read(deeper); }).Code(), 0xfa0021u);
}

}  // namespace
