// A second, slow and obvious implementation of what the container does with a request, which
// fuzzers compare each answer with. It knows the configuration in servlet.xml and the pages in
// pages.cpp.
#ifndef CONTAINER_MODEL_H
#define CONTAINER_MODEL_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

class HttpRequest;

namespace fuzz {

class ContainerModel {
public:
    // Compares an answer with what this model expects, and aborts if they differ. `request` is one
    // with the same variables and the same body as the one that was served, and unused otherwise.
    void check(HttpRequest& request, int status, const std::string& response);

    // Forgets all sessions, since they have been ended.
    void endSessions() { m_sessions.clear(); }

private:
    struct Session {
        std::string address;
        std::set<std::string> attributes;
        // Whether it may expire at any moment: then it may be found or not.
        bool expires = false;
    };

    void updateStatus(const std::string& query);
    std::string statusWord() const;
    void checkSessionPage(HttpRequest& request, const std::string& response);
    std::optional<std::string> sessionOf(HttpRequest& request) const;

    int m_status = 0;
    std::map<std::string, Session> m_sessions; // by id
};

} // namespace fuzz

#endif
