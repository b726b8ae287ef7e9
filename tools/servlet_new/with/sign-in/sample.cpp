// A page for those who have signed in, and the page on which they sign in and out.

#include <kit/actions.h>
#include <kit/sign_in.h>

#include <crypt.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view kUser = "admin";
// The crypt(5) hash of the password "garden gate", to begin with. On a device, read the device's
// own from a file that only the daemon can read; "openssl passwd -6" prints the hash of a password.
constexpr const char* kPasswordHash =
    "$6$gardensalt$xlIK369KooD5O.OOiT/w/GOYgEF7xyP9iqzP875HrVdYpix4Unav8zu4rUB/"
    "pXXJV3Eg6eNfHLjlXeWG4KM4Y1";

bool isPassword(std::string_view password) {
    const auto data = std::make_unique<crypt_data>();
    const char* hash = crypt_r(std::string(password).c_str(), kPasswordHash, data.get());
    return hash && kit::equalSecrets(hash, kPasswordHash);
}

// Both pages use it.
kit::SignIns& signIns() {
    static kit::SignIns all;
    return all;
}

class SampleSignInPage final : public kit::ActionPage {
public:
    SampleSignInPage() {
        show(&SampleSignInPage::showEmpty);
        on("in", &SampleSignInPage::signIn);
        on("out", &SampleSignInPage::signOut);
    }

private:
    // The token of signing out is that of the sign-in.
    bool begin(kit::Request& request, kit::Response& response) override {
        if (!signIns().find(request) || request.parameter("q") == "out") {
            return true;
        }
        response.seeOther("/servlet?p=sample");
        return false;
    }

    void refuse(kit::Request& request, kit::Response& response) override {
        showForm(request, response, 403, "This form is out of date. Please try again.");
    }

    void showEmpty(kit::Request& request, kit::Response& response) {
        showForm(request, response, 200, "");
    }

    void signIn(kit::Request& request, kit::Response& response) {
        const std::string user(request.parameter("user").value_or(""));
        const auto isRight = [&] {
            return isPassword(request.parameter("password").value_or("")) && user == kUser;
        };
        if (const long wait = signIns().secondsToWait(request)) {
            response.header("Retry-After", std::to_string(wait));
            showForm(request, response, 429, "Too many attempts. Please wait.");
        } else if (!signIns().check(request, isRight)) {
            showForm(request, response, 403, "Wrong name or password.");
        } else if (!signIns().start(request, response, user)) {
            showForm(request, response, 503, "Signing in is not possible right now.");
        } else {
            response.seeOther("/servlet?p=sample");
        }
    }

    void signOut(kit::Request& request, kit::Response& response) {
        signIns().end(request);
        response.seeOther("/servlet?p=sign-in");
    }

    void showForm(kit::Request& request, kit::Response& response, int status, const char* message) {
        kit::Variables variables;
        variables.set("token", kit::formToken(request, response))
            .set("user", request.parameter("user").value_or(""))
            .set("message", message);
        response.status(status).show("sign-in.html", std::move(variables));
    }
};

class SamplePage final : public kit::ActionPage {
public:
    SamplePage() { show(&SamplePage::showPage); }

private:
    bool begin(kit::Request& request, kit::Response& response) override {
        if (signIns().find(request)) {
            return true;
        }
        response.seeOther("/servlet?p=sign-in");
        return false;
    }

    void showPage(kit::Request& request, kit::Response& response) {
        // Null if the user has signed out in another window since begin().
        const auto signIn = signIns().find(request);
        kit::Variables variables;
        variables.set("token", kit::formToken(request, response))
            .set("user", signIn ? signIn->user : "");
        response.show("sample.html", std::move(variables));
    }
};

} // namespace

// The names that servlet.xml uses.
KIT_SERVLET(createSampleSignInPage, SampleSignInPage)
KIT_SERVLET(createSamplePage, SamplePage)
