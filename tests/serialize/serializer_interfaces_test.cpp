#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/common/trace.h>
#include <tessel_link/serialize/errors.h>
#include <tessel_link/serialize/meta_info.h>
#include <tessel_link/impl/serialize/scope_guards.h>
#include <tessel_link/serialize/xml_packet_serializer.h>

namespace {

using Serialization::MetaInfo;
using Serialization::MetaInfoTraits;

TEST(MetaInfoEquality, NameAndTraitsDecideNothingElse) {
    MetaInfo a("Name");
    MetaInfo b("Name", true);
    b.Version = 7;
    b.Category = 3;
    b.CategoryVersion = 9;
    EXPECT_EQ(a, b);
    EXPECT_FALSE(a == MetaInfo("name"));
    EXPECT_FALSE(a == MetaInfo(std::string("Name\0", 5)));
}

TEST(MetaInfoEquality, NullTraitListNeverEqualsAPresentOne) {
    const auto empty = std::make_shared<const MetaInfoTraits>();
    const auto one =
        std::make_shared<const MetaInfoTraits>(MetaInfoTraits{{"Obscured", "NilValue", ""}});
    const auto same =
        std::make_shared<const MetaInfoTraits>(MetaInfoTraits{{"Obscured", "NilValue", ""}});
    const MetaInfo plain("P");
    EXPECT_FALSE(plain == MetaInfo("P", Serialization::kNoTraits, empty));
    EXPECT_FALSE(plain == MetaInfo("P", empty, Serialization::kNoTraits));
    EXPECT_FALSE(MetaInfo("P", nullptr, empty) == MetaInfo("P", empty, nullptr));
    // Lists compare by content, not by identity; a copy shares the vectors.
    EXPECT_EQ(MetaInfo("P", nullptr, one), MetaInfo("P", nullptr, same));
    EXPECT_FALSE(MetaInfo("P", nullptr, one) == MetaInfo("P", nullptr, empty));
    const MetaInfo copy = MetaInfo("P", nullptr, one);
    EXPECT_EQ(copy.MemberTraits.get(), one.get());
}

TEST(SerializerErrors, CodesCarryTheirTexts) {
    const Common::Error inconsistent =
        Serialization::SerializerError(TL_ORIGIN("Serialization::Test"), 0x9c0002);
    EXPECT_EQ(inconsistent.Code(), 0x9c0002u);
    EXPECT_EQ(inconsistent.Text().rfind(u"Cannot deserialize the object. The object's metadata is "
                                        u"inconsistent.",
                                        0),
              0u);
    EXPECT_STREQ(inconsistent.Origin().Func, "Serialization::Test");
    EXPECT_EQ(Serialization::SerializerError(TL_ORIGIN("f"), 0x9c0003).Text(),
              u"Cannot find the object's meta info.");
    EXPECT_EQ(Serialization::SerializerError(TL_ORIGIN("f"), 0x9c0004).Text(),
              u"SERIALIZER_ERROR_NO_DATA");
    EXPECT_EQ(Serialization::SerializerError(TL_ORIGIN("f"), 0x9c0005).Text(),
              u"Failed to create the object.");
    EXPECT_EQ(Serialization::SerializerError(TL_ORIGIN("f"), 0x9c0006).Text(),
              u"No factory has been found.");
    EXPECT_EQ(Serialization::SerializerError(TL_ORIGIN("f"), 0x9c0008).Text(),
              u"Invalid enum value: ");
}

// A writer whose finish fails on demand.
class FailingFinish : public Serialization::XMLPacketSerializer {
public:
    enum class Mode { None, Error, Other };
    FailingFinish() : XMLPacketSerializer(2, 0) {}
    void FinishWriteMetaInfo(const MetaInfo& meta) override {
        ++finishes;
        if (mode == Mode::Error) {
            throw Common::Error(TL_ORIGIN("Test::Finish"), 0x9c0002);
        }
        if (mode == Mode::Other) {
            throw std::runtime_error("finish");
        }
        XMLPacketSerializer::FinishWriteMetaInfo(meta);
    }
    Mode mode = Mode::None;
    int finishes = 0;
};

std::vector<std::pair<int, std::uint32_t>> g_logged;
void Capture(int level, const Common::Error& error) {
    g_logged.emplace_back(level, error.Code());
}

class ScopeGuard : public ::testing::Test {
protected:
    void SetUp() override {
        g_logged.clear();
        Common::SetTraceErrorSink(Capture);
    }
    void TearDown() override { Common::SetTraceErrorSink(nullptr); }
    FailingFinish s;
};

TEST_F(ScopeGuard, ErrorOfFinishIsLoggedAtLevelFour) {
    s.mode = FailingFinish::Mode::Error;
    EXPECT_NO_THROW({ Serialization::WriteScope scope(s, MetaInfo("A")); });
    ASSERT_EQ(g_logged.size(), 1u);
    EXPECT_EQ(g_logged[0], std::make_pair(4, 0x9c0002u));
}

TEST_F(ScopeGuard, OtherFailuresOfFinishPropagate) {
    s.mode = FailingFinish::Mode::Other;
    EXPECT_THROW({ Serialization::WriteScope scope(s, MetaInfo("A")); }, std::runtime_error);
}

TEST_F(ScopeGuard, FinishNeverMasksAnUnwindingFailure) {
    for (auto mode : {FailingFinish::Mode::Error, FailingFinish::Mode::Other}) {
        s.mode = mode;
        try {
            Serialization::WriteScope scope(s, MetaInfo("A"));
            throw std::logic_error("body");
        } catch (const std::logic_error&) {
        }
    }
    EXPECT_EQ(s.finishes, 2);
    ASSERT_EQ(g_logged.size(), 1u);
    EXPECT_EQ(g_logged[0].first, 4);
}

// Cleanup that writes an element while an exception unwinds past it: a close that fails
// there must not escape the destructor, which would end the program.
struct WritesWhileUnwinding {
    FailingFinish& s;
    ~WritesWhileUnwinding() { Serialization::WriteScope scope(s, MetaInfo("Cleanup")); }
};

TEST_F(ScopeGuard, GuardMadeDuringUnwindingDropsAFailingClose) {
    s.mode = FailingFinish::Mode::Other;
    EXPECT_THROW(
        {
            WritesWhileUnwinding cleanup{s};
            throw std::logic_error("body");
        },
        std::logic_error);
    EXPECT_EQ(s.finishes, 1);
}

TEST_F(ScopeGuard, DismissedGuardLeavesTheElementAlone) {
    {
        Serialization::WriteScope scope(s, MetaInfo("A"));
        scope.Dismiss();
    }
    EXPECT_EQ(s.finishes, 0);
    EXPECT_EQ(s.CurrentMetaInfo(), MetaInfo("A"));
}

}  // namespace
