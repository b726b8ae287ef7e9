// Data of a plug-in's own for each session.
//
//     kit::SessionData<Cart> carts("cart");
//     ...
//     carts.of(*session)->add(item);
//
// The container stores a pointer in a session and never deletes what it points to. This owns the
// data, finds it by session, and frees it when the session has gone.
#ifndef KIT_SESSION_DATA_H
#define KIT_SESSION_DATA_H

#include "HttpRequest.h"
#include "HttpSession.h"
#include "kit/clock.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kit {

// What all tables have in common, whatever they hold. A session gives no word when it ends, so an
// entry has the time up to which its session can live: every request that reaches a page or a
// listener of this library refreshes it, and what is past its time goes with a later request. A
// plug-in library that has servlets of another kind too has one kit::Listener, which sees all.
class SessionTable {
public:
    SessionTable(const SessionTable&) = delete;
    SessionTable& operator=(const SessionTable&) = delete;

    // The request's session lives on, in every table of this library.
    static void refreshAll(HttpRequest& request) {
        std::vector<Entry> gone; // freed after the lock is given back
        Registry& all = registry();
        std::lock_guard<std::mutex> guard(all.lock);
        if (all.tables.empty()) {
            return;
        }
        HttpSession* session = request.getSession(false);
        for (SessionTable* table : all.tables) {
            table->sweep(gone);
            if (session) {
                table->refresh(*session);
            }
        }
    }

    // Called before anything is made that may hold a table, so that it outlives them all.
    static void prepare() { registry(); }

    // The sessions that have data here.
    std::size_t size() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_entries.size();
    }

protected:
    // What a table holds for one session; the table of a type knows which.
    using Data = std::shared_ptr<void>;

    // One session's.
    struct Entry {
        Data data;         // null: none yet
        long interval = 0; // seconds
        long deadline = 0; // the session's end is not after this second of the clock
    };

    // `attribute` is the name under which sessions point to what they have here.
    explicit SessionTable(std::string attribute) : m_attribute(std::move(attribute)) {
        std::lock_guard<std::mutex> guard(registry().lock);
        registry().tables.push_back(this);
    }

    ~SessionTable() {
        std::lock_guard<std::mutex> guard(registry().lock);
        auto& tables = registry().tables;
        tables.erase(std::remove(tables.begin(), tables.end(), this), tables.end());
    }

    // What the session has, or null.
    Data find(HttpSession& session) const {
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_entries.find(session.getId());
        return found != m_entries.end() && isOf(session, found->second) ? found->second.data
                                                                        : Data();
    }

    // What the session has, or else `fresh` from now on.
    Data findOrPut(HttpSession& session, Data fresh) {
        Data stale;
        std::lock_guard<std::mutex> guard(m_lock);
        Entry& entry = m_entries[session.getId()];
        if (!isOf(session, entry)) {
            stale = std::exchange(entry.data, std::move(fresh));
            session.setAttribute(m_attribute.c_str(), entry.data.get());
        }
        setDeadline(entry, session);
        return entry.data;
    }

    // The session has nothing from now on.
    void eraseSession(HttpSession& session) {
        Entry erased;
        std::lock_guard<std::mutex> guard(m_lock);
        const auto found = m_entries.find(session.getId());
        if (found != m_entries.end()) {
            erased = std::move(found->second);
            m_entries.erase(found);
        }
        session.removeAttribute(m_attribute.c_str());
    }

    // Every session's, in no order.
    std::vector<Data> everyData() const {
        std::vector<Data> all;
        std::lock_guard<std::mutex> guard(m_lock);
        for (const auto& [id, entry] : m_entries) {
            all.push_back(entry.data);
        }
        return all;
    }

    // Moves to `erased` what `unwanted(entry)` is true for; the sessions live on without. It is the
    // caller's to free, without a lock.
    template <typename Test>
    void eraseWhere(Test unwanted, std::vector<Entry>& erased) {
        std::lock_guard<std::mutex> guard(m_lock);
        for (auto entry = m_entries.begin(); entry != m_entries.end();) {
            if (unwanted(entry->second)) {
                erased.push_back(std::move(entry->second));
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

    // A session's id can come again when the session has gone; what it pointed to does not.
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

    // At most once a second. Data that somebody holds belongs to a request that is being served:
    // the container keeps its session alive, however long it takes.
    void sweep(std::vector<Entry>& gone) {
        const long now = clockSeconds();
        {
            std::lock_guard<std::mutex> guard(m_lock);
            if (now == m_lastSweep) {
                return;
            }
            m_lastSweep = now;
        }
        const auto isPast = [now](Entry& entry) {
            if (entry.data.use_count() > 1) {
                entry.deadline = now + entry.interval;
            }
            return now > entry.deadline;
        };
        eraseWhere(isPast, gone);
    }

    const std::string m_attribute;
    mutable std::mutex m_lock;
    std::unordered_map<std::string, Entry> m_entries; // by session id; guarded by m_lock
    long m_lastSweep = 0;                             // guarded by m_lock
};

// One T for each session that asks for it.
//   Lifetime  as long as the plug-in library: a static object, or part of one. A T lives until its
//             session has gone or erase() takes it away, and longer while somebody holds it.
//   Threads   any; requests of one session share its T, whose own operations must allow for that.
template <typename T>
class SessionData : public SessionTable {
public:
    // `attribute` is the name under which sessions show their T to others who know the type.
    explicit SessionData(std::string attribute) : SessionTable(std::move(attribute)) {}

    // The session's T, made with T() the first time. Never null.
    std::shared_ptr<T> of(HttpSession& session) {
        auto found = find(session);
        return found ? found : put(session, std::make_shared<T>());
    }

    // Null when it has none.
    std::shared_ptr<T> find(HttpSession& session) const {
        return std::static_pointer_cast<T>(SessionTable::find(session));
    }

    // Gives a session that has none its T; the T that it has from now on.
    std::shared_ptr<T> put(HttpSession& session, std::shared_ptr<T> data) {
        return std::static_pointer_cast<T>(findOrPut(session, std::move(data)));
    }

    // Takes the session's T away.
    void erase(HttpSession& session) { eraseSession(session); }

    // Every session's, in no order.
    std::vector<std::shared_ptr<T>> all() const {
        std::vector<std::shared_ptr<T>> found;
        for (const Data& data : everyData()) {
            found.push_back(std::static_pointer_cast<T>(data));
        }
        return found;
    }

    // Takes away every T for which `unwanted(const T&)` is true.
    template <typename Test>
    void eraseIf(Test unwanted) {
        std::vector<Entry> erased;
        const auto isUnwanted = [&](const Entry& entry) {
            return unwanted(*static_cast<const T*>(entry.data.get()));
        };
        eraseWhere(isUnwanted, erased);
    }
};

} // namespace kit

#endif
