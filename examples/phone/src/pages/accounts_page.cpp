#include "pages/accounts_page.h"

namespace phone {

void AccountsPage::answer(kit::Request& request, kit::Response& response,
                          const kit::SignIn& signIn) {
    const auto asked = request.number<std::size_t>("acc", 0, kAccounts - 1);
    if (!asked && asked.problem() != kit::Problem::Missing) {
        response.status(404);
        kit::Variables variables = frame(request, signIn);
        addTabs(variables, kAccounts);
        variables.set("noAccount", true);
        show(request, response, "accounts.html", std::move(variables));
        return;
    }
    const std::size_t account = asked.valueOr(0);
    if (!request.isPost()) {
        kit::Variables variables = frame(request, signIn);
        addFlash(request, variables);
        showForm(request, response, std::move(variables), account,
                 valuesOf(m_phone.device.state()->settings.accounts[account]), {});
    } else if (mayChange(request, response, signIn)) {
        save(request, response, signIn, account);
    }
}

void AccountsPage::save(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                        std::size_t account) {
    const Values values = valuesSent(request, kAccountFields);
    const Outcome outcome = m_phone.device.change(
        [&](State& state) { return readValues(values, state.settings.accounts[account]); });
    if (outcome.done()) {
        finishAt("/servlet?p=accounts&acc=" + std::to_string(account), "saved", request, response);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, outcome);
    showForm(request, response, std::move(variables), account, values, outcome.errors);
}

void AccountsPage::showForm(kit::Request& request, kit::Response& response,
                            kit::Variables variables, std::size_t account, Values values,
                            const Errors& errors) const {
    values.erase("secret"); // never send a secret to a browser, not even the one entered
    variables.set("acc", account);
    addTabs(variables, account);
    addForm(variables, values, errors);
    show(request, response, "accounts.html", std::move(variables));
}

void AccountsPage::addTabs(kit::Variables& variables, std::size_t account) const {
    const auto state = m_phone.device.state();
    std::size_t number = 0;
    variables.rows("tabs", state->settings.accounts, [&](const Account& each) {
        kit::Variables tab;
        tab.set("index", number)
            .set("number", number + 1)
            .set("tabLabel", each.label)
            .set("current", number == account);
        ++number;
        return tab;
    });
}

} // namespace phone
