#pragma once

// Options that take a value, such as "--from 12" or "--from=12", for the commands that have
// them: the words are split into those values and the positional arguments.

#include <map>
#include <set>
#include <string>
#include <vector>

#include "command.h"

namespace tessel_cli {

struct ValueOptions {
    std::map<std::string, std::string> values;
    std::vector<std::string> positional;
    std::string error;  // empty when the words were understood
};

inline ValueOptions SplitValueOptions(const Arguments& args, const std::set<std::string>& names) {
    ValueOptions out;
    bool onlyPositional = false;
    for (std::size_t i = 0; i < args.words.size(); ++i) {
        const std::string& w = args.words[i];
        if (onlyPositional || w.size() <= 2 || w.compare(0, 2, "--") != 0) {
            out.positional.push_back(w);
            continue;
        }
        if (w == "--") {
            onlyPositional = true;
            continue;
        }
        const std::size_t equals = w.find('=');
        const std::string name = w.substr(0, equals);
        if (names.count(name) == 0) {
            out.error = "unknown option " + name;
            return out;
        }
        if (equals != std::string::npos) {
            out.values[name] = w.substr(equals + 1);
        } else if (i + 1 < args.words.size()) {
            out.values[name] = args.words[++i];
        } else {
            out.error = name + " needs a value";
            return out;
        }
    }
    return out;
}

// A decimal number of at most 64 bits, without sign.
inline bool ParseDecimal(const std::string& text, unsigned long long& value) {
    if (text.empty() || text.size() > 20) {
        return false;
    }
    unsigned long long v = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        const unsigned digit = static_cast<unsigned>(c - '0');
        if (v > (~0ull - digit) / 10) {
            return false;
        }
        v = v * 10 + digit;
    }
    value = v;
    return true;
}

}  // namespace tessel_cli
