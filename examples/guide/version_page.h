// A page for programs, which send a token in the header Authorization.
#ifndef VERSION_PAGE_H
#define VERSION_PAGE_H

#include <kit/plugin.h>
#include <kit/secrets.h>

#include <string>
#include <utility>

class VersionPage final : public kit::Page {
public:
    // `token` is what programs send after "Bearer ".
    explicit VersionPage(std::string token) : m_expected("Bearer " + std::move(token)) {}

private:
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.method() != "GET") {
            response.header("Allow", "GET");
            response.status(405).json({{"error", "only GET is supported"}});
            return;
        }
        const auto authorization = request.header("Authorization");
        if (!authorization || !kit::equalSecrets(*authorization, m_expected)) {
            response.header("WWW-Authenticate", "Bearer");
            response.status(401).json({{"error", "the token is missing or wrong"}});
            return;
        }
        response.json({{"version", "1.0"}});
    }

    const std::string m_expected;
};

#endif
