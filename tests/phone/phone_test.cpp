#include "phone_test.h"

#include "model/password.h"
#include "model/password_store.h"

#include <cstdlib>
#include <filesystem>

using namespace kit::testing;

Answer Visitor::send(const Request& request) {
    Request sent = Request(request).variable("DOCUMENT_ROOT", DEVICE_WWW);
    return Answer(m_browser.send(m_host.empty() ? sent : sent.variable("HTTP_HOST", m_host)));
}

Answer Visitor::signIn(const std::string& password, const std::string& user) {
    Answer answer = submitSignIn({{"user", user}, {"password", password}});
    if (answer.status == 303) {
        m_token = page("security").field("token").value_or("");
    }
    return answer;
}

Answer Visitor::submitSignIn(Fields fields, const std::string& more) {
    if (!cookie("formToken")) {
        page("login&q=loginForm");
    }
    fields.emplace_back("token", cookie("formToken").value_or(""));
    return submitWithoutToken("login&q=login" + more, fields);
}

Answer Visitor::submit(const std::string& query, Fields fields) {
    fields.emplace_back("token", m_token);
    return submitWithoutToken(query, fields);
}

Request Visitor::uploading(const std::string& query, const Part& file, const Fields& fields) const {
    std::vector<Part> parts{field("token", m_token)};
    for (const auto& [name, value] : fields) {
        parts.push_back(field(name, value));
    }
    parts.push_back(file);
    return post("/servlet?p=" + query).multipart(parts);
}

PhoneFixture::PhoneFixture() {
    std::filesystem::create_directory(folder.file("phone"));
    writeTextFile(folder.file("phone/factory.csv"),
                  "name,number\r\nAnna,100\r\nBj\xC3\xB6rn,200\r\nCarol,300\r\n");
    static const std::string hash = phone::hashPassword(kPassword);
    phone::PasswordStore(folder.file("phone/password")).save({"admin", hash, false});
    setenv("PHONE_TEST_FOLDER", folder.file("phone").c_str(), 1);
    restart();
}

void PhoneFixture::restart() {
    container.reset();
    container = std::make_unique<Container>(PHONE_TEST_CONFIG);
    recorded_log::clear();
}

void PhoneFixture::resetAtTheDevice() {
    container.reset();
    writeTextFile(folder.file("phone/reset"), "");
    restart();
}

void PhoneFixture::breakTheDisk() {
    std::filesystem::rename(folder.file("phone"), folder.file("away"));
}

void PhoneFixture::repairTheDisk() {
    std::filesystem::rename(folder.file("away"), folder.file("phone"));
}

std::shared_ptr<const phone::State> PhoneFixture::saved() const {
    return phone::Device({folder.file("phone/state.xml"), ""}).state();
}

void SignedInFixture::setProvisioningServer() {
    EXPECT_EQ(me.submit("settings-autop&q=save", {{"server", "https://provisioning.example.com/a"}})
                  .status,
              303);
    me.page("settings-autop"); // shows the message, once
}
