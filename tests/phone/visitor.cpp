#include "visitor.h"

std::string Answer::variable(const std::string& name) const {
    const auto found = shown.variables.find(name);
    return found != shown.variables.end() ? found->second : "";
}

const std::vector<TemplateRow>& Answer::rows(const std::string& name) const {
    static const std::vector<TemplateRow> kNone;
    const auto found = shown.loops.find(name);
    return found != shown.loops.end() ? found->second : kNone;
}

namespace {

std::string valueOf(const std::map<std::string, std::string>& headers, const char* name) {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : "";
}

std::function<bool(HttpRequest*, HttpResponse*)> servedBy(HttpServlet& page) {
    return [&page](HttpRequest* request, HttpResponse* response) {
        page.service(request, response);
        return true;
    };
}

} // namespace

Answer Visitor::get(HttpServlet& page, const std::string& uri) {
    return send(servedBy(page), "GET", uri, "", nullptr);
}

Answer Visitor::post(HttpServlet& page, const std::string& uri, const std::string& form) {
    return send(servedBy(page), "POST", uri, form, nullptr);
}

Answer Visitor::post(HttpServlet& page, const std::string& uri, Upload upload) {
    return send(servedBy(page), "POST", uri, "", std::move(upload));
}

Answer Visitor::ask(HttpListener& listener, const std::string& uri) {
    return send([&](HttpRequest* request,
                    HttpResponse* response) { return listener.onRequest(request, response); },
                "GET", uri, "", nullptr);
}

Answer Visitor::signIn(const std::string& form) {
    phone::LoginPage page(m_phone);
    return post(page, "/servlet?p=login&q=login", form);
}

std::string Visitor::token() const {
    const auto signIn = m_phone.signIns.find(sessionId);
    return "&token=" + (signIn ? signIn->token : "");
}

Answer Visitor::send(const Serve& serve, const std::string& method, const std::string& uri,
                     const std::string& form, Upload upload) {
    FakeResponse response;
    FakeRequest request(m_sessions, response, method, uri, form);
    request.setSessionId(sessionId);
    request.upload = std::move(upload);
    Answer answer;
    answer.passed = serve(&request, &response);
    if (const char* id = request.getSessionId()) {
        sessionId = id;
    }
    answer.headers = response.headers;
    answer.status = valueOf(response.headers, "Status");
    answer.location = valueOf(response.headers, "Location");
    answer.cookie = valueOf(response.headers, "Set-Cookie");
    answer.page = response.templateName.substr(response.templateName.rfind('/') + 1);
    answer.devtype = response.devtype;
    answer.body = response.body;
    if (response.variables != nullptr) {
        answer.shown = *response.variables;
    }
    return answer;
}
