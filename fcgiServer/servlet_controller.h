// Owns the parts of the service and leads each request through them.
#ifndef SERVLET_CONTROLLER_H
#define SERVLET_CONTROLLER_H

#include <fcgiapp.h>

#include <atomic>
#include <cstdint>
#include <memory>

class HttpRequest;
class ListenerContainer;
class PluginLoader;
class ServletContainer;
class SessionFactory;

// Replaces, in place, every occurrence of `pattern` in `target` by `replacement`; replaced text is
// not searched again. Returns 0 if something was replaced. Returns -1, and leaves `target`
// unchanged, if an argument is null, the pattern is empty or does not occur, or the result would
// have more than 511 characters. `target` must have room for the result.
int ReplaceStr(char* target, const char* pattern, const char* replacement);

//   Owner     of the session factory, the containers and the plug-in loader, which it releases in
//             this order.
//   Threads   doService() may run on any number of threads at once; call init(), destroy() and the
//             destructor on one thread while no request is being served.
//   Failure   a constructor that throws (no memory) releases everything that it had created.
// The order of the members is part of the binary interface.
class ServletController {
public:
    // Reads the plug-in configuration from its fixed path and opens the plug-in library; see
    // PluginLoader for the failure that ends the process.
    ServletController();

    // Does the same with the plug-in configuration `configFile`, which must not be null: for tests,
    // and for hosts that try a plug-in out.
    explicit ServletController(const char* configFile);
    virtual ~ServletController();

    ServletController(const ServletController&) = delete;
    ServletController& operator=(const ServletController&) = delete;

    // Returns the fixed path of the plug-in configuration.
    static const char* defaultConfigFile();

    // Makes the service ready: creates the listeners and sets the device status to "idle".
    void init();

    // Returns whether the configuration could be read and init() created every listener in it.
    // Listeners stop requests, for example of clients that have not signed in: do not serve without
    // one of them.
    bool isComplete() const;

    // Destroys servlets, listeners and sessions, in this order. Returns 0.
    int destroy();

    // Returns 0 while there is a session factory, else -1; does nothing else.
    int onTimer();

    // Serves one request, which must not be null (asserted in every build). Returns the HTTP
    // status: 200 if the response has been written; for any other the caller must write an error
    // page.
    int doService(FCGX_Request* frequest);

    // Returns 1, and logs the URL, if it contains markup or script; 0 otherwise, also for null.
    int CheckUrlIllegalChar(const char* url);

    // Returns 1 if the value contains a character other than letters, digits, "-" and "_"; with
    // `numeric`, other than digits after at most one leading "-". Returns 0 otherwise, also for
    // null and the empty text.
    int CheckParaIllegalChar(const char* value, bool numeric);

    // Sets the status to what the query `text` of a request asks of the device. Logs and ignores
    // null.
    void setStatus(const char* text);

    // Writes the status as a word of at most 13 characters and a terminator to `out`. Logs and
    // ignores null.
    void getStatus(char* out);

    // Returns the session factory, which belongs to the controller.
    SessionFactory* getSessionFactory();

private:
    struct Exchange;

    int dispatch(Exchange& exchange, const char* query);

    // Fixed from construction to destruction.
    std::unique_ptr<SessionFactory> sessionFactory;
    std::unique_ptr<ServletContainer> servletContainer;
    std::unique_ptr<ListenerContainer> listenerContainer;
    std::unique_ptr<PluginLoader> pluginLoader;
    // Self-synchronised; the last request to set it wins.
    std::atomic<std::int32_t> status{0};
};

#endif
