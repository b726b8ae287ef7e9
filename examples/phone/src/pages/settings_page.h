#ifndef SETTINGS_PAGE_H
#define SETTINGS_PAGE_H

#include "page.h"

namespace phone {

// A form for one group of settings. GET shows it; POST saves it, or shows it again with a message
// at every invalid field.
template <typename Group>
class SettingsPage : public SignedInPage {
public:
    // `name` is the page's id; with ".html" added, the template's name.
    SettingsPage(Phone& phone, std::string name, Group Settings::*group,
                 const std::vector<const char*>& fields)
        : SignedInPage(phone), m_name(std::move(name)), m_group(group), m_fields(fields) {}

protected:
    // Changes the phone's state.
    virtual Outcome change(const Device::Edit& edit) { return m_phone.device.change(edit); }
    // Returns the values that the form shows again after an error.
    virtual Values shownAgain(Values values) const { return values; }
    // Adds what the page shows beside the form.
    virtual void addMore(kit::Request&, kit::Variables&) const {}

    void answer(kit::Request& request, kit::Response& response,
                const kit::SignIn& signIn) override {
        if (!request.isPost()) {
            kit::Variables variables = frame(request, signIn);
            addFlash(request, variables);
            showSaved(request, response, std::move(variables));
        } else if (mayChange(request, response, signIn)) {
            save(request, response, signIn);
        }
    }

    // Shows the form with the settings in use.
    void showSaved(kit::Request& request, kit::Response& response, kit::Variables variables) const {
        showForm(request, response, std::move(variables),
                 valuesOf(m_phone.device.state()->settings.*m_group), {});
    }

private:
    void save(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
        const Values values = valuesSent(request, m_fields);
        const Outcome outcome =
            change([&](State& state) { return readValues(values, state.settings.*m_group); });
        if (outcome.done()) {
            finishAt("/servlet?p=" + m_name, "saved", request, response);
            return;
        }
        kit::Variables variables = frame(request, signIn);
        addFailure(response, variables, outcome);
        showForm(request, response, std::move(variables), shownAgain(values), outcome.errors);
    }

    void showForm(kit::Request& request, kit::Response& response, kit::Variables variables,
                  const Values& values, const Errors& errors) const {
        addForm(variables, values, errors);
        addMore(request, variables);
        show(request, response, (m_name + ".html").c_str(), std::move(variables));
    }

    const std::string m_name;
    Group Settings::*const m_group;
    const std::vector<const char*>& m_fields;
};

} // namespace phone

#endif
