// The command line of servlet_check.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <optional>
#include <string>
#include <vector>

struct Options {
    enum class Action { Check, Explain, Help, Version };

    Action action = Action::Check;
    std::string root = "/";             // the folder that contains the device's files
    std::string configuration;          // the file, by default the one below the root
    std::vector<std::string> templates; // folders; by default the one beside the configuration's
    std::vector<std::string> provided;  // host programs and libraries that the root lacks
    bool isPartial = false;             // the root lacks libraries that the device has
    bool asJson = false;
    std::string url; // to explain
};

// Parses the command line. Returns nothing if it is wrong; `error` then says why, in one line. Not
// thread-safe, since getopt_long(3) is not.
std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error);

// The text of --help: several lines, each with its line feed.
extern const char kHelpText[];

#endif
