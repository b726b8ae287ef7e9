// The pages and listeners of the wire tests. They record what they do in the folder that the
// environment variable WIRE_FOLDER names.
#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "HttpSession.h"
#include "app_log.h"
#include "tmpl.h"
#include "web_debug.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <syslog.h>
#include <unistd.h>

namespace {

std::string file(const char* name) {
    const char* folder = std::getenv("WIRE_FOLDER");
    return std::string(folder ? folder : ".") + "/" + name;
}

void record(const char* name, const std::string& line) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    std::ofstream(file(name), std::ios::app) << line << '\n';
}

int number(HttpRequest* request, const char* name, int otherwise) {
    const char* text = request->getParameter(name);
    return text ? std::atoi(text) : otherwise;
}

void beginText(HttpResponse* response) {
    response->setHeader("Content-Type", "text/plain");
}

class Page : public HttpServlet {
public:
    void init() override {}
    void destroy() override {}
};

// Prints all that a page can read of a request, one line "name=value" for each.
class FactsPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        beginText(response);
        fact(response, "method", request->getMethod());
        fact(response, "uri", request->getRequestURI());
        fact(response, "query", request->getQueryString());
        fact(response, "address", request->getRemoteAddr());
        fact(response, "servlet", request->getServletPath());
        fact(response, "root", request->getDocumentRoot());
        fact(response, "role", request->getRole());
        fact(response, "protocol", request->getProtocal());
        fact(response, "type", request->getContextType());
        fact(response, "length", std::to_string(request->getContentLength()).c_str());
        fact(response, "cookie", request->getCookie());
        fact(response, "host", request->getRemoteHost());
        fact(response, "name", request->getServerName());
        fact(response, "referrer", request->getRefferer());
        fact(response, "agent", request->getUserAgent());
        fact(response, "context", request->getContextPath());
        fact(response, "accept", request->getAccept());
        fact(response, "languages", request->getAcceptLanguage());
        fact(response, "encodings", request->getAcceptEncoding());
        fact(response, "charsets", request->getAcceptCharset());
        fact(response, "session", request->getSessionId());
        fact(response, "port", std::to_string(request->getServerPort()).c_str());
        char locale[32];
        fact(response, "locale", request->getLocale(locale, sizeof locale));
        char** values = request->getParameterValues("x");
        for (; values && *values; ++values)
            fact(response, "x", *values);
    }

private:
    static void fact(HttpResponse* response, const char* name, const char* value) {
        response->print("%s=%s\n", name, value ? value : "(null)");
    }
};

// Logs when the plug-in library is closed.
struct ClosingNote {
    ~ClosingNote() { WebDebug::getInstance()->info("library closed"); }
};

// Creates a session and sets the user of log lines, if the parameter "user" names one. Ending the
// session clears that user again, so log lines show the order in which the service ends.
class SlowPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        if (const char* user = request->getParameter("user")) {
            static const ClosingNote closing;
            request->getSession(true);
            WebDebug::getInstance()->setUser(user);
        }
        beginText(response);
        response->print("%s", "begin ");
        record("begun", "slow");
        usleep(static_cast<useconds_t>(number(request, "ms", 0)) * 1000);
        response->print("%s", "end");
    }
    // Only this page records that it was destroyed, which shows an orderly shutdown.
    void destroy() override {
        WebDebug::getInstance()->info("slow destroyed");
        record("destroyed", "slow");
    }
};

// Logs two lines with the value of x, some time apart.
class TalkingPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        const char* x = request->getParameter("x");
        app_log(kModule, LOG_INFO, "talking begins %s", x ? x : "");
        usleep(static_cast<useconds_t>(number(request, "ms", 0)) * 1000);
        app_log(kModule, LOG_INFO, "talking ends %s", x ? x : "");
        beginText(response);
        response->print("%s", "said");
    }

private:
    static constexpr int kModule = 70;
};

class BigPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        beginText(response);
        const std::string line(99, 'b');
        for (int lines = number(request, "lines", 1); lines > 0; --lines)
            response->print("%s\n", line.c_str());
    }
};

// Counts a client's requests in its session. interval=N sets how long the session may be idle, ms=N
// delays the response. Reads the session again after the delay, since a page may use it until its
// request ends.
class CountPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        beginText(response);
        HttpSession* session = request->getSession(number(request, "create", 1) != 0);
        if (!session) {
            response->print("%s", "no session");
            return;
        }
        if (request->getParameter("interval"))
            session->setMaxInactiveInterval(number(request, "interval", 180));
        const auto count = reinterpret_cast<std::intptr_t>(session->getAttribute("count")) + 1;
        session->setAttribute("count", reinterpret_cast<void*>(count));
        if (const int ms = number(request, "ms", 0)) {
            record("begun", "count");
            usleep(static_cast<useconds_t>(ms) * 1000);
        }
        if (session->existAttribute("count"))
            response->print("count %d", static_cast<int>(count));
        else
            response->print("%s", "the session has ended");
    }
};

class UploadPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        request->receiveUploadFile(file("uploads/image").c_str());
        beginText(response);
        const char* name = request->getParameter("image");
        const char* note = request->getParameter("note");
        response->print("%s %s, note %s", name ? "complete" : "incomplete", name ? name : "-",
                        note ? note : "-");
    }
};

// Reads at most N bytes of the body, given by most=N, and prints how many it read.
class BodyPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        const int most = number(request, "most", 0);
        int read = 0;
        char piece[4096];
        int count = 1;
        while (read < most && count > 0) {
            const int wanted = std::min(most - read, static_cast<int>(sizeof piece));
            count = request->receiveBlockData(piece, static_cast<unsigned long>(wanted));
            read += count;
        }
        beginText(response);
        response->print("read %d", read);
    }
};

class TemplatePage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        response->setHeader("Content-Type", "text/html");
        static char type[] = "T 100";
        response->setDevtype(type);
        const char* x = request->getParameter("x");
        TMPL_varlist* vars =
            TMPL_add_var(nullptr, "x", x ? x : "", static_cast<const char*>(nullptr));
        response->setTemplate(file("page.html").c_str(), vars);
    }
};

class StatusPage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        response->setStatus(number(request, "code", 200));
        beginText(response);
        response->print("%s", "with a status");
    }
};

class ElsewherePage : public Page {
public:
    void service(HttpRequest*, HttpResponse* response) override {
        response->sendRedirect("/servlet?p=facts");
    }
};

class NoticePage : public Page {
public:
    void service(HttpRequest*, HttpResponse* response) override {
        beginText(response);
        response->print("%s", "the servlet's own notice");
    }
};

// Writes nothing at all.
class SilentPage : public Page {
public:
    void service(HttpRequest*, HttpResponse*) override {}
};

// Creates a session when it is too late for the cookie.
class LatePage : public Page {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        beginText(response);
        response->print("%s", "begun, ");
        response->print("%s", request->getSession(true) ? "session" : "no session");
    }
};

class RefusingListener : public HttpListener {
public:
    void init() override {}
    bool onRequest(HttpRequest* request, HttpResponse* response) override {
        const char* page = request->getParameter("p");
        if (!page || std::strcmp(page, "forbidden") != 0)
            return true;
        beginText(response);
        response->print("%s", "refused");
        return false;
    }
};

// Records the address of each request that reaches the listeners.
class RecordingListener : public HttpListener {
public:
    void init() override {}
    bool onRequest(HttpRequest* request, HttpResponse*) override {
        if (!request->getParameter("ms"))
            record("requests", request->getRequestURI());
        return true;
    }
};

// The container does not delete listeners, so the library owns them.
template <class Listener>
HttpListener* createListener() {
    static std::deque<Listener> listeners;
    return &listeners.emplace_back();
}

} // namespace

extern "C" {
HttpServlet* createFactsPage() {
    return new FactsPage;
}
HttpServlet* createSlowPage() {
    return new SlowPage;
}
HttpServlet* createTalkingPage() {
    return new TalkingPage;
}
HttpServlet* createBigPage() {
    return new BigPage;
}
HttpServlet* createCountPage() {
    return new CountPage;
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
HttpServlet* createStatusPage() {
    return new StatusPage;
}
HttpServlet* createElsewherePage() {
    return new ElsewherePage;
}
HttpServlet* createNoticePage() {
    return new NoticePage;
}
HttpServlet* createSilentPage() {
    return new SilentPage;
}
HttpServlet* createLatePage() {
    return new LatePage;
}
HttpServlet* createNothing() {
    return nullptr;
}
HttpListener* createRefusingListener() {
    return createListener<RefusingListener>();
}
// Fails while there is a file of this name, as a listener does that cannot read its data.
HttpListener* createRecordingListener() {
    if (access(file("no-listener").c_str(), F_OK) == 0)
        return nullptr;
    return createListener<RecordingListener>();
}
}
