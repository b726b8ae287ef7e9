// A client with an address, which keeps its cookies from one request to the next:
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

// Sends requests and keeps the cookies that come back. It does not follow redirects. It sends every
// cookie with every request, whatever its Path, Domain and Secure are, and deletes a cookie that
// the server sets with a Max-Age of 0 or less or with an Expires in the past; if a cookie has both,
// Max-Age decides (RFC 6265, section 5.3).
//   Threads  use each browser on one thread; several browsers may share a runner at the same time.
class Browser {
public:
    // `runner` must outlive this object. `address` is the client's IP address.
    explicit Browser(Runner& runner, std::string address = kClientAddress);

    // Sends the request from the browser's address, with the stored cookies after those that the
    // request itself has. Returns the response; throws as Runner::serve() does.
    Response send(const Request& request);

    // Returns the value of a stored cookie, or nothing.
    std::optional<std::string> cookie(const std::string& name) const;

private:
    void store(const Cookie& cookie);

    Runner& m_runner;
    std::string m_address;
    std::map<std::string, std::string> m_jar;
};

} // namespace kit::testing

#endif
