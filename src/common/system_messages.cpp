// Texts of system records. There is no system message catalogue on this platform, so the
// library carries the texts of the Windows, NT and HRESULT codes that it produces itself
// (the codes that the file layer translates, and a few more). Any other code has an empty
// text; its value stays readable as the record's "code" parameter.

#include <cstdint>
#include <string>

#include "common/error_record.h"

namespace Common {

namespace {

struct CodeText {
    std::uint32_t Code;
    const char16_t* Text;
};

// As the system formats them, with their line ends; the cleaning rule below applies.
constexpr CodeText kWin32Texts[] = {
    {0, u"The operation completed successfully.\r\n"},
    {1, u"Incorrect function.\r\n"},
    {2, u"The system cannot find the file specified.\r\n"},
    {3, u"The system cannot find the path specified.\r\n"},
    {4, u"The system cannot open the file.\r\n"},
    {5, u"Access is denied.\r\n"},
    {6, u"The handle is invalid.\r\n"},
    {8, u"Not enough memory resources are available to process this command.\r\n"},
    {18, u"There are no more files.\r\n"},
    {19, u"The media is write protected.\r\n"},
    {21, u"The device is not ready.\r\n"},
    {32, u"The process cannot access the file because it is being used by another process.\r\n"},
    {33, u"The process cannot access the file because another process has locked a portion of "
         u"the file.\r\n"},
    {38, u"Reached the end of the file.\r\n"},
    {39, u"The disk is full.\r\n"},
    {50, u"The request is not supported.\r\n"},
    {53, u"The network path was not found.\r\n"},
    {67, u"The network name cannot be found.\r\n"},
    {86, u"The specified network password is not correct.\r\n"},
    {87, u"The parameter is incorrect.\r\n"},
    {112, u"There is not enough space on the disk.\r\n"},
    {122, u"The data area passed to a system call is too small.\r\n"},
    {123, u"The filename, directory name, or volume label syntax is incorrect.\r\n"},
    {183, u"Cannot create a file when that file already exists.\r\n"},
    {206, u"The filename or extension is too long.\r\n"},
    {223, u"The file size exceeds the limit allowed and cannot be saved.\r\n"},
    {1005, u"The volume does not contain a recognized file system.\r\nPlease make sure that all "
           u"required file system drivers are loaded and that the volume is not corrupted.\r\n"},
    {1117, u"The request could not be performed because of an I/O device error.\r\n"},
    {1203, u"The network path was either typed incorrectly, does not exist, or the network "
           u"provider is not currently available. Please try retyping the path or contact your "
           u"network administrator.\r\n"},
    {1219, u"Multiple connections to a server or shared resource by the same user, using more "
           u"than one user name, are not allowed. Disconnect all previous connections to the "
           u"server or shared resource and try again.\r\n"},
    {1223, u"The operation was canceled by the user.\r\n"},
    {1231, u"The network location cannot be reached. For information about network "
           u"troubleshooting, see Windows Help.\r\n"},
    {1232, u"The network location cannot be reached. For information about network "
           u"troubleshooting, see Windows Help.\r\n"},
    {1314, u"A required privilege is not held by the client.\r\n"},
    {1326, u"The user name or password is incorrect.\r\n"},
    {1330, u"The password for this account has expired.\r\n"},
    {1331, u"This user can't sign in because this account is currently disabled.\r\n"},
    {1450, u"Insufficient system resources exist to complete the requested service.\r\n"},
};

constexpr CodeText kNtTexts[] = {
    {0x00000000, u"STATUS_SUCCESS\r\n"},
    {0x80000006, u"{No More Files}\r\nNo more files were found which match the file "
                 u"specification.\r\n"},
    {0xC0000001, u"{Operation Failed}\r\nThe requested operation was unsuccessful.\r\n"},
    {0xC0000008, u"An invalid HANDLE was specified.\r\n"},
    {0xC000000D, u"An invalid parameter was passed to a service or function.\r\n"},
    {0xC000000F, u"{File Not Found}\r\nThe file %hs does not exist.\r\n"},
    {0xC0000011, u"The end-of-file marker has been reached. There is no valid data in the file "
                 u"beyond this marker.\r\n"},
    {0xC0000017, u"{Not Enough Quota}\r\nNot enough virtual memory or paging file quota is "
                 u"available to complete the specified operation.\r\n"},
    {0xC0000022, u"{Access Denied}\r\nA process has requested access to an object, but has not "
                 u"been granted those access rights.\r\n"},
    {0xC0000034, u"Object Name not found.\r\n"},
    {0xC0000035, u"Object Name already exists.\r\n"},
    {0xC000003A, u"{Path Not Found}\r\nThe path %hs does not exist.\r\n"},
    {0xC0000043, u"A file cannot be opened because the share access flags are incompatible.\r\n"},
    {0xC00000BB, u"The request is not supported.\r\n"},
};

// HRESULTs that are not a Windows error in HRESULT form.
constexpr CodeText kHResultTexts[] = {
    {0x80004001, u"Not implemented\r\n"},
    {0x80004002, u"No such interface supported\r\n"},
    {0x80004003, u"Invalid pointer\r\n"},
    {0x80004004, u"Operation aborted\r\n"},
    {0x80004005, u"Unspecified error\r\n"},
    {0x8000FFFF, u"Catastrophic failure\r\n"},
};

template <std::size_t N>
const char16_t* Find(const CodeText (&table)[N], std::uint32_t code) {
    for (const CodeText& entry : table) {
        if (entry.Code == code) {
            return entry.Text;
        }
    }
    return nullptr;
}

// Carriage returns go wherever they stand; then one trailing line feed; then a final full
// stop, when no line feed is left in the text.
std::u16string Clean(const char16_t* raw) {
    std::u16string text;
    for (const char16_t* p = raw; *p != 0; ++p) {
        if (*p != u'\r') {
            text.push_back(*p);
        }
    }
    if (!text.empty() && text.back() == u'\n') {
        text.pop_back();
    }
    if (!text.empty() && text.back() == u'.' && text.find(u'\n') == std::u16string::npos) {
        text.pop_back();
    }
    return text;
}

}  // namespace

std::u16string SystemMessageText(std::uint32_t value) {
    const char16_t* raw = nullptr;
    if ((value & 0x10000000u) != 0) {
        raw = Find(kNtTexts, value & ~0x10000000u);
    } else if ((value & 0xffff0000u) == 0x80070000u) {
        raw = Find(kWin32Texts, value & 0xffffu);
    } else if (value <= 0xffffu) {
        raw = Find(kWin32Texts, value);
    } else {
        raw = Find(kHResultTexts, value);
    }
    return raw != nullptr ? Clean(raw) : std::u16string();
}

}  // namespace Common
