// Owns the parts of the service and leads each request through them.
#ifndef SERVLET_CONTROLLER_H
#define SERVLET_CONTROLLER_H

#include <fcgiapp.h>

#include <atomic>
#include <cstdint>

class HttpRequest;
class ListenerContainer;
class PluginLoader;
class ServletContainer;
class SessionFactory;

// Replaces, in place, every occurrence of `pattern` in `target` by `replacement`; replaced text is
// not searched again. 0 when something was replaced; -1, and `target` as it was, when an argument
// is null, the pattern is empty or does not occur, or the result has more than 511 characters.
// `target` must have room for the result.
int ReplaceStr(char* target, const char* pattern, const char* replacement);

//   Threads   doService() may run on any threads at once; init(), destroy() and the destructor run
//             on one thread while no request is served.
// The members are in this order for those who were compiled against them.
class ServletController {
public:
    // Reads the plug-in configuration from its fixed path and opens the plug-in library; see
    // PluginLoader for what ends the process.
    ServletController();

    // The same with the plug-in configuration `configFile`, which must not be null: for tests, and
    // for hosts that try a plug-in out.
    explicit ServletController(const char* configFile);
    virtual ~ServletController();

    ServletController(const ServletController&) = delete;
    ServletController& operator=(const ServletController&) = delete;

    // Makes the service ready: creates the listeners; the device status is "idle".
    void init();

    // Ends servlets, listeners and sessions, in this order; gives 0.
    int destroy();

    // 0 while there is a session factory, else -1; does nothing else.
    int onTimer();

    // Serves one request, which must not be null (asserted). Gives the HTTP status: 200 when the
    // response has been written, another when the caller is to answer with an error page.
    int doService(FCGX_Request* frequest);

    // 1 for a URL with markup or script in it, which is logged; 0 otherwise, null included.
    int CheckUrlIllegalChar(const char* url);

    // 1 for a value with characters other than letters, digits, "-" and "_", or, with `numeric`,
    // other than digits behind at most one "-"; 0 otherwise, null and empty included.
    int CheckParaIllegalChar(const char* value, bool numeric);

    // Notes what the query `text` of a request asks of the device; null is logged and ignored.
    void setStatus(const char* text);

    // Writes the status as a word of at most 13 characters and its terminator to `out`; null is
    // logged and ignored.
    void getStatus(char* out);

    // Belongs to the controller.
    SessionFactory* getSessionFactory();

private:
    struct Exchange;

    bool isRefused(const char* uri, HttpRequest* request);
    int dispatch(Exchange& exchange, const char* query);

    SessionFactory* sessionFactory;
    ServletContainer* servletContainer;
    ListenerContainer* listenerContainer;
    PluginLoader* pluginLoader;
    std::atomic<std::int32_t> status{0}; // the last request to set it wins
};

#endif
