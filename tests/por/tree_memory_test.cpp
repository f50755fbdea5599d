// How trees hold their memory and what the builders keep between trees: units outliving the
// rest of their tree or their thread, trait lists beyond their inline room, the serializer's
// reused nodes and learned member orders, the blob reader's table of known names.

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/por/binary_form.h>
#include <tessel_link/por/compare.h>

#include "por/serialize/por_serializer.h"
#include "por_test_util.h"

namespace {

using namespace PorTest;
using Serialization::MetaInfo;
using Serialization::WriteScope;

// A record of the members given, in that order, each a dword of its position.
UnitPtr WriteRecord(const std::vector<std::string>& members) {
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    {
        WriteScope root(s, MetaInfo("Root"));
        for (std::size_t i = 0; i < members.size(); ++i) {
            s.Write(MetaInfo(members[i]), static_cast<std::uint32_t>(i));
        }
    }
    return result;
}

TEST(TreeMemory, UnitsOutliveTheirTreeAndTheThreadThatMadeThem) {
    // Many trees made and dropped, with one unit of each kept: the kept units stay whole
    // while the chunks around them are reused or freed.
    std::vector<UnitPtr> kept;
    for (int round = 0; round < 200; ++round) {
        UnitPtr tree = Comp("a", Str(u"a long string that does not fit inline"), "b",
                            With(Dword(static_cast<std::uint32_t>(round)), "T", Str(u"t")));
        if (round % 20 == 0) {
            kept.push_back(Por::Util::CopyUnit(*tree, F()));
        }
    }
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_TRUE(Por::Util::UnitEqual(
            *kept[i], *Comp("a", Str(u"a long string that does not fit inline"), "b",
                            With(Dword(static_cast<std::uint32_t>(i * 20)), "T", Str(u"t")))));
    }

    // Made on one thread, destroyed on another, and the other way round, while both threads
    // keep making units from their own chunks.
    std::vector<UnitPtr> made(2000);
    std::thread maker([&] {
        for (std::size_t i = 0; i < made.size(); ++i) {
            made[i] = Comp("n", Qword(i));
        }
    });
    maker.join();
    std::vector<UnitPtr> mine;
    std::thread destroyer([&] {
        for (std::size_t i = 0; i < made.size(); ++i) {
            const Por::View::Unit& n = Por::Util::GetProperty(*made[i], Por::UnitName("n"))->GetUnit();
            EXPECT_EQ(ValueOf<std::uint64_t>(n), i);
            made[i].reset();
            if (i % 100 == 0) {
                mine.push_back(Str(u"made on the second thread"));
            }
        }
    });
    destroyer.join();
    for (const UnitPtr& unit : mine) {
        EXPECT_EQ(ValueOf<std::u16string>(*unit), u"made on the second thread");
    }
}

TEST(TreeMemory, TraitListsGrowPastTheirInlineRoomAndStayOrdered) {
    UnitPtr unit = Nil();
    for (const char* name : {"e", "d", "c", "b", "a"}) {
        Por::Util::AddTrait(*unit, Por::UnitName(name), Str(u"x"), F());
    }
    // An equal trait is dropped; one of the same name with another unit is kept beside it.
    Por::Util::AddTrait(*unit, Por::UnitName("c"), Str(u"x"), F());
    Por::Util::AddTrait(*unit, Por::UnitName("c"), Str(u"a"), F());
    EXPECT_EQ(TraitNames(*unit), (std::vector<std::string>{"a", "b", "c", "c", "d", "e"}));
    EXPECT_EQ(unit->GetTraits().Remove(Por::UnitName("c")), 2u);
    EXPECT_EQ(unit->GetTraits().Remove(Por::UnitName("a")), 1u);
    EXPECT_EQ(TraitNames(*unit), (std::vector<std::string>{"b", "d", "e"}));
    EXPECT_EQ(Por::Util::Compare(*unit, *With(With(With(Nil(), "e", Str(u"x")), "d", Str(u"x")),
                                              "b", Str(u"x"))),
              0);
}

TEST(TreeMemory, RecordsOfSeveralTypesInTurnKeepTheirOwnMemberOrder) {
    const std::vector<std::string> first{"Zeta", "Alpha", "Mid", "Beta"};
    const std::vector<std::string> second{"Beta", "Zeta", "Alpha"};
    const std::vector<std::string> repeated{"b", "a", "b"};  // a later member replaces an earlier one
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(Por::Util::UnitEqual(
            *WriteRecord(first), *Comp("Alpha", Dword(1), "Beta", Dword(3), "Mid", Dword(2), "Zeta", Dword(0))));
        EXPECT_TRUE(Por::Util::UnitEqual(*WriteRecord(second),
                                         *Comp("Alpha", Dword(2), "Beta", Dword(0), "Zeta", Dword(1))));
        EXPECT_TRUE(Por::Util::UnitEqual(*WriteRecord(repeated), *Comp("a", Dword(1), "b", Dword(2))));
        EXPECT_EQ(PropertyNames(*WriteRecord(repeated)), (std::vector<std::string>{"a", "b"}));
    }
    // A name that came after another one last time, now followed by a different one.
    EXPECT_TRUE(Por::Util::UnitEqual(*WriteRecord({"Zeta", "Alpha", "Other", "Beta"}),
                                     *Comp("Alpha", Dword(1), "Beta", Dword(3), "Other", Dword(2),
                                           "Zeta", Dword(0))));
}

TEST(TreeMemory, ASerializerLeftInTheMiddleHandsCleanNodesToTheNext) {
    {
        UnitPtr abandoned;
        Por::Serialization::PORSerializer s(F(), abandoned);
        s.BeginWriteMetaInfo(MetaInfo("Root"));
        s.BeginWriteMetaInfo(MetaInfo("vector"));
        s.Write(MetaInfo("item"), std::uint32_t{7});
        s.BeginWriteMetaInfo(MetaInfo("Inner"));
        s.Write(MetaInfo("x"), true);
        // Destroyed with three elements open.
    }
    UnitPtr result;
    Por::Serialization::PORSerializer s(F(), result);
    s.BeginWriteMetaInfo(MetaInfo("Root"));
    s.BeginWriteMetaInfo(MetaInfo("List"));
    s.BeginWriteMetaInfo(MetaInfo("vector"));
    s.FinishWriteMetaInfo(MetaInfo("vector"));
    s.FinishWriteMetaInfo(MetaInfo("List"));
    s.Write(MetaInfo("y"), false);
    s.FinishWriteMetaInfo(MetaInfo("Root"));
    ASSERT_NE(result, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(
        *result, *Comp("List", With(Arr(), "IsContainer", Str(u"vector")), "y", Bool(false))));
}

TEST(TreeMemory, BlobNamesThatShareTheirLowBytesStayApart) {
    // "A" and U+0141 differ only in the high byte of their one unit, and names of equal
    // length and equal first, middle and last letters: the reader's table must tell them
    // apart by their whole text.
    const std::string other = "\xc5\x81";  // U+0141 in UTF-8
    UnitPtr tree = Comp("A", Dword(1), other, Dword(2), "Version", Dword(3), "Enabled",
                        Arr(Comp("A", Dword(4), other, Dword(5)), Comp("A", Dword(6), other, Dword(7))));
    std::vector<unsigned char> bytes;
    Por::Util::WriteBlob(*tree, bytes);
    const UnitPtr back = Por::Util::ReadBlob(bytes, F());
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(Por::Util::UnitEqual(*back, *tree));
    std::vector<unsigned char> again;
    Por::Util::WriteBlob(*back, again);
    EXPECT_EQ(again, bytes);
}

}  // namespace
