#include "fake_http.h"

#include <cstdarg>
#include <cstdio>

bool FakeSession::setAttribute(const char* name, void* value) {
    if (m_valid) {
        m_attributes[name] = value;
    }
    return value != nullptr;
}

void* FakeSession::getAttribute(const char* name) {
    const auto found = m_attributes.find(name);
    return found != m_attributes.end() ? found->second : nullptr;
}

void FakeSession::invalidate() {
    m_valid = false;
    m_attributes.clear();
}

FakeSession* FakeSessions::create() {
    m_sessions.emplace_back("session-" + std::to_string(m_sessions.size()));
    return &m_sessions.back();
}

FakeSession* FakeSessions::find(const std::string& id) {
    for (FakeSession& session : m_sessions) {
        if (session.getId() == id && session.isValid()) {
            return &session;
        }
    }
    return nullptr;
}

void FakeResponse::setHeader(const char* name, const char* value) {
    headers[name] = value;
}

void FakeResponse::addCookie(const char* name, const char* value) {
    headers["Set-Cookie"] += std::string(name) + "=" + value + " ";
}

int FakeResponse::print(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    const int count = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    body += text;
    return count;
}

unsigned int FakeResponse::write(const void* data, unsigned int size, unsigned int count) {
    body.append(static_cast<const char*>(data), size * count);
    return count;
}

int FakeResponse::write(int character) {
    body += static_cast<char>(character);
    return character;
}

void FakeResponse::setTemplate(const char* name, TMPL_varlist* vars) {
    templateName = name;
    variables = vars;
}

FakeRequest::FakeRequest(FakeSessions& sessions, FakeResponse& response, std::string method,
                         std::string uri, const std::string& form)
    : m_sessions(sessions), m_response(response), m_method(std::move(method)),
      m_uri(std::move(uri)) {
    addFields(form);
    const std::size_t query = m_uri.find('?');
    if (query != std::string::npos) {
        addFields(m_uri.substr(query + 1));
    }
}

void FakeRequest::addFields(const std::string& fields) {
    std::size_t begin = 0;
    while (begin < fields.size()) {
        const std::size_t end = std::min(fields.find('&', begin), fields.size());
        const std::string pair = fields.substr(begin, end - begin);
        const std::size_t equals = std::min(pair.find('='), pair.size());
        m_parameters.emplace(pair.substr(0, equals),
                             pair.substr(std::min(equals + 1, pair.size())));
        begin = end + 1;
    }
}

char* FakeRequest::getParameter(const char* name) {
    const auto found = m_parameters.find(name);
    return found != m_parameters.end() ? found->second.data() : nullptr;
}

const char* FakeRequest::getSessionId() {
    return m_sessionId.empty() ? nullptr : m_sessionId.c_str();
}

HttpSession* FakeRequest::getSession(bool create) {
    FakeSession* session = m_sessions.find(m_sessionId);
    if (session == nullptr && create) {
        session = m_sessions.create();
        m_sessionId = session->getId();
        m_response.addCookie("JSESSIONID", m_sessionId.c_str());
    }
    return session;
}

CGI_varlist* FakeRequest::receiveUploadFile(const char* path) {
    const char* name = upload ? upload(path) : nullptr;
    if (name != nullptr) {
        m_parameters.emplace("firmware", name);
    }
    // A list that has something in it, like that of every request to a page.
    return reinterpret_cast<CGI_varlist*>(&m_parameters);
}
