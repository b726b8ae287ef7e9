// Pages of the plug-in's own for the errors that the kit answers by itself.
#ifndef KIT_ERROR_PAGES_H
#define KIT_ERROR_PAGES_H

#include <functional>
#include <mutex>
#include <utility>

namespace kit {

class Request;
class Response;

// How the errors look that the kit answers instead of a page: 403 for a request that another site
// caused, 404 and 405 for an action or a method that a page does not have, 421 for an unknown host
// name, 500 for a page that failed. Without a function for them each is a line of plain text.
//     kit::ErrorPages::use([](kit::Request&, kit::Response& response, int status) {
//         response.show("error.html", kit::Variables().set("status", status));
//         return true;
//     });
//   Threads  any, at any time.
class ErrorPages {
public:
    // Shows the error as a page and returns true, or returns false and leaves it to the kit, for
    // example for requests of scripts. The status is set already. For status 403 and 421 no
    // listener has been asked yet: what the request says must not be trusted, and only then may the
    // function call setLanguage().
    using Show = std::function<bool(Request& request, Response& response, int status)>;

    // Replaces the function; it may run on several threads at once. If it throws, or shows a
    // template that cannot be opened, the answer is status 500 and the line of text.
    static void use(Show show) {
        Shared& shared = instance();
        std::lock_guard<std::mutex> guard(shared.lock);
        shared.show = std::move(show);
    }

    // Returns whether the plug-in has shown the error.
    static bool show(Request& request, Response& response, int status) {
        Show show;
        {
            Shared& shared = instance();
            std::lock_guard<std::mutex> guard(shared.lock);
            show = shared.show;
        }
        return show && show(request, response, status);
    }

private:
    struct Shared {
        std::mutex lock;
        Show show;
    };

    static Shared& instance() {
        static Shared shared;
        return shared;
    }
};

} // namespace kit

#endif
