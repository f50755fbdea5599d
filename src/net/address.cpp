#include <tessel_link/net/address.h>

#include <charconv>

#include <tessel_link/net/errors.h>

namespace Net {

namespace {

Common::Error BadAddress(std::string_view text) {
    const std::string message = "Not an address of the form tcp://HOST:PORT or unix:/PATH: '" +
                                std::string(text) + "'";
    return Common::Error(TL_ORIGIN("Net::Address::Parse"), kErrorBadAddress, message.c_str());
}

}  // namespace

Common::Error Address::Parse(std::string_view text, Address& address) {
    constexpr std::string_view kTcp = "tcp://";
    constexpr std::string_view kUnix = "unix:";
    Address parsed;
    if (text.substr(0, kUnix.size()) == kUnix) {
        parsed.Type = Kind::Unix;
        parsed.Path = std::string(text.substr(kUnix.size()));
        if (parsed.Path.empty()) {
            return BadAddress(text);
        }
        address = std::move(parsed);
        return Common::ErrorSuccess;
    }
    if (text.substr(0, kTcp.size()) != kTcp) {
        return BadAddress(text);
    }
    std::string_view rest = text.substr(kTcp.size());
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 == rest.size()) {
        return BadAddress(text);
    }
    std::string_view host = rest.substr(0, colon);
    if (host.front() == '[') {
        if (host.size() < 3 || host.back() != ']') {
            return BadAddress(text);
        }
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string_view::npos) {
        return BadAddress(text);
    }
    const std::string_view port = rest.substr(colon + 1);
    unsigned value = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), value);
    if (error != std::errc() || end != port.data() + port.size() || value > 65535) {
        return BadAddress(text);
    }
    parsed.Type = Kind::Tcp;
    parsed.Host = std::string(host);
    parsed.Port = static_cast<std::uint16_t>(value);
    address = std::move(parsed);
    return Common::ErrorSuccess;
}

std::string Address::ToString() const {
    if (Type == Kind::Unix) {
        return "unix:" + Path;
    }
    const bool v6 = Host.find(':') != std::string::npos;
    return "tcp://" + (v6 ? "[" + Host + "]" : Host) + ":" + std::to_string(Port);
}

}  // namespace Net
