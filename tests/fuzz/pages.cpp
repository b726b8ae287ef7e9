// Pages that call every function of a request and a response, for the fuzzers that serve whole
// requests. The configuration names the fuzzer itself as the plug-in library.
#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "HttpSession.h"
#include "tmpl.h"

#include <cstdlib>
#include <memory>

namespace {

constexpr const char* const kEnd = nullptr;

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

class Page : public HttpServlet {
public:
    void init() override {}
    void destroy() override {}
};

// Shows everything that is known about the request.
class FactsPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        response->setContextType("text/plain");
        for (const char* text :
             {request->getQueryString(), request->getCookie(), request->getRole(),
              request->getRequestURI(), request->getDocumentRoot(), request->getRemoteAddr(),
              request->getRemoteHost(), request->getServerName(), request->getContextType(),
              request->getProtocal(), request->getRefferer(), request->getUserAgent(),
              request->getMethod(), request->getContextPath(), request->getServletPath(),
              request->getAccept(), request->getAcceptLanguage(), request->getAcceptEncoding(),
              request->getAcceptCharset()})
            response->print("%s\n", orEmpty(text));
        response->print("%d %d %d\n", request->getServerPort(), request->getContentLength(),
                        request->isSecure() ? 1 : 0);
        char locale[8];
        response->print("%s\n", orEmpty(request->getLocale(locale, sizeof locale)));
        char** values = request->getParameterValues("x");
        for (; values != nullptr && *values != nullptr; ++values)
            response->print("x=%s\n", *values);
    }
};

class SessionPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        HttpSession* session = request->getSession(request->getParameter("look") == nullptr);
        if (session == nullptr)
            return;
        const char* name = request->getParameter("x");
        const bool known = session->existAttribute(name);
        session->setAttribute(name, this);
        response->print("%s %d %d", session->getId().c_str(), known ? 1 : 0,
                        session->getAttribute(name) == this ? 1 : 0);
        if (request->getParameter("remove") != nullptr)
            session->removeAttribute(name);
        if (const char* seconds = request->getParameter("interval"))
            session->setMaxInactiveInterval(std::atoi(seconds));
        if (request->getParameter("end") != nullptr)
            session->invalidate();
    }
};

// Receives an upload of at most 64 bytes.
class UploadPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        const auto buffer = std::make_unique<char[]>(64);
        const int size = request->receiveUploadData(buffer.get(), 64);
        response->print("%s ", orEmpty(request->getParameter("x")));
        response->write(buffer.get(), 1, static_cast<unsigned>(size));
    }
};

class BodyPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        const auto buffer = std::make_unique<char[]>(100);
        while (const int size = request->receiveBlockData(buffer.get(), 100))
            response->write(buffer.get(), 1, static_cast<unsigned>(size));
        response->write('.');
    }
};

class TemplatePage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        if (const char* locale = request->getParameter("locale"))
            request->setLocal(locale);
        response->setDevtype(request->getParameter("x"));
        response->setTemplate(
            FUZZ_FOLDER "/templates/page.html",
            TMPL_add_var(nullptr, "x", orEmpty(request->getParameter("x")), kEnd));
    }
};

class HeadersPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        const char* const value = request->getParameter("x");
        char* const location = response->encodeURL(orEmpty(value));
        response->addHeader("X-Seen", value);
        response->setHeader(value, "seen");
        response->addCookie("x", orEmpty(location));
        if (response->containsHeader("X-Seen"))
            response->sendRedirect(location);
        response->setStatus(302);
        std::free(location);
    }
};

class RefusingListener : public HttpListener {
public:
    void init() override {}
    bool onRequest(HttpRequest* request, HttpResponse*) override {
        return request->getParameter("refuse") == nullptr;
    }
};

} // namespace

extern "C" {
HttpServlet* createFactsPage() {
    return new FactsPage;
}
HttpServlet* createSessionPage() {
    return new SessionPage;
}
HttpServlet* createUploadPage() {
    return new UploadPage;
}
HttpServlet* createBodyPage() {
    return new BodyPage;
}
HttpServlet* createTemplatePage() {
    return new TemplatePage;
}
HttpServlet* createHeadersPage() {
    return new HeadersPage;
}
HttpListener* createRefusingListener() {
    static RefusingListener listener;
    return &listener;
}
}
