#include "page.h"

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "places.h"
#include "secrets.h"
#include "web_debug.h"

#include <cstring>
#include <new>

namespace phone {
namespace {

const char* const kPageIds[] = {"status", "session", "settings-upgrade", "contacts-preview"};

} // namespace

const char* const kHtml = "text/html; charset=utf-8";
const char* const kSignInForm = "/servlet?p=login&q=loginForm";

bool isPageId(const char* id) {
    for (const char* known : kPageIds) {
        if (id != nullptr && std::strcmp(id, known) == 0) {
            return true;
        }
    }
    return false;
}

bool isPost(HttpRequest& request) {
    const char* method = request.getMethod();
    return method != nullptr && std::strcmp(method, "POST") == 0;
}

std::string parameter(HttpRequest& request, const char* name) {
    const char* value = request.getParameter(name);
    return value != nullptr ? value : "";
}

void setPageHeaders(HttpResponse& response, const char* contentType) {
    response.setHeader("Content-Type", contentType);
    response.setHeader("Cache-Control", "no-store");
    response.setHeader("X-Content-Type-Options", "nosniff");
    // The address of a page may hold its token.
    response.setHeader("Referrer-Policy", "no-referrer");
    response.setHeader("Content-Security-Policy",
                       "default-src 'self'; base-uri 'none'; form-action 'self'; "
                       "frame-ancestors 'none'; object-src 'none'");
}

void showTemplate(HttpResponse& response, const char* name, PageVariables variables) {
    setPageHeaders(response, kHtml);
    const std::string path = templatePath(name);
    response.setTemplate(path.c_str(), variables.release());
}

void seeOther(HttpResponse& response, const std::string& location) {
    response.setHeader("Cache-Control", "no-store");
    response.setStatus(303);
    response.sendRedirect(location.c_str());
}

PageVariables frameOf(const SignIn& signIn) {
    PageVariables variables;
    variables.add("user", signIn.user->name).add("token", signIn.token);
    return variables;
}

bool mayChange(HttpRequest& request, HttpResponse& response, const SignIn& signIn) {
    if (isPost(request) && equalSecrets(parameter(request, "token"), signIn.token)) {
        return true;
    }
    response.setStatus(403);
    showTemplate(response, "refused.html", frameOf(signIn));
    return false;
}

void Page::service(HttpRequest* request, HttpResponse* response) {
    try {
        answer(*request, *response);
    } catch (const std::bad_alloc&) {
        WebDebug::getInstance()->error("No memory for a page");
    }
}

void SignedInPage::answer(HttpRequest& request, HttpResponse& response) {
    const std::optional<SignIn> signIn = m_phone.signInOf(request);
    if (signIn) {
        answer(request, response, *signIn);
    } else {
        seeOther(response, kSignInForm);
    }
}

} // namespace phone
