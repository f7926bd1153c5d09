#include "command.h"

#include <charconv>

namespace geotool {

namespace {
std::vector<Command>& Registry()
{
    static std::vector<Command> registry;
    return registry;
}
}  // namespace

void RegisterCommand(Command command) { Registry().push_back(std::move(command)); }
const std::vector<Command>& Commands() { return Registry(); }

bool Args::Flag(std::string_view name)
{
    for (auto it = FWords.begin(); it != FWords.end(); ++it) {
        if (*it == "--")
            break;
        if (*it == name) {
            FWords.erase(it);
            return true;
        }
    }
    return false;
}

std::string Args::Option(std::string_view name, const std::string& fallback, bool* found)
{
    if (found)
        *found = false;
    for (auto it = FWords.begin(); it != FWords.end(); ++it) {
        if (*it == "--")
            break;
        if (*it == name) {
            if (it + 1 == FWords.end())
                throw UsageError{"option " + std::string(name) + " needs a value"};
            std::string value = *(it + 1);
            FWords.erase(it, it + 2);
            if (found)
                *found = true;
            return value;
        }
        const std::string prefix = std::string(name) + "=";
        if (it->rfind(prefix, 0) == 0) {
            std::string value = it->substr(prefix.size());
            FWords.erase(it);
            if (found)
                *found = true;
            return value;
        }
    }
    return fallback;
}

std::string Args::RequiredOption(std::string_view name)
{
    bool found = false;
    std::string value = Option(name, "", &found);
    if (!found)
        throw UsageError{"option " + std::string(name) + " is required"};
    return value;
}

double Args::NumberOption(std::string_view name, double fallback)
{
    bool found = false;
    const std::string text = Option(name, "", &found);
    if (!found)
        return fallback;
    double value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size())
        throw UsageError{"option " + std::string(name) + " needs a number, not \"" + text + "\""};
    return value;
}

std::vector<std::string> Args::Positional() const
{
    std::vector<std::string> out;
    bool optionsEnded = false;
    for (const auto& w : FWords) {
        if (!optionsEnded && w == "--") {
            optionsEnded = true;
            continue;
        }
        // "-5" is a negative number, not an option.
        if (!optionsEnded && w.size() > 2 && w[0] == '-' && w[1] == '-')
            throw UsageError{"unknown option " + w};
        out.push_back(w);
    }
    return out;
}

}  // namespace geotool
