// geotool's command registry. Each cmd_*.cpp registers its subcommands with a static Registrar, so a
// new area of the tool is a new file and main.cpp never changes.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace geotool {

// The words after the subcommand name, with option helpers. Options may stand anywhere among the
// positional words; "--" ends option parsing.
class Args {
public:
    explicit Args(std::vector<std::string> words) : FWords(std::move(words)) {}

    // True (and removed) if the flag is present.
    bool Flag(std::string_view name);
    // The value after option `name` (removed with it); empty optional-like: Found false.
    std::string Option(std::string_view name, const std::string& fallback, bool* found = nullptr);
    // Like Option, but the option must be present; throws UsageError otherwise.
    std::string RequiredOption(std::string_view name);
    double NumberOption(std::string_view name, double fallback);
    // Remaining words once options are taken; throws UsageError for an unknown "--option" left over.
    std::vector<std::string> Positional() const;
    const std::vector<std::string>& Words() const { return FWords; }

private:
    std::vector<std::string> FWords;
};

// Thrown for a bad command line: main prints the message and the command's usage, exit code 2.
struct UsageError {
    std::string message;
};

struct Command {
    std::string name;      // "utm", or "calib show" for a subcommand group
    std::string summary;   // one line for `geotool --help`
    std::string usage;     // the full text for `geotool NAME --help`
    std::function<int(Args&)> run;  // returns the exit code
};

void RegisterCommand(Command command);
const std::vector<Command>& Commands();

struct Registrar {
    explicit Registrar(Command command) { RegisterCommand(std::move(command)); }
};

}  // namespace geotool
