#include "model/password_store.h"

#include "model/atomic_file.h"
#include "model/checksum.h"
#include "model/journal.h"
#include "model/password.h"

#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace phone {
namespace {

constexpr std::size_t kMaxFileBytes = 1024;

struct Record {
    unsigned long number = 0;
    Credentials credentials;
};

// One entry on each line; the last one is the checksum of those before it.
std::string fileTextOf(const Record& record) {
    std::ostringstream text;
    text << record.number << '\n'
         << (record.credentials.isFactoryPassword ? "factory" : "own") << '\n'
         << record.credentials.user << '\n'
         << record.credentials.hash << '\n';
    return text.str() + std::to_string(checksumOf(text.str())) + '\n';
}

std::optional<Record> recordIn(const std::string& text) {
    std::istringstream lines(text);
    std::string kind;
    Record record;
    lines >> record.number >> kind;
    lines.ignore();
    std::getline(lines, record.credentials.user);
    std::getline(lines, record.credentials.hash);
    record.credentials.isFactoryPassword = kind == "factory";
    const bool isWhole = lines && text == fileTextOf(record) &&
                         isPasswordHash(record.credentials.hash) &&
                         !record.credentials.user.empty();
    return isWhole ? std::optional<Record>(std::move(record)) : std::nullopt;
}

bool mayBeReadLater(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EINTR;
}

std::optional<Record> recordOf(const std::string& path) {
    const std::optional<std::string> text = readFile(path, kMaxFileBytes);
    if (!text && mayBeReadLater(errno)) {
        throw std::runtime_error("Cannot read " + path + ": " + std::strerror(errno));
    }
    auto record = text ? recordIn(*text) : std::nullopt;
    if (!record && (text || errno != ENOENT)) {
        Journal::getInstance()->error("%s is damaged or cannot be read", path.c_str());
    }
    return record;
}

} // namespace

std::optional<Credentials> PasswordStore::load() {
    std::optional<Record> records[2];
    for (int i : {0, 1}) {
        clearReplacement(file(i));
        records[i] = recordOf(file(i));
    }
    const auto numberOf = [&](int i) { return records[i] ? records[i]->number : 0; };
    m_newer = numberOf(0) > numberOf(1) ? 0 : 1;
    const std::optional<Record>& newest = records[m_newer];
    m_number = numberOf(m_newer);
    m_stored = newest ? std::optional<Credentials>(newest->credentials) : std::nullopt;
    if (newest && numberOf(0) != numberOf(1)) {
        replaceFile(file(1 - m_newer), fileTextOf(*newest));
    }
    return m_stored;
}

bool PasswordStore::save(const Credentials& credentials) {
    if (m_stored && *m_stored == credentials) {
        return true;
    }
    const int older = 1 - m_newer;
    const std::string text = fileTextOf({m_number + 1, credentials});
    std::optional<Credentials> stored = credentials; // nothing may fail after writing
    if (!replaceFile(file(older), text)) {
        return false;
    }
    m_stored.swap(stored);
    ++m_number;
    m_newer = older;
    // If this fails, which is logged, the newer file counts.
    replaceFile(file(1 - older), text);
    return true;
}

} // namespace phone
