#pragma once
// Command-line parsing: "hdwtool SUBCOMMAND [options] [arguments]" with long
// options ("--count 5", "--count=5"), their one-letter forms ("-n 5") and
// "--" ending the options.

#include <map>
#include <string>
#include <vector>

namespace hdwtool {

struct OptionSpec {
    std::string Long; // without the dashes
    char Short = 0; // 0: none
    bool TakesValue = false;
    bool Repeatable = false;
};

class ParsedArgs {
public:
    bool Has(const std::string& name) const { return m_Options.count(name) != 0; }
    // The value of a single-valued option, `fallback` when absent.
    std::string Get(const std::string& name, const std::string& fallback = "") const;
    // Every value of a repeatable option, in order.
    std::vector<std::string> All(const std::string& name) const;
    const std::vector<std::string>& Positionals() const { return m_Positionals; }

private:
    friend bool ParseArgs(const std::vector<OptionSpec>&, const std::vector<std::string>&, ParsedArgs&, std::string&);
    std::map<std::string, std::vector<std::string>> m_Options;
    std::vector<std::string> m_Positionals;
};

// Parses `args` (the words after the subcommand). False with a reason for an
// unknown option, a missing value or a repeated single option.
bool ParseArgs(
    const std::vector<OptionSpec>& specs, const std::vector<std::string>& args, ParsedArgs& out, std::string& error);

} // namespace hdwtool
