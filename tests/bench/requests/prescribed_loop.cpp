// Makes the calls of libfcgi, times(2) and pthread_mutex_lock(3) that the container's interface
// promises for a page with a session, and does nothing else: the floor below which the container
// cannot go. Serves the same response as the pages "page" and "sign-in" of plugin.cpp.
//   prescribed_loop [LOOPS]
// LOOPS threads, 1 by default, accept on file descriptor 0 until SIGTERM.
//
// The calls for `GET /servlet?p=page&x=1` with the cookie of a session, step by step:
//
//   step                              FCGX_GetParam         times  other
//   accept                                                         FCGX_Accept_r, under a lock
//   construct the request             REQUEST_METHOD
//                                     HTTP_COOKIE
//                                     QUERY_STRING
//   begin the session's request       REMOTE_ADDR             1    lock, unlock
//     restart its idle time                                   1
//   screen the URL                    REQUEST_URI
//   the page asks for its session     REMOTE_ADDR
//     find it                         REMOTE_ADDR             1    lock, unlock
//   three header lines and their end                               FCGX_VFPrintF, four times
//   the body of 1 KiB                                              FCGX_PutStr
//   the locale, for templates         HTTP_ACCEPT_LANGUAGE
//   end the session's request         REMOTE_ADDR             1    lock, unlock
//   finish                                                         FCGX_Finish_r
//   together                          9 calls                 4
//
// What the container does with the results is left out: decoding the query and the cookies, the
// tables of headers, sessions and pages, the listeners, and the variables of templates. There is
// one session, and its cookie is compared as it was sent.
#include "request_loops.h"

#include <pthread.h>
#include <sys/times.h>

#include <cstdarg>
#include <cstring>
#include <string>

namespace {

constexpr std::size_t kPageBytes = 1024;
constexpr int kTicksPerSecond = 100;
constexpr int kDay = 24 * 60 * 60; // seconds
const char kSessionCookie[] = "JSESSIONID=55d0c8e3f2a81712345655d0c8e40010";

pthread_mutex_t sessionLock = PTHREAD_MUTEX_INITIALIZER;
std::string sessionAddress;
int lastAccess;
bool isInRequest;

int secondsNow() {
    return static_cast<int>(times(nullptr) / kTicksPerSecond);
}

__attribute__((format(printf, 2, 3))) void print(FCGX_Stream* out, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    FCGX_VFPrintF(out, format, arguments);
    va_end(arguments);
}

class Page {
public:
    explicit Page(FCGX_Request& request) : m_request(request) {
        m_method = variable("REQUEST_METHOD");
        m_cookie = variable("HTTP_COOKIE");
        m_query = variable("QUERY_STRING");
    }

    void serve() {
        beginRequest();
        const char* uri = variable("REQUEST_URI");
        if (m_method == nullptr || m_query == nullptr || uri == nullptr)
            return;
        if (std::strcmp(m_query, "p=sign-in") == 0)
            signIn();
        else
            writePage();
        variable("HTTP_ACCEPT_LANGUAGE");
        endRequest();
    }

private:
    const char* variable(const char* name) { return FCGX_GetParam(name, m_request.envp); }

    // The caller must hold the lock.
    bool findSession() {
        const char* address = variable("REMOTE_ADDR");
        return m_cookie != nullptr && address != nullptr &&
               std::strcmp(m_cookie, kSessionCookie) == 0 && sessionAddress == address &&
               secondsNow() - lastAccess < kDay;
    }

    void beginRequest() {
        pthread_mutex_lock(&sessionLock);
        if (findSession()) {
            isInRequest = true;
            lastAccess = secondsNow();
        }
        pthread_mutex_unlock(&sessionLock);
    }

    void endRequest() {
        pthread_mutex_lock(&sessionLock);
        if (findSession())
            isInRequest = false;
        pthread_mutex_unlock(&sessionLock);
    }

    bool hasSession() {
        if (variable("REMOTE_ADDR") == nullptr)
            return false;
        pthread_mutex_lock(&sessionLock);
        const bool found = findSession();
        pthread_mutex_unlock(&sessionLock);
        return found;
    }

    void signIn() {
        const char* address = variable("REMOTE_ADDR");
        pthread_mutex_lock(&sessionLock);
        sessionAddress = address != nullptr ? address : "";
        lastAccess = secondsNow();
        pthread_mutex_unlock(&sessionLock);
        print(m_request.out, "%s: %s \r\n", "Set-Cookie", kSessionCookie);
        print(m_request.out, "\r\n");
    }

    void writePage() {
        static const std::string text(kPageBytes, 'x');
        if (!hasSession())
            print(m_request.out, "%s: %s \r\n", "Status", "403");
        print(m_request.out, "%s: %s \r\n", "Content-Type", "text/html; charset=utf-8");
        print(m_request.out, "%s: %s \r\n", "Cache-Control", "no-store");
        print(m_request.out, "%s: %s \r\n", "X-Content-Type-Options", "nosniff");
        print(m_request.out, "\r\n");
        FCGX_PutStr(text.data(), static_cast<int>(text.size()), m_request.out);
    }

    FCGX_Request& m_request;
    const char* m_method;
    const char* m_cookie;
    const char* m_query;
};

void serve(FCGX_Request& request) {
    Page(request).serve();
}

} // namespace

int main(int argc, char** argv) {
    serveRequests(argc, argv, serve);
}
