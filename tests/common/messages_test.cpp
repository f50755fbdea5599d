#include <tessel_link/common/messages.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>

namespace {

std::string Row(std::uint32_t row) {
    const char16_t* text = Common::GetMessageRow(row);
    return text != nullptr ? Common::Utf16ToUtf8(text) : std::string("<null>");
}

std::uint32_t Word(const unsigned char* p) {
    std::uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

TEST(MessageTable, FirstLookupKeepsErrno) {
    errno = EBADF;
    ASSERT_NE(Common::GetMessageText(Common::MessageId(7)), nullptr);
    EXPECT_EQ(errno, EBADF);
}

TEST(MessageTable, TextsAsTheSystemWritesThem) {
    EXPECT_EQ(Row(7), "Closing session");
    EXPECT_EQ(Row(11), "{0} {1} (build {2}){3, choice, 1#\n\n{4}}");
    EXPECT_EQ(Row(12), "{0} (build {1}){2, choice, 1#\n\n{3}}");
    EXPECT_EQ(Row(109),
              "ASYNC: Asynchronizer cannot accept more actions because step \"Read\" has "
              "completed.");
    EXPECT_EQ(Row(269), "Failed to execute method '%ls' of class '%ls'.");
    EXPECT_EQ(Row(632),
              "User '{0}' is not a member of any of the following groups: 'Corvane Centralized "
              "Admins', 'Corvane Centralized Operators', 'Corvane Centralized Viewers'.");
    // Rows that are the deployer's stay empty but exist.
    EXPECT_EQ(Row(0), "");
    EXPECT_EQ(Row(10), "");
    EXPECT_EQ(Row(643), "");
    EXPECT_EQ(Row(644), "<null>");
}

TEST(MessageTable, EqualTextsKeepSeparateRows) {
    EXPECT_EQ(Row(13), "Access is denied.");
    EXPECT_EQ(Row(627), "Access is denied.");
    EXPECT_NE(Common::GetMessageRow(13), Common::GetMessageRow(627));
}

TEST(MessageTable, IdentifierIsThePositionOfTheIndexEntry) {
    const Common::MessageTableBlock table = Common::GetMessageTable();
    ASSERT_NE(table.Data, nullptr);
    for (std::uint32_t row = 0; row < Common::kMessageRowCount; ++row) {
        const std::uint32_t id = 8 + 4 * row;
        const char16_t* text = Common::GetMessageText(id);
        ASSERT_EQ(text, Common::GetMessageRow(row));
        const auto* at = reinterpret_cast<const unsigned char*>(text);
        EXPECT_EQ(at, table.Data + id + static_cast<std::int32_t>(Word(table.Data + id)));
        EXPECT_GE(at, table.Data + 4 * Common::kMessageSignature);
        EXPECT_LT(at, table.Data + table.Size);
    }
}

TEST(MessageTable, AllRowsWithTextArePresent) {
    int withText = 0;
    for (std::uint32_t row = 0; row < Common::kMessageRowCount; ++row) {
        withText += Common::GetMessageRow(row)[0] != 0 ? 1 : 0;
    }
    EXPECT_EQ(withText, 587);
}

TEST(MessageTable, ValidityOfAReplacementBlock) {
    const Common::MessageTableBlock builtIn = Common::GetBuiltInMessageTable();
    EXPECT_TRUE(Common::IsValidMessageTable(builtIn.Data, builtIn.Size));
    std::vector<unsigned char> block(builtIn.Data, builtIn.Data + builtIn.Size);
    // A first word that is not the size, or a foreign signature, rejects the block.
    block[0] ^= 1;
    EXPECT_FALSE(Common::IsValidMessageTable(block.data(), block.size()));
    block[0] ^= 1;
    block[4] = 0x87;
    EXPECT_FALSE(Common::IsValidMessageTable(block.data(), block.size()));
    const unsigned char tiny[4] = {4, 0, 0, 0};
    EXPECT_FALSE(Common::IsValidMessageTable(tiny, sizeof tiny));
    EXPECT_FALSE(Common::IsValidMessageTable(nullptr, 0));
    // Loading fell back to the built-in table, there being no replacement here.
    EXPECT_EQ(Common::GetMessageTable().Data, builtIn.Data);
}

}  // namespace
