#include "Cli.h"

namespace hdwtool {

std::string ParsedArgs::Get(const std::string& name, const std::string& fallback) const
{
    const auto it = m_Options.find(name);
    return it == m_Options.end() || it->second.empty() ? fallback : it->second.back();
}

std::vector<std::string> ParsedArgs::All(const std::string& name) const
{
    const auto it = m_Options.find(name);
    return it == m_Options.end() ? std::vector<std::string>{} : it->second;
}

bool ParseArgs(
    const std::vector<OptionSpec>& specs, const std::vector<std::string>& args, ParsedArgs& out, std::string& error)
{
    ParsedArgs result;
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (optionsEnded || a.size() < 2 || a[0] != '-' || (a[1] >= '0' && a[1] <= '9')) {
            result.m_Positionals.push_back(a);
            continue;
        }
        if (a == "--") {
            optionsEnded = true;
            continue;
        }
        const OptionSpec* option = nullptr;
        std::string inlineValue;
        bool hasInline = false;
        if (a[1] == '-') {
            std::string name = a.substr(2);
            const size_t eq = name.find('=');
            if (eq != std::string::npos) {
                inlineValue = name.substr(eq + 1);
                hasInline = true;
                name.resize(eq);
            }
            for (const auto& s : specs)
                if (s.Long == name)
                    option = &s;
        } else if (a.size() == 2) {
            for (const auto& s : specs)
                if (s.Short && s.Short == a[1])
                    option = &s;
        }
        if (!option) {
            error = "unknown option " + a;
            return false;
        }
        std::string value;
        if (option->TakesValue) {
            if (hasInline)
                value = inlineValue;
            else if (i + 1 < args.size())
                value = args[++i];
            else {
                error = "option --" + option->Long + " needs a value";
                return false;
            }
        } else if (hasInline) {
            error = "option --" + option->Long + " takes no value";
            return false;
        }
        auto& values = result.m_Options[option->Long];
        if (!values.empty() && !option->Repeatable && option->TakesValue) {
            error = "option --" + option->Long + " is given twice";
            return false;
        }
        values.push_back(value);
    }
    out = std::move(result);
    return true;
}

} // namespace hdwtool
