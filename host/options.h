// The command line of fcgi_host.
#ifndef OPTIONS_H
#define OPTIONS_H

#include <sys/stat.h>

#include <optional>
#include <string>

struct Options {
    enum class Action { Serve, Help, Version };

    Action action = Action::Serve;
    // Request loops: as many requests are served at once.
    int threads = 2;
    // Between two runs of the timer.
    int timerSeconds = 10;
    // After a stop signal, for the requests under way.
    int drainSeconds = 5;
    // Where to listen; empty for the socket that is handed over as file descriptor 0.
    std::string listen;
    // Of the file of a Unix socket that is opened here.
    mode_t socketMode = 0660;
    // Who to run as, NAME or NAME:GROUP; empty to stay who started it.
    std::string user;
};

// Nothing for a command line that makes no sense; `error` then says in one line what is wrong
// with it. One thread at a time.
std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error);

// Several lines, the last with its newline.
extern const char kHelpText[];

#endif
