#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <tessel_link/file/dir_object.h>
#include <tessel_link/file/memory_file.h>

#include "support/error_parts.h"

namespace {

using test_support::OriginFunction;

class NamedIterator : public File::i_dir::iterator {
public:
    bool Next() override { return false; }
    File::file_identifier* GetIdentifier() override { return nullptr; }
    const char16_t* GetName() override { return u"entry"; }
    std::uint32_t GetAttributes() override { return 0; }
    std::uint32_t GetType() override { return 0; }
};

// A directory that has what every directory must have and nothing more. Its files open
// only when `opens` is set.
class BareDir : public File::rio_dir {
public:
    bool opens = false;
    std::u16string lastOpenedDir;

    File::ri_file* OpenI(const File::file_identifier&) override { return nullptr; }
    File::ri_file* OpenI(iterator&) override {
        return opens ? new File::buf_ifile<char>("", 0) : nullptr;
    }
    File::ri_file* OpenI(const char16_t*, std::uint32_t) override { return nullptr; }
    File::i_dir* OpenDir(const File::file_identifier&) override { return nullptr; }
    File::i_dir* OpenDir(iterator&) override { return nullptr; }
    File::i_dir* OpenDir(const char16_t* name) override {
        lastOpenedDir = name;
        return nullptr;
    }
    File::i_dir* OpenPath(const char16_t*&) override { return nullptr; }
    iterator* GetIterator(const File::file_identifier&) override { return nullptr; }
    iterator* GetIterator(const char16_t*) override { return new NamedIterator; }
    iterator* GetIterator() override { return nullptr; }
    iterator* GetSelfIterator() override { return nullptr; }
    int Compare(File::i_dir&) override { return 2; }
    int Compare(const File::file_identifier&, const File::file_identifier&) override { return 1; }
    File::o_dir* OpenDirO(const File::file_identifier&) override { return nullptr; }
    bool Remove(const char16_t*) override { return true; }
    bool Rename(const char16_t*, const char16_t*) override { return true; }
    bool CreateDir(const char16_t*, std::uint32_t) override { return true; }
    bool RemoveDir(const char16_t*) override { return true; }
    File::ro_file* OpenO(const File::file_identifier&) override { return nullptr; }
    File::ro_file* OpenO(File::i_dir::iterator&) override { return nullptr; }
    File::ro_file* OpenO(const char16_t*, std::uint32_t) override { return nullptr; }
    File::rio_file* OpenRIO(const File::file_identifier&) override { return nullptr; }
    File::rio_file* OpenRIO(iterator&) override { return nullptr; }
    File::rio_file* OpenRIO(const char16_t*, std::uint32_t) override { return nullptr; }
    File::rio_file* CreateRIO(const char16_t*, std::uint32_t) override { return nullptr; }
};

TEST(DirDefaults, UnsupportedOperationsNameTheirFunction) {
    struct Case {
        bool (*op)(BareDir&);
        const char* function;
    };
    const Case cases[] = {
        {[](BareDir& d) { return d.File::i_dir::OpenSpecialDir(1) != nullptr; },
         "i_dir::OpenSpecialDir"},
        {[](BareDir& d) { return d.File::si_dir::OpenSpecialDir(1) != nullptr; },
         "si_dir::OpenSpecialDir"},
        {[](BareDir& d) { return d.File::ri_dir::OpenSpecialDir(1) != nullptr; },
         "ri_dir::OpenSpecialDir"},
        {[](BareDir& d) { return d.OpenSpecialDir(1) != nullptr; }, "rio_dir::OpenSpecialDir"},
        {[](BareDir& d) {
             std::u16string label;
             return d.GetVolumeLabel(label);
         },
         "i_dir::GetVolumeLabel"},
        {[](BareDir& d) { return d.EnableNotification(nullptr); }, "i_dir::EnableNotification"},
        {[](BareDir& d) { return d.CreateHardLink(u"a", u"b"); }, "o_dir::CreateHardLink"},
        {[](BareDir& d) { return d.CreateSymLink(u"a", u"b"); }, "o_dir::CreateSymLink"},
        {[](BareDir& d) { return d.SetAccessRights(u"a", nullptr); }, "o_dir::SetAccessRights"},
        {[](BareDir& d) { return d.SetDOSAttributes(u"a", 1); }, "o_dir::SetDOSAttributes"},
        {[](BareDir& d) { return d.SetUnixPermissions(u"a", 0644); }, "o_dir::SetUnixPermissions"},
        {[](BareDir& d) { return d.SetUnixOwner(u"a", 1, 1); }, "o_dir::SetUnixOwner"},
        {[](BareDir& d) { return d.CreateDeviceNode(u"a", 1, 2, 3); }, "o_dir::CreateDeviceNode"},
        {[](BareDir& d) {
             File::ioctl_command c{1};
             return d.IOCTL(c);
         },
         "i_dir::IOCTL"},
        {[](BareDir& d) {
             File::ioctl_command c{1};
             return d.File::o_dir::IOCTL(c);
         },
         "o_dir::IOCTL"},
    };
    for (const Case& c : cases) {
        BareDir dir;
        EXPECT_FALSE(c.op(dir));
        EXPECT_EQ(dir.GetError().Code(), 0x4000eu) << c.function;
        EXPECT_EQ(OriginFunction(dir.GetError()), c.function);
    }
}

TEST(DirDefaults, AnswersWithoutAnError) {
    BareDir dir;
    std::uint64_t total = 1, free = 1, available = 1;
    EXPECT_FALSE(dir.GetDriveSize(total, free, available));
    EXPECT_EQ(total + free + available, 0u);
    EXPECT_EQ(OriginFunction(dir.GetError()), "i_dir::GetDriveSize");

    BareDir clean;
    EXPECT_EQ(clean.GetDriveType(), 137u);
    EXPECT_TRUE(clean.IsPathSeparator(u'/'));
    EXPECT_TRUE(clean.IsPathSeparator(u'\\'));
    EXPECT_FALSE(clean.IsPathSeparator(u':'));
    EXPECT_EQ(clean.GetPathSeparator(), u'\\');
    EXPECT_EQ(clean.GetIdentifier(), nullptr);
    EXPECT_EQ(clean.GetMountInfo(), std::make_pair(std::uint64_t{0}, std::uint64_t{0}));
    EXPECT_EQ(clean.OpenSelf(), nullptr);
    EXPECT_EQ(clean.lastOpenedDir, u".");
    EXPECT_FALSE(clean.Failed());
}

TEST(DirDefaults, ResolveSymLinksOpensTheEntry) {
    BareDir dir;
    dir.opens = true;
    std::unique_ptr<File::file_object> opened(dir.ResolveSymLinks(u"x"));
    EXPECT_NE(opened, nullptr);
    EXPECT_FALSE(dir.Failed());

    BareDir refusing;
    EXPECT_EQ(refusing.ResolveSymLinks(u"x"), nullptr);
    EXPECT_EQ(refusing.GetError().Code(), 0x40006u);
    EXPECT_EQ(OriginFunction(refusing.GetError()), "i_dir::ResolveSymLinks");
}

TEST(DirDefaults, IteratorDefaults) {
    NamedIterator it;
    EXPECT_EQ(std::u16string(it.GetDisplayName()), u"entry");
    EXPECT_EQ(it.GetShortName(), nullptr);
    EXPECT_EQ(it.GetFullPath(), nullptr);
    EXPECT_EQ(it.GetSize(), 0u);
    EXPECT_EQ(it.GetWriteTime(), 0);
    for (std::uint64_t unknown : {it.GetLinkCount(), it.GetUnixMode(), it.GetUnixOwner(),
                                  it.GetUnixGroup(), it.GetRawDevice()}) {
        EXPECT_EQ(unknown, ~std::uint64_t{0});
    }
    EXPECT_EQ(it.GetInodeId(), 0u);
}

TEST(DirDefaults, DriveTypesAndTimes) {
    EXPECT_EQ(File::DriveTypeFromWindows(2), 130u);
    EXPECT_EQ(File::DriveTypeFromWindows(3), 131u);
    EXPECT_EQ(File::DriveTypeFromWindows(4), 132u);
    EXPECT_EQ(File::DriveTypeFromWindows(5), 133u);
    EXPECT_EQ(File::DriveTypeFromWindows(6), 136u);
    EXPECT_EQ(File::DriveTypeFromWindows(1), 137u);
    EXPECT_EQ(File::DriveTypeFromWindows(7), 137u);
    // 1970-01-01 and one second later, in 100 ns since 1601.
    EXPECT_EQ(File::FileTimeToUnixMilliseconds(116444736000000000ull), 0);
    EXPECT_EQ(File::FileTimeToUnixMilliseconds(116444736010000000ull), 1000);
}

}  // namespace
