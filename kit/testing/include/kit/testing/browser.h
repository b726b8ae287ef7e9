// A client with an address and cookies that it keeps from one request to the next:
//
//     Browser browser(container);
//     browser.send(post("/servlet?p=login&q=login").form({{"user", "admin"}, {"password", "x"}}));
//     EXPECT_EQ(browser.send(get("/servlet?p=status")).status, 200);
#ifndef KIT_TESTING_BROWSER_H
#define KIT_TESTING_BROWSER_H

#include <kit/testing/request.h>
#include <kit/testing/response.h>
#include <kit/testing/runner.h>

#include <map>
#include <optional>
#include <string>

namespace kit::testing {

// Follows no redirect. It sends every cookie with every request, whatever Path, Domain and Secure
// say, and keeps it until the server sets it anew, with Max-Age=0 or less, or with an Expires that
// has passed; which of the two counts is as RFC 6265, section 5.3, has it.
//   Threads  one browser is used by one thread; several may use one runner at once.
class Browser {
public:
    // The runner must outlive it.
    explicit Browser(Runner& runner, std::string address = kClientAddress);

    // Sends the request from this address, with the cookies behind those that the request has.
    Response send(const Request& request);

    // The value of a cookie in the jar.
    std::optional<std::string> cookie(const std::string& name) const;

private:
    void keep(const Cookie& cookie);

    Runner& m_runner;
    std::string m_address;
    std::map<std::string, std::string> m_jar;
};

} // namespace kit::testing

#endif
