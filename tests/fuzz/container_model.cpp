#include "container_model.h"

#include <cstdlib>

namespace fuzz {

namespace {

enum Status { Idle, Reboot, Reset, AutoProvision, Configuration = 5 };

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

bool beginsWith(const std::string& text, const std::string& part) {
    return text.compare(0, part.size(), part) == 0;
}

bool endsWith(const std::string& text, const std::string& part) {
    return text.size() >= part.size() &&
           text.compare(text.size() - part.size(), part.size(), part) == 0;
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

bool isRefused(const SentRequest& request, const std::string& url) {
    return isUrlRefused(url) || isWordRefused(request.parameter("jumpto")) ||
           isWordRefused(request.parameter("p")) || isNumberRefused(request.parameter("acc")) ||
           isNumberRefused(request.parameter("model"));
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
bool isEvent(const SentRequest& request, const std::string& query) {
    for (const char* event : {"key", "number", "phonecfg", "redirectcall", "forward", "Server",
                              "push", "download", "command"})
        if (beginsWith(query, event))
            return request.parameter(event).has_value();
    return beginsWith(query, "csta");
}

bool isPage(const std::string& id) {
    static const std::set<std::string> kPages = {"facts",    "session", "upload",          "body",
                                                 "template", "headers", "contacts-preview"};
    return kPages.count(id) != 0;
}

// Returns the locale as a page gets it in a buffer of 8 bytes, or an empty text if it is too long.
std::string locale(const SentRequest& request) {
    const std::string languages = request.variable("HTTP_ACCEPT_LANGUAGE").value_or("en");
    const std::string first = languages.substr(0, languages.find(','));
    return first.size() < 8 ? first : "";
}

std::string factsOf(const SentRequest& request) {
    std::string text = "ContentType: text/plain \r\n\r\n";
    for (const char* name :
         {"QUERY_STRING", "HTTP_COOKIE", "FCGI_ROLE", "REQUEST_URI", "DOCUMENT_ROOT"})
        text += request.variable(name).value_or("") + "\n";
    text += request.address().value_or("") + "\n";
    for (const char* name :
         {"REMOTE_HOST", "SERVER_NAME", "CONTENT_TYPE", "SERVER_PROTOCOL", "REFFERER", "USER_AGENT",
          "REQUEST_METHOD", "CONTEXT_PATH", "SCRIPT_NAME", "HTTP_ACCEPT", "HTTP_ACCEPT_LANGUAGE",
          "HTTP_ACCEPT_ENCODING", "HTTP_ACCEPT_CHARSET"})
        text += request.variable(name).value_or("") + "\n";
    text += std::to_string(request.number("SERVER_PORT")) + " " +
            std::to_string(request.number("CONTENT_LENGTH")) +
            (request.number("SCRIPT_NAME") != 0 ? " 1\n" : " 0\n") + locale(request) + "\n";
    for (const std::string& value : request.parameterValues("x"))
        text += "x=" + value + "\n";
    return text;
}

} // namespace

void ContainerModel::check(const SentRequest& request, int status, const std::string& response) {
    const std::string url = request.variable("REQUEST_URI").value_or("");
    if (isRefused(request, url)) {
        require(status == 404, "screening refuses the request");
        require(response.empty(), "a refused request has no response of its own");
    } else if (const auto location = redirectOf(url)) {
        require(status == 200, "an older URL is redirected");
        require(response == "Location: " + *location + " \r\n\r\n", "it leads to the new URL");
    } else {
        constexpr std::size_t kServletLength = 9;
        checkDispatch(request, url.size() < kServletLength ? "" : url.substr(kServletLength),
                      status, response);
    }
}

void ContainerModel::checkDispatch(const SentRequest& request, const std::string& query, int status,
                                   const std::string& response) {
    const auto page = request.parameter("p");
    updateStatus(query);
    if (!page && !isEvent(request, query)) {
        require(status == 404 && response.empty(), "a request needs a page or an event");
    } else if (isEvent(request, query) || request.parameter("refuse")) {
        require(status == 200, "an event and a stopped request end with 200");
        require(response == "\r\n", "no page answers them");
    } else if (*page == "notice" && m_status != AutoProvision) {
        require(status == 200, "the container answers p=notice");
        require(response == "ContentType: text/html \r\n\r\n" + statusWord(),
                "p=notice returns the status word");
    } else {
        require(status == (isPage(*page) ? 200 : 404), "a page is served if it is configured");
        checkPage(request, *page, response);
    }
}

void ContainerModel::checkPage(const SentRequest& request, const std::string& page,
                               const std::string& response) {
    if (page == "session")
        checkSessionPage(request, response);
    else if (page == "facts" || page == "contacts-preview")
        require(response == factsOf(request), "a page gets the facts of its request");
    else if (page == "body" && !request.isForm())
        require(response == "\r\n" + request.body() + ".", "a page gets the whole body");
    else if (!isPage(page))
        require(response == "\r\n", "without a page the response is empty");
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
std::optional<std::string> ContainerModel::sessionOf(const SentRequest& request) const {
    const auto id = request.sessionId();
    const auto address = request.address();
    if (!id || !address)
        return std::nullopt;
    const auto found = m_sessions.find(*id);
    if (found == m_sessions.end() || found->second.address != *address)
        return std::nullopt;
    return found->first;
}

void ContainerModel::checkSessionPage(const SentRequest& request, const std::string& response) {
    auto id = sessionOf(request);
    const std::string created = sessionAfter(response, "");
    if (id && m_sessions[*id].expires && response.find(*id + " ") == std::string::npos) {
        m_sessions.erase(*id);
        id = std::nullopt;
    }
    if (id)
        require(created.empty(), "a request with a session gets no other");
    if (!id && request.parameter("look")) {
        require(created.empty() && response == "\r\n", "a page that looks finds no session");
        return;
    }
    if (!id) {
        require(!created.empty() && m_sessions.count(created) == 0, "a new session has a new id");
        m_sessions[created].address = request.address().value_or("");
        id = created;
    }
    checkAttributes(request, *id, response);
}

void ContainerModel::checkAttributes(const SentRequest& request, const std::string& id,
                                     const std::string& response) {
    Session& session = m_sessions[id];
    const auto name = request.parameter("x");
    const bool isNamed = name && !name->empty();
    const bool known = isNamed && session.attributes.count(*name) != 0;
    require(endsWith(response, id + (known ? " 1" : " 0") + (isNamed ? " 1" : " 0")),
            "a session keeps its attributes");
    if (isNamed)
        session.attributes.insert(*name);
    if (isNamed && request.parameter("remove"))
        session.attributes.erase(*name);
    if (const auto seconds = request.parameter("interval")) {
        constexpr int kLong = 60; // longer than an input takes
        session.expires = std::atoi(seconds->c_str()) < kLong;
    }
    if (request.parameter("end"))
        m_sessions.erase(id);
}

} // namespace fuzz
