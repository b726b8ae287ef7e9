// Data that a plug-in keeps for each session.
//
//     kit::SessionData<Cart> carts("cart");
//     ...
//     carts.findOrCreate(*session)->add(item);
//
// The container stores only a pointer in a session and never deletes what it points to. A
// SessionData object owns the data, finds it by session, and frees it after the session has ended.
#ifndef KIT_SESSION_DATA_H
#define KIT_SESSION_DATA_H

#include "HttpRequest.h"
#include "HttpSession.h"
#include "kit/clock.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kit {

// The part of SessionData that does not depend on the type of the data. The container does not tell
// plug-ins that a session ended, so each entry stores a deadline: every request of the session that
// reaches a kit::Page or kit::Listener of this library extends it, and later requests free the
// entries whose deadline has passed. A library that also has servlets without the kit needs a
// kit::Listener, which sees every request.
class SessionTable {
public:
    SessionTable(const SessionTable&) = delete;
    SessionTable& operator=(const SessionTable&) = delete;

    // Extends the deadline of the request's session in every table of this library, and frees
    // expired entries. Pages and listeners of the kit call it for each request.
    static void refreshAll(HttpRequest& request) {
        std::vector<Entry> expired; // freed after the lock is released
        Registry& all = registry();
        std::lock_guard<std::mutex> guard(all.lock);
        if (all.tables.empty()) {
            return;
        }
        HttpSession* session = request.getSession(false);
        for (SessionTable* table : all.tables) {
            table->sweep(expired);
            if (session) {
                table->refresh(*session);
            }
        }
    }

    // Creates the list of tables. Call before creating an object that may contain a table, so that
    // the list is destroyed after all tables.
    static void prepare() { registry(); }

    // Returns how many sessions have data here, including expired ones that are not freed yet.
    std::size_t size() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_entries.size();
    }

protected:
    // Data of the type that the derived class knows.
    using Data = std::shared_ptr<void>;

    // The data of one session.
    struct Entry {
        Data data;         // null: none yet
        long interval = 0; // the session's time-out in seconds
        long deadline = 0; // of clockSeconds(); the session has ended by then
    };

    // `attribute` is the name of the session attribute that points to the data.
    explicit SessionTable(std::string attribute) : m_attribute(std::move(attribute)) {
        std::lock_guard<std::mutex> guard(registry().lock);
        registry().tables.push_back(this);
    }

    ~SessionTable() {
        std::lock_guard<std::mutex> guard(registry().lock);
        auto& tables = registry().tables;
        tables.erase(std::remove(tables.begin(), tables.end(), this), tables.end());
    }

    // Returns the session's data, or null.
    Data find(HttpSession& session) const {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_entries.find(session.getId());
        return found != m_entries.end() && isOf(session, found->second) ? found->second.data
                                                                        : Data();
    }

    // Returns the session's data; stores `fresh`, which must not be null, if it has none.
    Data findOrPut(HttpSession& session, Data fresh) {
        assert(fresh && "`fresh` must not be null");
        Data stale; // freed after the lock is released
        std::lock_guard<std::mutex> guard(m_lock);
        Entry& entry = m_entries[session.getId()];
        if (!isOf(session, entry)) {
            stale = std::exchange(entry.data, std::move(fresh));
            session.setAttribute(m_attribute.c_str(), entry.data.get());
        }
        setDeadline(entry, session);
        return entry.data;
    }

    // Removes the session's data.
    void eraseSession(HttpSession& session) {
        Entry erased; // freed after the lock is released
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_entries.find(session.getId());
        if (found != m_entries.end()) {
            erased = std::move(found->second);
            m_entries.erase(found);
        }
        session.removeAttribute(m_attribute.c_str());
    }

    // Returns the data of all sessions, in no particular order.
    std::vector<Data> allData() const {
        std::vector<Data> all;
        std::lock_guard<std::mutex> guard(m_lock);
        for (const auto& [id, entry] : m_entries) {
            all.push_back(entry.data);
        }
        return all;
    }

    // Moves the entries for which `predicate(entry)` is true to the end of `extracted`; the
    // sessions themselves stay. The caller frees them after releasing its locks. The predicate must
    // not use the table, which is locked.
    template <typename Predicate>
    void extractIf(Predicate predicate, std::vector<Entry>& extracted) {
        std::lock_guard<std::mutex> guard(m_lock);
        for (auto entry = m_entries.begin(); entry != m_entries.end();) {
            if (predicate(entry->second)) {
                extracted.push_back(std::move(entry->second));
                entry = m_entries.erase(entry);
            } else {
                ++entry;
            }
        }
    }

private:
    struct Registry {
        std::mutex lock;
        std::vector<SessionTable*> tables;
    };

    static Registry& registry() {
        static Registry all;
        return all;
    }

    // Compares pointers, since a later session can have the id of one that has ended.
    bool isOf(HttpSession& session, const Entry& entry) const {
        return entry.data && session.getAttribute(m_attribute.c_str()) == entry.data.get();
    }

    static void setDeadline(Entry& entry, HttpSession& session) {
        entry.interval = std::max(session.getMaxInactiveInterval(), 0);
        entry.deadline = clockSeconds() + entry.interval;
    }

    void refresh(HttpSession& session) {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_entries.find(session.getId());
        if (found != m_entries.end() && isOf(session, found->second)) {
            setDeadline(found->second, session);
        }
    }

    // Extracts the expired entries; works at most once a second. Data that is in use outside the
    // table belongs to a request in progress, whose session the container keeps alive.
    void sweep(std::vector<Entry>& expired) {
        const long now = clockSeconds();
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (now == m_lastSweep) {
                return;
            }
            m_lastSweep = now;
        }
        const auto isExpired = [now](Entry& entry) {
            if (entry.data.use_count() > 1) {
                entry.deadline = now + entry.interval;
            }
            return now > entry.deadline;
        };
        extractIf(isExpired, expired);
    }

    const std::string m_attribute;
    mutable std::mutex m_lock;
    std::unordered_map<std::string, Entry> m_entries; // by session id; guarded by m_lock
    long m_lastSweep = 0;                             // guarded by m_lock
};

// Keeps one T for each session that needs one.
//   Lifetime  make it static, or a member of a page or of a static object, so that it lives as long
//             as the plug-in library. A T is freed by a request that follows the end of its
//             session, or by erase() or eraseIf(); a shared_ptr to it keeps it longer.
//   Threads   any. Requests of one session share its T and run at the same time, so T's own
//             operations must be thread-safe. A T's destructor may run during any request: it must
//             return soon.
template <typename T>
class SessionData : public SessionTable {
public:
    // `attribute` is the name of the session attribute that points to the T. Each SessionData needs
    // a name of its own.
    explicit SessionData(std::string attribute) : SessionTable(std::move(attribute)) {}

    // Returns the session's T; creates it with T() if there is none. Never null.
    std::shared_ptr<T> findOrCreate(HttpSession& session) {
        auto found = find(session);
        return found ? found : put(session, std::make_shared<T>());
    }

    // Returns the session's T, or null if there is none.
    std::shared_ptr<T> find(HttpSession& session) const {
        return std::static_pointer_cast<T>(SessionTable::find(session));
    }

    // Stores `data`, which must not be null, if the session has no T. Returns the session's T,
    // which is the earlier one if there was one.
    std::shared_ptr<T> put(HttpSession& session, std::shared_ptr<T> data) {
        assert(data && "`data` must not be null");
        return std::static_pointer_cast<T>(findOrPut(session, std::move(data)));
    }

    // Removes the session's T, if there is one.
    void erase(HttpSession& session) { eraseSession(session); }

    // Returns the T of every session, in no particular order, including those of expired sessions
    // that are not freed yet.
    std::vector<std::shared_ptr<T>> all() const {
        std::vector<std::shared_ptr<T>> found;
        for (const Data& data : allData()) {
            found.push_back(std::static_pointer_cast<T>(data));
        }
        return found;
    }

    // Removes every T for which `predicate(const T&)` is true. The predicate must not use this
    // object, which is locked.
    template <typename Predicate>
    void eraseIf(Predicate predicate) {
        std::vector<Entry> erased;
        const auto matches = [&](const Entry& entry) {
            return predicate(*static_cast<const T*>(entry.data.get()));
        };
        extractIf(matches, erased);
    }
};

} // namespace kit

#endif
