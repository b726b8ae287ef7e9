#include "pages/configuration_page.h"

#include "kit/upload.h"
#include "model/configuration.h"

namespace phone {
namespace {

kit::Variables errorRow(const FieldError& error) {
    kit::Variables row;
    row.set("field", error.field).set("code", nameOf(error.code));
    if (error.limit) {
        row.set("limit", *error.limit);
    }
    return row;
}

// Reports an error of the whole file in a sentence, and errors in the file in a table.
void addErrors(kit::Variables& variables, const Errors& errors) {
    const bool ofAll = errors.size() == 1 && errors[0].field == "config";
    if (ofAll && errors[0].code == ErrorCode::required) {
        variables.set("result", "noCopy");
    } else if (ofAll && errors[0].code == ErrorCode::tooLarge) {
        variables.set("result", "tooLarge");
    } else {
        variables.rows("errors", errors, errorRow);
    }
}

} // namespace

ConfigurationPage::ConfigurationPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&ConfigurationPage::showAll);
    m_actions.onGet("export", &ConfigurationPage::sendXml);
    m_actions.onUpload("import", &ConfigurationPage::import);
    m_actions.on("localconfig", &ConfigurationPage::changeLocalCopy);
}

void ConfigurationPage::showAll(kit::Request& request, kit::Response& response,
                                const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    showPage(request, response, std::move(variables));
}

void ConfigurationPage::sendXml(kit::Request&, kit::Response& response, const kit::SignIn&) {
    response.download("configuration.xml", "application/xml",
                      configurationText(m_phone.device.state()->settings));
}

void ConfigurationPage::changeLocalCopy(kit::Request& request, kit::Response& response,
                                        const kit::SignIn& signIn) {
    if (request.parameter("type") == "import") {
        change(request, response, signIn, restoreLocalCopy, "copyRestored");
    } else if (request.parameter("type") == "remove") {
        change(request, response, signIn, removeLocalCopy, "copyRemoved");
    } else {
        showAll(request, response, signIn);
    }
}

void ConfigurationPage::import(kit::Request& request, kit::Response& response,
                               const kit::SignIn& signIn) {
    const std::unique_lock<std::mutex> receiving(m_phone.receiving, std::try_to_lock);
    if (!receiving) {
        response.status(409);
        kit::Variables variables = frame(request, signIn);
        variables.set("result", "busy");
        showPage(request, response, std::move(variables));
        return;
    }
    const auto text = kit::readUpload(request, "config", kMaxConfigurationBytes);
    const auto edit = [&](State& state) {
        if (text.problem() == kit::Problem::TooLong) {
            return Errors{{"config", ErrorCode::tooLarge, kMaxConfigurationBytes}};
        }
        keepLocalCopy(state);
        return readConfiguration(text.valueOr(""), state.settings);
    };
    if (mayChange(request, response, signIn)) {
        change(request, response, signIn, edit, "configurationImported");
    }
}

void ConfigurationPage::change(kit::Request& request, kit::Response& response,
                               const kit::SignIn& signIn, const Device::Edit& edit,
                               const char* message) {
    const Outcome outcome = m_phone.device.change(edit);
    if (outcome.done()) {
        finishAt("/servlet?p=settings-config", message, request, response);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, outcome);
    addErrors(variables, outcome.errors);
    showPage(request, response, std::move(variables));
}

void ConfigurationPage::showPage(kit::Request& request, kit::Response& response,
                                 kit::Variables variables) const {
    variables.set("localCopy", !m_phone.device.state()->localCopy.empty());
    show(request, response, "settings-config.html", std::move(variables));
}

} // namespace phone
