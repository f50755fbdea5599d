#include <tessel_link/common/assert.h>

#include <atomic>
#include <cstdio>

namespace Common {

namespace {
std::atomic<AssertionObserver> g_observer{nullptr};
}

AssertionObserver SetAssertionObserver(AssertionObserver observer) {
    return g_observer.exchange(observer);
}

int Assert(const char* expression, const char* file, int line) {
    char message[540];
    std::snprintf(message, sizeof message, "Assertion failed: %s, file %s, line %d", expression,
                  file, line);
    return Report(expression, file, line, message);
}

// A first form of the report: it tells the observer and writes the message to the
// standard error stream. The switches of CORVANE_SAFE_ASSERT come with the full report.
int Report(const char* expression, const char* file, int line, const char* message) {
    if (AssertionObserver observer = g_observer.load()) {
        observer(expression, file, line);
    }
    std::fprintf(stderr, "%s\n", message);
    return 1;
}

}  // namespace Common
