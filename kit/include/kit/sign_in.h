// Who is signed in.
#ifndef KIT_SIGN_IN_H
#define KIT_SIGN_IN_H

#include "kit/attempt_limit.h"
#include "kit/request.h"
#include "kit/response.h"
#include "kit/secrets.h"
#include "kit/session_data.h"

#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kit {

// One sign-in; it does not change. The token stands in every form of its pages, and a request that
// changes something must bring it, so that another site's page cannot make a browser send one.
struct SignIn {
    std::string user;    // as start() was told
    std::string token;   // of randomToken()
    std::string address; // the client's, at that time
    std::time_t since;   // when that was
};

// The sign-ins, one for each session at most. What a password is, the plug-in knows:
//
//     if (const long wait = signIns.secondsToWait(request)) { … tell to wait … }
//     else if (!isRight(user, password))                    { … tell that it is wrong … }
//     else if (!signIns.start(request, response, user))     { … tell that it cannot be … }
//     else response.seeOther("/servlet?p=status");
//
//   Lifetime  as long as the plug-in library.
//   Threads   any, at any time.
class SignIns {
public:
    // `attribute` is the name under which sessions show their SignIn.
    explicit SignIns(std::string attribute = "signIn") : m_signIns(std::move(attribute)) {}

    // Before a password is looked at: 0, which counts as a failed attempt of this address until
    // start() or attemptSucceeded(), or the seconds that the address has to wait.
    long secondsToWait(Request& request) { return m_attempts.begin(addressOf(request)); }

    // Signs `user` in. The session is a new one: whoever knows the id of one from before must not
    // come to share the one that is signed in. Its cookie is kept from scripts and from other
    // sites' forms. False when there is no session to be had, or no token.
    bool start(Request& request, Response& response, std::string user) {
        std::string token = randomToken();
        if (token.empty()) {
            return false;
        }
        if (HttpSession* former = request.session()) {
            m_signIns.erase(*former);
            former->invalidate();
        }
        HttpSession* session = request.raw().getSession(true);
        if (!session) {
            return false;
        }
        const auto cookie = setCookieText({"JSESSIONID", session->getId()});
        if (cookie) {
            response.raw().setHeader("Set-Cookie", cookie->c_str());
        }
        m_signIns.put(*session,
                      std::make_shared<SignIn>(SignIn{std::move(user), std::move(token),
                                                      addressOf(request), std::time(nullptr)}));
        attemptSucceeded(request);
        return true;
    }

    // The password that was looked at after secondsToWait() was right, though nobody signed in.
    void attemptSucceeded(Request& request) { m_attempts.succeeded(addressOf(request)); }

    // Whose request it is, or null.
    std::shared_ptr<const SignIn> find(Request& request) const {
        HttpSession* session = request.session();
        return session ? m_signIns.find(*session) : nullptr;
    }

    // Everybody's, in no order. Those whose session has gone are left out with the next request.
    std::vector<std::shared_ptr<const SignIn>> all() const {
        const auto signIns = m_signIns.all();
        return {signIns.begin(), signIns.end()};
    }

    // Signs out, and lets the session expire. It is not invalidated now, since the container could
    // not free it before shut-down then; see HttpSession::invalidate().
    void end(Request& request) {
        if (HttpSession* session = request.session()) {
            m_signIns.erase(*session);
            session->setMaxInactiveInterval(1);
        }
    }

    // Signs out everybody but the one whose request it is, as after a change of the password.
    void endOthers(Request& request) {
        const auto own = find(request);
        m_signIns.eraseIf([&](const SignIn& signIn) { return &signIn != own.get(); });
    }

    // Whether the request may change something in the name of who is signed in: a POST with the
    // token, in the query, the form, or a field of an upload that has been received.
    static bool mayChange(Request& request, const SignIn& signIn) {
        return request.isPost() &&
               equalSecrets(request.parameter("token").value_or(""), signIn.token);
    }

private:
    static std::string addressOf(Request& request) { return std::string(request.remoteAddress()); }

    SessionData<SignIn> m_signIns;
    AttemptLimit m_attempts;
};

} // namespace kit

#endif
