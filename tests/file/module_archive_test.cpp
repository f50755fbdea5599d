// The module's data archive: its name, where it is looked for, and reading a member whole.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/zip_archive.h>

#include "file/module_archive.h"
#include "file/zip_builder.h"

namespace {

namespace fs = std::filesystem;
using test_support::BuildZip;

TEST(ModuleArchive, DataArchivePathReplacesTheExtension) {
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"/opt/lib/libtessel_link.so", u"/opt/lib/libtessel_link.dat"},
        {u"/opt/lib/libtessel_link.so.0", u"/opt/lib/libtessel_link.dat"},  // its SONAME
        {u"/opt/lib/libtessel_link.so.0.1.12", u"/opt/lib/libtessel_link.dat"},
        {u"/opt/lib/libtessel_link.so.0.x", u"/opt/lib/libtessel_link.so.0.dat"},
        {u"/opt/lib/libtessel_link.so.", u"/opt/lib/libtessel_link.so.dat"},
        {u"/opt/lib/tool.1", u"/opt/lib/tool.dat"},
        {u"/usr/bin/tessel", u"/usr/bin/tessel.dat"},
        {u"/opt/v1.2/tessel", u"/opt/v1.2/tessel.dat"},    // a '/' ends the search
        {u"C:\\v1.2\\tessel", u"C:\\v1.dat"},              // a '\' does not
        {u".profile", u".profile.dat"},                    // nor does a dot at the start count
        {u"a.", u"a.dat"},
        {u"", u".dat"},
    };
    for (const auto& [module, archive] : cases) {
        EXPECT_EQ(File::DataArchivePath(module), archive) << Common::Utf16ToUtf8(module);
    }
}

class ModuleArchiveFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "tessel_dat_XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    void Write(const std::string& name, const std::string& bytes) {
        std::ofstream(dir_ / name, std::ios::binary) << bytes;
    }
    std::u16string Path(const std::string& name) { return Common::WidenLatin1((dir_ / name).string()); }
    static std::string Member(File::si_dir* archive, const char16_t* name) {
        std::vector<unsigned char> block;
        if (archive == nullptr || !File::ReadMember(*archive, name, block)) {
            return "<none>";
        }
        return std::string(block.begin(), block.end());
    }

    fs::path dir_;
};

TEST_F(ModuleArchiveFiles, TheDatFileFirstThenTheModuleItself) {
    const std::string program = "\x7f" "ELF pretend code";
    Write("mod.so", BuildZip({{"m", "appended"}}, "", program).Bytes);
    Write("mod.dat", BuildZip({{"m", "beside", 8}}).Bytes);
    EXPECT_EQ(Member(File::OpenDataArchive(Path("mod.so")).get(), u"m"), "beside");

    // A .dat that opens but is no archive means no archive: only a .dat that can't be
    // opened sends the search on to the module itself.
    Write("mod.dat", "not an archive at all, but long enough to be scanned");
    EXPECT_EQ(File::OpenDataArchive(Path("mod.so")), nullptr);
    fs::remove(dir_ / "mod.dat");
    EXPECT_EQ(Member(File::OpenDataArchive(Path("mod.so")).get(), u"m"), "appended");

    Write("mod.so", program);
    EXPECT_EQ(File::OpenDataArchive(Path("mod.so")), nullptr);
    EXPECT_EQ(File::OpenDataArchive(u""), nullptr);
}

TEST_F(ModuleArchiveFiles, ReadMemberChecksTheWholeMember) {
    const std::string text(300000, 'q');
    auto zip = BuildZip({{"good", text, 8}, {"bad", text, 8}, {"empty", ""}});
    zip.Put32(zip.Central[1] + 16, 0xdeadbeef);
    zip.Put32(zip.Local[1] + 14, 0xdeadbeef);
    Common::Error error;
    auto archive = File::OpenZipArchive(zip.File(), error);
    ASSERT_TRUE(archive);
    EXPECT_EQ(Member(archive.get(), u"good"), text);
    EXPECT_EQ(Member(archive.get(), u"GOOD"), text);
    EXPECT_EQ(Member(archive.get(), u"empty"), "");
    EXPECT_EQ(Member(archive.get(), u"bad"), "<none>");
    EXPECT_EQ(Member(archive.get(), u"missing"), "<none>");
}

}  // namespace
