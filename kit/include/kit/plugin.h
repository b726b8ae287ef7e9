// Pages and listeners, and how a plug-in library exports them.
//
//     class HelloPage final : public kit::Page {
//         void answer(kit::Request& request, kit::Response& response) override {
//             response.text("Hello, " + std::string(request.parameter("name").value_or("you")));
//         }
//     };
//     KIT_SERVLET(createHelloPage, HelloPage)
//
// Compile a plug-in with -fvisibility=hidden -fno-gnu-unique (the CMake target fcgiServer::kit says
// so): what the kit keeps is then private to the library and goes when the container closes it, and
// the creation functions are all that it exports.
#ifndef KIT_PLUGIN_H
#define KIT_PLUGIN_H

#include "HttpListener.h"
#include "HttpServlet.h"
#include "kit/request.h"
#include "kit/response.h"
#include "kit/session_data.h"
#include "web_debug.h"

#include <cxxabi.h>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace kit {

// A servlet in ordinary C++: it may have members of any type, since it is destroyed properly, when
// the library is closed.
//   Threads  answer() runs on every request thread at once, and drop() beside it.
//   Errors   an exception that leaves answer() is logged and answered with status 500, if nothing
//            of the answer has been sent.
class Page {
public:
    Page() = default;
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;
    virtual ~Page() = default;

    // Answers one request. Both objects live until it returns.
    virtual void answer(Request& request, Response& response) = 0;

    // Gives back what can be had again: called at shut-down, and on the page "contacts-preview"
    // whenever a request names another page. The page goes on answering afterwards.
    virtual void drop() {}
};

// Sees every request before any page does.
//   Threads, errors  as for Page; a request whose listener failed goes no further.
class Listener {
public:
    Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    virtual ~Listener() = default;

    // True lets the request go on; false ends it, with the response as it stands.
    virtual bool admit(Request& request, Response& response) = 0;
};

namespace internal {

// Owns what the container does not destroy, until the library is closed.
template <typename T>
T* keep(std::unique_ptr<T> made) {
    SessionTable::prepare();
    static std::mutex lock;
    static std::vector<std::unique_ptr<T>> kept;
    std::lock_guard<std::mutex> guard(lock);
    kept.push_back(std::move(made));
    return kept.back().get();
}

// Runs `work`; false, with a log line, when it throws. A thread that is being cancelled is let go.
template <typename Work>
bool completes(const char* what, Work work) {
    try {
        work();
        return true;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& error) {
        WebDebug::getInstance()->error("%s failed: %s", what, error.what());
    } catch (...) {
        WebDebug::getInstance()->error("%s failed", what);
    }
    return false;
}

// What the container holds: freed without a destructor, so it owns nothing.
class ServletHandle final : public HttpServlet {
public:
    explicit ServletHandle(Page& page) : m_page(page) {}

    void init() override {}

    void destroy() override {
        completes("Dropping what a page holds", [this] { m_page.drop(); });
    }

    void service(HttpRequest* rawRequest, HttpResponse* rawResponse) override {
        Request request(*rawRequest);
        Response response(*rawResponse, request);
        const bool answered = completes("A page", [&] {
            SessionTable::refreshAll(*rawRequest);
            m_page.answer(request, response);
            // Once more: the page may have given its session more time.
            SessionTable::refreshAll(*rawRequest);
        });
        if (!answered) {
            completes("Saying so", [&] { response.fail(); });
        }
    }

private:
    Page& m_page;
};

class ListenerHandle final : public HttpListener {
public:
    explicit ListenerHandle(std::unique_ptr<Listener> listener) : m_listener(std::move(listener)) {}

    void init() override {}

    bool onRequest(HttpRequest* rawRequest, HttpResponse* rawResponse) override {
        Request request(*rawRequest);
        Response response(*rawResponse, request);
        bool admitted = false;
        const bool asked = completes("A listener", [&] {
            SessionTable::refreshAll(*rawRequest);
            admitted = m_listener->admit(request, response);
        });
        if (!asked) {
            completes("Saying so", [&] { response.fail(); });
        }
        return asked && admitted;
    }

private:
    const std::unique_ptr<Listener> m_listener;
};

// Null, with a log line, when `make` throws: to the container that is a failed creation.
template <typename Make>
auto orNull(Make make) -> decltype(make()) {
    decltype(make()) made = nullptr;
    completes("Creating a plug-in", [&] { made = make(); });
    return made;
}

} // namespace internal

// A servlet for the container that answers with `page`.
inline HttpServlet* newServlet(std::unique_ptr<Page> page) {
    return new internal::ServletHandle(*internal::keep(std::move(page)));
}

// A listener for the container that asks `listener`.
inline HttpListener* newListener(std::unique_ptr<Listener> listener) {
    return internal::keep(std::make_unique<internal::ListenerHandle>(std::move(listener)));
}

} // namespace kit

// NOLINTBEGIN(bugprone-macro-parentheses): a function in parentheses is none.

// Exports a creation function under exactly the name `function`. What follows is what stands behind
// "new": KIT_SERVLET(createCart, CartPage) or KIT_SERVLET(createCart, CartPage(theShop(), 20)).
#define KIT_SERVLET(function, ...)                                                                 \
    extern "C" __attribute__((visibility("default"))) HttpServlet* function() {                    \
        return kit::internal::orNull(                                                              \
            [] { return kit::newServlet(std::unique_ptr<kit::Page>(new __VA_ARGS__)); });          \
    }

// The same for a listener.
#define KIT_LISTENER(function, ...)                                                                \
    extern "C" __attribute__((visibility("default"))) HttpListener* function() {                   \
        return kit::internal::orNull(                                                              \
            [] { return kit::newListener(std::unique_ptr<kit::Listener>(new __VA_ARGS__)); });     \
    }

// NOLINTEND(bugprone-macro-parentheses)

#endif
