// A browser in front of the pages: it keeps its cookie from one request to the next.
#ifndef VISITOR_H
#define VISITOR_H

#include "HttpListener.h"
#include "HttpServlet.h"
#include "fake_http.h"
#include "pages/login_page.h"
#include "phone.h"

// What came back from one request.
struct Answer {
    bool passed;          // what a listener said
    std::string status;   // empty when none was set
    std::string location; // of a redirect
    std::string cookie;   // as it was set
    std::string page;     // the file name of the template
    std::string devtype;
    std::string body;
    std::map<std::string, std::string> headers;
    TMPL_varlist shown; // the template's variables

    std::string variable(const std::string& name) const;
    const std::vector<TemplateRow>& rows(const std::string& name) const;
};

class Visitor {
public:
    using Upload = std::function<const char*(const char* path)>;

    Visitor(phone::Phone& phone, FakeSessions& sessions) : m_phone(phone), m_sessions(sessions) {}

    Answer get(HttpServlet& page, const std::string& uri);
    Answer post(HttpServlet& page, const std::string& uri, const std::string& form = "");
    Answer post(HttpServlet& page, const std::string& uri, Upload upload);
    // Shows a request to a listener.
    Answer ask(HttpListener& listener, const std::string& uri);

    // Signs in with the right password.
    Answer signIn(const std::string& form = "user=admin&password=admin");
    // "&token=…" as the forms of the pages have it, once signed in.
    std::string token() const;

    std::string sessionId;

private:
    using Serve = std::function<bool(HttpRequest*, HttpResponse*)>;
    Answer send(const Serve& serve, const std::string& method, const std::string& uri,
                const std::string& form, Upload upload);

    phone::Phone& m_phone;
    FakeSessions& m_sessions;
};

#endif
