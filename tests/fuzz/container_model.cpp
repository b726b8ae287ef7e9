#include "container_model.h"

#include "HttpRequest.h"
#include "fuzz.h"

#include <cstdlib>

namespace fuzz {

namespace {

enum Status { Idle, Reboot, Reset, AutoProvision, Configuration = 5 };

std::optional<std::string> parameter(HttpRequest& request, const char* name) {
    const char* value = request.getParameter(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool beginsWith(const std::string& text, const std::string& part) {
    return text.compare(0, part.size(), part) == 0;
}

bool isUrlRefused(const std::string& url) {
    std::string lowered;
    for (const char c : url)
        lowered += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return contains(lowered, "<") || contains(lowered, ">") || contains(lowered, "%3c") ||
           contains(lowered, "%3e") || contains(lowered, "script");
}

bool isWordRefused(const std::optional<std::string>& value) {
    static const std::string kAllowed = "0123456789abcdefghijklmnopqrstuvwxyz"
                                        "ABCDEFGHIJKLMNOPQRSTUVWXYZ-_";
    return value && value->find_first_not_of(kAllowed) != std::string::npos;
}

bool isNumberRefused(const std::optional<std::string>& value) {
    if (!value || value->empty())
        return false;
    const std::string digits = value->front() == '-' ? value->substr(1) : *value;
    return digits.find_first_not_of("0123456789") != std::string::npos;
}

bool isRefused(HttpRequest& request, const std::string& url) {
    return isUrlRefused(url) || isWordRefused(parameter(request, "jumpto")) ||
           isWordRefused(parameter(request, "p")) || isNumberRefused(parameter(request, "acc")) ||
           isNumberRefused(parameter(request, "model"));
}

std::string replaced(std::string text, const std::string& part, const std::string& by) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
        text.replace(at, part.size(), by);
        at += by.size();
    }
    return text;
}

std::optional<std::string> redirectOf(const std::string& url) {
    for (const char* page : {"/cgi-bin/Velmoranix.acx?Id=1", "/cgi-bin/Velmoranix.acx?Id=7",
                             "/cgi-bin/Quillpage.tpx?page=Status.htm",
                             "/cgi-bin/Quillpage.tpx?page=Phone-Upgrade.htm"})
        if (beginsWith(url, page))
            return "/servlet?p=login&q=loginForm&jumpto=status";
    constexpr std::size_t kBufferSize = 512;
    const std::string cut = url.substr(0, kBufferSize - 1);
    for (const std::string program : {"cgi-bin/Quillpage.tpx", "cgi-bin/Velmoranix.acx"})
        if (contains(cut, program))
            return replaced(cut, program, "servlet");
    return std::nullopt;
}

// Returns whether the query is one for the listeners alone.
bool isEvent(HttpRequest& request, const std::string& query) {
    for (const char* event : {"key", "number", "phonecfg", "redirectcall", "forward", "Server",
                              "push", "download", "command"})
        if (beginsWith(query, event))
            return parameter(request, event).has_value();
    return beginsWith(query, "csta");
}

bool isPage(const std::string& id) {
    static const std::set<std::string> kPages = {"facts",    "session", "upload",          "body",
                                                 "template", "headers", "contacts-preview"};
    return kPages.count(id) != 0;
}

// Returns the id in the cookie that the response sets, or an empty text.
std::string newSession(const std::string& response) {
    Input header(response);
    header.upTo("Set-Cookie: JSESSIONID=");
    return header.upTo(" ");
}

} // namespace

void ContainerModel::check(HttpRequest& request, int status, const std::string& response) {
    const char* uri = request.getRequestURI();
    const std::string url = uri != nullptr ? uri : "";
    if (isRefused(request, url)) {
        require(status == 404, "screening refuses the request");
        require(response.empty(), "a refused request has no response of its own");
        return;
    }
    if (const auto location = redirectOf(url)) {
        require(status == 200, "an older URL is redirected");
        require(response == "Location: " + *location + " \r\n\r\n", "it leads to the new URL");
        return;
    }
    constexpr std::size_t kServletLength = 9;
    const std::string query = url.size() < kServletLength ? "" : url.substr(kServletLength);
    const auto page = parameter(request, "p");
    updateStatus(query);
    if (!page && !isEvent(request, query)) {
        require(status == 404 && response.empty(), "a request needs a page or an event");
    } else if (isEvent(request, query) || parameter(request, "refuse")) {
        require(status == 200, "an event and a stopped request end with 200");
        require(response == "\r\n", "no page answers them");
    } else if (*page == "notice" && m_status != AutoProvision) {
        require(status == 200, "the container answers p=notice");
        const std::string word = "\r\n\r\n" + statusWord();
        require(response.size() >= word.size() &&
                    response.compare(response.size() - word.size(), word.size(), word) == 0,
                "p=notice returns the status word");
    } else {
        require(status == (isPage(*page) ? 200 : 404), "a page is served if it is configured");
        if (*page == "session")
            checkSessionPage(request, response);
    }
}

void ContainerModel::updateStatus(const std::string& query) {
    if (contains(query, "reboot=true") || contains(query, "q=reboot"))
        m_status = Reboot;
    else if (contains(query, "p=settings-upgrade&q=reset"))
        m_status = Reset;
    else if (contains(query, "now=true"))
        m_status = AutoProvision;
    else if (query == "p=settings-config&q=import" ||
             query == "p=settings-config&q=localconfig&type=import" ||
             query == "p=settings-config&q=localconfig&type=remove")
        m_status = Configuration;
    else if (!contains(query, "p=notice"))
        m_status = Idle;
}

std::string ContainerModel::statusWord() const {
    switch (m_status) {
    case Reboot:
        return "reboot";
    case Reset:
        return "reset";
    case Configuration:
        return "configration";
    default:
        return "idle";
    }
}

// Returns the id of the session that belongs to the request.
std::optional<std::string> ContainerModel::sessionOf(HttpRequest& request) const {
    const char* id = request.getSessionId();
    const char* address = request.getRemoteAddr();
    if (id == nullptr || address == nullptr)
        return std::nullopt;
    const auto found = m_sessions.find(id);
    if (found == m_sessions.end() || found->second.address != address)
        return std::nullopt;
    return found->first;
}

void ContainerModel::checkSessionPage(HttpRequest& request, const std::string& response) {
    auto id = sessionOf(request);
    const std::string created = newSession(response);
    if (id && m_sessions[*id].expires && response.find(*id + " ") == std::string::npos) {
        m_sessions.erase(*id);
        id = std::nullopt;
    }
    if (id)
        require(created.empty(), "a request with a session gets no other");
    if (!id && parameter(request, "look")) {
        require(created.empty() && response == "\r\n", "a page that looks finds no session");
        return;
    }
    if (!id) {
        require(!created.empty() && m_sessions.count(created) == 0, "a new session has a new id");
        const char* address = request.getRemoteAddr();
        m_sessions[created].address = address != nullptr ? address : "";
        id = created;
    }
    Session& session = m_sessions[*id];
    const auto name = parameter(request, "x");
    const bool isNamed = name && !name->empty();
    const bool known = isNamed && session.attributes.count(*name) != 0;
    const std::string expected = *id + (known ? " 1" : " 0") + (isNamed ? " 1" : " 0");
    require(response.size() >= expected.size() &&
                response.compare(response.size() - expected.size(), expected.size(), expected) == 0,
            "a session keeps its attributes");
    if (isNamed)
        session.attributes.insert(*name);
    if (isNamed && parameter(request, "remove"))
        session.attributes.erase(*name);
    if (const auto seconds = parameter(request, "interval")) {
        constexpr int kLong = 60; // longer than an input takes
        session.expires = std::atoi(seconds->c_str()) < kLong;
    }
    if (parameter(request, "end"))
        m_sessions.erase(*id);
}

} // namespace fuzz
