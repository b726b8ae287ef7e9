#include "pages/log_page.h"

#include "model/journal.h"

namespace phone {
namespace {

// The file has all of them.
constexpr std::size_t kShownEntries = 100;

Severity severityAsked(kit::Request& request) {
    const auto asked = request.parameter("level");
    for (const Severity severity : {Severity::error, Severity::warning}) {
        if (asked == nameOf(severity)) {
            return severity;
        }
    }
    return Severity::info;
}

kit::Variables entryRow(const JournalEntry& entry) {
    return kit::Variables()
        .set("time", localTimeText(entry.time))
        .set("severity", nameOf(entry.severity))
        .set("text", entry.text);
}

} // namespace

LogPage::LogPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&LogPage::showLog);
    m_actions.onGet("download", &LogPage::sendText);
}

void LogPage::showLog(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    const Severity least = severityAsked(request);
    kit::Variables variables = frame(request, signIn);
    variables.set("level", nameOf(least))
        .rows("entries", Journal::getInstance()->recent(least, kShownEntries), entryRow);
    show(request, response, "log.html", std::move(variables));
}

void LogPage::sendText(kit::Request& request, kit::Response& response, const kit::SignIn&) {
    const auto entries = Journal::getInstance()->recent(severityAsked(request));
    std::string text;
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        text +=
            localTimeText(entry->time) + " " + nameOf(entry->severity) + ": " + entry->text + "\n";
    }
    response.download("phone.log", "text/plain; charset=utf-8", text);
}

} // namespace phone
