#pragma once

// Where a socket channel connects and a service host listens: "tcp://HOST:PORT" (a name or
// an IPv4 address, or an IPv6 address in brackets) or "unix:/PATH" (a Unix-domain socket).

#include <cstdint>
#include <string>
#include <string_view>

#include <tessel_link/common/error.h>
#include <tessel_link/net/export.h>

namespace Net {

// Where a host listens or a channel connects: "tcp://host:port" or "unix:/path".
struct TL_NET_API Address {
    // The kind of socket.
    enum class Kind { Tcp, Unix };

    Kind Type = Kind::Tcp;  // the kind of socket
    std::string Host;        // Tcp: without brackets
    std::uint16_t Port = 0;  // Tcp: 0 lets a host pick a free port
    std::string Path;        // Unix

    // Fails with kErrorBadAddress for a text of neither form.
    static Common::Error Parse(std::string_view text, Address& address);
    // The address in the form that Parse reads.
    std::string ToString() const;
};

}  // namespace Net
