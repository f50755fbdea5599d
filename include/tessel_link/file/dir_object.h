#pragma once

// Directory objects: reading a directory's entries, opening its files and subdirectories, and
// changing them.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include <tessel_link/export.h>
#include <tessel_link/file/file_identifier.h>
#include <tessel_link/file/file_object.h>

namespace File {

// Drive classes, shared by GetDriveType and the entry class of a volume.
enum drive_type : std::uint32_t {
    drive_removable = 130,
    drive_fixed = 131,
    drive_remote = 132,
    drive_optical = 133,
    drive_ramdisk = 136,
    drive_unknown = 137,
};

// The drive class of a Windows drive type (DRIVE_REMOVABLE 2 to DRIVE_RAMDISK 6).
TL_API std::uint32_t DriveTypeFromWindows(std::uint32_t windowsType) noexcept;

// Milliseconds since 1970-01-01 UTC from a count of 100 ns since 1601, the unit of the
// times that iterators report.
TL_API std::int64_t FileTimeToUnixMilliseconds(std::uint64_t fileTime) noexcept;

// What a walk reads of most entries, given by i_dir::iterator::GetEntryInfo in one call.
struct dir_entry_info {
    const char16_t* Name = nullptr;  // as GetName: valid until the iterator moves
    std::size_t NameLength = 0;      // in UTF-16 units, without the closing zero
    std::uint32_t Type = 0;          // as GetType: the entry class
    std::uint64_t Size = 0;          // as GetSize
    std::int64_t WriteTime = 0;      // as GetWriteTime: milliseconds since 1970
};

// The receiver of change notifications; the notification service defines it.
class dir_notification;

// Input from a directory. Opens return objects that the caller owns (wrap them in a
// std::unique_ptr), or null with the reason recorded in this directory.
class TL_API i_dir : public virtual file_object {
public:
    // A position in a directory.
    class TL_API iterator : public virtual file_object {
    public:
        // Goes to the next entry; at the end records 0x40002.
        virtual bool Next() = 0;
        virtual file_identifier* GetIdentifier() = 0;  // the entry's identifier; null when in error
        // The entry's name; null when in error.
        virtual const char16_t* GetName() = 0;
        virtual const char16_t* GetShortName();    // null
        virtual const char16_t* GetDisplayName();  // GetName()
        virtual std::uint64_t Reserved5();  // kept free
        // The DOS attribute word.
        virtual std::uint32_t GetAttributes() = 0;
        virtual const char16_t* GetFullPath();  // null
        // The entry class.
        virtual std::uint32_t GetType() = 0;
        virtual std::uint64_t GetSize();  // the times are in milliseconds since 1970; all 0
        virtual std::int64_t GetCreationTime();  // milliseconds since 1970; 0 when unknown
        virtual std::int64_t GetAccessTime();  // milliseconds since 1970; 0 when unknown
        virtual std::int64_t GetWriteTime();  // milliseconds since 1970; 0 when unknown
        // Numeric properties; all ones means unknown.
        virtual std::uint64_t GetLinkCount();
        virtual std::uint64_t GetUnixMode();  // the mode bits
        virtual std::uint64_t GetUnixOwner();  // the owner's user ID
        virtual std::uint64_t GetUnixGroup();  // the group ID
        virtual std::uint64_t GetRawDevice();  // the device number of a device node
        virtual const void* GetOwnerSid();           // null
        virtual const char16_t* GetSymLinkTarget();  // null
        virtual std::uint64_t Reserved20();  // kept free
        virtual std::uint64_t Reserved21();  // kept free
        virtual const char16_t* GetExtendedName();  // null
        virtual std::uint64_t GetInodeId();         // 0
        virtual std::uint64_t GetDeviceId();        // 0
        // Name, its length, type, size and modification time of the entry in one call, each
        // as its own getter gives it, with those getters' errors: for a walk that wants all
        // of them, one call instead of four. False, with the fields as those getters left
        // them, when the iterator is in error afterwards. The default asks the four getters.
        virtual bool GetEntryInfo(dir_entry_info& info);
    };

    // Opens an entry for reading: by identifier, at an iterator's position, or by name.
    virtual i_file* OpenI(const file_identifier& id) = 0;
    virtual i_file* OpenI(iterator& position) = 0;
    virtual i_file* OpenI(const char16_t* name, std::uint32_t flags) = 0;
    // Opens a subdirectory: by identifier, at an iterator's position, or by name.
    virtual i_dir* OpenDir(const file_identifier& id) = 0;
    virtual i_dir* OpenDir(iterator& position) = 0;
    virtual i_dir* OpenDir(const char16_t* name) = 0;
    // Opens the directory part of `path` and moves `path` to the leaf.
    virtual i_dir* OpenPath(const char16_t*& path) = 0;
    // A new object for this directory; null unless a class can make one.
    virtual i_dir* OpenSelf();
    // Records 0x4000e unless the object is already in error.
    virtual i_dir* OpenSpecialDir(std::uint32_t selector);
    // At the entry of that identifier.
    virtual iterator* GetIterator(const file_identifier& id) = 0;
    // By name or pattern.
    virtual iterator* GetIterator(const char16_t* name) = 0;
    // At the first entry.
    virtual iterator* GetIterator() = 0;
    // Standing on the directory itself.
    virtual iterator* GetSelfIterator() = 0;
    virtual file_identifier* GetIdentifier();  // null
    // 0 the same directory, 1 this one is above `other`, 2 unrelated.
    virtual int Compare(i_dir& other) = 0;
    // 0 when equal, else non-zero.
    virtual int Compare(const file_identifier& a, const file_identifier& b) = 0;
    virtual std::uint32_t GetDriveType();  // drive_unknown
    // Zeroes the sizes and records 0x4000e.
    virtual bool GetDriveSize(std::uint64_t& total, std::uint64_t& free, std::uint64_t& available);
    virtual bool GetVolumeLabel(std::u16string& label);  // records 0x4000e
    virtual bool IsPathSeparator(char16_t c);            // '/' and '\'
    virtual char16_t GetPathSeparator();                 // '\'
    virtual std::uint64_t Reserved21();  // kept free
    // Starts (non-null) or stops (null) change notification; records 0x4000e.
    virtual bool EnableNotification(dir_notification* callback);
    virtual void ContinueNotification();  // nothing to re-arm
    // Looks `path` up, opens the entry and returns it; records 0x40006 when the result can't
    // be made.
    virtual file_object* ResolveSymLinks(const char16_t* path);
    virtual std::uint64_t Reserved25();  // kept free
    virtual std::pair<std::uint64_t, std::uint64_t> GetMountInfo();  // {0, 0}
    virtual std::uint64_t Reserved27();  // kept free

    bool IOCTL(ioctl_command& command) override;  // records 0x4000e ("i_dir::IOCTL")
};

// Output to a directory: creating, removing and changing entries.
class TL_API o_dir : public virtual file_object {
public:
    virtual o_dir* OpenDirO(const file_identifier& id) = 0;  // opens a subdirectory for output
    virtual bool Remove(const char16_t* name) = 0;  // removes the file `name`
    virtual bool Rename(const char16_t* from, const char16_t* to) = 0;  // renames an entry
    // The defaults of these record 0x4000e with their own names.
    virtual bool CreateHardLink(const char16_t* existing, const char16_t* link);
    // Makes `link` point at `target`.
    virtual bool CreateSymLink(const char16_t* target, const char16_t* link);
    // Makes the directory `name`.
    virtual bool CreateDir(const char16_t* name, std::uint32_t flags) = 0;
    virtual bool RemoveDir(const char16_t* name) = 0;  // removes the empty directory `name`
    // Sets the entry's access rights.
    virtual bool SetAccessRights(const char16_t* name, const void* rights);
    // Sets the entry's DOS attributes.
    virtual bool SetDOSAttributes(const char16_t* name, std::uint32_t attributes);
    // Sets the entry's mode bits.
    virtual bool SetUnixPermissions(const char16_t* name, std::uint32_t mode);
    // Sets the entry's owner and group.
    virtual bool SetUnixOwner(const char16_t* name, std::uint32_t user, std::uint32_t group);
    // Makes a device node.
    virtual bool CreateDeviceNode(const char16_t* name, std::uint32_t kind, std::uint32_t major,
                                  std::uint32_t minor);
    // Opens an entry for writing: by identifier, at an iterator's position, or by name.
    virtual o_file* OpenO(const file_identifier& id) = 0;
    virtual o_file* OpenO(i_dir::iterator& position) = 0;
    virtual o_file* OpenO(const char16_t* name, std::uint32_t flags) = 0;

    bool IOCTL(ioctl_command& command) override;  // records 0x4000e ("o_dir::IOCTL")
};

// A directory whose files can be read in sequence.
class TL_API si_dir : public i_dir {
public:
    si_file* OpenI(const file_identifier& id) override = 0;
    si_file* OpenI(iterator& position) override = 0;
    si_file* OpenI(const char16_t* name, std::uint32_t flags) override = 0;
    i_dir* OpenSpecialDir(std::uint32_t selector) override;
};

// A directory whose files can be read at any position.
class TL_API ri_dir : public si_dir {
public:
    ri_file* OpenI(const file_identifier& id) override = 0;
    ri_file* OpenI(iterator& position) override = 0;
    ri_file* OpenI(const char16_t* name, std::uint32_t flags) override = 0;
    i_dir* OpenSpecialDir(std::uint32_t selector) override;
};

// A directory whose files can be written at any position.
class TL_API ro_dir : public o_dir {
public:
    ro_file* OpenO(const file_identifier& id) override = 0;
    ro_file* OpenO(i_dir::iterator& position) override = 0;
    ro_file* OpenO(const char16_t* name, std::uint32_t flags) override = 0;
};

// A directory whose files can be read and written at any position.
class TL_API rio_dir : public ri_dir, public ro_dir {
public:
    // OpenDir(".").
    i_dir* OpenSelf() override;
    i_dir* OpenSpecialDir(std::uint32_t selector) override;
    // Opens an entry for reading and writing: by identifier or at an iterator's position (the
    // entry as it is), or by name, creating the file or emptying it.
    virtual rio_file* OpenRIO(const file_identifier& id) = 0;
    virtual rio_file* OpenRIO(iterator& position) = 0;
    virtual rio_file* OpenRIO(const char16_t* name, std::uint32_t flags) = 0;
    // The same as OpenRIO by name, under the name that says what it does.
    virtual rio_file* CreateRIO(const char16_t* name, std::uint32_t flags) = 0;

    bool IOCTL(ioctl_command& command) override;  // as i_dir
};

}  // namespace File
