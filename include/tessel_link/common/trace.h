#pragma once

// The trace point: where the library reports what it does, and how a host listens.

#include <cstdint>

#include <tessel_link/common/error.h>
#include <tessel_link/export.h>

namespace Common {

// The process-wide trace point. An entry at or above the threshold (2 at the start) calls
// its sink, unless suppressed; then, whatever the level, an installed trace object is told.
// The library installs no sink of its own, so by itself it writes no log.
using TraceTextSink = void (*)(int level, std::uint32_t a, std::uint32_t b, const char* text);
// Called for entries at or above the threshold.
using TraceErrorSink = void (*)(int level, const Error& error);

// An observer of every trace entry, at any level; see SetTraceObject.
class TL_API TraceObject {
public:
    virtual ~TraceObject();
    // A text entry.
    virtual void OnText(int level, std::uint32_t a, std::uint32_t b, const char* text) = 0;
    virtual void Reserved2() {}  // kept free for later entry kinds
    virtual void Reserved3() {}  // kept free for later entry kinds
    virtual void Reserved4() {}  // kept free for later entry kinds
    virtual void OnError(int level, const Error& error) = 0;  // an error entry
};

// Enters a text entry at `level`.
TL_API void TraceText(int level, std::uint32_t a, std::uint32_t b, const char* text);
// Enters an error entry at `level`.
TL_API void TraceError(int level, const Error& error);

// Entries below `threshold` reach no sink.
TL_API void SetTraceThreshold(int threshold);
// The threshold in force.
TL_API int GetTraceThreshold();
// True keeps every entry from the sinks (trace objects are still told).
TL_API void SetTraceSuppressed(bool suppressed);
// Null restores the default sink.
TL_API void SetTraceTextSink(TraceTextSink sink);
TL_API void SetTraceErrorSink(TraceErrorSink sink);  // null restores the default sink
// Null removes the object. Returns the previous one.
TL_API TraceObject* SetTraceObject(TraceObject* object);

// Traces "Stack logging from '{0}'" and the frames of the calling stack, at level 2.
TL_API void LogStack(const char* function);

}  // namespace Common
