#include "Arguments.h"

#include <cerrno>
#include <cstdlib>

#include "ToolError.h"

namespace ztool {

Arguments::Arguments(const std::vector<std::string>& args, const std::set<std::string>& valueOptions,
                     const std::set<std::string>& flagOptions) {
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        // A lone "-" is a positional argument by convention; negative numbers are not used.
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            positional_.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        std::string name = arg;
        std::optional<std::string> inlineValue;
        const size_t equals = arg.find('=');
        if (arg.compare(0, 2, "--") == 0 && equals != std::string::npos) {
            name = arg.substr(0, equals);
            inlineValue = arg.substr(equals + 1);
        }
        if (values_.count(name) != 0) throw usageError("option " + name + " given twice");
        if (flagOptions.count(name) != 0) {
            if (inlineValue) throw usageError("option " + name + " takes no value");
            values_[name] = "";
        } else if (valueOptions.count(name) != 0) {
            if (inlineValue) {
                values_[name] = *inlineValue;
            } else if (i + 1 < args.size()) {
                values_[name] = args[++i];
            } else {
                throw usageError("option " + name + " needs a value");
            }
        } else {
            throw usageError("unknown option " + name);
        }
    }
}

std::optional<std::string> Arguments::value(const std::string& option) const {
    const auto it = values_.find(option);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

std::string Arguments::required(const std::string& option) const {
    const auto it = values_.find(option);
    if (it == values_.end()) throw usageError("missing option " + option);
    return it->second;
}

unsigned int Arguments::number(const std::string& option, unsigned int fallback, unsigned int minimum,
                               unsigned int maximum) const {
    const auto text = value(option);
    return text ? parseNumber(*text, "option " + option, minimum, maximum) : fallback;
}

unsigned int parseNumber(const std::string& text, const std::string& what, unsigned int minimum,
                         unsigned int maximum) {
    const bool digitsOnly =
        !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    errno = 0;
    const unsigned long long value = digitsOnly ? std::strtoull(text.c_str(), nullptr, 10) : 0;
    if (!digitsOnly || errno == ERANGE || value < minimum || value > maximum) {
        throw usageError(what + " must be a whole number from " + std::to_string(minimum) + " to " +
                         std::to_string(maximum) + " (got '" + text + "')");
    }
    return static_cast<unsigned int>(value);
}

}  // namespace ztool
