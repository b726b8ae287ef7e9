// Pages and listeners, and how a plug-in library exports them.
//
//     class HelloPage final : public kit::Page {
//         void answer(kit::Request& request, kit::Response& response) override {
//             response.text("Hello, " + std::string(request.parameter("name").value_or("you")));
//         }
//     };
//     KIT_SERVLET(createHelloPage, HelloPage)
//
// Compile a plug-in with -fvisibility=hidden -fno-gnu-unique; the CMake target fcgiServer::kit adds
// these options. They hide the plug-in's own symbols, so that only the creation functions are
// exported, and they let dlclose(3) really unload the library with all its static objects.
#ifndef KIT_PLUGIN_H
#define KIT_PLUGIN_H

#include "HttpListener.h"
#include "HttpServlet.h"
#include "kit/origin.h"
#include "kit/request.h"
#include "kit/response.h"
#include "kit/session_data.h"
#include "web_debug.h"

#include <cassert>
#include <cxxabi.h>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace kit {

// A servlet. It may have members of any type: its destructor runs when the library is closed.
//   Origin   requests for unknown host names and those that other sites caused, except links to
//            pages, are refused before answer() is called; see origin.h.
//   Threads  answer() runs on several request threads at once, and drop() may run at the same time.
//   Errors   an exception that leaves answer() is logged and answered with status 500, see
//            ErrorPages, unless a part of the response has been sent. One that leaves drop() is
//            logged.
class Page {
public:
    Page() = default;
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    virtual ~Page() = default;

    // Answers one request. Keep no reference to the two objects or to a text of theirs after
    // returning.
    virtual void answer(Request& request, Response& response) = 0;

    // Releases whatever the page can recreate (caches, previews). Called at shut-down; on the page
    // "contacts-preview" also whenever a request names another page. The page must still be able to
    // answer afterwards.
    virtual void drop() {}
};

// Sees every request before any page does, except those that are refused because of their origin,
// as for pages.
//   Threads  admit() runs on several request threads at once.
//   Errors   an exception that leaves admit() is logged and ends the request with status 500,
//            unless a part of the response has been sent.
class Listener {
public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    // Returns true to pass the request on to the next listener and finally to its page, or false to
    // end it and send the response as it is. An event (see container_rules.h) reaches no page.
    virtual bool admit(Request& request, Response& response) = 0;
};

namespace internal {

// Keeps an object, which the container does not destroy, until the library is unloaded. Returns it.
template <typename T>
T* keepUntilUnload(std::unique_ptr<T> object) {
    SessionTable::prepare();
    static std::mutex lock;
    static std::vector<std::unique_ptr<T>> kept;
    std::lock_guard<std::mutex> guard(lock);
    kept.push_back(std::move(object));
    return kept.back().get();
}

// Runs `work` and returns true; if it throws, calls `logFailure(reason)` and returns false. The
// exception by which glibc cancels a thread is passed on: it must not be swallowed. libc++ has no
// name for it, so no thread may be cancelled there.
template <typename Work, typename LogFailure>
bool runLogged(Work work, LogFailure logFailure) {
    try {
        work();
        return true;
#ifdef __GLIBCXX__
    } catch (const abi::__forced_unwind&) {
        throw;
#endif
    } catch (const std::exception& error) {
        logFailure(error.what());
    } catch (...) {
        logFailure("unknown exception");
    }
    return false;
}

// Answers with status 500 instead of a response that failed. If the plug-in's page for that fails
// too, logs it and answers with a line of text.
inline void sendErrorPage(Request& request, Response& response) {
    const auto send = [&] { response.fail(); };
    const bool sent = runLogged(send, [&](const char* reason) {
        WebDebug::getInstance()->error("Page %s: sending the error page failed: %s",
                                       request.page().data(), reason);
    });
    if (!sent) {
        runLogged(send, [](const char*) {});
    }
}

// The servlet that the container holds. The container frees it without running its destructor, so
// it owns nothing.
class ServletHandle final : public HttpServlet {
public:
    // `function` is the name of its creation function, for the log, and must outlive this object.
    ServletHandle(Page& page, const char* function) : m_page(page), m_function(function) {}

    void init() override {}

    void destroy() override {
        runLogged([this] { m_page.drop(); },
                  [this](const char* reason) {
                      WebDebug::getInstance()->error("drop() of the page of %s failed: %s",
                                                     m_function, reason);
                  });
    }

    void service(HttpRequest* rawRequest, HttpResponse* rawResponse) override {
        Request request(*rawRequest);
        Response response(*rawResponse, request);
        const bool answered = runLogged(
            [&] {
                if (isRefused(request, response)) {
                    return;
                }
                SessionTable::refreshAll(*rawRequest);
                m_page.answer(request, response);
                // Again, since the page may have changed its session's time-out.
                SessionTable::refreshAll(*rawRequest);
            },
            [&](const char* reason) {
                WebDebug::getInstance()->error("Page %s failed: %s", request.page().data(), reason);
            });
        if (!answered) {
            sendErrorPage(request, response);
        }
    }

private:
    Page& m_page;
    const char* const m_function;
};

class ListenerHandle final : public HttpListener {
public:
    // `function` is the name of its creation function, for the log, and must outlive this object.
    ListenerHandle(std::unique_ptr<Listener> listener, const char* function)
        : m_listener(std::move(listener)), m_function(function) {}

    void init() override {}

    bool onRequest(HttpRequest* rawRequest, HttpResponse* rawResponse) override {
        Request request(*rawRequest);
        Response response(*rawResponse, request);
        bool admitted = false;
        const bool completed = runLogged(
            [&] {
                if (isRefused(request, response)) {
                    return;
                }
                SessionTable::refreshAll(*rawRequest);
                admitted = m_listener->admit(request, response);
            },
            [&](const char* reason) {
                WebDebug::getInstance()->error("Page %s: listener %s failed: %s",
                                               request.page().data(), m_function, reason);
            });
        if (!completed) {
            sendErrorPage(request, response);
        }
        return completed && admitted;
    }

private:
    const std::unique_ptr<Listener> m_listener;
    const char* const m_function;
};

// Returns what `create` returns, or null, which the container takes for a failed creation, if it
// throws; the log line has `function`, the name of the creation function.
template <typename Create>
auto createOrNull(const char* function, Create create) -> decltype(create()) {
    decltype(create()) created = nullptr;
    runLogged([&] { created = create(); },
              [&](const char* reason) {
                  WebDebug::getInstance()->error("%s() failed: %s", function, reason);
              });
    return created;
}

} // namespace internal

// Returns a servlet that answers with `page`, which must not be null. The page lives until the
// library is unloaded. The servlet is the caller's, as a creation function returns it to the
// container: free its storage with the global operator delete. `function` is the name of that
// creation function, for the log; it must live until the library is unloaded.
inline HttpServlet* newServlet(std::unique_ptr<Page> page, const char* function = "newServlet") {
    assert(page && "`page` must not be null");
    return new internal::ServletHandle(*internal::keepUntilUnload(std::move(page)), function);
}

// Returns a listener that asks `listener`, which must not be null. Both live until the library is
// unloaded; never free the result. `function` is as for newServlet().
inline HttpListener* newListener(std::unique_ptr<Listener> listener,
                                 const char* function = "newListener") {
    assert(listener && "`listener` must not be null");
    return internal::keepUntilUnload(
        std::make_unique<internal::ListenerHandle>(std::move(listener), function));
}

} // namespace kit

// NOLINTBEGIN(bugprone-macro-parentheses): a function's name cannot be put in parentheses.

// Defines and exports the creation function `function` of a page. The other arguments are what
// follows "new" in its body: KIT_SERVLET(createCart, CartPage) or
// KIT_SERVLET(createCart, CartPage(theShop(), 20)).
#define KIT_SERVLET(function, ...)                                                                 \
    extern "C" __attribute__((visibility("default"))) HttpServlet* function() {                    \
        return kit::internal::createOrNull(#function, [] {                                         \
            return kit::newServlet(std::unique_ptr<kit::Page>(new __VA_ARGS__), #function);        \
        });                                                                                        \
    }

// Defines and exports the creation function of a listener, in the same way.
#define KIT_LISTENER(function, ...)                                                                \
    extern "C" __attribute__((visibility("default"))) HttpListener* function() {                   \
        return kit::internal::createOrNull(#function, [] {                                         \
            return kit::newListener(std::unique_ptr<kit::Listener>(new __VA_ARGS__), #function);   \
        });                                                                                        \
    }

// NOLINTEND(bugprone-macro-parentheses)

#endif
