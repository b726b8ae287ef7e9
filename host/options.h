// The command line of fcgi_host.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <sys/stat.h>

#include <optional>
#include <string>

struct Options {
    enum class Action { Serve, Help, Version };

    Action action = Action::Serve;
    int threads = 2;          // requests that are served at once
    int timerSeconds = 10;    // between two sweeps of expired sessions
    int maxSessions = 0;      // 0 for any number
    int drainSeconds = 5;     // that requests in flight get after a stop signal
    std::string listen;       // PATH or ADDRESS:PORT; empty for the inherited socket
    mode_t socketMode = 0660; // of the socket file that --listen creates
    bool accessLogHeader = false;
    std::string user; // NAME or NAME:GROUP; empty to keep the current user
};

// Parses the command line. Returns nothing if it is wrong; `error` then says why, in one line. Not
// thread-safe, since getopt_long(3) is not.
std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error);

// The text of --help: several lines, each with its line feed.
extern const char kHelpText[];

#endif
