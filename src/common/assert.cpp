#include <tessel_link/common/assert.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "common/assert_report.h"
#include "common/stack_text.h"
#include "platform/debug_services.h"

namespace Common {

namespace {

std::atomic<AssertionObserver> g_observer{nullptr};
std::atomic<AssertionEventHook> g_eventHook{nullptr};

constexpr std::size_t kMessageSize = 540;
constexpr unsigned kStackFrames = 32;

struct WordBit {
    const char* Word;
    std::uint32_t Bit;
};
constexpr WordBit kWords[] = {
    {"break", Detail::kAssertBreak}, {"debug", Detail::kAssertDebug},
    {"log", Detail::kAssertLog},     {"event", Detail::kAssertEvent},
    {"msgbox", Detail::kAssertMsgBox}, {"abort", Detail::kAssertAbort},
    {"stack", Detail::kAssertStack},
};

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

// The whole value as a 32-bit hexadecimal number, with or without "0x".
bool ParseHex(const char* value, std::uint32_t& number) {
    if (value[0] == '0' && (value[1] == 'x' || value[1] == 'X')) {
        value += 2;
    }
    if (*value == '\0') {
        return false;
    }
    std::uint64_t n = 0;
    for (; *value != '\0'; ++value) {
        const int d = HexDigit(*value);
        if (d < 0) {
            return false;
        }
        n = n * 16 + static_cast<unsigned>(d);
        if (n > 0xffffffffu) {
            return false;
        }
    }
    number = static_cast<std::uint32_t>(n);
    return true;
}

// The system's debug channel takes at most 539 characters and a line feed.
void DebugLine(Platform::DebugServices& system, const char* text) {
    char line[541];
    std::snprintf(line, sizeof line, "%.539s\n", text);
    system.DebugOutput(line);
}

void Event(const char* text) {
    if (AssertionEventHook hook = g_eventHook.load()) {
        hook(5, 0, 27, text);
    }
}

// Read from the environment once, then changed only by the host under g_settingsLock;
// every report works on a copy.
Detail::AssertSettings g_settings;
std::once_flag g_settingsOnce;
std::mutex g_settingsLock;

std::atomic<std::uint32_t> g_defaultMask{Detail::kAssertDefault};

void ReadSettings() {
    const char* variable = std::getenv("CORVANE_SAFE_ASSERT");
    g_settings.Mask = variable != nullptr ? Detail::ParseAssertMask(variable) : g_defaultMask.load();
    // The target is read only by a mask that logs: a mask without logging must not create
    // or open the file. A host that turns logging on later names its target from code.
    const char* target = std::getenv("CORVANE_SAFE_ASSERT_LOGFILE");
    if (target != nullptr && (g_settings.Mask & AssertToLog) != 0 &&
        g_settings.Mask != Detail::kAssertOff) {
        g_settings.Log = Detail::OpenAssertLog(target);
    }
}

Detail::AssertSettings CurrentSettings() {
    std::call_once(g_settingsOnce, ReadSettings);
    std::lock_guard<std::mutex> lock(g_settingsLock);
    return g_settings;
}

}  // namespace

std::uint32_t SetAssertionDefault(std::uint32_t mask) {
    return g_defaultMask.exchange(mask);
}

std::uint32_t SetAssertionPolicy(std::uint32_t mask) {
    std::call_once(g_settingsOnce, ReadSettings);
    std::lock_guard<std::mutex> lock(g_settingsLock);
    const std::uint32_t previous = g_settings.Mask;
    g_settings.Mask = mask;
    return previous;
}

std::uint32_t GetAssertionPolicy() {
    return CurrentSettings().Mask;
}

bool SetAssertionLogTarget(const char* target) {
    std::FILE* stream = stderr;
    if (target != nullptr && std::strcmp(target, "stdout") == 0) {
        stream = stdout;
    } else if (target != nullptr && std::strcmp(target, "stderr") != 0) {
        stream = std::fopen(target, "a");
        if (stream == nullptr) {
            return false;
        }
    }
    SetAssertionLogStream(stream);
    return true;
}

void SetAssertionLogStream(std::FILE* stream) {
    std::call_once(g_settingsOnce, ReadSettings);
    std::lock_guard<std::mutex> lock(g_settingsLock);
    g_settings.Log = stream != nullptr ? stream : stderr;
}

std::uint32_t Detail::ParseAssertMask(const char* value) {
    if (value == nullptr) {
        return kAssertDefault;
    }
    std::uint32_t number = 0;
    if (ParseHex(value, number) && number != 0) {
        return number;
    }
    char copy[128];
    std::snprintf(copy, sizeof copy, "%s", value);
    std::uint32_t mask = 0;
    char* rest = nullptr;
    for (char* word = strtok_r(copy, " \t", &rest); word != nullptr;
         word = strtok_r(nullptr, " \t", &rest)) {
        std::uint32_t bit = 0;
        for (const WordBit& w : kWords) {
            if (std::strcmp(word, w.Word) == 0) {
                bit = w.Bit;
            }
        }
        if (bit == 0) {
            return kAssertOff;
        }
        mask |= bit;
    }
    return mask;
}

std::FILE* Detail::OpenAssertLog(const char* value) {
    if (value == nullptr || std::strcmp(value, "stderr") == 0) {
        return stderr;
    }
    if (std::strcmp(value, "stdout") == 0) {
        return stdout;
    }
    std::FILE* file = std::fopen(value, "a");
    return file != nullptr ? file : stderr;
}

int Detail::ReportWith(const AssertSettings& settings, const char* expression, const char* file,
                       int line, const char* message) {
    const std::uint32_t mask = settings.Mask;
    if (mask == kAssertOff) {
        return 0;
    }
    Platform::DebugServices& system = Platform::GetDebugServices();
    const bool debug = (mask & kAssertDebug) != 0;
    const bool log = (mask & kAssertLog) != 0 && settings.Log != nullptr;
    const bool event = (mask & kAssertEvent) != 0;
    if (debug) {
        DebugLine(system, message);
    }
    if (log) {
        std::fprintf(settings.Log, "%s\n", message);
        std::fflush(settings.Log);
    }
    if (event) {
        Event(message);
    }

    if ((mask & kAssertStack) != 0 && (mask & (kAssertDebug | kAssertLog | kAssertEvent)) != 0) {
        std::string frames;
        frames.reserve(1024);
        WalkStackTexts(kStackFrames, [&](const std::string& text) {
            if (debug) {
                DebugLine(system, text.c_str());
            }
            if (log) {
                std::fprintf(settings.Log, "%s\n", text.c_str());
            }
            if (!frames.empty()) {
                frames += '\n';
            }
            frames += text;
            return true;
        });
        if (log) {
            std::fflush(settings.Log);
        }
        if (event) {
            Event(frames.c_str());
        }
    }

    if ((mask & kAssertMsgBox) != 0 && expression != nullptr) {
        const std::string program = system.ProgramName();
        std::string text(1024 + std::strlen(expression) + std::strlen(file != nullptr ? file : ""), '\0');
        const int n = std::snprintf(
            text.data(), text.size(),
            "Assertion failed!\n\nProgram: %s\nFile: %s\nLine: %i\n\nExpression: %s\n\n"
            "(Press Retry to debug the application)",
            program.c_str(), file != nullptr ? file : "", line, expression);
        text.resize(n > 0 ? std::min(static_cast<std::size_t>(n), text.size() - 1) : 0);
        const int answer = system.AskUser("Corvane runtime check failure", text.c_str());
        if (answer == 0) {
            return 0;
        }
        if (answer == 1 || (mask & kAssertAbort) != 0) {
            system.Abort();
        }
        return 1;
    }

    if (system.DebuggerPresent()) {
        system.DebugBreak();
        return 0;
    }
    if ((mask & kAssertAbort) != 0) {
        system.Abort();
    }
    return 1;
}

AssertionObserver SetAssertionObserver(AssertionObserver observer) {
    return g_observer.exchange(observer);
}

AssertionEventHook SetAssertionEventHook(AssertionEventHook hook) {
    return g_eventHook.exchange(hook);
}

int Assert(const char* expression, const char* file, int line) {
    char message[kMessageSize];
    std::snprintf(message, sizeof message, "Assertion failed: %s, file %s, line %d", expression,
                  file, line);
    return Report(expression, file, line, message);
}

int Report(const char* expression, const char* file, int line, const char* message) {
    if (AssertionObserver observer = g_observer.load()) {
        observer(expression, file, line);
    }
    return Detail::ReportWith(CurrentSettings(), expression, file, line, message);
}

}  // namespace Common
