// The smallest libfcgi program, with which the container is compared.
//   bare_loop [LOOPS]
// LOOPS threads, 1 by default, accept on file descriptor 0 until SIGTERM and serve a page of 1 KiB.
// The body of a POST is read first, and copied to the file that the environment variable FILE
// names, if any. LIBFCGI_OS_CLOSE_POLL_TIMEOUT is left as it is.
#include "request_loops.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kPageBytes = 1024;

// Writes to a temporary file, syncs and renames it, so that a crash leaves no partial upload.
void copyBody(FCGX_Stream* in, const char* path) {
    const std::string temporary = std::string(path) + ".new";
    const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    char block[16384];
    for (int count = 0; (count = FCGX_GetStr(block, sizeof block, in)) > 0;)
        if (file < 0 || write(file, block, static_cast<std::size_t>(count)) != count)
            std::abort();
    if (fsync(file) != 0 || close(file) != 0 || rename(temporary.c_str(), path) != 0)
        std::abort();
}

void readBody(FCGX_Stream* in) {
    char block[4096];
    while (FCGX_GetStr(block, sizeof block, in) > 0) {
    }
}

void serve(FCGX_Request& request) {
    static const std::string page(kPageBytes, 'x');
    if (FCGX_GetParam("QUERY_STRING", request.envp) == nullptr)
        return;
    const char* method = FCGX_GetParam("REQUEST_METHOD", request.envp);
    if (method != nullptr && std::strcmp(method, "POST") == 0) {
        if (const char* path = std::getenv("FILE"))
            copyBody(request.in, path);
        else
            readBody(request.in);
    }
    FCGX_FPrintF(request.out, "Content-Type: text/html\r\nCache-Control: no-store\r\n\r\n");
    FCGX_PutStr(page.data(), static_cast<int>(page.size()), request.out);
}

} // namespace

int main(int argc, char** argv) {
    serveRequests(argc, argv, serve);
}
