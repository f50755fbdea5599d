// Finds the library's own file through the dynamic loader: the object that holds one of
// our own functions is the one we are part of.

#include <dlfcn.h>
#include <link.h>
#include <climits>
#include <cstdlib>
#include <unistd.h>

#include <tessel_link/common/unicode.h>

#include "platform/module_file.h"

namespace Platform {

namespace {

std::string ProgramPath() {
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
    return length > 0 && static_cast<std::size_t>(length) < sizeof buffer
               ? std::string(buffer, static_cast<std::size_t>(length))
               : std::string();
}

std::string NativeModulePath() {
    Dl_info info{};
    link_map* map = nullptr;
    if (::dladdr1(reinterpret_cast<void*>(&ModuleFilePath), &info, reinterpret_cast<void**>(&map),
                  RTLD_DL_LINKMAP) == 0 ||
        map == nullptr) {
        return ProgramPath();
    }
    // The program itself has an empty name in the loader's list (the loader's answer for
    // it is argv[0], which need not be a path at all).
    if (map->l_name == nullptr || map->l_name[0] == '\0') {
        return ProgramPath();
    }
    std::string path = map->l_name;
    if (path.front() != '/') {
        // Loaded by a relative path: make it absolute while the directory is still right.
        if (char* resolved = ::realpath(path.c_str(), nullptr)) {
            path = resolved;
            std::free(resolved);
        }
    }
    return path;
}

}  // namespace

std::u16string ModuleFilePath() {
    const std::string path = NativeModulePath();
    std::u16string wide;
    if (!Common::Utf8ToUtf16(path, wide)) {
        wide = Common::WidenLatin1(path);
    }
    return wide;
}

}  // namespace Platform
