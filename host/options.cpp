#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstring>

const char kHelpText[] =
    "Usage: fcgi_host [OPTION]...\n"
    "Serves the web pages of the device to a web server that speaks FastCGI.\n"
    "\n"
    "The listening socket is the one that the web server passes as file descriptor 0, the first\n"
    "one of a systemd socket unit, or the one that --listen opens.\n"
    "\n"
    "  -l, --listen=PATH          listen on a Unix socket\n"
    "  -l, --listen=ADDRESS:PORT  listen on 127.0.0.1:9000, [::1]:9000 or the like\n"
    "  -m, --socket-mode=MODE     mode of the socket file that --listen creates, in octal (0660)\n"
    "  -u, --user=NAME[:GROUP]    run as this user, with the user's groups, once the socket is\n"
    "                             open; a Unix socket of --listen then belongs to them\n"
    "  -n, --threads=N            serve up to N requests at once, 1 to 64 (2)\n"
    "  -t, --timer=SECONDS        expire idle sessions this often, 1 to 3600 (10)\n"
    "  -s, --max-sessions=N       end the longest idle session when there are more than N, 1 to\n"
    "                             100000 (no limit)\n"
    "  -d, --drain=SECONDS        after a stop signal, wait this long for requests in flight,\n"
    "                             0 to 3600 (5)\n"
    "  -a, --access-log-header    begin each response with X-Access-Log, the request's number and\n"
    "                             page for the access log of the web server\n"
    "  -h, --help                 show this text and exit\n"
    "  -V, --version              show the version and exit\n"
    "\n"
    "SIGTERM, SIGINT or SIGHUP stops it: it accepts no further request, finishes those in flight\n"
    "and exits. A second one ends it at once. SIGUSR2 makes it log a status line; SIGRTMIN+1\n"
    "raises the log's threshold by one level, SIGRTMIN+2 lowers it.\n"
    "\n"
    "Exit status:\n"
    "    0  stopped by a signal\n"
    "   64  wrong usage, or no listening socket was passed\n"
    "   67  there is no such user or group\n"
    "   69  the listen address is in use or unavailable\n"
    "   71  another system call failed\n"
    "   75  stopped by a signal before all requests in flight were finished\n"
    "   78  the plug-in configuration could not be read, or a listener not be created\n"
    "  129, 130, 143  ended at once by a second SIGHUP, SIGINT, SIGTERM\n"
    "  255  the plug-in library could not be opened\n";

namespace {

// Each thread needs a stack, and about 20 KiB for libfcgi's request and its buffers.
constexpr int kMostThreads = 64;
constexpr int kMostSeconds = 3600;
// The session table has a fixed number of buckets: beyond this, a look-up costs more than a page.
constexpr int kMostSessions = 100000;

const option kLongOptions[] = {
    {"listen", required_argument, nullptr, 'l'},
    {"socket-mode", required_argument, nullptr, 'm'},
    {"user", required_argument, nullptr, 'u'},
    {"threads", required_argument, nullptr, 'n'},
    {"timer", required_argument, nullptr, 't'},
    {"max-sessions", required_argument, nullptr, 's'},
    {"drain", required_argument, nullptr, 'd'},
    {"access-log-header", no_argument, nullptr, 'a'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0}, // the end
};

struct Range {
    int least;
    int most;
};

bool readNumber(const char* name, const char* text, Range range, int& number, std::string& error) {
    const char* end = text + std::strlen(text);
    const auto [rest, failure] = std::from_chars(text, end, number);
    if (failure == std::errc() && rest == end && number >= range.least && number <= range.most)
        return true;
    error = std::string("--") + name + " takes a number from " + std::to_string(range.least) +
            " to " + std::to_string(range.most) + ", not '" + text + "'";
    return false;
}

// Accepts only read and write permissions.
bool readMode(const char* text, mode_t& mode, std::string& error) {
    constexpr int kOctal = 8;
    const char* end = text + std::strlen(text);
    const auto [rest, failure] = std::from_chars(text, end, mode, kOctal);
    if (failure == std::errc() && rest == end && (mode & ~0666U) == 0)
        return true;
    error = std::string("--socket-mode takes an octal mode such as 0660, not '") + text + "'";
    return false;
}

bool readText(const char* name, const char* kind, const char* text, std::string& result,
              std::string& error) {
    result = text;
    if (result.empty())
        error = std::string("--") + name + " takes " + kind + ", not nothing";
    return !result.empty();
}

bool takeOption(int letter, const char* value, const char* word, Options& options,
                std::string& error) {
    switch (letter) {
    case 'l':
        return readText("listen", "a path or ADDRESS:PORT", value, options.listen, error);
    case 'm':
        return readMode(value, options.socketMode, error);
    case 'u':
        return readText("user", "NAME or NAME:GROUP", value, options.user, error);
    case 'n':
        return readNumber("threads", value, {1, kMostThreads}, options.threads, error);
    case 't':
        return readNumber("timer", value, {1, kMostSeconds}, options.timerSeconds, error);
    case 's':
        return readNumber("max-sessions", value, {1, kMostSessions}, options.maxSessions, error);
    case 'd':
        return readNumber("drain", value, {0, kMostSeconds}, options.drainSeconds, error);
    case 'a':
        options.accessLogHeader = true;
        return true;
    case 'h':
        options.action = Options::Action::Help;
        return true;
    case 'V':
        options.action = Options::Action::Version;
        return true;
    case ':':
        error = std::string("option '") + word + "' needs a value";
        return false;
    default:
        error = std::string("there is no option '") + word + "'";
        return false;
    }
}

} // namespace

std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error) {
    Options options;
    opterr = 0;
    optind = 0; // makes getopt_long(3) start again
    while (options.action == Options::Action::Serve) {
        // The word that an error refers to; optind moves on only after its last letter.
        const int current = optind == 0 ? 1 : optind;
        const int letter = getopt_long(argc, argv, "+:l:m:u:n:t:s:d:ahV", kLongOptions, nullptr);
        if (letter == -1)
            break;
        const char* word = current < argc ? argv[current] : "";
        if (!takeOption(letter, optarg, word, options, error))
            return std::nullopt;
    }
    if (options.action == Options::Action::Serve && optind < argc) {
        error = std::string("unexpected argument '") + argv[optind] + "'";
        return std::nullopt;
    }
    return options;
}
