// The text dump: the exact line of every kind, traits first, children indented.

#include <tessel_link/por/print.h>

#include <sstream>

#include <gtest/gtest.h>

#include "por_test_util.h"

namespace {

using namespace PorTest;

std::string Printed(const UnitPtr& unit, bool newlines = true, std::string_view indent = "") {
    std::ostringstream out;
    Por::Util::Print(*unit, indent, out, newlines);
    return out.str();
}

TEST(Print, ScalarLines) {
    EXPECT_EQ(Printed(Nil()), "Root (NIL)\n");
    EXPECT_EQ(Printed(Bool(true)), "Root (bool) = 1\n");
    EXPECT_EQ(Printed(Byte(200)), "Root (unsigned char) = 200\n");
    EXPECT_EQ(Printed(Sbyte(-5)), "Root (signed char) = -5\n");
    EXPECT_EQ(Printed(Word(65535)), "Root (unsigned short) = 65535\n");
    EXPECT_EQ(Printed(Sword(-2)), "Root (short) = -2\n");
    EXPECT_EQ(Printed(Dword(4294967295u)), "Root (unsigned long) = 4294967295\n");
    EXPECT_EQ(Printed(Sdword(-3)), "Root (long) = -3\n");
    EXPECT_EQ(Printed(Qword(18446744073709551615ull)),
              "Root (unsigned __int64) = 18446744073709551615\n");
    EXPECT_EQ(Printed(Sqword(-9223372036854775807ll - 1)),
              "Root (__int64) = -9223372036854775808\n");
    EXPECT_EQ(Printed(Double(2.5)), "Root (double) = 2.5\n");
    EXPECT_EQ(Printed(Double(1.0 / 3)), "Root (double) = 0.3333333333333333\n");
    EXPECT_EQ(Printed(Double(1e20)), "Root (double) = 1e+20\n");
}

TEST(Print, ComplexLines) {
    EXPECT_EQ(Printed(Blob({1, 2, 3})), "Root (Blob) Size = 3\n");
    EXPECT_EQ(Printed(Guid(Common::Guid{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}})),
              "Root (Common::Guid) = 00000001-0002-0003-0405-060708090A0B\n");
    EXPECT_EQ(Printed(Str(u"caf\u00e9 \U0001F600")),
              "Root (Common::String) = caf\xc3\xa9 \xf0\x9f\x98\x80\n");
    // A lone surrogate can't be converted: the units are narrowed one by one.
    EXPECT_EQ(Printed(Str(u"a\xd801z")), std::string("Root (Common::String) = a\x01z\n"));
}

TEST(Print, ErrorsWithTheirCauses) {
    Common::Error error(TL_ORIGIN("Test::Outer"), 0x40007, u"open failed");
    Common::Error middle(TL_ORIGIN("Test::Middle"), 3);
    middle.AddCause(Common::Error(TL_ORIGIN("Test::Inner"), 4, u"inner"));
    error.AddCause(middle);
    const std::string tag = std::to_string(error.Origin().LineTag);
    const std::string middleTag = std::to_string(middle.Origin().LineTag);
    const std::string innerTag = std::to_string(middle.Cause().Origin().LineTag);
    EXPECT_EQ(Printed(Err(error)),
              "Root (Common::Error) Code = 262151 LineTag = " + tag + " Message = open failed\n" +
                  "  (SubError) Code = 3 LineTag = " + middleTag + "\n" +
                  "    (SubError) Code = 4 LineTag = " + innerTag + " Message = inner\n");
    EXPECT_EQ(Printed(Err(Common::Error())), "Root (Common::Error) Code = 0 LineTag = 0\n");
}

TEST(Print, ChildrenTraitsFirstThenElementsOrProperties) {
    UnitPtr tree = With(Comp("list", Arr(Dword(1), Nil()), "name", Str(u"x")), "Version", Qword(5));
    EXPECT_EQ(Printed(tree),
              "Root (Composite)\n"
              "  [Version (unsigned __int64) = 5]\n"
              "  list (Array)\n"
              "    0 (unsigned long) = 1\n"
              "    1 (NIL)\n"
              "  name (Common::String) = x\n");
    EXPECT_EQ(Printed(tree, false),
              "Root (Composite)"
              "  [Version (unsigned __int64) = 5]"
              "  list (Array)"
              "    0 (unsigned long) = 1"
              "    1 (NIL)"
              "  name (Common::String) = x");
    EXPECT_EQ(Printed(Nil(), true, "> "), "> Root (NIL)\n");
}

TEST(Print, TraitsWithStructuredValuesStayOnTheirLine) {
    UnitPtr unit = With(With(Nil(), "Rel", Comp("a", Sdword(1))), "IsEmpty");
    EXPECT_EQ(Printed(unit),
              "Root (NIL)\n"
              "  [IsEmpty (NIL)]\n"
              "  [Rel (Composite)    a (long) = 1  ]\n");
    // A trait's own traits follow inside the brackets.
    EXPECT_EQ(Printed(With(Arr(), "T", With(Dword(2), "N"))),
              "Root (Array)\n"
              "  [T (unsigned long) = 2    [N (NIL)]]\n");
}

}  // namespace
