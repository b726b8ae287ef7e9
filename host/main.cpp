// fcgi_host: the daemon around one FCGIServer.
#include "daemon.h"
#include "failure.h"
#include "options.h"

#include <fcntl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

// Opens /dev/null in place of standard descriptors that are closed, else files opened later would
// get their numbers and be taken for them.
void fillStandardDescriptors() {
    int fd = -1;
    do
        fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

int run(int argc, char** argv) {
    std::string error;
    const auto options = parseOptions(argc, argv, error);
    if (!options)
        return fail(EX_USAGE, error + "; see fcgi_host --help");
    switch (options->action) {
    case Options::Action::Help:
        std::fputs(kHelpText, stdout);
        return EX_OK;
    case Options::Action::Version:
        std::puts("fcgi_host " FCGI_HOST_VERSION);
        return EX_OK;
    case Options::Action::Serve:
        break;
    }
    return runDaemon(*options);
}

} // namespace

int main(int argc, char** argv) {
    try {
        fillStandardDescriptors();
        return run(argc, argv);
    } catch (const std::exception& problem) {
        // Not exit(3), whose destructors would run beside request loops.
        std::_Exit(fail(EX_OSERR, problem.what()));
    }
}
