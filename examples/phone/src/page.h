// Base classes and helpers of all pages.
#ifndef PAGE_H
#define PAGE_H

#include "kit/actions.h"
#include "kit/plugin.h"
#include "phone.h"

#include <string>
#include <string_view>

namespace phone {

// The address of the sign-in form.
extern const char* const kSignInForm;

// Returns whether `id` names a page that a signed-in user can open.
bool isPageId(std::string_view id);

// The page to open after signing in, as the parameters "jumpto" and "view" name it.
// Returns its id; empty if there is none.
std::string_view pageToGoTo(kit::Request& request);
// Returns its address, by default that of the status page.
std::string landingPage(kit::Request& request);
extern const char* const kStatusPage;

// Shows pages in the language of the request, in the frame of the phone's pages.
class PageWriter {
protected:
    // `phone` must outlive this object.
    explicit PageWriter(Phone& phone) : m_phone(phone) {}

    static void show(kit::Request& request, kit::Response& response, const char* name,
                     kit::Variables variables);

    // Returns the variables of the frame around every page of a signed-in user.
    kit::Variables frame(kit::Request& request, const kit::SignIn& signIn) const;

    // Answers a form without the token of the sign-in.
    void refuse(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);

    // Sends a page that only reports an error; `code` is one of those in message.html.
    void showMessage(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                     int status, const char* code);

    Phone& m_phone;
};

class LocalPage : public kit::Page, protected PageWriter {
protected:
    using PageWriter::PageWriter;
};

// A page for signed-in users; others are redirected to the sign-in form.
class SignedInPage : public LocalPage {
protected:
    using LocalPage::LocalPage;

    virtual void answer(kit::Request& request, kit::Response& response,
                        const kit::SignIn& signIn) = 0;

    // Returns whether the request may make changes. If not, the refusal has been sent.
    bool mayChange(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);

private:
    void answer(kit::Request& request, kit::Response& response) final;
};

// A page for signed-in users with actions, which its constructor declares in `m_actions`.
class ActionsPage : public SignedInPage {
protected:
    explicit ActionsPage(Phone& phone) : SignedInPage(phone), m_actions(&ActionsPage::refuseForm) {}

    kit::Actions<ActionsPage, const kit::SignIn&> m_actions;

private:
    // Calls the function of the second base class: gcc's sanitizer reports a wrong object where
    // that one is called through a pointer.
    void refuseForm(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
        refuse(request, response, signIn);
    }

    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) final {
        m_actions.answer(*this, request, response, signIn);
    }
};

// Adds the variables with which a form shows the values entered and their errors.
void addForm(kit::Variables& variables, const Values& values, const Errors& errors);

// Ends a request that has changed something: the page at `address` says so once. `message` is one
// of those in form-result.html.
void finishAt(const std::string& address, const char* message, kit::Request& request,
              kit::Response& response);
// Sets "flash" to the message of the request before, if it has left one.
void addFlash(kit::Request& request, kit::Variables& variables);

// Sets the status and a variable for a change that was rejected or could not be saved; `outcome`
// must not be done.
void addFailure(kit::Response& response, kit::Variables& variables, const Outcome& outcome);

// Returns the values of these fields as the form sent them.
Values valuesSent(kit::Request& request, const std::vector<const char*>& fields);

} // namespace phone

#endif
