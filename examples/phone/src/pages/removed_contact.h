#ifndef REMOVED_CONTACT_H
#define REMOVED_CONTACT_H

#include "kit/clock.h"
#include "model/directory.h"

#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace phone {

// The contact that a session removed last. It can be restored for some seconds. Thread-safe.
class RemovedContact {
public:
    // Long enough to notice a mistake and to reach the button with a screen reader.
    static constexpr long kSeconds = 30;

    void set(Contact contact) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_contact = std::move(contact);
        m_deadline = kit::clockSeconds() + kSeconds;
    }

    // Returns the contact, or nothing if there is none or its time has passed.
    std::optional<Contact> get() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return kit::clockSeconds() < m_deadline ? m_contact : std::nullopt;
    }

    void clear() {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_contact.reset();
    }

private:
    mutable std::mutex m_lock;
    std::optional<Contact> m_contact; // guarded by m_lock
    long m_deadline = 0;              // guarded by m_lock
};

} // namespace phone

#endif
