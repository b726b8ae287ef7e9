#include "model/network_trial.h"

#include "model/atomic_file.h"
#include "model/journal.h"
#include "model/lease.h"
#include "model/settings_xml.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <utility>

namespace phone {
namespace {

using std::chrono::seconds;

constexpr std::size_t kMaxTrialBytes = 16 * 1024;
// Pause between attempts to undo a change on a disk that cannot be written.
constexpr seconds kRetryTime{10};

// Returns what decides whether a client that reached the phone still does.
auto reachOf(const Network& network) {
    const bool isStatic = network.mode == "static";
    return std::make_tuple(network.mode, addressOf(network), isStatic ? network.netmask : "",
                           isStatic ? network.gateway : "", network.vlan);
}

bool isSame(const Network& one, const Network& other) {
    return valuesOf(one) == valuesOf(other);
}

void writeNetwork(XmlWriter& writer, const char* name, const Network& network) {
    const Values values = valuesOf(network);
    writer.open(name);
    for (const char* field : kNetworkFields) {
        writer.element(field, valueOf(values, field));
    }
    writer.close(name);
}

bool readNetwork(const pugi::xml_node& element, Network& network) {
    Values values;
    for (const char* field : kNetworkFields) {
        values[field] = textOf(element.child(field));
    }
    return readValues(values, network).empty();
}

} // namespace

std::string addressOf(const Network& network) {
    return network.mode == "static" ? network.address : leaseAfter(seconds(0)).address;
}

NetworkTrial::NetworkTrial(Device& device, std::string path, Clock clock)
    : m_device(device), m_path(std::move(path)), m_clock(std::move(clock)) {
    clearReplacement(m_path);
    m_trial = load();
    // A reset at the device, or a power cut before the change was saved, has ended the trial.
    if (m_trial && !isSame(m_trial->tried, m_device.state()->settings.network)) {
        end();
    }
    settle();
}

std::optional<NetworkTrial::Trial> NetworkTrial::load() const {
    const std::optional<std::string> text = readFile(m_path, kMaxTrialBytes);
    if (!text) {
        return std::nullopt;
    }
    pugi::xml_document document;
    Trial trial;
    if (!parseXml(*text, document).empty() ||
        !readNetwork(document.document_element().child("previous"), trial.previous) ||
        !readNetwork(document.document_element().child("tried"), trial.tried)) {
        Journal::getInstance()->error("%s is damaged: the network settings stay as they are",
                                      m_path.c_str());
        return std::nullopt;
    }
    trial.begun = seconds(
        std::strtoll(textOf(document.document_element().child("begun")).c_str(), nullptr, 10));
    return trial;
}

bool NetworkTrial::store(const std::optional<Trial>& trial) const {
    if (!trial) {
        return std::remove(m_path.c_str()) == 0 || errno == ENOENT;
    }
    XmlWriter writer;
    writer.open("networkTrial");
    writer.element("begun", std::to_string(trial->begun.count()));
    writeNetwork(writer, "previous", trial->previous);
    writeNetwork(writer, "tried", trial->tried);
    writer.close("networkTrial");
    return replaceFile(m_path, writer.text());
}

std::optional<NetworkTrial::Trial> NetworkTrial::trialAfter(const Network& before,
                                                            const Network& after) const {
    const Network& confirmed = m_trial ? m_trial->previous : before;
    if (reachOf(after) == reachOf(confirmed)) {
        return std::nullopt;
    }
    const bool goesOn = m_trial && reachOf(after) == reachOf(before);
    return Trial{confirmed, after, goesOn ? m_trial->begun : m_clock()};
}

Outcome NetworkTrial::change(const Device::Edit& edit) {
    const std::lock_guard<std::mutex> lock(m_lock);
    std::optional<Trial> next;
    bool isStored = true;
    Outcome outcome = m_device.change([&](State& state) {
        const Network before = state.settings.network;
        Errors errors = edit(state);
        if (errors.empty()) {
            next = trialAfter(before, state.settings.network);
            // Before the settings, so that a power cut cannot leave a change without its trial.
            isStored = !next || store(next);
        }
        return isStored ? errors : Errors{{"network", ErrorCode::reserved, std::nullopt}};
    });
    if (!isStored) {
        outcome = {{}, true};
    }
    if (!outcome.done()) {
        if (next) {
            store(m_trial);
        }
        return outcome;
    }
    m_trial = std::move(next);
    m_undoneAddress.clear();
    if (!m_trial) {
        end();
    }
    return outcome;
}

void NetworkTrial::settle() {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_trial) {
        return;
    }
    const seconds now = m_clock();
    // The clock of a device that was restarted begins again.
    const bool isOver = now < m_trial->begun || now - m_trial->begun >= kTime;
    if (!isOver || now < m_nextAttempt) {
        return;
    }
    const std::string address = addressOf(m_trial->tried);
    if (rollBack().done()) {
        m_undoneAddress = address;
        Journal::getInstance()->warn("The network change to %s was not confirmed within %d "
                                     "seconds: the previous settings are in use again",
                                     address.c_str(), static_cast<int>(kTime.count()));
    } else {
        m_nextAttempt = now + kRetryTime;
    }
}

std::optional<NetworkTrial::Running> NetworkTrial::running() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_trial) {
        return std::nullopt;
    }
    const seconds remaining = kTime - (m_clock() - m_trial->begun);
    return Running{addressOf(m_trial->tried), std::max(remaining, seconds(0))};
}

bool NetworkTrial::confirm(const std::string& host) {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (!m_trial || host != addressOf(m_trial->tried)) {
        return false;
    }
    end();
    return true;
}

Outcome NetworkTrial::undo() {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_trial ? rollBack() : Outcome();
}

void NetworkTrial::forget() {
    const std::lock_guard<std::mutex> lock(m_lock);
    end();
}

std::string NetworkTrial::undoneAddress() const {
    const std::lock_guard<std::mutex> lock(m_lock);
    return m_undoneAddress;
}

// Call with m_lock held and a trial running.
Outcome NetworkTrial::rollBack() {
    Outcome outcome = m_device.change([&](State& state) {
        state.settings.network = m_trial->previous;
        return Errors();
    });
    if (outcome.done()) {
        end();
    }
    return outcome;
}

// Call with m_lock held.
void NetworkTrial::end() {
    m_trial.reset();
    m_nextAttempt = {};
    store(m_trial);
}

} // namespace phone
