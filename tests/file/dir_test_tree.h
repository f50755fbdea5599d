#pragma once

// A temporary directory of the real file system for the directory tests, removed with
// everything in it at the end of the test.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/file/system_dir.h>

#include "file/nt_dir.h"

namespace test_support {

class TempTree {
public:
    TempTree() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "tessel_dir_XXXXXX").string();
        if (::mkdtemp(pattern.data()) != nullptr) {
            path = pattern;
        }
    }
    ~TempTree() {
        std::error_code ignored;
        if (!path.empty()) {
            // Directories left without permissions by a test are opened up first.
            for (auto it = std::filesystem::recursive_directory_iterator(path, ignored);
                 it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
                ::chmod(it->path().c_str(), 0700);
            }
            std::filesystem::remove_all(path, ignored);
        }
    }
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    // `name` (system bytes) below the tree.
    std::string At(const std::string& name) const { return path + "/" + name; }
    std::u16string Wide() const { return File::NativeNameToWide(path); }

    void Write(const std::string& name, const std::string& content) const {
        const int fd = ::open(At(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0) << name;
        ASSERT_EQ(::write(fd, content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
        ::close(fd);
    }
    void MakeDir(const std::string& name) const { ASSERT_EQ(::mkdir(At(name).c_str(), 0755), 0); }

    std::string path;
};

// The tree's directory through `io`; a failure to open it fails the test.
inline std::unique_ptr<File::nt_dir> OpenTree(Platform::DirIo& io, const TempTree& tree) {
    Common::Error error;
    auto dir = File::nt_dir::Open(io, tree.Wide(), error);
    EXPECT_TRUE(dir != nullptr) << error.Code();
    return dir;
}

}  // namespace test_support
