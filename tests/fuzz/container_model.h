// The second, slow and obvious implementation of what the container does with a request, which
// fuzzers compare each answer with: screening, redirects, device status, events, sessions and
// pages. It knows the configuration in servlet.xml and the pages in pages.cpp.
#ifndef CONTAINER_MODEL_H
#define CONTAINER_MODEL_H

#include "sent_request.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace fuzz {

class ContainerModel {
public:
    // Compares the answer to a request with what this model expects, and aborts if they differ.
    // `response` does not include the error page.
    void check(const SentRequest& request, int status, const std::string& response);

private:
    struct Session {
        std::string address;
        std::set<std::string> attributes;
        // Whether it may expire at any moment: then it may be found or not.
        bool expires = false;
    };

    void checkDispatch(const SentRequest& request, const std::string& query, int status,
                       const std::string& response);
    void checkPage(const SentRequest& request, const std::string& page,
                   const std::string& response);
    void checkSessionPage(const SentRequest& request, const std::string& response);
    void checkAttributes(const SentRequest& request, const std::string& id,
                         const std::string& response);
    void updateStatus(const std::string& query);
    std::string statusWord() const;
    std::optional<std::string> sessionOf(const SentRequest& request) const;

    int m_status = 0;
    std::map<std::string, Session> m_sessions; // by id
};

} // namespace fuzz

#endif
