// Signing in and out, with protection against CSRF, session fixation and password guessing.
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

// One sign-in, which never changes. The token is the CSRF token: put it in every form as the hidden
// field "token", and check mayChange() before changing anything, so that a page of another site
// cannot make the browser change something.
struct SignIn {
    std::string user;    // as passed to start()
    std::string token;   // from randomToken()
    std::string address; // the client's IP address when it signed in
    std::time_t since;   // the time of signing in
};

// Records who is signed in: at most one sign-in for each session. The plug-in itself checks the
// password:
//
//     if (const long wait = signIns.secondsToWait(request)) { … "wait `wait` seconds" … }
//     else if (!isRight(user, password))                    { … "wrong password" … }
//     else if (!signIns.start(request, response, user))     { … "not possible right now" … }
//     else response.seeOther("/servlet?p=status");
//
//   Lifetime  make it static, or a member of a page or of a static object, so that it lives as long
//             as the plug-in library.
//   Threads   any, at any time.
class SignIns {
public:
    // `attribute` is the name of the session attribute that points to the SignIn.
    explicit SignIns(std::string attribute = "signIn") : m_signIns(std::move(attribute)) {}

    // Returns 0 if the client's address may try a password now, or the seconds that it has to wait
    // (rate limiting, see AttemptLimit). Call before checking a password. An attempt that is
    // allowed counts as failed until start() or attemptSucceeded() is called.
    long secondsToWait(Request& request) { return m_attempts.begin(addressOf(request)); }

    // Signs `user` in, in a new session with a new id, which prevents session fixation. Its cookie
    // is HttpOnly and SameSite=Lax. Call before the first byte of the body. Returns false if no
    // session or no token could be created.
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

    // Call after a correct password was given for anything but signing in (such as changing it):
    // the attempt no longer counts as failed, and the address has its free attempts again.
    void attemptSucceeded(Request& request) { m_attempts.succeeded(addressOf(request)); }

    // Returns the sign-in of the request's session, or null if the client is not signed in.
    std::shared_ptr<const SignIn> find(Request& request) const {
        HttpSession* session = request.session();
        return session ? m_signIns.find(*session) : nullptr;
    }

    // Returns all sign-ins, in no particular order, including those of expired sessions that are
    // not freed yet.
    std::vector<std::shared_ptr<const SignIn>> all() const {
        const auto signIns = m_signIns.all();
        return {signIns.begin(), signIns.end()};
    }

    // Signs the request's session out and lets it expire within a few seconds. Does not invalidate
    // the session, because some hosts could then free it at shut-down only; see
    // HttpSession::invalidate().
    void end(Request& request) {
        if (HttpSession* session = request.session()) {
            m_signIns.erase(*session);
            session->setMaxInactiveInterval(kSecondsToLive);
        }
    }

    // Signs out all sessions but that of the request, for example after a change of the password.
    void endOthers(Request& request) {
        const auto own = find(request);
        m_signIns.eraseIf([&](const SignIn& signIn) { return &signIn != own.get(); });
    }

    // Returns whether the request may change something as the user of `signIn`: it is a POST and
    // has the CSRF token as the parameter "token", in the query, the form, or a field of an upload
    // that has been received.
    static bool mayChange(Request& request, const SignIn& signIn) {
        return request.isPost() &&
               equalSecrets(request.parameter("token").value_or(""), signIn.token);
    }

private:
    // A signed-out session's time to live. Some hosts never free a session that expires during its
    // own request, so this is longer than requests take.
    static constexpr int kSecondsToLive = 5;

    static std::string addressOf(Request& request) { return std::string(request.remoteAddress()); }

    SessionData<SignIn> m_signIns;
    AttemptLimit m_attempts;
};

} // namespace kit

#endif
