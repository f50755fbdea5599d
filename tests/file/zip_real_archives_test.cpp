// Archives written by real tools during the run: Python's zipfile always, Debian's zip
// when it is installed. Every member must read back as the bytes it was made from.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_file.h>

#include "file/zip_file.h"

namespace {

namespace fs = std::filesystem;

struct Member {
    std::string Name;
    std::string Content;  // empty path: the archive must not open
};

class RealArchives : public ::testing::Test {
protected:
    // A failure here is reported by each test (a failure in the suite's set-up alone would
    // let the tests pass as skipped).
    static void SetUpTestSuite() {
        const char* data = std::getenv("TL_TEST_DATA");
        std::string pattern = (fs::temp_directory_path() / "tessel_zip_XXXXXX").string();
        if (data == nullptr || ::mkdtemp(pattern.data()) == nullptr) {
            setupFailure_ = "no TL_TEST_DATA, or no temporary directory";
            return;
        }
        dir_ = pattern;
        const std::string command = "python3 '" + std::string(data) + "/zip/make_archives.py' '" +
                                    dir_.string() + "'";
        if (std::system(command.c_str()) != 0) {
            setupFailure_ = "failed: " + command;
            return;
        }
        std::ifstream manifest(dir_ / "manifest.txt");
        for (std::string line; std::getline(manifest, line);) {
            if (line == "#no-zip") {
                zipMissing_ = true;
                continue;
            }
            std::istringstream fields(line);
            std::string archive, name, content;
            std::getline(fields, archive, '\t');
            std::getline(fields, name, '\t');
            std::getline(fields, content, '\t');
            archives_[archive].push_back({name, content == "-" ? "" : content});
        }
    }
    static void TearDownTestSuite() {
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }

    static std::string Slurp(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static std::unique_ptr<File::zip_file_impl> OpenArchive(const std::string& name,
                                                            Common::Error& error) {
        auto file = File::OpenSystemFile(Common::WidenLatin1((dir_ / name).string()),
                                         File::open_mode::read, error);
        return file ? File::zip_file_impl::Open(std::move(file), error) : nullptr;
    }

    // Every member of every archive whose name starts with `prefix` reads back whole, in
    // the order of the directory, found by iterator and by name alike.
    static void CheckArchives(const std::string& prefix) {
        ASSERT_EQ(setupFailure_, "");
        int checked = 0;
        for (const auto& [archive, members] : archives_) {
            if (archive.rfind(prefix, 0) != 0) {
                continue;
            }
            SCOPED_TRACE(archive);
            ++checked;
            Common::Error error;
            auto zip = OpenArchive(archive, error);
            if (members.size() == 1 && members[0].Content.empty()) {
                EXPECT_FALSE(zip);
                EXPECT_EQ(error.Code(), 0x4000du);
                continue;
            }
            ASSERT_TRUE(zip) << std::hex << error.Code();
            std::size_t i = 0;
            for (auto it = std::unique_ptr<File::i_dir::iterator>(zip->GetIterator()); it && !it->Failed(); it->Next(), ++i) {
                ASSERT_LT(i, members.size());
                EXPECT_EQ(Common::Utf16ToUtf8(it->GetName()), members[i].Name);
                const std::string expected = Slurp(dir_ / members[i].Content);
                std::unique_ptr<File::si_file> entries[] = {
                    std::unique_ptr<File::si_file>(zip->OpenI(*it)),
                    std::unique_ptr<File::si_file>(
                        zip->OpenI(Common::WidenLatin1(members[i].Name).c_str(), 0))};
                for (auto& entry : entries) {
                    ASSERT_TRUE(entry);
                    EXPECT_EQ(entry->Size(), expected.size());
                    std::string got(expected.size() + 1, '\0');
                    std::uint64_t read = 0;
                    std::uint64_t total = 0;
                    do {
                        entry->Read(got.data() + total, got.size() - total, read);
                        total += read;
                    } while (read != 0 && total < got.size());
                    // The read that meets the end confirms the checksum.
                    entry->Read(got.data(), 1, read);
                    EXPECT_EQ(read, 0u);
                    EXPECT_FALSE(entry->Failed()) << members[i].Name << " " << std::hex
                                                  << entry->GetError().Code();
                    got.resize(static_cast<std::size_t>(total));
                    EXPECT_TRUE(got == expected) << members[i].Name;
                }
            }
            EXPECT_EQ(i, members.size());
        }
        EXPECT_GT(checked, 0);
    }

    static inline std::string setupFailure_;
    static inline fs::path dir_;
    static inline bool zipMissing_ = false;
    static inline std::map<std::string, std::vector<Member>> archives_;
};

// Stored, deflated, with data descriptors, with 100 bytes in front, with comments of the
// longest length that is found and of 65,535 bytes, which is not.
TEST_F(RealArchives, PythonZipfile) {
    CheckArchives("py_");
}

// Stored, deflated, streamed through a pipe (data descriptor), and with 100 bytes in front.
TEST_F(RealArchives, InfoZip) {
    if (setupFailure_.empty() && zipMissing_) {
        GTEST_SKIP() << "Debian's zip and unzip are not installed: their archives are not tested";
    }
    CheckArchives("zip_");
}

}  // namespace
