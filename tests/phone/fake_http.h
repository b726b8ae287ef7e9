// The container's side of one request, in memory.
#ifndef FAKE_HTTP_H
#define FAKE_HTTP_H

#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpSession.h"
#include "fake_templates.h"

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

class FakeSession final : public HttpSession {
public:
    explicit FakeSession(std::string id) : m_id(std::move(id)) {}

    const std::string& getId() override { return m_id; }
    bool setAttribute(const char* name, void* value) override;
    void* getAttribute(const char* name) override;
    void removeAttribute(const char* name) override { m_attributes.erase(name); }
    bool existAttribute(const char* name) override { return m_attributes.count(name) == 1; }
    void invalidate() override;
    int getCreateTime() override { return 1300; }
    int getLastAccessedTime() override { return 1305; }
    void setMaxInactiveInterval(int seconds) override { m_maxInactiveInterval = seconds; }
    int getMaxInactiveInterval() override { return m_maxInactiveInterval; }

    bool isValid() const { return m_valid; }

private:
    const std::string m_id;
    bool m_valid = true;
    int m_maxInactiveInterval = 180;
    std::map<std::string, void*> m_attributes;
};

// All sessions of a test, those that have ended too.
class FakeSessions {
public:
    FakeSession* create();
    // The living session with this id, or null.
    FakeSession* find(const std::string& id);

private:
    std::list<FakeSession> m_sessions;
};

class FakeResponse final : public HttpResponse {
public:
    FakeResponse() = default;
    FakeResponse(const FakeResponse&) = delete;
    FakeResponse& operator=(const FakeResponse&) = delete;
    ~FakeResponse() { TMPL_free_varlist(variables); }

    void setContextType(const char* type) override { headers["ContentType"] = type; }
    void setHeader(const char* name, const char* value) override;
    void addHeader(const char* name, const char* value) override { headers[name] += value; }
    bool containsHeader(const char* name) override { return headers.count(name) == 1; }
    char* encodeURL(const char*) override { return nullptr; }
    void sendRedirect(const char* location) override { setHeader("Location", location); }
    void addCookie(const char* name, const char* value) override;
    void setStatus(int code) override { addHeader("Status", std::to_string(code).c_str()); }
    int print(const char* format, ...) override __attribute__((format(printf, 2, 3)));
    unsigned int write(const void* data, unsigned int size, unsigned int count) override;
    int write(int character) override;
    void setTemplate(const char* name, TMPL_varlist* vars) override;
    TMPL_varlist* getMainVarList() override { return variables; }
    bool isHeaderCommited() override { return !body.empty(); }
    void setDevtype(char* type) override { devtype = type; }

    std::map<std::string, std::string> headers;
    std::string body;
    std::string templateName;
    std::string devtype;
    TMPL_varlist* variables = nullptr;
};

// A request to `uri`, whose query and `form` are taken as they are, without decoding.
class FakeRequest final : public HttpRequest {
public:
    FakeRequest(FakeSessions& sessions, FakeResponse& response, std::string method, std::string uri,
                const std::string& form);

    char* getParameter(const char* name) override;
    char** getParameterValues(const char*) override { return nullptr; }
    char* getQueryString() override { return nullptr; }
    char* getCookie() override { return nullptr; }
    char* getRole() override { return nullptr; }
    char* getRequestURI() override { return m_uri.data(); }
    char* getDocumentRoot() override { return nullptr; }
    char* getRemoteAddr() override { return m_remoteAddress.data(); }
    char* getRemoteHost() override { return nullptr; }
    int getServerPort() override { return 80; }
    char* getServerName() override { return nullptr; }
    char* getContextType() override { return nullptr; }
    int getContentLength() override { return 0; }
    char* getProtocal() override { return nullptr; }
    char* getRefferer() override { return nullptr; }
    char* getUserAgent() override { return nullptr; }
    char* getMethod() override { return m_method.data(); }
    char* getContextPath() override { return nullptr; }
    char* getServletPath() override { return nullptr; }
    bool isSecure() override { return false; }
    char* getLocale(char*, int) override { return nullptr; }
    void setLocal(const char*) override {}
    char* getAccept() override { return nullptr; }
    char* getAcceptLanguage() override { return nullptr; }
    char* getAcceptEncoding() override { return nullptr; }
    char* getAcceptCharset() override { return nullptr; }
    const char* getSessionId() override;
    HttpSession* getSession(bool create) override;
    CGI_varlist* receiveUploadFile(const char* path) override;
    int receiveUploadData(char*, unsigned long) override { return 0; }
    int receiveBlockData(char*, unsigned long) override { return 0; }

    void setSessionId(std::string id) { m_sessionId = std::move(id); }
    // What the browser uploads: called with the path, gives the name of the file that was put
    // there, or null for a failure. Its field is "firmware".
    std::function<const char*(const char* path)> upload;

private:
    void addFields(const std::string& fields);

    FakeSessions& m_sessions;
    FakeResponse& m_response;
    std::string m_method;
    std::string m_uri;
    std::string m_remoteAddress = "192.0.2.7";
    std::string m_sessionId;
    std::map<std::string, std::string> m_parameters;
};

#endif
