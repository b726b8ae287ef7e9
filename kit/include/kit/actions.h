// Routing inside a page: which member function answers which action. The action is the parameter
// "q".
//
//     class NotesPage final : public kit::ActionPage {
//     public:
//         NotesPage() {
//             show(&NotesPage::list);
//             on("add", &NotesPage::add);
//             on("remove", &NotesPage::remove);
//             onGet("export", &NotesPage::sendAll);
//         }
//
//     private:
//         void list(kit::Request& request, kit::Response& response);
//         ...
//     };
#ifndef KIT_ACTIONS_H
#define KIT_ACTIONS_H

#include "kit/forms.h"
#include "kit/plugin.h"

#include <cassert>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

// The actions of a page. `Target` is the page's class or a base of it; its member functions are
// called with the request, the response and `More`, such as the sign-in that was found.
//
// A GET or HEAD request is answered by the action that onGet() has declared for its "q", or else by
// show(): so the address of a form that was sent still shows the page when it is opened again. A
// POST request is answered by the action that on() or onUpload() has declared, or else with status
// 404. Other methods are answered with status 405, and so is a GET request if there is no show().
//   Threads  declare the actions in the constructor of the page; answer() may run on any thread.
template <typename Target, typename... More>
class Actions {
public:
    // A function that answers an action.
    using Handler = void (Target::*)(Request&, Response&, More...);

    // `refuse` answers requests for an action of on() that do not have the token.
    explicit Actions(Handler refuse) : m_refuse(refuse) {}

    // Declare an action; `name` must not be null and must outlive this object, and no name may be
    // declared twice for the same method.
    //   on        for POST requests for which isFromForm() is true. Whatever changes something is
    //             declared like this.
    //   onUpload  for POST requests whose token may be a field of an upload: the function checks
    //             isFromForm() itself, once it has received the upload.
    //   onGet     for GET and HEAD requests. Must change nothing.
    template <typename Page>
    void on(const char* name, void (Page::*handler)(Request&, Response&, More...)) {
        add(name, Kind::Form, static_cast<Handler>(handler));
    }
    template <typename Page>
    void onUpload(const char* name, void (Page::*handler)(Request&, Response&, More...)) {
        add(name, Kind::Upload, static_cast<Handler>(handler));
    }
    template <typename Page>
    void onGet(const char* name, void (Page::*handler)(Request&, Response&, More...)) {
        add(name, Kind::Get, static_cast<Handler>(handler));
    }
    // Declares what answers all other GET and HEAD requests. Must change nothing.
    template <typename Page>
    void show(void (Page::*handler)(Request&, Response&, More...)) {
        m_show = static_cast<Handler>(handler);
    }

    // Answers the request by one of the functions of `target`, which must be of the class whose
    // functions were declared.
    void answer(Target& target, Request& request, Response& response, More... more) const {
        const std::string_view method = request.method();
        const bool isGet = method == "GET" || method == "HEAD";
        const Action* action = find(request.parameter("q").value_or(""), isGet);
        if (isGet && (action || m_show)) {
            (target.*(action ? action->handler : m_show))(request, response, more...);
        } else if (!request.isPost()) {
            response.header("Allow", m_show ? "GET, HEAD, POST" : "POST");
            response.error(405, "This page does not support the method.\n");
        } else if (!action) {
            response.error(404, "This page has no such action.\n");
        } else if (action->kind == Kind::Form && !isFromForm(request)) {
            (target.*m_refuse)(request, response, more...);
        } else {
            (target.*action->handler)(request, response, more...);
        }
    }

private:
    enum class Kind { Get, Form, Upload };

    struct Action {
        std::string_view name;
        Kind kind;
        Handler handler;
    };

    void add(const char* name, Kind kind, Handler handler) {
        assert(name && "`name` must not be null");
        assert(!find(name, kind == Kind::Get) && "no name may be declared twice");
        m_actions.push_back({name, kind, handler});
    }

    const Action* find(std::string_view name, bool isGet) const {
        for (const Action& action : m_actions) {
            if (action.name == name && (action.kind == Kind::Get) == isGet) {
                return &action;
            }
        }
        return nullptr;
    }

    const Handler m_refuse;
    Handler m_show = nullptr;
    std::vector<Action> m_actions;
};

// A page with actions. Its functions have the parameters (kit::Request&, kit::Response&), and are
// declared in its constructor; see Actions for the four ways to declare one.
class ActionPage : public Page {
protected:
    ActionPage() : m_actions(&ActionPage::refuse) {}

    // Declare a member function of this page as an action; see Actions.
    template <typename Handler>
    void on(const char* name, Handler handler) {
        m_actions.on(name, handler);
    }
    template <typename Handler>
    void onUpload(const char* name, Handler handler) {
        m_actions.onUpload(name, handler);
    }
    template <typename Handler>
    void onGet(const char* name, Handler handler) {
        m_actions.onGet(name, handler);
    }
    template <typename Handler>
    void show(Handler handler) {
        m_actions.show(handler);
    }

    // Runs before every action. Returns false to end the request with the response as it is, for
    // example a redirect of users who are not signed in; SignIns::find() here makes the actions
    // require the token of the sign-in.
    virtual bool begin(Request&, Response&) { return true; }

    // Answers a form without the token, which has changed nothing.
    virtual void refuse(Request&, Response& response) {
        response.status(403).text("This form is out of date, so nothing was changed. Go back, "
                                  "reload the page and send the form again.\n");
    }

private:
    void answer(Request& request, Response& response) final {
        if (begin(request, response)) {
            m_actions.answer(*this, request, response);
        }
    }

    Actions<ActionPage> m_actions;
};

} // namespace kit

#endif
