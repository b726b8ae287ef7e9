#include "options.h"

#include <getopt.h>

#include <charconv>
#include <cstring>

const char kHelpText[] =
    "Usage: fcgi_host [OPTION]...\n"
    "Serves the web pages of the device to a web server that speaks FastCGI.\n"
    "\n"
    "The listening socket is the one that the web server hands over as file descriptor 0, the\n"
    "first one of a systemd socket unit, or the one that --listen opens.\n"
    "\n"
    "  -l, --listen=PATH          listen on a Unix socket, which gets mode 0660\n"
    "  -l, --listen=ADDRESS:PORT  listen on 127.0.0.1:9000, [::1]:9000 or the like\n"
    "  -n, --threads=N            serve up to N requests at once, 1 to 64 (2)\n"
    "  -t, --timer=SECONDS        expire idle sessions this often, 1 to 3600 (10)\n"
    "  -h, --help                 show this text and exit\n"
    "  -V, --version              show the version and exit\n"
    "\n"
    "SIGTERM, SIGINT or SIGHUP stops it: it accepts no further request, finishes those under way\n"
    "and exits. A second one ends it at once.\n"
    "\n"
    "Exit status:\n"
    "    0  stopped by a signal\n"
    "   64  wrong usage, or no listening socket was handed over\n"
    "   69  the address to listen on is in use or not to be had\n"
    "   71  the system refused something else\n"
    "  129, 130, 143  ended at once by a second SIGHUP, SIGINT, SIGTERM\n"
    "  255  the plug-in library could not be opened\n";

namespace {

// One kit request with its buffers takes some 20 KiB and each thread a stack.
constexpr int kMostThreads = 64;
constexpr int kMostTimerSeconds = 3600;

const option kLongOptions[] = {
    {"listen", required_argument, nullptr, 'l'}, {"threads", required_argument, nullptr, 'n'},
    {"timer", required_argument, nullptr, 't'},  {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},      {nullptr, 0, nullptr, 0},
};

bool readNumber(const char* name, const char* text, int most, int& number, std::string& error) {
    const char* end = text + std::strlen(text);
    const auto [rest, failure] = std::from_chars(text, end, number);
    if (failure == std::errc() && rest == end && number >= 1 && number <= most)
        return true;
    error = std::string("--") + name + " takes a number from 1 to " + std::to_string(most) +
            ", not '" + text + "'";
    return false;
}

bool takeOption(int letter, const char* value, const char* word, Options& options,
                std::string& error) {
    switch (letter) {
    case 'l':
        options.listen = value;
        if (options.listen.empty())
            error = "--listen takes a path or ADDRESS:PORT, not nothing";
        return !options.listen.empty();
    case 'n':
        return readNumber("threads", value, kMostThreads, options.threads, error);
    case 't':
        return readNumber("timer", value, kMostTimerSeconds, options.timerSeconds, error);
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
    optind = 0; // makes getopt start afresh
    while (options.action == Options::Action::Serve) {
        // The word an error is about; getopt moves on only behind its last letter.
        const int current = optind == 0 ? 1 : optind;
        const int letter = getopt_long(argc, argv, "+:l:n:t:hV", kLongOptions, nullptr);
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
