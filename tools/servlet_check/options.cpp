#include "options.h"

#include <getopt.h>

#include <filesystem>

const char kHelpText[] =
    "Usage: servlet_check [OPTION]... [SERVLET.XML]\n"
    "       servlet_check --explain=URL [--root=DIR] [SERVLET.XML]\n"
    "Checks a device's plug-in, its configuration and its templates before deployment. Does not\n"
    "run the plug-in, which may be built for another processor.\n"
    "\n"
    "SERVLET.XML is /phone/www/WEB-INFO/servlet/servlet.xml below the root by default.\n"
    "\n"
    "  -r, --root=DIR        the folder that contains the device's files (/)\n"
    "  -p, --provides=FILE   the path of the host program, or of a library, that the device has\n"
    "                        and the root lacks; may be given several times\n"
    "  -P, --partial         the root lacks libraries that the device has: report missing ones\n"
    "                        in a note, not as problems\n"
    "  -t, --templates=DIR   check the templates in this folder instead of the folder templates\n"
    "                        beside that of SERVLET.XML; may be given several times\n"
    "  -j, --json            print the findings as a JSON array\n"
    "  -e, --explain=URL     print what the container would do with a GET of this URL\n"
    "  -h, --help            show this text and exit\n"
    "  -V, --version         show the version and exit\n"
    "\n"
    "Each finding is a line \"file:line: message\". Notes report what could not be checked; they\n"
    "begin with \"note: \" and do not change the exit status.\n"
    "\n"
    "Exit status:\n"
    "    0  no problem was found, or the URL was explained\n"
    "    1  problems were found\n"
    "   64  wrong usage\n"
    "   66  SERVLET.XML, or a file or folder of an option, cannot be read\n"
    "   71  another system call failed\n";

namespace {

const char kConfigFile[] = "phone/www/WEB-INFO/servlet/servlet.xml";

const option kLongOptions[] = {
    {"root", required_argument, nullptr, 'r'},
    {"provides", required_argument, nullptr, 'p'},
    {"partial", no_argument, nullptr, 'P'},
    {"templates", required_argument, nullptr, 't'},
    {"json", no_argument, nullptr, 'j'},
    {"explain", required_argument, nullptr, 'e'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

bool takeOption(int letter, const char* value, const char* word, Options& options,
                std::string& error) {
    switch (letter) {
    case 'r':
        options.root = value;
        return true;
    case 'p':
        options.provided.emplace_back(value);
        return true;
    case 'P':
        options.isPartial = true;
        return true;
    case 't':
        options.templates.emplace_back(value);
        return true;
    case 'j':
        options.asJson = true;
        return true;
    case 'e':
        options.action = Options::Action::Explain;
        options.url = value;
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

bool needsNoMore(const Options& options) {
    return options.action == Options::Action::Help || options.action == Options::Action::Version;
}

bool takeArguments(int argc, char* const argv[], Options& options, std::string& error) {
    options.configuration = (std::filesystem::path(options.root) / kConfigFile).string();
    if (optind < argc)
        options.configuration = argv[optind++];
    const bool hasCheckOptions = options.asJson || options.isPartial || !options.provided.empty() ||
                                 !options.templates.empty();
    if (optind < argc)
        error = std::string("unexpected argument '") + argv[optind] + "'";
    else if (options.action == Options::Action::Explain && hasCheckOptions)
        error = "--explain can be combined with --root and SERVLET.XML only";
    return error.empty();
}

} // namespace

std::optional<Options> parseOptions(int argc, char* const argv[], std::string& error) {
    Options options;
    opterr = 0;
    optind = 0; // makes getopt_long(3) start again
    while (!needsNoMore(options)) {
        const int current = optind == 0 ? 1 : optind; // the word that an error refers to
        const int letter = getopt_long(argc, argv, ":r:p:Pt:je:hV", kLongOptions, nullptr);
        if (letter == -1)
            break;
        const char* word = current < argc ? argv[current] : "";
        if (!takeOption(letter, optarg, word, options, error))
            return std::nullopt;
    }
    if (!needsNoMore(options) && !takeArguments(argc, argv, options, error))
        return std::nullopt;
    return options;
}
