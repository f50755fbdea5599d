// Real files through backup and restore: afterwards the copy must have the same content,
// holes, extended attributes, ACLs, owner, mode and last write time as the original.

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <map>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include <tessel_link/file/backup_stream.h>
#include <tessel_link/file/system_dir.h>

#include "file/backup_stream.h"
#include "file/backup_test_support.h"
#include "file/dir_test_tree.h"
#include "file/system_error.h"

namespace {

using namespace backup_test;
using test_support::TempTree;

std::u16string Wide(const std::string& path) {
    return File::NativeNameToWide(path);
}

// The data runs of a file, as SEEK_DATA and SEEK_HOLE find them.
std::vector<std::pair<off_t, off_t>> DataRuns(const std::string& path) {
    std::vector<std::pair<off_t, off_t>> runs;
    const int fd = ::open(path.c_str(), O_RDONLY);
    const off_t size = ::lseek(fd, 0, SEEK_END);
    for (off_t at = 0; at < size;) {
        const off_t data = ::lseek(fd, at, SEEK_DATA);
        if (data < 0) {
            break;
        }
        const off_t hole = ::lseek(fd, data, SEEK_HOLE);
        runs.emplace_back(data, hole);
        at = hole;
    }
    ::close(fd);
    return runs;
}

Bytes Content(const std::string& path) {
    Bytes out;
    const int fd = ::open(path.c_str(), O_RDONLY);
    unsigned char buffer[65536];
    for (ssize_t got; (got = ::read(fd, buffer, sizeof buffer)) > 0;) {
        out.insert(out.end(), buffer, buffer + got);
    }
    ::close(fd);
    return out;
}

std::map<std::string, Bytes> Attributes(const std::string& path) {
    std::map<std::string, Bytes> out;
    char names[65536];
    const ssize_t size = ::llistxattr(path.c_str(), names, sizeof names);
    for (ssize_t at = 0; at < size;) {
        const std::string name(names + at);
        at += static_cast<ssize_t>(name.size()) + 1;
        Bytes value(65536);
        const ssize_t got = ::lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        value.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        out[name] = value;
    }
    return out;
}

// An access ACL in the kernel's form: the owner, one more user, the owning group, one more
// group, the mask and others.
Bytes Acl(std::uint32_t user, std::uint32_t group) {
    const struct {
        std::uint16_t tag, perm;
        std::uint32_t id;
    } entries[] = {{1, 7, ~0u}, {2, 5, user}, {4, 5, ~0u}, {8, 6, group}, {0x10, 7, ~0u}, {0x20, 4, ~0u}};
    Bytes out(4);
    const std::uint32_t version = 2;
    std::memcpy(out.data(), &version, 4);
    for (const auto& e : entries) {
        unsigned char b[8];
        std::memcpy(b, &e.tag, 2);
        std::memcpy(b + 2, &e.perm, 2);
        std::memcpy(b + 4, &e.id, 4);
        out.insert(out.end(), b, b + 8);
    }
    return out;
}

void SetTime(const std::string& path, std::int64_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

class BackupRoundTrip : public ::testing::Test {
protected:
    // Backs `name` up and restores it as `name`.copy; the chunks are kept in `writer_`.
    void RoundTrip(const std::string& name, std::uint32_t options = 0) {
        writer_ = std::make_unique<RecordingWriter>(options);
        const Common::Error backed = File::BackupFile(Wide(tree_.At(name)), *writer_, nullptr);
        ASSERT_TRUE(backed.Succeeded()) << backed;
        ChunkSource source(*writer_, options);
        const Common::Error restored =
            File::RestoreFile(Wide(tree_.At(name + ".copy")), source, nullptr);
        ASSERT_TRUE(restored.Succeeded()) << restored;
    }

    // Everything that a round trip must keep.
    void ExpectSame(const std::string& name) {
        const std::string a = tree_.At(name);
        const std::string b = tree_.At(name + ".copy");
        struct stat sa {};
        struct stat sb {};
        ASSERT_EQ(::lstat(a.c_str(), &sa), 0);
        ASSERT_EQ(::lstat(b.c_str(), &sb), 0);
        EXPECT_EQ(sa.st_mode, sb.st_mode) << name;
        EXPECT_EQ(sa.st_uid, sb.st_uid) << name;
        EXPECT_EQ(sa.st_gid, sb.st_gid) << name;
        // Times travel in milliseconds.
        EXPECT_EQ(sa.st_mtim.tv_sec, sb.st_mtim.tv_sec) << name;
        EXPECT_EQ(sa.st_mtim.tv_nsec / 1000000, sb.st_mtim.tv_nsec / 1000000) << name;
        EXPECT_EQ(Attributes(a), Attributes(b)) << name;
        EXPECT_EQ(sa.st_rdev, sb.st_rdev) << name;
        if (S_ISREG(sa.st_mode)) {
            EXPECT_EQ(sa.st_size, sb.st_size) << name;
            EXPECT_TRUE(Content(a) == Content(b)) << name;
            EXPECT_EQ(DataRuns(a), DataRuns(b)) << name;
            EXPECT_LE(sb.st_blocks, sa.st_blocks + 8) << name;
        }
        if (S_ISLNK(sa.st_mode)) {
            char ta[4096];
            char tb[4096];
            const ssize_t la = ::readlink(a.c_str(), ta, sizeof ta);
            const ssize_t lb = ::readlink(b.c_str(), tb, sizeof tb);
            ASSERT_EQ(la, lb);
            EXPECT_EQ(std::string(ta, la), std::string(tb, lb));
        }
    }

    TempTree tree_;
    std::unique_ptr<RecordingWriter> writer_;
};

TEST_F(BackupRoundTrip, RandomFileAndEmptyFile) {
    const Bytes data = Pattern(300 * 1000, 5);
    tree_.Write("random", std::string(data.begin(), data.end()));
    ::chmod(tree_.At("random").c_str(), 0640);
    SetTime(tree_.At("random"), 1600000000, 123456789);
    RoundTrip("random");
    ExpectSame("random");
    EXPECT_EQ(writer_->Types(), (std::vector<std::uint32_t>{1, 2, 5}));

    tree_.Write("empty", "");
    SetTime(tree_.At("empty"), 1500000000, 0);
    RoundTrip("empty");
    ExpectSame("empty");
    EXPECT_EQ(writer_->Types(), (std::vector<std::uint32_t>{1, 2, 5}));
    // The stream of an empty file is its security and nothing else.
    EXPECT_EQ(writer_->Of(2).Blocks.size(), 2u);
}

TEST_F(BackupRoundTrip, SparseFileKeepsItsHoles) {
    const std::string path = tree_.At("sparse");
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, 64 << 20), 0);
    const Bytes run = Pattern(100000, 3);
    for (const off_t at : {off_t(0), off_t(20) << 20, off_t(50) << 20}) {
        ASSERT_EQ(::pwrite(fd, run.data(), run.size(), at), ssize_t(run.size()));
    }
    ::close(fd);
    if (DataRuns(path).size() != 3) {
        GTEST_SKIP() << "the file system keeps no holes";
    }
    RoundTrip("sparse");
    ExpectSame("sparse");
    // Three runs and the length, each a sparse block; the holes never travel.
    EXPECT_LT(writer_->Of(2).Joined().size(), 400000u);
    struct stat st {};
    ::stat(tree_.At("sparse.copy").c_str(), &st);
    EXPECT_LT(st.st_blocks * 512, 1 << 20);
}

TEST_F(BackupRoundTrip, ExtendedAttributesUpToTheLargest) {
    tree_.Write("attrs", "some content");
    const std::string path = tree_.At("attrs");
    for (int i = 0; i < 9; ++i) {
        const std::string name = "user.a" + std::to_string(i);
        const Bytes value = Pattern(10 + i, i);
        ASSERT_EQ(::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0), 0)
            << "extended attributes are needed here";
    }
    // The largest value that the file system takes beside the others.
    std::size_t low = 0;
    std::size_t high = 65536;
    while (low < high) {
        const std::size_t mid = (low + high + 1) / 2;
        const Bytes value = Pattern(mid, 7);
        if (::setxattr(path.c_str(), "user.big", value.data(), value.size(), 0) == 0) {
            low = mid;
        } else {
            high = mid - 1;
        }
    }
    const Bytes big = Pattern(low, 7);
    ASSERT_EQ(::setxattr(path.c_str(), "user.big", big.data(), big.size(), 0), 0);
    ASSERT_EQ(Attributes(path).size(), 10u);
    RoundTrip("attrs");
    ExpectSame("attrs");
}

TEST_F(BackupRoundTrip, AclsOwnerAndModeOfFilesAndDirectories) {
    tree_.Write("acl", "x");
    const std::string file = tree_.At("acl");
    const Bytes acl = Acl(65534, 4);
    ASSERT_EQ(::setxattr(file.c_str(), "system.posix_acl_access", acl.data(), acl.size(), 0), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(file.c_str(), 1234, 5678), 0);
    }
    RoundTrip("acl");
    ExpectSame("acl");

    tree_.MakeDir("dir");
    const std::string dir = tree_.At("dir");
    ASSERT_EQ(::chmod(dir.c_str(), 02750), 0);
    ASSERT_EQ(::setxattr(dir.c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0), 0);
    ASSERT_EQ(::setxattr(dir.c_str(), "user.note", "d", 1, 0), 0);
    tree_.Write("dir/inside", "not part of the directory's own backup");
    SetTime(dir, 1400000000, 5000000);
    RoundTrip("dir");
    ExpectSame("dir");
    EXPECT_NE(::access(tree_.At("dir.copy/inside").c_str(), F_OK), 0);

    // Without security a new copy has the creator's owner.
    ASSERT_EQ(::unlink(tree_.At("acl.copy").c_str()), 0);
    RoundTrip("acl", File::backup_no_security);
    struct stat st {};
    ::stat(tree_.At("acl.copy").c_str(), &st);
    EXPECT_EQ(st.st_uid, ::geteuid());
}

TEST_F(BackupRoundTrip, SymbolicLinksReplaceWhatStandsInTheirPlace) {
    ASSERT_EQ(::symlink("../some/where else", tree_.At("link").c_str()), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::lchown(tree_.At("link").c_str(), 321, 654), 0);
    }
    SetTime(tree_.At("link"), 1300000000, 0);
    tree_.Write("link.copy", "a file where the link goes");
    RoundTrip("link");
    ExpectSame("link");
    EXPECT_EQ(writer_->Of(1).Joined(), (Bytes{0x00, 0x04, 0, 0}));

    // A file restored where a link stands replaces the link, not its target.
    tree_.Write("target", "keep");
    tree_.Write("plain", "new");
    ASSERT_EQ(::symlink("target", tree_.At("plain.copy").c_str()), 0);
    RoundTrip("plain");
    ExpectSame("plain");
    EXPECT_EQ(Content(tree_.At("target")), (Bytes{'k', 'e', 'e', 'p'}));

    // Followed, a link is backed up as the file that it points to.
    ASSERT_EQ(::symlink("target", tree_.At("tolink").c_str()), 0);
    RecordingWriter followed(File::backup_follow_reparse);
    ASSERT_TRUE(File::BackupFile(Wide(tree_.At("tolink")), followed, nullptr).Succeeded());
    EXPECT_EQ(followed.Of(1).Joined(), (Bytes{0x80, 0, 0, 0}));
    const Bytes stream = followed.Of(2).Joined();
    ASSERT_GE(stream.size(), 24u);
    EXPECT_EQ(stream[0], 1);
    EXPECT_EQ(Bytes(stream.begin() + 20, stream.begin() + 24), (Bytes{'k', 'e', 'e', 'p'}));
}

// Devices, pipes and sockets come back as what they were, with their device numbers; a
// device that cannot be made is an error, never an empty file in its place.
TEST_F(BackupRoundTrip, SpecialFilesKeepTheirKind) {
    const bool root = ::geteuid() == 0;
    const auto prepare = [&](const std::string& name) {
        const std::string path = tree_.At(name);
        ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
        if (root) {
            ASSERT_EQ(::lchown(path.c_str(), 321, 654), 0);
            ASSERT_EQ(::lsetxattr(path.c_str(), "trusted.note", "n", 1, 0), 0);
        }
        SetTime(path, 1200000000, 250000000);
    };
    ASSERT_EQ(::mkfifo(tree_.At("fifo").c_str(), 0600), 0);
    prepare("fifo");
    tree_.Write("fifo.copy", "a file where the pipe goes");
    RoundTrip("fifo");
    ExpectSame("fifo");
    EXPECT_EQ(writer_->Of(1).Joined(), (Bytes{0x00, 0x04, 0, 0}));
    // The stream starts with the reparse data of the pipe: its tag and an empty body.
    const Bytes stream = writer_->Of(2).Joined();
    ASSERT_GE(stream.size(), 28u);
    EXPECT_EQ(stream[0], 8);
    EXPECT_EQ(stream[8], 8);
    EXPECT_EQ(Bytes(stream.begin() + 20, stream.begin() + 28),
              (Bytes{0x24, 0, 0, 0x80, 0, 0, 0, 0}));
    // A file restored where a pipe stands replaces the pipe instead of writing into it.
    tree_.Write("plain", "data");
    ASSERT_EQ(::mkfifo(tree_.At("plain.copy").c_str(), 0600), 0);
    RoundTrip("plain");
    ExpectSame("plain");

    // A socket that a program bound restores as the socket's node.
    const int server = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(server, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = tree_.At("sock");
    ASSERT_LT(socketPath.size(), sizeof address.sun_path);
    std::strcpy(address.sun_path, socketPath.c_str());
    ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ::close(server);
    prepare("sock");
    RoundTrip("sock");
    ExpectSame("sock");

    if (!root) {
        GTEST_SKIP() << "making a device needs root";
    }
    struct stat null {};
    ASSERT_EQ(::stat("/dev/null", &null), 0);
    ASSERT_EQ(::mknod(tree_.At("dev").c_str(), S_IFCHR | 0600, null.st_rdev), 0);
    prepare("dev");
    RoundTrip("dev");
    ExpectSame("dev");
    // Backing a device up never opens it: with the links followed it is still the node.
    RoundTrip("dev", File::backup_follow_reparse);
    ExpectSame("dev");

    // Without the capability to make devices the restore fails with the system's reason,
    // and leaves nothing in the device's place.
    ASSERT_EQ(::unlink(tree_.At("dev.copy").c_str()), 0);
    ChunkSource source(*writer_);
    Common::Error restored;
    std::thread restorer([&] {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct data[2] = {};
        ASSERT_EQ(::syscall(SYS_capget, &header, data), 0);
        data[CAP_MKNOD / 32].effective &= ~(1u << (CAP_MKNOD % 32));
        ASSERT_EQ(::syscall(SYS_capset, &header, data), 0);  // this thread only
        restored = File::RestoreFile(Wide(tree_.At("dev.copy")), source, nullptr);
    });
    restorer.join();
    EXPECT_EQ(restored.Code(), 0x4001au) << restored;
    const Platform::SystemError reason = File::SystemReasonOf(restored);
    EXPECT_EQ(reason.Windows, 1314u) << restored;
    EXPECT_EQ(reason.Native, EPERM) << restored;
    struct stat gone {};
    EXPECT_NE(::lstat(tree_.At("dev.copy").c_str(), &gone), 0);
}

TEST_F(BackupRoundTrip, OptionsOfDataOnlyAndNoData) {
    tree_.Write("f", "data");
    ASSERT_EQ(::setxattr(tree_.At("f").c_str(), "user.x", "1", 1, 0), 0);
    RecordingWriter dataOnly(File::backup_data_only);
    ASSERT_TRUE(File::BackupFile(Wide(tree_.At("f")), dataOnly, nullptr).Succeeded());
    EXPECT_EQ(dataOnly.Types(), (std::vector<std::uint32_t>{1, 2}));
    EXPECT_EQ(dataOnly.Of(2).Joined().size(), 24u);

    RecordingWriter noData(File::backup_skip_data);
    ASSERT_TRUE(File::BackupFile(Wide(tree_.At("f")), noData, nullptr).Succeeded());
    const Bytes stream = noData.Of(2).Joined();
    ASSERT_GE(stream.size(), 20u);
    EXPECT_EQ(stream[0], 4);  // the attribute first: no data stream
}

TEST_F(BackupRoundTrip, TheDirectoryCommands) {
    tree_.MakeDir("d");
    tree_.Write("d/f", "through the directory");
    Common::Error error;
    auto dir = File::OpenSystemDir(Wide(tree_.At("d")), error);
    ASSERT_TRUE(dir) << error;
    RecordingWriter writer;
    File::backup_entry_command backup;
    backup.Name = u"f";
    backup.Writer = &writer;
    ASSERT_TRUE(dir->IOCTL(backup)) << dir->GetError();
    ChunkSource source(writer);
    File::restore_entry_command restore;
    restore.Name = u"f.copy";
    restore.Source = &source;
    ASSERT_TRUE(dir->IOCTL(restore)) << dir->GetError();
    EXPECT_EQ(Content(tree_.At("d/f.copy")), Content(tree_.At("d/f")));

    // The directory itself, with a null name; a restore needs a name.
    RecordingWriter self;
    File::backup_entry_command own;
    own.Writer = &self;
    ASSERT_TRUE(dir->IOCTL(own));
    EXPECT_EQ(self.Of(1).Joined(), (Bytes{0x10, 0, 0, 0}));
    File::restore_entry_command unnamed;
    unnamed.Source = &source;
    EXPECT_FALSE(dir->IOCTL(unnamed));
    EXPECT_EQ(dir->GetError().Code(), 0x4000au);

    backup.Name = u"missing";
    EXPECT_FALSE(dir->IOCTL(backup));
    EXPECT_EQ(dir->GetError().Code(), 0x40001u);
}

TEST_F(BackupRoundTrip, AnotherUsersAccessAndTheCapabilities) {
    Platform::BackupSource& system = Platform::SystemBackupSource();
    const char* function = "";
    EXPECT_EQ(system.EnablePrivilege("SeNoSuchPrivilege", function).Windows, 1313u);
    EXPECT_STREQ(function, "LookupPrivilegeValue");
    if (::geteuid() != 0) {
        GTEST_SKIP() << "acting for another user needs root";
    }
    EXPECT_TRUE(File::EnablePrivilege(system, "SeBackupPrivilege").Succeeded());
    EXPECT_TRUE(File::EnablePrivilege(system, "SeRestorePrivilege").Succeeded());

    // A file that only its owner may read is refused to another user, and the refusal
    // names the open.
    ASSERT_EQ(::chmod(tree_.path.c_str(), 0755), 0);
    tree_.Write("private", "mine");
    ASSERT_EQ(::chmod(tree_.At("private").c_str(), 0600), 0);
    std::shared_ptr<File::SubstToken> nobody;
    ASSERT_TRUE(File::SubstToken::CreateLogonToken(u"nobody", nullptr, nobody).Succeeded());
    RecordingWriter writer;
    const Common::Error e = File::BackupFile(Wide(tree_.At("private")), writer, nobody);
    EXPECT_EQ(e.Code(), 0x40014u) << e;
    EXPECT_STREQ(e.GetAnsi("function"), "CreateFileW");
    EXPECT_TRUE(writer.chunks.empty());
    RecordingWriter own;
    EXPECT_TRUE(File::BackupFile(Wide(tree_.At("private")), own, nullptr).Succeeded());

    // Restored by that user, the owner cannot be given back: the user is asked, and the
    // answer "go on without security" leaves a copy that the restoring user owns.
    tree_.MakeDir("open");
    ASSERT_EQ(::chmod(tree_.At("open").c_str(), 0777), 0);
    for (const int answer : {File::answer_ignore, File::answer_abort}) {
        ScriptedUser user;
        user.answers = {answer};
        ChunkSource source(own, 0, &user);
        const std::string copy = tree_.At("open/copy" + std::to_string(answer));
        const Common::Error restored = File::RestoreFile(Wide(copy), source, nobody);
        ASSERT_EQ(user.errors.size(), 1u);
        EXPECT_EQ(user.errors[0].Code(), 0x40023u);
        struct stat st {};
        ASSERT_EQ(::stat(copy.c_str(), &st), 0);
        EXPECT_EQ(st.st_uid, 65534u);
        if (answer == File::answer_ignore) {
            EXPECT_TRUE(restored.Succeeded()) << restored;
            EXPECT_EQ(Content(copy), (Bytes{'m', 'i', 'n', 'e'}));
        } else {
            EXPECT_EQ(restored.Cause().Code(), 0x4000fu) << restored;
        }
    }

    // A directory opened as that user backs its entries up as that user too.
    Common::Error error;
    auto dir = File::OpenSystemDir(tree_.Wide(), nobody, error);
    ASSERT_TRUE(dir) << error;
    RecordingWriter refused;
    File::backup_entry_command backup;
    backup.Name = u"private";
    backup.Writer = &refused;
    EXPECT_FALSE(dir->IOCTL(backup));
    EXPECT_EQ(dir->GetError().Code(), 0x40014u);
}

}  // namespace
