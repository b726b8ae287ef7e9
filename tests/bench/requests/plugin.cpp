// The pages and listeners that are measured, written without the plug-in kit.
#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "HttpSession.h"
#include "tmpl.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr std::size_t kPageBytes = 1024;
constexpr int kVariables = 20;
constexpr int kRows = 50;
constexpr int kFields = 10;
constexpr int kDay = 24 * 60 * 60; // seconds
const char* const kEnd = nullptr;

class PassingListener final : public HttpListener {
public:
    void init() override {}
    bool onRequest(HttpRequest*, HttpResponse*) override { return true; }
};

class Servlet : public HttpServlet {
public:
    void init() override {}
    void destroy() override {}

protected:
    ~Servlet() = default;
};

void setHeaders(HttpResponse* response) {
    response->setHeader("Content-Type", "text/html; charset=utf-8");
    response->setHeader("Cache-Control", "no-store");
    response->setHeader("X-Content-Type-Options", "nosniff");
}

// Three headers and 1 KiB. Answers 403 unless the request has a session.
class Page final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        setHeaders(response);
        if (request->getSession(false) == nullptr)
            response->setHeader("Status", "403");
        static const std::string text(kPageBytes, 'x');
        response->write(text.data(), 1, static_cast<unsigned int>(text.size()));
    }
};

// Creates the session that the other pages find.
class SignIn final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        request->getSession(true)->setMaxInactiveInterval(kDay);
        response->write("", 1, 0);
    }
};

class Template final : public Servlet {
public:
    void service(HttpRequest*, HttpResponse* response) override {
        setHeaders(response);
        TMPL_varlist* variables = nullptr;
        for (int i = 0; i < kVariables; ++i)
            variables = TMPL_add_var(variables, numbered("variable", i).c_str(),
                                     numbered("a <value> & more ", i).c_str(), kEnd);
        TMPL_loop* rows = nullptr;
        for (int i = 0; i < kRows; ++i)
            rows = TMPL_add_row(rows, TMPL_add_var(nullptr, "name", numbered("Name ", i).c_str(),
                                                   "number", numbered("+49 ", i).c_str(), kEnd));
        response->setTemplate(std::getenv("TEMPLATE"), TMPL_add_loop(variables, "rows", rows));
    }

private:
    static std::string numbered(const char* text, int number) {
        return text + std::to_string(number);
    }
};

// Shows the fields of a form, and answers 422 if one is missing.
class Form final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        setHeaders(response);
        for (int i = 0; i < kFields; ++i) {
            const char* value = request->getParameter(("field" + std::to_string(i)).c_str());
            if (value == nullptr)
                response->setHeader("Status", "422");
            else
                response->write(value, 1, static_cast<unsigned int>(std::string(value).size()));
        }
    }
};

class Upload final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        setHeaders(response);
        if (request->receiveUploadFile(std::getenv("FILE")) == nullptr)
            response->setHeader("Status", "422");
    }
};

} // namespace

extern "C" {
HttpListener* createListener() {
    static PassingListener listener; // the container does not delete listeners
    return &listener;
}
HttpServlet* createPage() {
    return new Page;
}
HttpServlet* createSignIn() {
    return new SignIn;
}
HttpServlet* createTemplate() {
    return new Template;
}
HttpServlet* createForm() {
    return new Form;
}
HttpServlet* createUpload() {
    return new Upload;
}
}
