// Pages and listeners whose body is a function, and a runner for such pages.
#ifndef SERVED_H
#define SERVED_H

#include "kit/plugin.h"

#include <kit/testing/browser.h>

#include <functional>
#include <memory>
#include <new>

class FunctionPage final : public kit::Page {
public:
    using Answer = std::function<void(kit::Request&, kit::Response&)>;
    explicit FunctionPage(Answer answer) : m_answer(std::move(answer)) {}

    void answer(kit::Request& request, kit::Response& response) override {
        m_answer(request, response);
    }

private:
    const Answer m_answer;
};

class FunctionListener final : public kit::Listener {
public:
    using Admit = std::function<bool(kit::Request&, kit::Response&)>;
    explicit FunctionListener(Admit admit) : m_admit(std::move(admit)) {}

    bool admit(kit::Request& request, kit::Response& response) override {
        return m_admit(request, response);
    }

private:
    const Admit m_admit;
};

// Serves a page to one browser or several. Frees the servlet without its destructor, as the
// container does.
class Served {
public:
    explicit Served(FunctionPage::Answer answer)
        : m_servlet(kit::newServlet(std::make_unique<FunctionPage>(std::move(answer)))),
          runner(*m_servlet) {}

private:
    struct FreeStorage {
        void operator()(HttpServlet* servlet) const { ::operator delete(servlet); }
    };
    std::unique_ptr<HttpServlet, FreeStorage> m_servlet;

public:
    kit::testing::ServletRunner runner;
    kit::testing::Browser browser{runner};
};

// Returns the page's response to one request.
inline kit::testing::Response answerTo(const kit::testing::Request& request,
                                       FunctionPage::Answer answer) {
    Served served(std::move(answer));
    return served.browser.send(request);
}

#endif
