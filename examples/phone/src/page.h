// What all pages have in common.
#ifndef PAGE_H
#define PAGE_H

#include "kit/plugin.h"
#include "phone.h"

#include <string>
#include <string_view>

namespace phone {

// The sign-in form.
extern const char* const kSignInForm;

// Whether `id` names a page that somebody signed in can go to.
bool isPageId(std::string_view id);

// A page in the language of the request.
class LocalPage : public kit::Page {
protected:
    // `phone` must outlive the page.
    explicit LocalPage(Phone& phone) : m_phone(phone) {}

    static void show(kit::Request& request, kit::Response& response, const char* name,
                     kit::Variables variables);

    Phone& m_phone;
};

// A page for those who are signed in; others are sent to the sign-in form.
class SignedInPage : public LocalPage {
protected:
    using LocalPage::LocalPage;

    virtual void answer(kit::Request& request, kit::Response& response,
                        const kit::SignIn& signIn) = 0;

    // The variables that the frame around every page needs.
    kit::Variables frame(kit::Request& request, const kit::SignIn& signIn) const;

    // Whether the request may do what it asks for. If not, it has been answered with a refusal.
    bool mayChange(kit::Request& request, kit::Response& response, const kit::SignIn& signIn);

    // Answers with a page that says no more than what went wrong; `code` is one of those in
    // message.html.
    void showMessage(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                     int status, const char* code);

private:
    void answer(kit::Request& request, kit::Response& response) final;
};

// Makes the variables with which a form shows what was entered and what is wrong with it.
void addForm(kit::Variables& variables, const Values& values, const Errors& errors);

// Sets "result" to what the address says came of the request before, if it is one of `known`.
void addResult(kit::Request& request, kit::Variables& variables,
               std::initializer_list<std::string_view> known);

// Tells by status and variable that a change was refused or could not be saved; `outcome` is not
// done.
void addFailure(kit::Response& response, kit::Variables& variables, const Outcome& outcome);

// The values of these fields as the form sent them.
Values valuesSent(kit::Request& request, const std::vector<const char*>& fields);

} // namespace phone

#endif
