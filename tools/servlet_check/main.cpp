// servlet_check: checks a plug-in, its configuration and its templates before deployment.
#include "configuration.h"
#include "device_tree.h"
#include "explain.h"
#include "finding.h"
#include "options.h"
#include "plugin_check.h"
#include "template_check.h"

#include <sysexits.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kProblemsFound = 1;

int fail(int status, const std::string& message) {
    std::fprintf(stderr, "servlet_check: %s\n", printable(message).c_str());
    return status;
}

// A file or folder of the command line cannot be read.
class NoInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::string contentsOf(const std::string& file) {
    if (!fs::is_regular_file(file)) // throws if there is no such file
        throw NoInput("cannot read " + quoted(file) + ": not a regular file");
    std::ifstream stream(file, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (!stream)
        throw NoInput("cannot read " + quoted(file));
    return text;
}

std::vector<SharedObject> readProvided(const std::vector<std::string>& files) {
    std::vector<SharedObject> result;
    for (const std::string& file : files) {
        std::string error;
        auto object = readSharedObject(file, error);
        if (!object)
            throw NoInput(quoted(file) + ' ' + error);
        result.push_back(std::move(*object));
    }
    return result;
}

// Returns the folders of --templates, or else the one beside the configuration's, if it exists.
std::vector<fs::path> templateFolders(const Options& options) {
    for (const std::string& folder : options.templates)
        if (!fs::is_directory(folder))
            throw NoInput("cannot read " + quoted(folder) + ": not a folder");
    if (!options.templates.empty())
        return {options.templates.begin(), options.templates.end()};
    const fs::path byDefault =
        (fs::path(options.configuration).parent_path() / ".." / "templates").lexically_normal();
    return fs::is_directory(byDefault) ? std::vector<fs::path>{byDefault} : std::vector<fs::path>();
}

int check(const Options& options) {
    if (!fs::is_directory(options.root))
        throw NoInput("cannot read " + quoted(options.root) + ": not a folder");
    Findings findings;
    const Configuration configuration =
        readConfiguration(options.configuration, contentsOf(options.configuration), findings);
    DeviceTree tree(options.root);
    const std::vector<fs::path> templates = templateFolders(options);
    checkPlugin(configuration, tree, readProvided(options.provided), options.isPartial, templates,
                findings);
    for (const fs::path& folder : templates)
        checkTemplates(folder, findings);
    const std::vector<Finding> sorted = findings.sorted();
    std::fputs((options.asJson ? asJson(sorted) : asLines(sorted)).c_str(), stdout);
    return findings.containProblems() ? kProblemsFound : EX_OK;
}

int explainUrl(const Options& options) {
    Findings ignored; // reported by a check
    const Configuration configuration =
        readConfiguration(options.configuration, contentsOf(options.configuration), ignored);
    std::fputs(explain(options.url, configuration).c_str(), stdout);
    return EX_OK;
}

int run(int argc, char** argv) {
    std::string error;
    const auto options = parseOptions(argc, argv, error);
    if (!options)
        return fail(EX_USAGE, error + "; see servlet_check --help");
    switch (options->action) {
    case Options::Action::Help:
        std::fputs(kHelpText, stdout);
        return EX_OK;
    case Options::Action::Version:
        std::puts("servlet_check " SERVLET_CHECK_VERSION);
        return EX_OK;
    case Options::Action::Explain:
        return explainUrl(*options);
    case Options::Action::Check:
        break;
    }
    return check(*options);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const NoInput& problem) {
        return fail(EX_NOINPUT, problem.what());
    } catch (const fs::filesystem_error& problem) {
        return fail(EX_NOINPUT, quoted(problem.path1().string()) + ": " + problem.code().message());
    } catch (const std::exception& problem) {
        return fail(EX_OSERR, problem.what());
    }
}
