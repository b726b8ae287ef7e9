// Signing in and out, with protection against CSRF, session fixation and password guessing.
#ifndef KIT_SIGN_IN_H
#define KIT_SIGN_IN_H

#include "kit/attempt_limit.h"
#include "kit/forms.h"
#include "kit/request.h"
#include "kit/response.h"
#include "kit/secrets.h"
#include "kit/session_data.h"

#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Weak, since older containers lack it. NOLINTNEXTLINE(readability-redundant-declaration)
extern void endRequestSession(HttpRequest& request) __attribute__((weak));

namespace kit {

// One sign-in, which never changes. The token is the CSRF token of its forms: see forms.h.
struct SignIn {
    std::string user;    // as passed to start()
    std::string token;   // from randomToken()
    std::string address; // the client's IP address when it signed in
    std::time_t since;   // the time of signing in
};

// Records who is signed in: at most one sign-in for each session. The ids of the container's
// sessions can be guessed, so each sign-in also has a key, 128 random bits in a second cookie,
// without which a request is not signed in. The form for signing in contains formToken(), like any
// other; check it before secondsToWait(), since what other sites send must not count as failed
// attempts of the user's address. The plug-in itself checks the password:
//
//     const auto isRight = [&] { return hashOf(password) == …; };
//     if (!kit::isFromForm(request))                             { … show the form again … }
//     else if (const long wait = signIns.secondsToWait(request)) { … "wait `wait` seconds" … }
//     else if (!signIns.check(request, isRight))                 { … "wrong password" … }
//     else if (!signIns.start(request, response, user))          { … "not possible right now" … }
//     else response.seeOther("/servlet?p=status");
//
//   Lifetime  make it static, or a member of a page or of a static object, so that it lives as long
//             as the plug-in library.
//   Threads   any, at any time.
class SignIns {
public:
    // `name` is the name of the session attribute that points to the sign-in, and of the cookie
    // with its key: a token, like the name of a header.
    explicit SignIns(std::string name = "signIn") : m_keyCookie(name), m_signIns(std::move(name)) {}

    // Returns 0 if the client's address may try a password now, or the seconds that it has to wait
    // (rate limiting, see AttemptLimit). Call before checking a password. An attempt that is
    // allowed counts as failed until start() or attemptSucceeded() is called.
    long secondsToWait(Request& request) { return m_attempts.begin(addressOf(request)); }

    // Returns what `isRight()` returns, which checks the password after secondsToWait() returned 0.
    // If it throws, for example without memory, the attempt does not count, and the exception is
    // passed on.
    template <typename IsRight>
    bool check(Request& request, IsRight isRight) {
        try {
            return isRight();
        } catch (...) {
            m_attempts.withdraw(addressOf(request));
            throw;
        }
    }

    // Signs `user` in, in a new session with a new id, which prevents session fixation. Both
    // cookies are HttpOnly, and Secure over HTTPS; that of the session is SameSite=Lax, the key's
    // SameSite=Strict. Call before the first byte of the body. Returns false if no session, token
    // or key could be created.
    bool start(Request& request, Response& response, std::string user) {
        std::string token = randomToken();
        std::string key = randomToken();
        if (token.empty() || key.empty()) {
            return false;
        }
        if (HttpSession* former = request.session()) {
            m_signIns.erase(*former);
            endSessionOf(request);
        }
        HttpSession* session = request.raw().getSession(true);
        if (!session) {
            return false;
        }
        setCookies(request, response, session->getId(), key);
        request.m_newCookie.emplace(m_keyCookie, key);
        m_signIns.put(*session,
                      std::make_shared<Entry>(Entry{{std::move(user), std::move(token),
                                                     addressOf(request), std::time(nullptr)},
                                                    std::move(key)}));
        attemptSucceeded(request);
        return true;
    }

    // Call after a correct password was given for anything but signing in (such as changing it):
    // the attempt no longer counts as failed, and the address has its free attempts again.
    void attemptSucceeded(Request& request) { m_attempts.succeeded(addressOf(request)); }

    // Returns the sign-in of the request's session, or null if the client is not signed in: if the
    // session has none, or if the request does not contain its key. From then on the token of the
    // sign-in is the one that formToken() returns for the request, and isFromForm() requires.
    std::shared_ptr<const SignIn> find(Request& request) const {
        HttpSession* session = request.session();
        const auto entry = session ? m_signIns.find(*session) : nullptr;
        const bool isOwn =
            entry && equalSecrets(request.cookie(m_keyCookie.c_str()).value_or(""), entry->key);
        if (isOwn || request.m_signedInTo == this) {
            request.m_formToken = isOwn ? entry->signIn.token : std::string();
            request.m_signedInTo = isOwn ? this : nullptr;
        }
        return isOwn ? signInOf(entry) : nullptr;
    }

    // Returns all sign-ins, in no particular order, including those of expired sessions that are
    // not freed yet.
    std::vector<std::shared_ptr<const SignIn>> all() const {
        std::vector<std::shared_ptr<const SignIn>> signIns;
        for (const auto& entry : m_signIns.all()) {
            signIns.push_back(signInOf(entry));
        }
        return signIns;
    }

    // Signs the request's user out and lets the session expire within a few seconds. Does nothing
    // for a client that is not signed in. Does not invalidate the session, because some hosts
    // could then free it at shut-down only; see HttpSession::invalidate().
    void end(Request& request) {
        if (find(request)) {
            HttpSession* session = request.session();
            m_signIns.erase(*session);
            session->setMaxInactiveInterval(kSecondsToLive);
            find(request); // forgets the token
        }
    }

    // Signs out all sessions but that of the request, for example after a change of the password.
    void endOthers(Request& request) {
        const auto own = find(request);
        m_signIns.eraseIf([&](const Entry& entry) { return &entry.signIn != own.get(); });
    }

private:
    // A signed-out session's time to live. Some hosts never free a session that expires during its
    // own request, so this is longer than requests take.
    static constexpr int kSecondsToLive = 5;

    struct Entry {
        SignIn signIn;
        std::string key;
    };

    // Shares the ownership of the entry.
    static std::shared_ptr<const SignIn> signInOf(const std::shared_ptr<Entry>& entry) {
        return {entry, &entry->signIn};
    }

    // Older containers lack endRequestSession(); some of their hosts then keep the session, empty,
    // until shut-down.
    static void endSessionOf(Request& request) {
        if (endRequestSession) {
            endRequestSession(request.raw());
        } else {
            request.session()->invalidate();
        }
    }

    static std::string addressOf(Request& request) { return std::string(request.remoteAddress()); }

    void setCookies(Request& request, Response& response, const std::string& id,
                    const std::string& key) const {
        Cookie session{"JSESSIONID", id};
        Cookie keyCookie{m_keyCookie, key};
        keyCookie.sameSite = Cookie::SameSite::Strict;
        session.secure = request.isHttps();
        // In the place of the container's own cookie, which has no attributes.
        response.raw().setHeader("Set-Cookie", setCookieText(session).value_or("").c_str());
        response.cookie(keyCookie);
    }

    const std::string m_keyCookie;
    SessionData<Entry> m_signIns;
    AttemptLimit m_attempts;
};

} // namespace kit

#endif
