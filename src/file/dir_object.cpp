#include <tessel_link/file/dir_object.h>

#include <memory>

#include "file/file_errors.h"

namespace File {

namespace {
constexpr std::uint64_t kUnknown = ~std::uint64_t{0};
}  // namespace

std::uint32_t DriveTypeFromWindows(std::uint32_t windowsType) noexcept {
    switch (windowsType) {
        case 2:
            return drive_removable;
        case 3:
            return drive_fixed;
        case 4:
            return drive_remote;
        case 5:
            return drive_optical;
        case 6:
            return drive_ramdisk;
        default:
            return drive_unknown;
    }
}

std::int64_t FileTimeToUnixMilliseconds(std::uint64_t fileTime) noexcept {
    return static_cast<std::int64_t>(fileTime / 10000) - 11644473600000LL;
}

// Iterator defaults.
const char16_t* i_dir::iterator::GetShortName() {
    return nullptr;
}
const char16_t* i_dir::iterator::GetDisplayName() {
    return GetName();
}
bool i_dir::iterator::GetEntryInfo(dir_entry_info& info) {
    info.Name = GetName();
    info.NameLength = info.Name != nullptr ? std::char_traits<char16_t>::length(info.Name) : 0;
    info.Type = GetType();
    info.Size = GetSize();
    info.WriteTime = GetWriteTime();
    return !Failed();
}
std::uint64_t i_dir::iterator::Reserved5() {
    return 0;
}
const char16_t* i_dir::iterator::GetFullPath() {
    return nullptr;
}
std::uint64_t i_dir::iterator::GetSize() {
    return 0;
}
std::int64_t i_dir::iterator::GetCreationTime() {
    return 0;
}
std::int64_t i_dir::iterator::GetAccessTime() {
    return 0;
}
std::int64_t i_dir::iterator::GetWriteTime() {
    return 0;
}
std::uint64_t i_dir::iterator::GetLinkCount() {
    return kUnknown;
}
std::uint64_t i_dir::iterator::GetUnixMode() {
    return kUnknown;
}
std::uint64_t i_dir::iterator::GetUnixOwner() {
    return kUnknown;
}
std::uint64_t i_dir::iterator::GetUnixGroup() {
    return kUnknown;
}
std::uint64_t i_dir::iterator::GetRawDevice() {
    return kUnknown;
}
const void* i_dir::iterator::GetOwnerSid() {
    return nullptr;
}
const char16_t* i_dir::iterator::GetSymLinkTarget() {
    return nullptr;
}
std::uint64_t i_dir::iterator::Reserved20() {
    return 0;
}
std::uint64_t i_dir::iterator::Reserved21() {
    return 0;
}
const char16_t* i_dir::iterator::GetExtendedName() {
    return nullptr;
}
std::uint64_t i_dir::iterator::GetInodeId() {
    return 0;
}
std::uint64_t i_dir::iterator::GetDeviceId() {
    return 0;
}

// Input directory defaults.
i_dir* i_dir::OpenSelf() {
    return nullptr;
}

i_dir* i_dir::OpenSpecialDir(std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("i_dir::OpenSpecialDir"));
    return nullptr;
}

file_identifier* i_dir::GetIdentifier() {
    return nullptr;
}
std::uint32_t i_dir::GetDriveType() {
    return drive_unknown;
}

bool i_dir::GetDriveSize(std::uint64_t& total, std::uint64_t& free, std::uint64_t& available) {
    total = free = available = 0;
    RecordNotSupported(TL_ORIGIN("i_dir::GetDriveSize"));
    return false;
}

bool i_dir::GetVolumeLabel(std::u16string&) {
    RecordNotSupported(TL_ORIGIN("i_dir::GetVolumeLabel"));
    return false;
}

bool i_dir::IsPathSeparator(char16_t c) {
    return c == u'/' || c == u'\\';
}
char16_t i_dir::GetPathSeparator() {
    return u'\\';
}
std::uint64_t i_dir::Reserved21() {
    return 0;
}

bool i_dir::EnableNotification(dir_notification*) {
    RecordNotSupported(TL_ORIGIN("i_dir::EnableNotification"));
    return false;
}

void i_dir::ContinueNotification() {}

file_object* i_dir::ResolveSymLinks(const char16_t* path) {
    const std::unique_ptr<iterator> entry(GetIterator(path));
    if (!entry) {
        return nullptr;  // GetIterator has recorded why
    }
    file_object* result = OpenI(*entry);
    if (result == nullptr) {
        RecordError(MakeFileError(TL_ORIGIN("i_dir::ResolveSymLinks"), kOutOfMemory));
    }
    return result;
}

std::uint64_t i_dir::Reserved25() {
    return 0;
}
std::pair<std::uint64_t, std::uint64_t> i_dir::GetMountInfo() {
    return {0, 0};
}
std::uint64_t i_dir::Reserved27() {
    return 0;
}

bool i_dir::IOCTL(ioctl_command&) {
    RecordNotSupported(TL_ORIGIN("i_dir::IOCTL"));
    return false;
}

// Output directory defaults.
bool o_dir::CreateHardLink(const char16_t*, const char16_t*) {
    RecordNotSupported(TL_ORIGIN("o_dir::CreateHardLink"));
    return false;
}

bool o_dir::CreateSymLink(const char16_t*, const char16_t*) {
    RecordNotSupported(TL_ORIGIN("o_dir::CreateSymLink"));
    return false;
}

bool o_dir::SetAccessRights(const char16_t*, const void*) {
    RecordNotSupported(TL_ORIGIN("o_dir::SetAccessRights"));
    return false;
}

bool o_dir::SetDOSAttributes(const char16_t*, std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("o_dir::SetDOSAttributes"));
    return false;
}

bool o_dir::SetUnixPermissions(const char16_t*, std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("o_dir::SetUnixPermissions"));
    return false;
}

bool o_dir::SetUnixOwner(const char16_t*, std::uint32_t, std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("o_dir::SetUnixOwner"));
    return false;
}

bool o_dir::CreateDeviceNode(const char16_t*, std::uint32_t, std::uint32_t, std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("o_dir::CreateDeviceNode"));
    return false;
}

bool o_dir::IOCTL(ioctl_command&) {
    RecordNotSupported(TL_ORIGIN("o_dir::IOCTL"));
    return false;
}

// Each class names itself in its refusal of special directories.
i_dir* si_dir::OpenSpecialDir(std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("si_dir::OpenSpecialDir"));
    return nullptr;
}

i_dir* ri_dir::OpenSpecialDir(std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("ri_dir::OpenSpecialDir"));
    return nullptr;
}

i_dir* rio_dir::OpenSpecialDir(std::uint32_t) {
    RecordNotSupported(TL_ORIGIN("rio_dir::OpenSpecialDir"));
    return nullptr;
}

i_dir* rio_dir::OpenSelf() {
    return OpenDir(u".");
}

bool rio_dir::IOCTL(ioctl_command& command) {
    return i_dir::IOCTL(command);
}

}  // namespace File
