#include "error_chain.h"

#include <cinttypes>
#include <cstdio>

#include <tessel_link/common/unicode.h>
#include <tessel_link/file/system_dir.h>

#include "command.h"

namespace tessel_cli {

std::string PlainName(std::u16string_view wide) {
    const std::string bytes = File::WideNameToNative(wide);
    std::string out;
    for (const char c : bytes) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u == 0x7f) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", u);
            out += escape;
        } else if (c == '\\') {
            out += "\\\\";
        } else {
            out.push_back(c);
        }
    }
    return out;
}

int FailWithChain(const Common::Error& error) {
    std::string message;
    int depth = 0;
    for (Common::Error r = error; !r.Empty(); r = r.Cause(), ++depth) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08" PRIx32, r.Code());
        message += depth == 0 ? "" : "\n  caused by: ";
        message += code;
        const std::u16string text = r.Text();
        if (!text.empty()) {
            message += ' ';
            message += Common::Utf16ToUtf8(text);
        }
        if (const char* function = r.GetAnsi("function")) {
            message += std::string(" [") + function + "]";
        }
        if (const char16_t* path = r.GetWide("path")) {
            message += ' ';
            message += PlainName(path);
        }
        if (r.Code() == Common::Error::kErrnoCode) {
            message += " errno " + std::to_string(r.GetNumber("Errno"));
        }
    }
    return Fail(message);
}

}  // namespace tessel_cli
