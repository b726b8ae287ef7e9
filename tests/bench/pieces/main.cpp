// Measures the pieces of a request; --help lists the options.
#include "pieces.h"
#include "template_pages.h"

#include <cstdlib>

int main(int argc, char** argv) {
    // Otherwise writing log records would dominate some operations.
    setenv("APP_LOG_LEVEL", "3", 0);

    pieces::addMap();
    pieces::addRequest();
    pieces::addHeaders();
    pieces::addSession();
    pieces::addMemory();
    pieces::addScreening();
    pieces::addTemplate();
    pieces::addDecode();
    pieces::addUpload();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    pieces::checkThatPagesAreEqual();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
