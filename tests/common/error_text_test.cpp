#include <tessel_link/common/error.h>

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/error_record.h"

namespace {

using Common::Error;
using Common::ErrorParameter;

// A generic record with the given text and parameters, as deserialization makes them.
Error Generic(std::uint32_t code, const std::u16string& text, const std::string& names,
              std::vector<Common::GenericValue> values, const char* file = nullptr,
              const char* func = nullptr, std::uint32_t line = 0) {
    return Common::Adopt(Common::MakeGenericRecord(code, 0, file, func, line, text, names,
                                                   values.data(), values.size()));
}

Common::GenericValue Number(std::uint64_t n) {
    return {'N', n, {}, {}};
}
Common::GenericValue Ansi(const char* s) {
    return {'A', 0, s, {}};
}
Common::GenericValue Wide(const char16_t* s) {
    return {'W', 0, {}, s};
}

TEST(ErrorParameters, AreFoundByNameAndTypedAsTheyTravel) {
    const Error e = Error::WithFunctionAndPath(TL_ORIGIN("F"), 0x40007, u"open failed",
                                               "CreateFileW", u"C:\\x");
    const std::vector<std::string> names = e.ParameterNames();
    ASSERT_EQ(names.size(), 3u);  // with "$module"

    const auto function = e.Parameter("function");
    ASSERT_TRUE(function.has_value()) << e.GetNames();
    EXPECT_EQ(function->Kind, ErrorParameter::Type::Ansi);
    EXPECT_EQ(function->ValueText(), "CreateFileW");
    const auto path = e.Parameter(names[1]);
    ASSERT_TRUE(path.has_value());
    EXPECT_EQ(path->Kind, ErrorParameter::Type::Wide);
    EXPECT_EQ(path->ValueText(), "C:\\x");

    EXPECT_FALSE(e.Parameter("nothing").has_value());
    EXPECT_FALSE(e.Parameter("").has_value());
    EXPECT_FALSE(Error().Parameter("function").has_value());
    EXPECT_TRUE(Error().Parameters().empty());

    const Error n = Generic(5, u"", "count", {Number(42)});
    ASSERT_EQ(n.Parameters().size(), 1u);
    EXPECT_EQ(n.Parameters()[0].Kind, ErrorParameter::Type::Number);
    EXPECT_EQ(n.Parameters()[0].Number, 42u);
    EXPECT_EQ(n.Parameters()[0].ValueText(), "42");
    // A narrow value that is not UTF-8 reads as Latin-1.
    EXPECT_EQ(Generic(5, u"", "a", {Ansi("caf\xe9")}).Parameter("a")->ValueText(), "caf\xc3\xa9");
}

TEST(ErrorText, PlaceholdersExpandFromParameters) {
    EXPECT_EQ(Generic(1, u"User '{3}@{2}' ran '{1}' of '{0}'.", "0,1,2,3",
                      {Number(7), Ansi("Get"), Wide(u"dom"), Wide(u"bob")})
                  .FormattedText(),
              u"User 'bob@dom' ran 'Get' of '7'.");
    // Unknown names, unclosed braces and empty braces stay as they are.
    EXPECT_EQ(Generic(1, u"{x} {0} {} {0", "0", {Number(1)}).FormattedText(), u"{x} 1 {} {0");
    // A choice picks the highest limit not above the number, placeholders inside expanded.
    const std::u16string choice = u"{0} (build {1}){2, choice, 0#|1#\n\n{3}}";
    EXPECT_EQ(Generic(1, choice, "0,1,2,3", {Ansi("Agent"), Number(9), Number(1), Ansi("more")})
                  .FormattedText(),
              u"Agent (build 9)\n\nmore");
    EXPECT_EQ(Generic(1, choice, "0,1,2,3", {Ansi("Agent"), Number(9), Number(0), Ansi("more")})
                  .FormattedText(),
              u"Agent (build 9)");
    // A text without placeholders is the text.
    EXPECT_EQ(Error(TL_ORIGIN("f"), 3, u"plain").FormattedText(), u"plain");
    EXPECT_EQ(Error().FormattedText(), u"");
}

TEST(ErrorText, ToStringShowsTheWholeChainWithOrigins) {
    EXPECT_EQ(Error().ToString(), "success");

    Error head = Generic(0xbb, u"Cannot find a component with ID '{0}'.", "0,$module",
                         {Number(7), Ansi("build-1")}, "src/x.cpp", "Binding::Send", 42);
    head.AddCause(Generic(0x80070005, u"Access is denied", "Errno,where",
                          {Number(13), Wide(u"here")}));
    const std::string text = head.ToString();
    EXPECT_EQ(text,
              "0x000000BB Cannot find a component with ID '7'. [at src/x.cpp:42 in Binding::Send]\n"
              "  caused by 0x80070005 Access is denied {Errno=13 (0xD), where=\"here\"}");

    std::ostringstream stream;
    stream << head;
    EXPECT_EQ(stream.str(), text);
}

TEST(ErrorChainWalk, VisitsHeadToDeepestCause) {
    Error head(TL_ORIGIN("a"), 1);
    Error middle(TL_ORIGIN("b"), 2);
    middle.AddCause(Error(TL_ORIGIN("c"), 3));
    head.AddCause(middle);

    std::vector<std::uint32_t> codes;
    for (const Error& record : head.Chain()) {
        codes.push_back(record.Code());
    }
    EXPECT_EQ(codes, (std::vector<std::uint32_t>{1, 2, 3}));
    EXPECT_EQ(head.Depth(), 3u);
    EXPECT_EQ(Error().Depth(), 0u);
    EXPECT_EQ(Error().Chain().begin(), Error().Chain().end());

    // A record handed out by the walk keeps its causes alive after the head is gone.
    Error second;
    {
        Error copy = head;
        auto it = copy.Chain().begin();
        ++it;
        second = *it;
    }
    head = Error();
    EXPECT_EQ(second.Code(), 2u);
    EXPECT_EQ(second.Cause().Code(), 3u);
}

}  // namespace
