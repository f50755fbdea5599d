#pragma once

// The failures of calls over a connection, in the binding layer's module. Each one carries
// the system's reason (an errno record, or the text of the failure) as its cause.

#include <cstdint>

namespace Net {

// "Failed to establish connection.": nobody accepts at the address, or it cannot be found.
inline constexpr std::uint32_t kErrorConnectFailed = 0xb90040;
// "Connection has been lost.": the peer closed or broke the connection during a call.
inline constexpr std::uint32_t kErrorConnectionLost = 0xb90041;
// "Failed to process the request due to a connectivity error.": the peer sent something
// that is not a frame of this format, or a frame beyond the length limit.
inline constexpr std::uint32_t kErrorBadFrame = 0xb90042;
// An address of neither the tcp:// nor the unix: form.
inline constexpr std::uint32_t kErrorBadAddress = 0xb90043;
// A host that cannot listen at its address.
inline constexpr std::uint32_t kErrorListenFailed = 0xb90044;
// A call that Run gave up on after the channel's time-out carries the code of jobs that ran
// out of time, Binding::kErrorJobTimedOut.

}  // namespace Net
