#include "net/net_support.h"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>

namespace Net::Detail {

Common::Error SystemCause(const std::error_code& error) {
    if (!error) {
        return Common::ErrorSuccess;
    }
    if (error.category() == std::system_category() ||
        error.category() == asio::error::get_system_category()) {
        return Common::Error::Errno(TL_ORIGIN("Net::SystemCause"), Common::Error::kErrnoCode,
                                    error.value());
    }
    const std::string text = error.category().name() + std::string(": ") + error.message();
    return Common::Error(TL_ORIGIN("Net::SystemCause"), Common::Error::kSystemCode, text.c_str());
}

Common::Error NetError(const Common::ErrorOrigin& origin, std::uint32_t code, std::uint32_t row,
                       const std::error_code& cause) {
    Common::Error error(origin, code, Common::GetMessageRow(row));
    if (cause) {
        error.AddCause(SystemCause(cause));
    }
    return error;
}

Common::Error NetError(const Common::ErrorOrigin& origin, std::uint32_t code, std::uint32_t row,
                       const char* detail) {
    Common::Error error(origin, code, Common::GetMessageRow(row));
    error.AddCause(Common::Error(origin, Common::Error::kSystemCode, detail));
    return error;
}

std::vector<Endpoint> Resolve(const Address& address, std::error_code& error) {
    error.clear();
    std::vector<Endpoint> endpoints;
    if (address.Type == Address::Kind::Unix) {
        endpoints.emplace_back(asio::local::stream_protocol::endpoint(address.Path));
        return endpoints;
    }
    asio::io_context context;
    asio::ip::tcp::resolver resolver(context);
    asio::error_code asioError;
    const auto results = resolver.resolve(address.Host, std::to_string(address.Port),
                                          asio::ip::resolver_base::numeric_service, asioError);
    if (asioError) {
        error = asioError;
        return endpoints;
    }
    for (const auto& entry : results) {
        endpoints.emplace_back(entry.endpoint());
    }
    return endpoints;
}

}  // namespace Net::Detail
