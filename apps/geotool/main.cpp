// geotool: the command-line front end of qvgeo. Subcommands register themselves (command.h); this file
// only dispatches and prints help.
#include "command.h"
#include "line_io.h"

#include <qvgeo/support/errors.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

namespace {

void PrintOverview()
{
    std::printf("usage: geotool COMMAND [ARGS...]\n"
                "       geotool COMMAND --help\n\n"
                "Geodesy, map calibration and geographic database tools over the qvgeo library.\n"
                "Conversions read one record a line from standard input and write one line each to standard\n"
                "output: output line N answers input line N. Blank lines and lines starting with '#' are\n"
                "copied, fields after the ones a conversion reads are passed through (an identifier column\n"
                "survives), and a rejected record prints as '*' fields and is reported on standard error\n"
                "with its line number while the run goes on.\n\n"
                "Exit codes, for every command: 0 all done; 1 some records rejected, or a runtime error\n"
                "(a file that cannot be read or written, standard output that cannot be written: a full\n"
                "disk, a closed pipe); 2 a usage error.\n\ncommands:\n");
    std::vector<const geotool::Command*> sorted;
    for (const auto& c : geotool::Commands())
        sorted.push_back(&c);
    std::sort(sorted.begin(), sorted.end(), [](auto* a, auto* b) { return a->name < b->name; });
    for (const auto* c : sorted)
        std::printf("  %-22s %s\n", c->name.c_str(), c->summary.c_str());
}

// The registered command whose name matches the most leading words ("calib show" before "calib").
const geotool::Command* Match(const std::vector<std::string>& words, std::size_t& used)
{
    const geotool::Command* best = nullptr;
    used = 0;
    for (const auto& c : geotool::Commands()) {
        std::vector<std::string> parts;
        std::size_t start = 0;
        while (start <= c.name.size()) {
            const std::size_t sp = c.name.find(' ', start);
            parts.push_back(c.name.substr(start, sp == std::string::npos ? std::string::npos : sp - start));
            if (sp == std::string::npos)
                break;
            start = sp + 1;
        }
        if (parts.size() > words.size() || parts.size() <= used)
            continue;
        if (std::equal(parts.begin(), parts.end(), words.begin())) {
            best = &c;
            used = parts.size();
        }
    }
    return best;
}

int Run(const std::vector<std::string>& words, std::string& name)
{
    if (words.empty() || words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        PrintOverview();
        return words.empty() ? 2 : 0;
    }
    if (words[0] == "--version") {
        std::printf("geotool (qvgeo) %s\n", QVGEO_VERSION);
        return 0;
    }
    std::size_t used = 0;
    const geotool::Command* command = Match(words, used);
    if (!command) {
        // A group name alone ("geotool calib") lists the group's commands.
        bool group = false;
        for (const auto& c : geotool::Commands())
            if (c.name.rfind(words[0] + " ", 0) == 0) {
                if (!group)
                    std::fprintf(stderr, "geotool %s: choose one of:\n", words[0].c_str());
                group = true;
                std::fprintf(stderr, "  %-22s %s\n", c.name.c_str(), c.summary.c_str());
            }
        if (!group)
            std::fprintf(stderr, "geotool: unknown command \"%s\" (geotool --help lists them)\n",
                         words[0].c_str());
        return 2;
    }
    name = command->name;
    geotool::Args args(std::vector<std::string>(words.begin() + static_cast<long>(used), words.end()));
    if (args.Flag("--help") || args.Flag("-h")) {
        std::printf("%s\n", command->usage.c_str());
        return 0;
    }
    try {
        return command->run(args);
    } catch (const geotool::UsageError& e) {
        std::fprintf(stderr, "geotool %s: %s\n\n%s\n", command->name.c_str(), e.message.c_str(),
                     command->usage.c_str());
        return 2;
    }
}

}  // namespace

int main(int argc, char** argv)
{
    // A closed pipe is reported as a write error (EPIPE) like any other, not a silent death by signal.
    std::signal(SIGPIPE, SIG_IGN);
    std::string name;
    int code = 0;
    try {
        code = Run(std::vector<std::string>(argv + 1, argv + argc), name);
    } catch (const geotool::OutputError& e) {
        std::fprintf(stderr, "geotool %s: %s\n", name.c_str(), e.what());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "geotool %s: %s\n", name.c_str(), e.what());
        code = 1;
    }
    if (!geotool::CloseStandardOutput(name) && code != 2)
        code = 1;
    return code;
}
