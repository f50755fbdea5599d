#pragma once

// Where a socket channel connects and a service host listens: "tcp://HOST:PORT" (a name or
// an IPv4 address, or an IPv6 address in brackets) or "unix:/PATH" (a Unix-domain socket).

#include <cstdint>
#include <string>
#include <string_view>

#include <tessel_link/common/error.h>
#include <tessel_link/net/export.h>

namespace Net {

struct TL_NET_API Address {
    enum class Kind { Tcp, Unix };

    Kind Type = Kind::Tcp;
    std::string Host;        // Tcp: without brackets
    std::uint16_t Port = 0;  // Tcp: 0 lets a host pick a free port
    std::string Path;        // Unix

    // Fails with kErrorBadAddress for a text of neither form.
    static Common::Error Parse(std::string_view text, Address& address);
    std::string ToString() const;
};

}  // namespace Net
