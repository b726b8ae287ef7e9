// The creation functions that servlet.xml names.

#include "error_pages.h"
#include "listeners/event_listener.h"
#include "listeners/language_listener.h"
#include "listeners/network_listener.h"
#include "listeners/not_found_listener.h"
#include "listeners/notice_listener.h"
#include "listeners/sign_in_listener.h"
#include "pages/accounts_page.h"
#include "pages/configuration_page.h"
#include "pages/contacts_page.h"
#include "pages/contacts_preview_page.h"
#include "pages/language_page.h"
#include "pages/log_page.h"
#include "pages/login_page.h"
#include "pages/network_page.h"
#include "pages/notice_page.h"
#include "pages/phone_page.h"
#include "pages/provisioning_page.h"
#include "pages/security_page.h"
#include "pages/settings_page.h"
#include "pages/status_data_page.h"
#include "pages/status_page.h"
#include "pages/upgrade_page.h"
#include "recorder.h"

using namespace phone;

namespace {

Phone& thePhone() {
    static Phone phone(deviceFiles());
    static Recorder recorder(phone);
    static ErrorPages errorPages(phone);
    return phone;
}

} // namespace

KIT_LISTENER(createLanguageListener, LanguageListener)
KIT_LISTENER(createNetworkListener, NetworkListener(thePhone()))
KIT_LISTENER(createNoticeListener, NoticeListener(thePhone()))
KIT_LISTENER(createEventListener, EventListener(thePhone()))
KIT_LISTENER(createSignInListener, SignInListener(thePhone()))
KIT_LISTENER(createNotFoundListener, NotFoundListener(thePhone()))

KIT_SERVLET(createLoginPage, LoginPage(thePhone()))
KIT_SERVLET(createLanguagePage, LanguagePage)
KIT_SERVLET(createNoticePage, NoticePage(thePhone()))
KIT_SERVLET(createStatusPage, StatusPage(thePhone()))
KIT_SERVLET(createStatusDataPage, StatusDataPage(thePhone()))
KIT_SERVLET(createPhonePage, PhonePage(thePhone()))
KIT_SERVLET(createAccountsPage, AccountsPage(thePhone()))
KIT_SERVLET(createNetworkPage, NetworkPage(thePhone()))
KIT_SERVLET(createAudioPage,
            SettingsPage<Audio>(thePhone(), "audio", &Settings::audio, kAudioFields))
KIT_SERVLET(createSecurityPage, SecurityPage(thePhone()))
KIT_SERVLET(createContactsPage, ContactsPage(thePhone()))
KIT_SERVLET(createContactsPreviewPage, ContactsPreviewPage(thePhone()))
KIT_SERVLET(createLogPage, LogPage(thePhone()))
KIT_SERVLET(createConfigurationPage, ConfigurationPage(thePhone()))
KIT_SERVLET(createUpgradePage, UpgradePage(thePhone()))
KIT_SERVLET(createProvisioningPage, ProvisioningPage(thePhone()))
