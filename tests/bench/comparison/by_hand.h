// What the authors of the other programs have to write themselves, and the kit contains: sessions,
// tokens, escaping, checking text.
#ifndef BY_HAND_H
#define BY_HAND_H

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/random.h>
#include <vector>

constexpr std::size_t kMaxText = 100;  // characters of an item
constexpr std::size_t kMaxItems = 100; // of a list
constexpr std::size_t kMaxSessions = 200;
constexpr std::size_t kMaxJson = 64 * 1024;
constexpr std::size_t kMaxUpload = 4 * 1024 * 1024;
constexpr auto kIdleTime = std::chrono::seconds(180);

// Returns 32 hexadecimal digits made of 128 random bits.
inline std::string randomToken() {
    unsigned char bytes[16];
    std::string token;
    if (getrandom(bytes, sizeof bytes, 0) == static_cast<ssize_t>(sizeof bytes)) {
        for (unsigned char byte : bytes) {
            token += "0123456789abcdef"[byte >> 4];
            token += "0123456789abcdef"[byte & 15];
        }
    }
    return token;
}

// Compares in constant time.
inline bool equalSecrets(std::string_view given, std::string_view expected) {
    bool differ = given.size() != expected.size();
    for (std::size_t i = 0; i < expected.size(); ++i) {
        differ |= (expected[i] ^ (i < given.size() ? given[i] : '\0')) != 0;
    }
    return !differ && !expected.empty();
}

inline std::string escapedHtml(std::string_view text) {
    std::string escaped;
    for (char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

// Returns the number of characters of a line of UTF-8 without control characters; 0 for any other.
inline std::size_t lineLength(std::string_view text) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++characters) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (lead < 0x20 || lead == 0x7F || (lead >= 0x80 && lead < 0xC2) || lead > 0xF4 ||
            i + size > text.size()) {
            return 0;
        }
        char32_t point = size == 1 ? lead : lead & (0x7FU >> size);
        for (std::size_t k = 1; k < size; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return 0;
            }
            point = point << 6 | (next & 0x3F);
        }
        const bool isC1 = point >= 0x80 && point < 0xA0;
        const bool isLong = (size == 3 && point < 0x800) || (size == 4 && point < 0x10000);
        if (isC1 || isLong || (point >= 0xD800 && point < 0xE000) || point > 0x10FFFF) {
            return 0;
        }
        i += size;
    }
    return characters;
}

// The to-do list of one visitor.
struct Session {
    std::string token = randomToken();
    std::mutex lock;
    std::vector<std::string> items;
    std::chrono::steady_clock::time_point lastUse; // guarded by the lock of Sessions
};

class Sessions {
public:
    // Returns the session with this id, or null.
    std::shared_ptr<Session> find(const std::string& id) {
        const std::lock_guard<std::mutex> guard(m_lock);
        const auto now = std::chrono::steady_clock::now();
        const auto found = m_sessions.find(id);
        if (found == m_sessions.end() || now - found->second->lastUse >= kIdleTime) {
            return nullptr;
        }
        found->second->lastUse = now;
        return found->second;
    }

    // Creates a session. Returns its id.
    std::string create() {
        const std::lock_guard<std::mutex> guard(m_lock);
        const auto now = std::chrono::steady_clock::now();
        auto oldest = m_sessions.end();
        for (auto one = m_sessions.begin(); one != m_sessions.end();) {
            if (now - one->second->lastUse >= kIdleTime) {
                one = m_sessions.erase(one);
                continue;
            }
            if (oldest == m_sessions.end() || one->second->lastUse < oldest->second->lastUse) {
                oldest = one;
            }
            ++one;
        }
        if (m_sessions.size() >= kMaxSessions) {
            m_sessions.erase(oldest);
        }
        const std::string id = randomToken();
        auto session = std::make_shared<Session>();
        session->lastUse = now;
        m_sessions[id] = session;
        return id;
    }

private:
    std::mutex m_lock;
    std::map<std::string, std::shared_ptr<Session>> m_sessions;
};

// Returns the page; `session` may be null.
inline std::string todoPage(Session* session, const std::string& token, std::string_view entered,
                            const std::string& problem) {
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
                       "<title>To do</title>\n<h1>To do</h1>\n<ul>\n";
    if (session) {
        const std::lock_guard<std::mutex> guard(session->lock);
        for (const std::string& item : session->items) {
            page += "<li>" + escapedHtml(item) + "</li>\n";
        }
    }
    page += "</ul>\n<form method=\"post\">\n<input type=\"hidden\" name=\"token\" value=\"" +
            token + "\">\n<input name=\"text\" value=\"" + escapedHtml(entered) + "\">\n";
    if (!problem.empty()) {
        page += "<p role=\"alert\">The text " + problem + ".</p>\n";
    }
    return page + "<button>Add</button>\n</form>\n</html>\n";
}

// Adds an item. Returns what is wrong, or an empty text.
inline std::string addItem(Session& session, const std::string& text) {
    const std::size_t length = lineLength(text);
    if (text.empty()) {
        return "is missing";
    }
    if (length == 0) {
        return "contains characters that are not allowed";
    }
    if (length > kMaxText) {
        return "is too long";
    }
    const std::lock_guard<std::mutex> guard(session.lock);
    if (session.items.size() >= kMaxItems) {
        return "does not fit: the list is full";
    }
    session.items.push_back(text);
    return "";
}

// A part of the headers that every page of the kit has.
constexpr const char* kContentPolicy = "default-src 'self'; base-uri 'none'; form-action 'self'; "
                                       "frame-ancestors 'none'; object-src 'none'";

#endif
