// Builds a JSON value from the events of a parser; json_body.h has the parser.
#ifndef KIT_JSON_BUILDER_H
#define KIT_JSON_BUILDER_H

#include "base/utf8.h"
#include "kit/json.h"
#include "kit/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kit::internal {

// Returns "line L, column C" for the byte at `offset`; columns count characters.
inline std::string placeIn(std::string_view text, std::size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t lineBegin = before.rfind('\n') + 1; // npos + 1 is 0
    const std::string_view line = before.substr(lineBegin);
    const auto isLead = [](char byte) { return !base::isUtf8Continuation(byte); };
    const auto column = std::count_if(line.begin(), line.end(), isLead);
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(column + 1);
}

// Builds a value from the parser's events. Each function returns false to end the parsing.
class JsonBuilder {
public:
    explicit JsonBuilder(std::size_t maxDepth) : m_maxDepth(maxDepth) {}

    bool null() { return add(nullptr); }
    bool boolean(bool value) { return add(value); }
    bool number_integer(std::int64_t value) { return add(value); }
    bool number_unsigned(std::uint64_t value) { return add(value); }
    bool number_float(double value, const std::string&) { return add(value); }
    bool string(std::string& text) { return add(std::move(text)); }
    template <typename Binary>
    bool binary(Binary&) {
        return false; // JSON has none
    }

    bool start_array(std::size_t) { return open(Json::array()); }
    bool end_array() { return close(); }
    bool start_object(std::size_t) { return open(Json::object()); }
    bool key(std::string& name) {
        m_name = std::move(name);
        return true;
    }
    bool end_object() { return hasUniqueNames() && close(); }

    template <typename Exception>
    bool parse_error(std::size_t position, const std::string&, const Exception& error) {
        m_errorOffset = position > 0 ? position - 1 : 0;
        m_error = reasonIn(error.what());
        return false;
    }

    // Returns what is wrong with `text`, which has been parsed, and where.
    std::string errorIn(std::string_view text) const {
        const std::string place = m_path.empty() ? placeIn(text, m_errorOffset) : m_path;
        return std::string(shortened(place, kMaxPlaceBytes)) + ": " + m_error;
    }
    Json takeRoot() { return std::move(m_root); }

private:
    static constexpr std::size_t kMaxPlaceBytes = 100;

    bool add(Json value) {
        place(std::move(value));
        return true;
    }

    // Stores the value where it belongs and returns it there.
    Json& place(Json value) {
        if (m_open.empty()) {
            return m_root = std::move(value);
        }
        if (auto* elements = std::get_if<Json::Elements>(&m_open.back()->m_value)) {
            return elements->emplace_back(std::move(value));
        }
        auto& members = *std::get_if<Json::Members>(&m_open.back()->m_value);
        return members.emplace_back(std::move(m_name), std::move(value)).second;
    }

    bool open(Json container) {
        if (m_open.size() == m_maxDepth) {
            return fail("more than " + std::to_string(m_maxDepth) + " levels deep");
        }
        m_open.push_back(&place(std::move(container)));
        return true;
    }

    bool close() {
        m_open.pop_back();
        return true;
    }

    // Other programs take the first or the last of two members with one name, which an attacker
    // could use to show each of them another value.
    bool hasUniqueNames() {
        const auto& members = *std::get_if<Json::Members>(&m_open.back()->m_value);
        std::vector<std::string_view> names;
        names.reserve(members.size());
        for (const auto& [name, value] : members) {
            names.emplace_back(name);
        }
        std::sort(names.begin(), names.end());
        const auto twice = std::adjacent_find(names.begin(), names.end());
        if (twice == names.end()) {
            return true;
        }
        m_name = *twice;
        return fail("this name occurs twice");
    }

    bool fail(std::string error) {
        m_path = path();
        m_error = std::move(error);
        return false;
    }

    // Returns where the parser is, such as "tasks[2].title".
    std::string path() const {
        std::string path;
        for (std::size_t i = 0; i < m_open.size() && path.size() < kMaxPlaceBytes; ++i) {
            const bool isInnermost = i + 1 == m_open.size();
            if (const auto* elements = std::get_if<Json::Elements>(&m_open[i]->m_value)) {
                path += "[" + std::to_string(elements->size() - (isInnermost ? 0 : 1)) + "]";
            } else {
                const auto& members = *std::get_if<Json::Members>(&m_open[i]->m_value);
                path += (path.empty() ? "" : ".") + (isInnermost ? m_name : members.back().first);
            }
        }
        return path;
    }

    // Returns the parser's reason without its place and without what the client sent.
    static std::string reasonIn(std::string_view what) {
        constexpr std::string_view kBegin = "syntax error ";
        const std::size_t begin = what.find(kBegin);
        const std::string_view reason =
            begin == what.npos ? what : what.substr(begin + kBegin.size());
        return std::string(reason.substr(0, reason.find("; last read")));
    }

    const std::size_t m_maxDepth;
    Json m_root;
    std::vector<Json*> m_open; // the innermost last; none moves while it is open
    std::string m_name;        // of the member that comes next in the innermost object
    std::string m_error;
    std::string m_path;            // of the error; empty for one of the syntax
    std::size_t m_errorOffset = 0; // of an error of the syntax
};

} // namespace kit::internal

#endif
