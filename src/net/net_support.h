#pragma once

// What the channel and the host share beneath their interfaces: the Asio types, the
// resolution of addresses into endpoints and the translation of system failures.

#include <algorithm>
#include <string>
#include <system_error>
#include <vector>

#include <asio/error.hpp>
#include <asio/generic/stream_protocol.hpp>
#include <asio/io_context.hpp>

#include <tessel_link/common/error.h>
#include <tessel_link/common/messages.h>
#include <tessel_link/net/address.h>
#include <tessel_link/net/errors.h>
#include <tessel_link/net/frame.h>

namespace Net::Detail {

using Protocol = asio::generic::stream_protocol;
using Endpoint = Protocol::endpoint;
using Socket = Protocol::socket;

// Rows of the message table.
inline constexpr std::uint32_t kRowConnectFailed = 150;     // "Failed to establish connection."
inline constexpr std::uint32_t kRowConnectionLost = 136;    // "Connection has been lost."
inline constexpr std::uint32_t kRowTimedOut = 121;          // "Operation has timed out."
inline constexpr std::uint32_t kRowConnectivity = 164;      // "... due to a connectivity error."

// The system's reason: an errno record for a failure of the system, else a record with
// the text Asio gives the failure.
Common::Error SystemCause(const std::error_code& error);

// An error of the binding layer with its text from the message table row and `cause`
// beneath it, when there is one.
Common::Error NetError(const Common::ErrorOrigin& origin, std::uint32_t code, std::uint32_t row,
                       const std::error_code& cause = {});
Common::Error NetError(const Common::ErrorOrigin& origin, std::uint32_t code, std::uint32_t row,
                       const char* detail);

// How much to read next: the rest of a frame's payload at once, so that a large reply is
// not read in small pieces, yet never much more than has come, so that a length that lies
// does not reserve memory up to the limit.
inline std::size_t ReadSize(const FrameReader& reader) {
    constexpr std::size_t kSmallest = 4096;
    constexpr std::size_t kLargest = 1u << 20;
    return std::max(kSmallest, std::min(kLargest, reader.Missing()));
}

// The endpoints of an address, in the order to try them; a name is looked up each time.
std::vector<Endpoint> Resolve(const Address& address, std::error_code& error);

}  // namespace Net::Detail
