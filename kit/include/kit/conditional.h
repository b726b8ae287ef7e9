// Conditional requests and ranges (RFC 9110, sections 8.8, 13 and 14): whether the browser has
// what it asks for already, and which part of it it wants.
#ifndef KIT_CONDITIONAL_H
#define KIT_CONDITIONAL_H

#include "base/ascii.h"
#include "kit/http_date.h"
#include "kit/request.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace kit::internal {

// What distinguishes one version of a page or file from the others.
struct Validators {
    std::string entityTag; // as the header ETag contains it: "…" or W/"…"
    std::optional<std::time_t> lastModified{};
};

// What the conditions of a request result in.
enum class Condition { Met, NotModified, Failed };

inline bool isWeak(std::string_view entityTag) {
    return entityTag.substr(0, 2) == "W/";
}

// Returns whether the two are the same, whether weak or not.
inline bool matchWeakly(std::string_view one, std::string_view other) {
    const auto opaque = [](std::string_view tag) { return tag.substr(isWeak(tag) ? 2 : 0); };
    return opaque(one) == opaque(other);
}

// Returns whether the two are the same and neither is weak.
inline bool matchStrongly(std::string_view one, std::string_view other) {
    return one == other && !isWeak(one);
}

// Returns whether `list`, the value of If-Match or If-None-Match, has an entity tag for which
// `matches(tag)` is true, or is "*". Ignores everything from the first syntax error on.
template <typename Matches>
bool hasEntityTag(std::string_view list, Matches matches) {
    if (list == "*") {
        return true;
    }
    for (;;) {
        list.remove_prefix(std::min(list.find_first_not_of(" \t,"), list.size()));
        const std::size_t open = isWeak(list) ? 2 : 0;
        if (list.size() <= open || list[open] != '"') {
            return false;
        }
        const std::size_t close = list.find('"', open + 1);
        if (close == list.npos) {
            return false;
        }
        if (matches(list.substr(0, close + 1))) {
            return true;
        }
        list.remove_prefix(close + 1);
    }
}

// Returns whether the method is GET or HEAD: conditions of others are ignored.
inline bool isReading(Request& request) {
    return request.method() == "GET" || request.method() == "HEAD";
}

// Evaluates the conditions of a GET or HEAD request in the order of RFC 9110, section 13.2.2. A
// date that cannot be read is ignored, and so are dates if `validators` has none.
inline Condition conditionOf(Request& request, const Validators& validators) {
    const auto dateOf = [&](const char* name) -> std::optional<std::time_t> {
        const auto text = request.variable(name);
        return text && validators.lastModified ? readHttpDate(*text) : std::nullopt;
    };
    if (const auto tags = request.variable("HTTP_IF_MATCH")) {
        const auto matches = [&](std::string_view tag) {
            return matchStrongly(tag, validators.entityTag);
        };
        if (!hasEntityTag(*tags, matches)) {
            return Condition::Failed;
        }
    } else if (const auto date = dateOf("HTTP_IF_UNMODIFIED_SINCE")) {
        if (*validators.lastModified > *date) {
            return Condition::Failed;
        }
    }
    if (const auto tags = request.variable("HTTP_IF_NONE_MATCH")) {
        const auto matches = [&](std::string_view tag) {
            return matchWeakly(tag, validators.entityTag);
        };
        return hasEntityTag(*tags, matches) ? Condition::NotModified : Condition::Met;
    }
    const auto date = dateOf("HTTP_IF_MODIFIED_SINCE");
    return date && *validators.lastModified <= *date ? Condition::NotModified : Condition::Met;
}

// A part of a file. Without any bytes, it is one that the file does not have.
struct ByteRange {
    std::uint64_t begin;
    std::uint64_t size;
};

// Reads a position in a file; one that does not fit into 64 bits lies behind every file.
inline std::optional<std::uint64_t> readPosition(std::string_view digits) {
    std::uint64_t position = 0;
    const char* end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, position);
    if (digits.empty() || rest != end || error == std::errc::invalid_argument) {
        return std::nullopt;
    }
    return error == std::errc() ? position : UINT64_MAX;
}

// Returns the part that `header`, the value of Range, asks for of a file with `size` bytes, or
// nothing if all of it is to be sent: for several ranges, for an empty file, for other units than
// bytes, and for a value with an error.
inline std::optional<ByteRange> readRange(std::string_view header, std::uint64_t size) {
    constexpr std::string_view kUnit = "bytes=";
    const std::size_t dash = header.find('-');
    if (!base::equalsIgnoringCase(header.substr(0, kUnit.size()), kUnit) || dash == header.npos ||
        size == 0) {
        return std::nullopt;
    }
    const std::string_view before = header.substr(kUnit.size(), dash - kUnit.size());
    const std::string_view after = header.substr(dash + 1);
    const auto first = readPosition(before);
    const auto last = readPosition(after);
    if (before.empty() && last) { // "-500": the last 500 bytes
        const std::uint64_t count = std::min(*last, size);
        return ByteRange{size - count, count};
    }
    if (!first || !(last || after.empty()) || (last && *last < *first)) {
        return std::nullopt;
    }
    if (*first >= size) {
        return ByteRange{0, 0};
    }
    return ByteRange{*first, std::min(last.value_or(UINT64_MAX), size - 1) - *first + 1};
}

// Returns the part of a file with `size` bytes that the request asks for, as readRange() does.
// If-Range with a date never holds: the file may have changed twice in that second (RFC 9110,
// section 8.8.2.2).
inline std::optional<ByteRange> rangeOf(Request& request, const Validators& validators,
                                        std::uint64_t size) {
    const auto range = request.variable("HTTP_RANGE");
    const auto tag = request.variable("HTTP_IF_RANGE");
    if (!range || request.method() != "GET" ||
        (tag && !matchStrongly(*tag, validators.entityTag))) {
        return std::nullopt;
    }
    return readRange(*range, size);
}

} // namespace kit::internal

#endif
