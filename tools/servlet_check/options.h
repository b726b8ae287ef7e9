// The command line of servlet_check.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <optional>
#include <string>
#include <vector>

struct Options {
    enum class Action { Check, Explain, Help, Version };

    Action action = Action::Check;
    std::string root = "/";             // the device's files on this machine
    std::string configuration;          // the file; never empty once parsed
    std::vector<std::string> templates; // folders; empty for the one beside the configuration's
    std::vector<std::string> provided;  // the host program, and libraries that the device has
    bool isPartial = false;             // the root lacks files that the device has
    bool asJson = false;
    std::string url; // to explain
};

// Nothing for a command line that makes no sense; `error` then says in one line what is wrong
// with it. One thread at a time.
std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error);

// Several lines, the last with its newline.
extern const char kHelpText[];

#endif
