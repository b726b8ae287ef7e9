#include "pages/configuration_page.h"

#include "kit/upload.h"
#include "model/backup.h"
#include "model/configuration.h"
#include "model/journal.h"

#include <algorithm>

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

// Returns what the page says of an error of the whole file; null for other errors.
const char* resultOf(const Errors& errors) {
    if (errors.size() != 1 || errors[0].field != "config") {
        return nullptr;
    }
    switch (errors[0].code) {
    case ErrorCode::required:
        return "noCopy";
    case ErrorCode::tooLarge:
        return "tooLarge";
    case ErrorCode::wrongPassphrase:
        return "wrongPassphrase";
    case ErrorCode::otherVersion:
        return "otherVersion";
    default:
        return nullptr;
    }
}

// Reports an error of the whole file in a sentence, and errors in the file in a table.
void addErrors(kit::Variables& variables, const Errors& errors) {
    if (const char* result = resultOf(errors)) {
        variables.set("result", result);
    } else {
        variables.rows("errors", errors, errorRow);
    }
}

} // namespace

ConfigurationPage::ConfigurationPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&ConfigurationPage::showAll);
    m_actions.onGet("export", &ConfigurationPage::sendXml);
    m_actions.on("backup", &ConfigurationPage::sendBackup);
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

void ConfigurationPage::sendBackup(kit::Request& request, kit::Response& response,
                                   const kit::SignIn& signIn) {
    const std::string_view passphrase = request.parameter("passphrase").value_or("");
    const Errors errors = checkPassphrase(passphrase, request.parameter("repeat").value_or(""));
    if (!errors.empty()) {
        showInvalidFields(request, response, signIn, errors);
        return;
    }
    const std::unique_lock<std::mutex> encrypting(m_phone.receiving, std::try_to_lock);
    if (!encrypting) {
        showRefusal(request, response, signIn, 409, "busy");
        return;
    }
    const std::string file = backupOf(*m_phone.device.state(), passphrase);
    Journal::getInstance()->info("An encrypted backup was downloaded by %s", signIn.user.c_str());
    response.download("phone.backup", "application/octet-stream", file);
}

void ConfigurationPage::changeLocalCopy(kit::Request& request, kit::Response& response,
                                        const kit::SignIn& signIn) {
    const bool isRestored = request.parameter("type") == "import";
    if (isRestored && !request.isChecked("confirm")) {
        showRefusal(request, response, signIn, 422, "notConfirmed");
    } else if (isRestored) {
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
        showRefusal(request, response, signIn, 409, "busy");
        return;
    }
    const auto file = kit::readUpload(request, "config", kMaxBackupBytes);
    if (!mayChange(request, response, signIn)) {
        return;
    }
    // An upload that failed may lack the confirmation, too, so its problem comes first.
    if (file && !request.isChecked("confirm")) {
        showRefusal(request, response, signIn, 422, "notConfirmed");
        return;
    }
    if (file && isSealed(*file)) {
        importBackup(request, response, signIn, *file);
        return;
    }
    const auto edit = [&](State& state) {
        if (file.problem() == kit::Problem::TooLong) {
            return Errors{{"config", ErrorCode::tooLarge, kMaxConfigurationBytes}};
        }
        keepLocalCopy(state);
        return readConfiguration(file ? *file : "", state.settings);
    };
    change(request, response, signIn, edit, "configurationImported");
}

void ConfigurationPage::importBackup(kit::Request& request, kit::Response& response,
                                     const kit::SignIn& signIn, std::string_view file) {
    const std::string_view passphrase = request.parameter("filePassphrase").value_or("");
    if (passphrase.empty()) {
        showInvalidFields(request, response, signIn,
                          {{"filePassphrase", ErrorCode::required, std::nullopt}});
        return;
    }
    State backup;
    // Before change(), which keeps other changes waiting.
    Errors errors = readBackup(file, passphrase, backup);
    Journal::getInstance()->info("An encrypted backup that %s sent was %s", signIn.user.c_str(),
                                 errors.empty() ? "opened" : "refused");
    const auto edit = [&](State& state) {
        if (errors.empty()) {
            restoreBackup(std::move(backup), state);
        }
        return errors;
    };
    change(request, response, signIn, edit, "backupRestored");
}

void ConfigurationPage::showInvalidFields(kit::Request& request, kit::Response& response,
                                          const kit::SignIn& signIn, const Errors& errors) {
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, {errors, false});
    addForm(variables, {}, errors);
    showPage(request, response, std::move(variables));
}

void ConfigurationPage::showRefusal(kit::Request& request, kit::Response& response,
                                    const kit::SignIn& signIn, int status, const char* result) {
    response.status(status);
    kit::Variables variables = frame(request, signIn);
    variables.set("result", result);
    showPage(request, response, std::move(variables));
}

void ConfigurationPage::change(kit::Request& request, kit::Response& response,
                               const kit::SignIn& signIn, const Device::Edit& edit,
                               const char* message) {
    const Outcome outcome = m_phone.network.change(edit);
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
    const auto state = m_phone.device.state();
    const auto& accounts = state->settings.accounts;
    variables.set("localCopy", !state->localCopy.empty())
        .set("secretCount",
             std::count_if(accounts.begin(), accounts.end(),
                           [](const Account& account) { return !account.secret.empty(); }))
        .set("contactCount", state->directory.contacts().size())
        .set("callUnderWay", m_phone.desk.view().isCallUnderWay());
    show(request, response, "settings-config.html", std::move(variables));
}

} // namespace phone
