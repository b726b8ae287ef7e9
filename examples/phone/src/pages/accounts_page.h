#ifndef ACCOUNTS_PAGE_H
#define ACCOUNTS_PAGE_H

#include "page.h"

namespace phone {

// The form for one account, selected by the parameter "acc" from 0; the first one without it.
class AccountsPage final : public SignedInPage {
public:
    explicit AccountsPage(Phone& phone) : SignedInPage(phone) {}

private:
    void answer(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) override;
    void save(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
              std::size_t account);
    void showForm(kit::Request& request, kit::Response& response, kit::Variables variables,
                  std::size_t account, Values values, const Errors& errors) const;
    void addTabs(kit::Variables& variables, std::size_t account) const;
};

} // namespace phone

#endif
