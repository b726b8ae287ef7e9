#include "model/state_store.h"

#include "model/atomic_file.h"
#include "model/checksum.h"
#include "model/journal.h"
#include "model/state_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace phone {
namespace {

// Renames a damaged file so that it can be examined. Returns its new path.
std::string renameDamaged(const std::string& path) {
    std::string aside = path + ".damaged";
    std::rename(path.c_str(), aside.c_str());
    return aside;
}

// Returns the text of a file, empty if it is too large to be valid, or nothing if it is missing.
std::optional<std::string> textOfFile(const std::string& path) {
    clearReplacement(path);
    std::optional<std::string> text = readFile(path, kMaxStateBytes);
    if (!text && errno == EFBIG) {
        return std::string();
    }
    if (!text && errno != ENOENT) {
        // The file may be valid: it must not be replaced.
        throw std::runtime_error("Cannot read " + path + ": " + std::strerror(errno));
    }
    return text;
}

} // namespace

StateStore::StateStore(std::string path)
    : m_path(std::move(path)), m_changes(m_path.substr(0, m_path.rfind('/') + 1) + "changes.xml") {}

std::unique_ptr<State> StateStore::load() {
    const std::optional<std::string> text = textOfFile(m_path);
    if (!text) {
        return nullptr;
    }
    std::optional<State> state = readState(*text);
    if (!state) {
        Journal::getInstance()->error("%s is damaged: renamed to %s; using factory settings",
                                      m_path.c_str(), renameDamaged(m_path).c_str());
        return nullptr;
    }
    Base base{checksumOf(*text), state->settings};
    loadChanges(base.checksum, state->settings);
    auto loaded = std::make_unique<State>(std::move(*state));
    // The password that an earlier version has stored here must go with the next save.
    if (base.settings.web.passwordHash.empty()) {
        m_base = std::move(base);
    }
    return loaded;
}

void StateStore::loadChanges(unsigned long checksum, Settings& settings) const {
    const std::optional<std::string> text = textOfFile(m_changes);
    if (!text) {
        return;
    }
    switch (readChanges(*text, checksum, settings)) {
    case ChangesRead::done:
        break;
    case ChangesRead::ofAnotherState:
        Journal::getInstance()->info("Removed %s, which belongs to an earlier %s",
                                     m_changes.c_str(), m_path.c_str());
        unlink(m_changes.c_str());
        break;
    case ChangesRead::damaged:
        Journal::getInstance()->error(
            "%s is damaged: renamed to %s; using the settings of the state file", m_changes.c_str(),
            renameDamaged(m_changes).c_str());
        break;
    }
}

bool StateStore::isSaved(const State& state, const State* saved) const {
    return m_base && saved != nullptr && isSameButForSettings(state, *saved) &&
           settingsText(state.settings) == settingsText(saved->settings);
}

bool StateStore::save(const State& state, const State* saved) {
    const bool isSmall = m_base && saved != nullptr && isSameButForSettings(state, *saved) &&
                         haveRoom(state.settings);
    return isSmall ? replaceFile(m_changes,
                                 changesText(m_base->checksum, m_base->settings, state.settings))
                   : saveAll(state);
}

bool StateStore::haveRoom(const Settings& settings) const {
    Settings others = settings;
    others.audio = m_base->settings.audio;
    return changesText(m_base->checksum, m_base->settings, others).size() <=
           kMaxChangesBytes - kAudioBytes;
}

bool StateStore::saveAll(const State& state) {
    const std::string text = stateText(state);
    std::optional<Base> base(Base{checksumOf(text), state.settings});
    if (!m_base) {
        // Remove them first: they would count again if `text` is what they belong to.
        clearReplacement(m_changes);
        unlink(m_changes.c_str());
    }
    if (!replaceFile(m_path, text)) {
        return false;
    }
    // Nothing may fail from here on.
    m_base.swap(base);
    unlink(m_changes.c_str());
    return true;
}

} // namespace phone
