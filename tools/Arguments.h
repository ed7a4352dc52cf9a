// Command-line parsing shared by the subcommands.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ztool {

/// The arguments of one subcommand: options (`--name value`, `--name=value`, `-o value`,
/// flags without a value) and positional arguments in order. `--` ends the options.
/// Unknown options, missing values and repeated options are usage errors (ToolError).
class Arguments {
public:
    /// `valueOptions` take a value, `flagOptions` do not; both are spelt with their dashes.
    Arguments(const std::vector<std::string>& args, const std::set<std::string>& valueOptions,
              const std::set<std::string>& flagOptions);

    const std::vector<std::string>& positional() const { return positional_; }
    bool has(const std::string& option) const { return values_.count(option) != 0; }
    std::optional<std::string> value(const std::string& option) const;
    /// The value of a required option; a usage error naming it when missing.
    std::string required(const std::string& option) const;
    /// An unsigned integer option within [minimum, maximum], or `fallback` when absent.
    unsigned int number(const std::string& option, unsigned int fallback, unsigned int minimum,
                        unsigned int maximum) const;

private:
    std::vector<std::string> positional_;
    std::map<std::string, std::string> values_;
};

/// Parses a whole unsigned decimal number in [minimum, maximum]; `what` names it in the
/// usage error otherwise.
unsigned int parseNumber(const std::string& text, const std::string& what, unsigned int minimum,
                         unsigned int maximum);

}  // namespace ztool
