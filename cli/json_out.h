#pragma once

// The JSON the tool prints: values are built as nlohmann::ordered_json, so that members come
// out in the order they were set, and printed compactly with a blank after each ',' and ':'.
// A listing prints one element of its top-level array per line, so that a difference between
// two listings shows where it is.

#include <string>

#include <nlohmann/json.hpp>

namespace tessel_cli {

using JsonOut = nlohmann::ordered_json;

// `value` on one line, such as {"a": 1, "b": [2, 3]}. Bytes of a string that are not UTF-8
// become U+FFFD, so that the output is always JSON, with one exception: a surrogate code
// point in its three-byte form (which stands for a byte of a name that is not UTF-8, see
// JsonName) is written as its escape \uXXXX.
// With JsonText::ascii every character outside ASCII is written as \uXXXX escapes of its
// UTF-16 units instead, for readers that take ASCII alone.
enum class JsonText { utf8, ascii };
std::string JsonLine(const JsonOut& value, JsonText text = JsonText::utf8);

// An array with one element per line: "[\n  A,\n  B\n]\n", or "[]\n" when it is empty.
std::string JsonLines(const JsonOut& array);

// A UTF-16 name as a JSON string value: valid UTF-8 where the name is valid UTF-16, and each
// lone surrogate in its three-byte form, which JsonLine writes as the escape \uXXXX, so that
// the units can be recovered exactly.
std::string JsonName(std::u16string_view name);

}  // namespace tessel_cli
