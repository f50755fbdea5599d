#include <tessel_link/common/trace.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/fake_debug_services.h"

namespace {

std::vector<std::string> g_sink;

void TextSink(int level, std::uint32_t, std::uint32_t, const char* text) {
    g_sink.push_back(std::to_string(level) + ":" + text);
}
void ErrorSink(int level, const Common::Error& error) {
    g_sink.push_back(std::to_string(level) + ":error " + std::to_string(error.Code()));
}

class Recorder : public Common::TraceObject {
public:
    void OnText(int level, std::uint32_t, std::uint32_t, const char* text) override {
        seen.push_back(std::to_string(level) + ":" + text);
    }
    void OnError(int level, const Common::Error& error) override {
        seen.push_back(std::to_string(level) + ":error " + std::to_string(error.Code()));
    }
    std::vector<std::string> seen;
};

struct TraceFixture : ::testing::Test {
    TraceFixture() {
        g_sink.clear();
        Common::SetTraceTextSink(TextSink);
        Common::SetTraceErrorSink(ErrorSink);
    }
    ~TraceFixture() override {
        Common::SetTraceTextSink(nullptr);
        Common::SetTraceErrorSink(nullptr);
        Common::SetTraceObject(nullptr);
        Common::SetTraceThreshold(2);
        Common::SetTraceSuppressed(false);
    }
};

TEST_F(TraceFixture, ThresholdAndSuppressionGateTheSinksOnly) {
    EXPECT_EQ(Common::GetTraceThreshold(), 2);
    Recorder object;
    Common::SetTraceObject(&object);
    Common::TraceText(1, 0, 0, "below");
    Common::TraceText(2, 0, 0, "at");
    Common::TraceError(4, Common::Error(TL_ORIGIN("F"), 9));
    Common::SetTraceSuppressed(true);
    Common::TraceText(5, 0, 0, "suppressed");
    EXPECT_EQ(g_sink, (std::vector<std::string>{"2:at", "4:error 9"}));
    // The trace object hears everything, whatever the level or the flag.
    EXPECT_EQ(object.seen,
              (std::vector<std::string>{"1:below", "2:at", "4:error 9", "5:suppressed"}));
}

TEST_F(TraceFixture, LogStackTracesEveryFrameAtLevelTwo) {
    testing_support::FakeDebugServices system;
    system.frames = {{0x10, "main", "", 0}, {0x20, "", "", 0}};
    Common::LogStack("Core::Run");
    EXPECT_EQ(g_sink, (std::vector<std::string>{"2:Stack logging from 'Core::Run'",
                                                "2:Stack frame 0: '0x10 main'",
                                                "2:Stack frame 1: '0x20'"}));
    EXPECT_EQ(system.calls, (std::vector<std::string>{"walk:32"}));
}

TEST_F(TraceFixture, LogStackWalksTheRealStack) {
    Common::LogStack("here");
    ASSERT_GE(g_sink.size(), 3u);
    EXPECT_LE(g_sink.size(), 33u);
    EXPECT_EQ(g_sink[1].rfind("2:Stack frame 0: '0x", 0), 0u);
}

}  // namespace
