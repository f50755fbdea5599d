#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dir_test_tree.h"
#include "file/nt_dir.h"
#include "file/roots.h"
#include "support/error_parts.h"
#include "support/fake_dir_io.h"

namespace {

using test_support::FakeDirIo;
using test_support::TempTree;
using DirCall = FakeDirIo::Call;

using test_support::OriginFunction;

const char kTable[] =
    "22 1 8:2 / / rw,relatime shared:1 - ext4 /dev/sda2 rw\n"
    "40 22 0:35 / /tmp rw,nosuid shared:17 - tmpfs tmpfs rw\n"
    "41 22 0:50 / /srv/with\\040blank rw - nfs4 server:/export rw,vers=4.2\n"
    "garbage line\n"
    "42 22 11:0 / /media/cdrom ro master:3 propagation:x - iso9660 /dev/sr0 ro\n"
    "43 22 8:17 / /media/stick rw - vfat /dev/sdb1 rw\n"
    "44 22 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
    "45 22 0:22 / /proc rw - proc proc rw\n"
    "46 40 0:60 / /tmp rw - ramfs none rw\n";

TEST(MountTable, FieldsEscapesAndOddLines) {
    const auto mounts = File::ParseMountTable(kTable);
    ASSERT_EQ(mounts.size(), 8u);
    EXPECT_EQ(mounts[0].Path, "/");
    EXPECT_EQ(mounts[0].Type, "ext4");
    EXPECT_EQ(mounts[0].Source, "/dev/sda2");
    EXPECT_EQ(mounts[0].Major, 8u);
    EXPECT_EQ(mounts[0].Minor, 2u);
    EXPECT_EQ(mounts[2].Path, "/srv/with blank");
    EXPECT_EQ(mounts[3].Type, "iso9660");  // after two optional fields
    // Lines without the fields of a mount are passed over, whatever they hold.
    EXPECT_TRUE(File::ParseMountTable("1 2 3\n- - -\n1 1 x:y / / rw - ext4 a b\n").empty());
    EXPECT_TRUE(File::ParseMountTable("1 1 8:1 / relative rw - ext4 a b\n").empty());
    EXPECT_TRUE(File::ParseMountTable("").empty());
}

TEST(MountTable, DriveClasses) {
    const auto mounts = File::ParseMountTable(kTable);
    const std::uint32_t expected[] = {File::drive_fixed,     File::drive_ramdisk,
                                      File::drive_remote,    File::drive_optical,
                                      File::drive_removable, File::drive_fixed,
                                      File::drive_unknown,   File::drive_ramdisk};
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        EXPECT_EQ(File::DriveClassOf(mounts[i]), expected[i]) << mounts[i].Path;
    }
    // The deepest mount of the device above the path holds it.
    const File::MountPoint* m = File::FindMount(mounts, makedev(8, 2), "/home/user/");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->Path, "/");
    m = File::FindMount(mounts, makedev(0, 50), "/srv/with blank/x/");
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(m->Type, "nfs4");
    EXPECT_EQ(File::FindMount(mounts, makedev(99, 99), "/"), nullptr);
}

TEST(Roots, MountPointsComeInAscendingOrderEachOnce) {
    FakeDirIo io;
    io.mountTable = kTable;
    auto root = File::CreateRootDir(io);
    std::unique_ptr<File::i_dir::iterator> it(root->GetIterator());
    std::vector<std::u16string> names;
    std::vector<std::uint32_t> types;
    for (; !it->Failed(); it->Next()) {
        names.push_back(it->GetName());
        types.push_back(it->GetType());
        EXPECT_EQ(it->GetAttributes(), File::kAttributeDirectory);
    }
    EXPECT_EQ(names, (std::vector<std::u16string>{u"/", u"/boot/efi", u"/media/cdrom",
                                                  u"/media/stick", u"/proc", u"/srv/with blank",
                                                  u"/tmp"}));
    // /tmp was mounted over: the later mount is the one seen.
    EXPECT_EQ(types.back(), File::drive_ramdisk);
    EXPECT_EQ(it->GetError().Code(), 0x40002u);
    EXPECT_EQ(OriginFunction(it->GetError()), "nt_dir::mount_iterator::Next");

    // Finding a mount by its path, and missing one.
    auto* mounts = new File::mount_iterator(io);
    std::unique_ptr<File::i_dir::iterator> owner(mounts);
    EXPECT_TRUE(mounts->Find(u"/media/cdrom"));
    EXPECT_EQ(mounts->GetType(), File::drive_optical);
    std::unique_ptr<File::file_identifier> id(mounts->GetIdentifier());
    auto& named = dynamic_cast<File::the_identifier&>(*id);
    EXPECT_EQ(named.Name(), u"/media/cdrom");
    EXPECT_EQ(named.BlobSize(), 13u);  // the path and its ending zero
    EXPECT_TRUE(mounts->Next());
    EXPECT_EQ(std::u16string(mounts->GetName()), u"/media/stick");
    EXPECT_EQ(mounts->GetInodeId(), 0u);
    EXPECT_EQ(mounts->GetError().Code(), 0x4000eu);
    EXPECT_EQ(OriginFunction(mounts->GetError()), "nt_dir::mount_iterator::InodeId");
    File::mount_iterator missing(io);
    EXPECT_FALSE(missing.Find(u"/nowhere"));
    EXPECT_EQ(missing.GetError().Code(), 0x40002u);

    // The root's name lookup stands on a mount point.
    std::unique_ptr<File::i_dir::iterator> at(root->GetIterator(u"/srv/with blank"));
    ASSERT_FALSE(at->Failed());
    EXPECT_EQ(at->GetType(), File::drive_remote);
}

TEST(Roots, TheRootItselfAndItsFailures) {
    FakeDirIo io;
    io.FailOn(DirCall::ReadMountTable, Platform::SystemError{5, EACCES});
    auto root = File::CreateRootDir(io);
    std::unique_ptr<File::i_dir::iterator> it(root->GetIterator());
    EXPECT_EQ(it->GetError().Code(), 0x40014u);
    EXPECT_STREQ(it->GetError().GetAnsi("function"), "mountinfo");

    io.mountTable = "";
    std::unique_ptr<File::i_dir::iterator> empty(root->GetIterator());
    EXPECT_EQ(empty->GetError().Code(), 0x40002u);

    // The root has nothing of its own to stand on.
    std::unique_ptr<File::i_dir::iterator> self(root->GetSelfIterator());
    EXPECT_FALSE(self->Failed());
    EXPECT_EQ(self->GetName(), nullptr);
    EXPECT_FALSE(self->Next());
    EXPECT_EQ(self->GetError().Code(), 0x40002u);
    EXPECT_EQ(root->GetDriveType(), File::drive_unknown);
    std::uint64_t t, f, a;
    EXPECT_FALSE(root->GetDriveSize(t, f, a));
    EXPECT_EQ(root->GetError().Code(), 0x4000eu);
    root->ClearError();

    // An empty path is the top itself, never the working directory: it lists nothing of its
    // own, and a path without a separator leaves the top where it is.
    std::unique_ptr<File::i_dir::iterator> top(root->GetIterator(u""));
    ASSERT_TRUE(top);
    EXPECT_EQ(top->GetName(), nullptr);
    EXPECT_FALSE(top->Next());
    const char16_t* leaf = u"leaf";
    std::unique_ptr<File::rio_dir> at(root->OpenPath(leaf));
    ASSERT_TRUE(at);
    EXPECT_TRUE(dynamic_cast<File::nt_dir&>(*at).IsRoot());
    EXPECT_EQ(std::u16string(leaf), u"leaf");

    // Absolute names work through the root as anywhere.
    TempTree tree;
    tree.Write("x", "abc");
    const std::u16string file = tree.Wide() + u"/x";
    std::unique_ptr<File::rio_file> opened(root->OpenI(file.c_str(), 0));
    ASSERT_TRUE(opened);
    EXPECT_EQ(opened->Size(), 3u);
}

TEST(Roots, SelfIteratorsOfDirectoriesAndVolumes) {
    TempTree tree;
    tree.MakeDir("inner");
    auto root = File::CreateRootDir(Platform::SystemDirIo());
    const std::u16string inner = tree.Wide() + u"/inner";
    std::unique_ptr<File::rio_dir> dir(root->OpenDir(inner.c_str()));
    ASSERT_TRUE(dir);
    std::unique_ptr<File::i_dir::iterator> self(dir->GetSelfIterator());
    ASSERT_FALSE(self->Failed());
    EXPECT_EQ(std::u16string(self->GetName()), u"inner");
    EXPECT_EQ(self->GetType(), File::entry_dir);
    EXPECT_EQ(std::u16string(self->GetFullPath()), inner + u"/");
    EXPECT_FALSE(self->Next());
    EXPECT_EQ(OriginFunction(self->GetError()), "nt_dir::iterator::Next");

    // The system's root is the root of a volume: its own entry alone.
    std::unique_ptr<File::rio_dir> top(root->OpenDir(u"/"));
    ASSERT_TRUE(top);
    std::unique_ptr<File::i_dir::iterator> volume(top->GetSelfIterator());
    ASSERT_FALSE(volume->Failed());
    EXPECT_EQ(std::u16string(volume->GetName()), u"/");
    EXPECT_FALSE(volume->Next());
    EXPECT_EQ(volume->GetError().Code(), 0x40002u);
    EXPECT_EQ(OriginFunction(volume->GetError()), "nt_dir::volume_self_iterator::Next");
    EXPECT_NE(top->GetDriveType(), 0u);
}

TEST(Roots, SpecialDirectories) {
    TempTree tree;
    FakeDirIo io;
    auto root = File::CreateRootDir(io);
    io.placePath = tree.path;
    for (const std::uint32_t selector :
         {File::special_temporary, File::special_current, File::special_home}) {
        std::unique_ptr<File::i_dir> place(root->OpenSpecialDir(selector));
        ASSERT_TRUE(place) << selector;
        EXPECT_EQ(dynamic_cast<File::nt_dir&>(*place).Path(), tree.Wide() + u"/");
    }
    std::unique_ptr<File::i_dir> top(root->OpenSpecialDir(File::special_top));
    ASSERT_TRUE(top);
    EXPECT_TRUE(dynamic_cast<File::nt_dir&>(*top).IsRoot());

    EXPECT_EQ(root->OpenSpecialDir(77), nullptr);
    EXPECT_EQ(root->GetError().Code(), 0x4000eu);
    EXPECT_EQ(OriginFunction(root->GetError()), "nt_dir::OpenSpecialDir");

    io.FailOn(DirCall::PlacePath, Platform::SystemError{2, ENOENT});
    EXPECT_EQ(root->OpenSpecialDir(File::special_current), nullptr);
    EXPECT_STREQ(root->GetError().GetAnsi("function"), "getcwd");

    // A place that can't be opened is an open failure, with the system's reason beneath.
    io.placePath = tree.path + "/gone";
    EXPECT_EQ(root->OpenSpecialDir(File::special_home), nullptr);
    EXPECT_EQ(root->GetError().Code(), 0x40007u);
    EXPECT_EQ(root->GetError().Cause().Code(), 0x40011u);

    // The real places exist on any machine the tests run on.
    auto real = File::CreateRootDir();
    std::unique_ptr<File::i_dir> temporary(real->OpenSpecialDir(File::special_temporary));
    EXPECT_TRUE(temporary);
    std::unique_ptr<File::i_dir> current(real->OpenSpecialDir(File::special_current));
    EXPECT_TRUE(current);
}

}  // namespace
