// What all pages have in common.
#ifndef PAGE_H
#define PAGE_H

#include "HttpServlet.h"
#include "page_variables.h"
#include "phone.h"

#include <string>

class HttpRequest;
class HttpResponse;

namespace phone {

// Whether `id`, which may be null, names a page that somebody signed in can go to.
bool isPageId(const char* id);

// Whether the request may change something: POST, not GET, which links and prefetching use.
bool isPost(HttpRequest& request);

// The value of the parameter, empty when it is absent.
std::string parameter(HttpRequest& request, const char* name);

// Sets the headers of every answer: its type, and what a browser must not do with it.
void setPageHeaders(HttpResponse& response, const char* contentType);

// Answers with the template `name`.
void showTemplate(HttpResponse& response, const char* name, PageVariables variables);

// Sends the browser on to `location` with GET, whatever the method of this request was.
void seeOther(HttpResponse& response, const std::string& location);

extern const char* const kHtml;       // the content type of pages
extern const char* const kSignInForm; // the location of the sign-in form

// The variables that the frame around every page of somebody signed in needs.
PageVariables frameOf(const SignIn& signIn);

// Whether the request may do what it asks for: a POST with the token of the sign-in. If not, it
// has been answered with a refusal.
bool mayChange(HttpRequest& request, HttpResponse& response, const SignIn& signIn);

// A servlet that no failure to get memory leaves: such an answer stays as it is, and the log says
// so. Pages are freed without their destructor: they hold nothing that destroy() does not release.
class Page : public HttpServlet {
public:
    void init() override {}
    void service(HttpRequest* request, HttpResponse* response) final;
    void destroy() override {}

protected:
    // `phone` must outlive the page.
    explicit Page(Phone& phone) : m_phone(phone) {}
    ~Page() = default;

    virtual void answer(HttpRequest& request, HttpResponse& response) = 0;

    Phone& m_phone;
};

// A page for those who are signed in; others are sent to the sign-in form.
class SignedInPage : public Page {
protected:
    using Page::Page;
    ~SignedInPage() = default;

    virtual void answer(HttpRequest& request, HttpResponse& response, const SignIn& signIn) = 0;

private:
    void answer(HttpRequest& request, HttpResponse& response) final;
};

} // namespace phone

#endif
