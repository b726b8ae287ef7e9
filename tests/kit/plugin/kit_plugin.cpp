// The plug-in library of plugin_test.cpp.

#include "kit/not_found.h"
#include "kit/plugin.h"
#include "kit/sign_in.h"

#include <memory>
#include <new>
#include <stdexcept>
#include <string>

namespace {

kit::SignIns signIns; // a static object with a table, which must not keep the library loaded

class GreetingPage final : public kit::Page {
public:
    explicit GreetingPage(std::string greeting = "Hello", int times = 1)
        : m_greeting(std::move(greeting)), m_times(times) {}

    void drop() override {
        if (m_undroppable) {
            throw std::runtime_error("still needed");
        }
        m_dropped = true;
    }

private:
    void answer(kit::Request& request, kit::Response& response) override {
        for (int i = 0; i < m_times; ++i) {
            response.text(m_greeting + ", " +
                          std::string(request.parameter("name").value_or("you")) +
                          (m_dropped ? " (dropped)" : "") + "\n");
        }
        m_dropped = false;
        m_undroppable = request.isChecked("undroppable");
    }

    const std::string m_greeting;
    const int m_times;
    bool m_dropped = false;
    bool m_undroppable = false;
};

class FailingPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.parameter("late")) {
            response.raw().print("%s", "begun");
        }
        if (request.parameter("memory")) {
            throw std::bad_alloc();
        }
        if (request.parameter("number")) {
            throw 42;
        }
        throw std::runtime_error("out of paper");
    }
};

class ImpossiblePage final : public kit::Page {
public:
    ImpossiblePage() { throw std::runtime_error("no such thing"); }
    void answer(kit::Request&, kit::Response&) override {}
};

class Doorkeeper final : public kit::Listener {
public:
    explicit Doorkeeper(std::string word) : m_word(std::move(word)) {}

    bool admit(kit::Request& request, kit::Response& response) override {
        if (request.parameter("word") == "?") {
            throw std::runtime_error("what");
        }
        if (request.parameter("word") == m_word) {
            return true;
        }
        response.status(403).text("Say the word.\n");
        return false;
    }

private:
    const std::string m_word;
};

} // namespace

KIT_LISTENER(createDoorkeeper, Doorkeeper("please"))
KIT_LISTENER(createNotFound, kit::NotFound("not-found.html"))
KIT_SERVLET(createGreetingPage, GreetingPage)
KIT_SERVLET(createPolitePage, GreetingPage("Good day", 2))
KIT_SERVLET(createFailingPage, FailingPage)
KIT_SERVLET(createImpossiblePage, ImpossiblePage)
