// Where the tests find their data files and the build tree, for every test binary: set
// before any test runs, unless the environment already says otherwise. Failed internal
// checks are logged and the test goes on, unless CORVANE_SAFE_ASSERT says otherwise.

#include <cstdlib>

#include <tessel_link/common/assert.h>

namespace {

const bool kEnvironmentSet = [] {
    ::setenv("TL_TEST_DATA", TL_TEST_DATA_DIR, 0);
    ::setenv("TL_BUILD_DIR", TL_TEST_BUILD_DIR, 0);
    Common::SetAssertionDefault(Common::AssertToLog);
    return true;
}();

}  // namespace
