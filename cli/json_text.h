#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tessel_cli {

// `text` (UTF-8) as a JSON string literal, quotes included; bytes that are not UTF-8 become
// U+FFFD, so that the output is always JSON.
inline std::string JsonString(std::string_view text) {
    return nlohmann::json(std::string(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tessel_cli
