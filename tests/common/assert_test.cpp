#include <tessel_link/common/assert.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/assert_report.h"
#include "common/fake_debug_services.h"

namespace {

using Common::Detail::AssertSettings;
using Common::Detail::kAssertAbort;
using Common::Detail::kAssertDebug;
using Common::Detail::kAssertEvent;
using Common::Detail::kAssertLog;
using Common::Detail::kAssertMsgBox;
using Common::Detail::kAssertOff;
using Common::Detail::kAssertStack;
using Common::Detail::ParseAssertMask;
using Common::Detail::ReportWith;
using testing_support::FakeDebugServices;

TEST(AssertMask, NumbersWithOrWithoutPrefix) {
    // Without the variable the library logs and goes on: it must not end its host.
    EXPECT_EQ(ParseAssertMask(nullptr), 0x44u);
    EXPECT_EQ(ParseAssertMask("0x65"), 0x65u);
    EXPECT_EQ(ParseAssertMask("65"), 0x65u);
    EXPECT_EQ(ParseAssertMask("0X4"), 0x4u);
    EXPECT_EQ(ParseAssertMask("fffffffe"), 0xfffffffeu);
    // Zero is no mask: as a word it is unknown and turns assertions off.
    EXPECT_EQ(ParseAssertMask("0"), kAssertOff);
    EXPECT_EQ(ParseAssertMask("0x0"), kAssertOff);
    // Not a whole number, or one beyond 32 bits: word parsing, and so off.
    EXPECT_EQ(ParseAssertMask("0x"), kAssertOff);
    EXPECT_EQ(ParseAssertMask("65 "), kAssertOff);
    EXPECT_EQ(ParseAssertMask("100000000"), kAssertOff);
}

TEST(AssertMask, WordLists) {
    EXPECT_EQ(ParseAssertMask("debug log"), 0x06u);
    EXPECT_EQ(ParseAssertMask("  stack\tlog  "), 0x44u);
    EXPECT_EQ(ParseAssertMask("break debug log event msgbox abort stack"), 0x7fu);
    EXPECT_EQ(ParseAssertMask("log Log"), kAssertOff);  // words are matched exactly
    EXPECT_EQ(ParseAssertMask("log nonsense"), kAssertOff);
    EXPECT_EQ(ParseAssertMask(""), 0u);
    // Only the first 127 characters count: a bad word beyond them is never seen.
    std::string longList;
    while (longList.size() < 124) {
        longList += "log ";
    }
    EXPECT_EQ(ParseAssertMask((longList + "   bogus").c_str()), 0x04u);
}

// Every output of the report, in order, as one list of lines.
std::vector<std::string> g_events;
void RecordEvent(int a, int b, int c, const char* text) {
    g_events.push_back(std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c) +
                       ":" + text);
}

struct ReportFixture : ::testing::Test {
    ReportFixture() {
        previousHook = Common::SetAssertionEventHook(RecordEvent);
        g_events.clear();
        log = std::tmpfile();
    }
    ~ReportFixture() override {
        Common::SetAssertionEventHook(previousHook);
        std::fclose(log);
    }
    std::string Log() {
        std::fflush(log);
        std::rewind(log);
        std::string text;
        for (int c; (c = std::fgetc(log)) != EOF;) {
            text.push_back(static_cast<char>(c));
        }
        return text;
    }
    int Report(std::uint32_t mask, const char* expression = "x > 0") {
        return ReportWith(AssertSettings{mask, log}, expression, "a.cpp", 12, "the message");
    }

    FakeDebugServices system;
    Common::AssertionEventHook previousHook;
    std::FILE* log;
};

TEST_F(ReportFixture, OutputsInOrderWithTheStackTrace) {
    system.frames = {{0x1234, "f", "", 0}, {0x1abcdef01ull, "g+0x4", "g.cpp", 7}};
    EXPECT_EQ(Report(kAssertDebug | kAssertLog | kAssertEvent | kAssertStack), 1);
    EXPECT_EQ(system.calls,
              (std::vector<std::string>{"debug:the message\n", "walk:32", "debug:0x1234 f\n",
                                        "debug:0x1ABCDEF01 g+0x4 g.cpp, line 7\n"}));
    EXPECT_EQ(Log(), "the message\n0x1234 f\n0x1ABCDEF01 g+0x4 g.cpp, line 7\n");
    // The event hook has the message, then the whole trace in one call.
    EXPECT_EQ(g_events, (std::vector<std::string>{
                            "5,0,27:the message", "5,0,27:0x1234 f\n0x1ABCDEF01 g+0x4 g.cpp, line 7"}));
}

TEST_F(ReportFixture, StackAloneOrWithoutOutputsWalksNothing) {
    EXPECT_EQ(Report(kAssertStack | kAssertAbort), 1);
    EXPECT_EQ(system.calls, (std::vector<std::string>{"abort"}));
    EXPECT_EQ(Log(), "");
}

TEST_F(ReportFixture, OffReturnsAtOnce) {
    EXPECT_EQ(Report(kAssertOff), 0);
    EXPECT_TRUE(system.calls.empty());
    EXPECT_TRUE(g_events.empty());
}

TEST_F(ReportFixture, DebugOutputIsCutAt539Characters) {
    const std::string longText(600, 'm');
    ReportWith(AssertSettings{kAssertDebug, log}, "e", "f", 1, longText.c_str());
    ASSERT_FALSE(system.calls.empty());
    EXPECT_EQ(system.calls[0], "debug:" + std::string(539, 'm') + "\n");
}

TEST_F(ReportFixture, AnswersOfTheUser) {
    system.answer = 0;  // ignore
    EXPECT_EQ(Report(kAssertMsgBox | kAssertAbort), 0);
    EXPECT_EQ(system.calls, (std::vector<std::string>{"ask:Corvane runtime check failure"}));
    EXPECT_EQ(system.askedText,
              "Assertion failed!\n\nProgram: /bin/host\nFile: a.cpp\nLine: 12\n\nExpression: x > "
              "0\n\n(Press Retry to debug the application)");

    system.calls.clear();
    system.answer = 1;  // abort, whatever the mask
    Report(kAssertMsgBox);
    EXPECT_EQ(system.calls.back(), "abort");

    system.calls.clear();
    system.answer = 2;  // nobody to ask: abort only when the mask says so
    EXPECT_EQ(Report(kAssertMsgBox), 1);
    EXPECT_EQ(system.calls.back(), "ask:Corvane runtime check failure");
    Report(kAssertMsgBox | kAssertAbort);
    EXPECT_EQ(system.calls.back(), "abort");

    // Without an expression nobody is asked.
    system.calls.clear();
    EXPECT_EQ(Report(kAssertMsgBox, nullptr), 1);
    EXPECT_TRUE(system.calls.empty());
}

TEST_F(ReportFixture, DebuggerBreaksBeforeAbort) {
    system.debugger = true;
    EXPECT_EQ(Report(kAssertAbort), 0);
    EXPECT_EQ(system.calls, (std::vector<std::string>{"break"}));
}

// The switches are read once per process, so these run in a fresh process each.
class AssertEnvironment : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(AssertEnvironment, DefaultLogsToStandardErrorAndAborts) {
    EXPECT_DEATH(
        {
            unsetenv("CORVANE_SAFE_ASSERT");
            unsetenv("CORVANE_SAFE_ASSERT_LOGFILE");
            Common::SetAssertionDefault(0x65);
            Common::Assert("ready", "b.cpp", 40);
        },
        "Assertion failed: ready, file b.cpp, line 40\n0x[0-9A-F]+");
}

TEST_F(AssertEnvironment, AHostsDefaultStandsOnlyWithoutTheVariable) {
    // This test program's own default: log and go on.
    EXPECT_EXIT(
        {
            unsetenv("CORVANE_SAFE_ASSERT");
            unsetenv("CORVANE_SAFE_ASSERT_LOGFILE");
            std::exit(Common::Assert("goes on", "d.cpp", 7) == 1 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "Assertion failed: goes on, file d.cpp, line 7\n");
    // The user's variable wins over it.
    EXPECT_DEATH(
        {
            setenv("CORVANE_SAFE_ASSERT", "abort", 1);
            Common::Assert("stops", "d.cpp", 8);
        },
        "");
}

TEST_F(AssertEnvironment, WordsReadTheLogTarget) {
    const std::string path = ::testing::TempDir() + "tessel_assert_log.txt";
    std::remove(path.c_str());
    EXPECT_EXIT(
        {
            setenv("CORVANE_SAFE_ASSERT", "debug log", 1);
            setenv("CORVANE_SAFE_ASSERT_LOGFILE", path.c_str(), 1);
            std::exit(Common::Assert("one", "c.cpp", 1) + Common::Assert("two", "c.cpp", 2) == 2
                          ? 0
                          : 1);
        },
        ::testing::ExitedWithCode(0), "");
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ(text.str(),
              "Assertion failed: one, file c.cpp, line 1\nAssertion failed: two, file c.cpp, "
              "line 2\n");
    std::remove(path.c_str());
}

TEST_F(AssertEnvironment, OnlyAMaskThatLogsOpensTheLogTarget) {
    // Neither a mask without the log bit nor one that turns assertions off creates the file.
    const std::string path = ::testing::TempDir() + "tessel_assert_unused_log.txt";
    for (const char* mask : {"debug", "0x42", "debug bogus"}) {
        std::remove(path.c_str());
        EXPECT_EXIT(
            {
                setenv("CORVANE_SAFE_ASSERT", mask, 1);
                setenv("CORVANE_SAFE_ASSERT_LOGFILE", path.c_str(), 1);
                (void)Common::Assert("one", "c.cpp", 1);
                std::exit(0);
            },
            ::testing::ExitedWithCode(0), "")
            << mask;
        EXPECT_FALSE(std::ifstream(path).is_open()) << mask;
    }
    std::remove(path.c_str());
}

TEST_F(AssertEnvironment, UnknownWordSilencesEverything) {
    EXPECT_EXIT(
        {
            setenv("CORVANE_SAFE_ASSERT", "log shout", 1);
            std::exit(Common::Assert("quiet", "d.cpp", 1));
        },
        ::testing::ExitedWithCode(0), "^$");
}

TEST_F(AssertEnvironment, PolicyAndLogTargetFromCodeWinOverTheVariables) {
    const std::string log = ::testing::TempDir() + "assert_policy_test.log";
    std::remove(log.c_str());
    EXPECT_EXIT(
        {
            setenv("CORVANE_SAFE_ASSERT", "log abort", 1);
            setenv("CORVANE_SAFE_ASSERT_LOGFILE", "stdout", 1);
            Common::SetAssertionPolicy(Common::AssertToLog);
            if (Common::GetAssertionPolicy() != Common::AssertToLog ||
                Common::SetAssertionLogTarget("/nonexistent-dir/x.log") ||
                !Common::SetAssertionLogTarget(log.c_str())) {
                std::exit(2);
            }
            const int outcome = Common::Assert("to the file", "p.cpp", 3);
            std::FILE* f = std::fopen(log.c_str(), "r");
            char line[128] = {};
            const bool read = f != nullptr && std::fgets(line, sizeof line, f) != nullptr;
            std::exit(outcome == 1 && read &&
                              std::string(line) == "Assertion failed: to the file, file p.cpp, line 3\n"
                          ? 0
                          : 1);
        },
        ::testing::ExitedWithCode(0), "");
    std::remove(log.c_str());
    // Stopping at the first failed check, and no report at all, are the host's choice too.
    EXPECT_DEATH(
        {
            unsetenv("CORVANE_SAFE_ASSERT");
            Common::SetAssertionPolicy(Common::AssertToLog | Common::AssertAbort);
            Common::Assert("stop", "s.cpp", 9);
        },
        "Assertion failed: stop, file s.cpp, line 9");
    EXPECT_EXIT(
        {
            Common::SetAssertionPolicy(Common::AssertionsOff);
            std::exit(Common::Assert("quiet", "q.cpp", 1));
        },
        ::testing::ExitedWithCode(0), "^$");
}

}  // namespace
