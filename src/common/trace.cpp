#include <tessel_link/common/trace.h>

#include <atomic>
#include <string>

#include "common/stack_text.h"

namespace Common {

namespace {

void DefaultTextSink(int, std::uint32_t, std::uint32_t, const char*) {}

void DefaultErrorSink(int, const Error& error) {
    // The default sink fetches what a log would need and drops it.
    (void)error.Text();
    (void)error.Code();
}

std::atomic<int> g_threshold{2};
std::atomic<bool> g_suppressed{false};
std::atomic<TraceTextSink> g_textSink{DefaultTextSink};
std::atomic<TraceErrorSink> g_errorSink{DefaultErrorSink};
std::atomic<TraceObject*> g_object{nullptr};

}  // namespace

TraceObject::~TraceObject() = default;

void TraceText(int level, std::uint32_t a, std::uint32_t b, const char* text) {
    if (level >= g_threshold.load() && !g_suppressed.load()) {
        g_textSink.load()(level, a, b, text);
    }
    if (TraceObject* object = g_object.load()) {
        object->OnText(level, a, b, text);
    }
}

void TraceError(int level, const Error& error) {
    if (level >= g_threshold.load() && !g_suppressed.load()) {
        g_errorSink.load()(level, error);
    }
    if (TraceObject* object = g_object.load()) {
        object->OnError(level, error);
    }
}

void SetTraceThreshold(int threshold) {
    g_threshold.store(threshold);
}

int GetTraceThreshold() {
    return g_threshold.load();
}

void SetTraceSuppressed(bool suppressed) {
    g_suppressed.store(suppressed);
}

void SetTraceTextSink(TraceTextSink sink) {
    g_textSink.store(sink != nullptr ? sink : DefaultTextSink);
}

void SetTraceErrorSink(TraceErrorSink sink) {
    g_errorSink.store(sink != nullptr ? sink : DefaultErrorSink);
}

TraceObject* SetTraceObject(TraceObject* object) {
    return g_object.exchange(object);
}

void LogStack(const char* function) {
    std::string text = "Stack logging from '";
    text += function != nullptr ? function : "";
    text += '\'';
    TraceText(2, 0, 0, text.c_str());
    unsigned number = 0;
    Detail::WalkStackTexts(32, [&](const std::string& frame) {
        const std::string line = "Stack frame " + std::to_string(number++) + ": '" + frame + "'";
        TraceText(2, 0, 0, line.c_str());
        return true;
    });
}

}  // namespace Common
