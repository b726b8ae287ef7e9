// JSON values (RFC 8259): building, writing and examining them.
//
//     response.json({{"name", phone.model()}, {"lines", lines.size()}, {"codecs", {"opus",
//     "g722"}}});
//
// readJson() in json_body.h reads one from a request.
#ifndef KIT_JSON_H
#define KIT_JSON_H

#include "base/utf8.h"
#include "kit/reading.h"

#include <cassert>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace kit {

class Json;

namespace internal {

class JsonBuilder;
class JsonItem;

template <typename T, typename = void>
inline constexpr bool kIsRange = false;
template <typename T>
inline constexpr bool kIsRange<T, std::void_t<decltype(std::begin(std::declval<const T&>()))>> =
    true;

template <typename T, typename = void>
inline constexpr bool kIsMap = false;
template <typename T>
inline constexpr bool kIsMap<T, std::void_t<typename T::key_type, typename T::mapped_type>> = true;

template <typename T>
inline constexpr bool kIsOptional = false;
template <typename T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

template <typename T>
inline constexpr bool kIsText = std::is_convertible_v<const T&, std::string_view>;

// A single character is neither a number nor a text: char(7) or "7"?
template <typename T>
inline constexpr bool kIsCharacter = std::is_same_v<T, char> || std::is_same_v<T, wchar_t> ||
                                     std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

// Whether toJson(), beside the type, converts it.
template <typename T, typename = void>
inline constexpr bool kHasToJson = false;
template <typename T>
inline constexpr bool
    kHasToJson<T, std::void_t<std::enable_if_t<std::is_class_v<T> || std::is_enum_v<T>>,
                              decltype(toJson(std::declval<const T&>()))>> = true;

} // namespace internal

// One JSON value: null, a bool, a number, a text, an array, or an object, which keeps the order of
// its members.
//   Building  implicit from bools, numbers, texts, std::optional (null without a value), maps with
//             texts as keys, and other ranges. A type of your own needs a function
//             `kit::Json toJson(const Type&)` beside it.
//   Braces    {a, b} is an array; a list whose elements all have the form {"name", value} is an
//             object. Where that is not meant, call array(), and array() or object() for an empty
//             one.
//   Reading   never fails: what is absent or of another type is null. Texts and elements live as
//             long as the value and stay valid until it is changed.
//   Threads   any for reading; one at a time for changing.
class Json {
public:
    Json() = default; // null
    // Null.
    Json(std::nullptr_t) {}

    // True or false. Not from pointers, which would be taken for bools.
    template <typename T, std::enable_if_t<std::is_same_v<T, bool>, int> = 0>
    Json(T value) : m_value(std::in_place_type<bool>, value) {}

    // A number that is not finite is written as null, since JSON has none such.
    template <typename T, std::enable_if_t<std::is_arithmetic_v<T> && !std::is_same_v<T, bool> &&
                                               !internal::kIsCharacter<T>,
                                           int> = 0>
    Json(T value) {
        if constexpr (std::is_floating_point_v<T>) {
            m_value.emplace<double>(static_cast<double>(value));
        } else if constexpr (std::is_signed_v<T>) {
            m_value.emplace<std::int64_t>(value);
        } else {
            m_value.emplace<std::uint64_t>(value);
        }
    }

    // `text` should be UTF-8; see text(). A null pointer results in null.
    Json(std::string text) : m_value(std::move(text)) {}
    Json(std::string_view text) : m_value(std::in_place_type<std::string>, text) {}
    Json(const char* text) {
        if (text) {
            m_value.emplace<std::string>(text);
        }
    }

    // A value of a type of your own, as the function toJson() beside the type returns it.
    template <typename T, std::enable_if_t<internal::kHasToJson<T>, int> = 0>
    Json(const T& value) : Json(toJson(value)) {}

    // The value of a std::optional, or null.
    template <typename T,
              std::enable_if_t<internal::kIsOptional<T> && !internal::kHasToJson<T>, int> = 0>
    Json(const T& value) {
        if (value) {
            *this = Json(*value);
        }
    }

    // An object of the entries of a map, or an array of the elements of any other container.
    template <typename T, std::enable_if_t<internal::kIsRange<T> && !internal::kIsText<T> &&
                                               !internal::kHasToJson<T> && !std::is_same_v<T, Json>,
                                           int> = 0>
    Json(const T& range) {
        if constexpr (internal::kIsMap<T>) {
            auto& members = m_value.emplace<Members>();
            for (const auto& [name, value] : range) {
                members.emplace_back(name, Json(value));
            }
        } else {
            auto& elements = m_value.emplace<Elements>();
            for (const auto& element : range) {
                elements.push_back(Json(element));
            }
        }
    }

    // An object if all items are pairs of a name and a value, {{"a", 1}, {"b", 2}}, else an array.
    Json(std::initializer_list<internal::JsonItem> items);

    // Return an array of these elements, and an object without members.
    static Json array(std::initializer_list<internal::JsonItem> elements = {});
    static Json object() {
        Json result;
        result.m_value.emplace<Members>();
        return result;
    }

    // Sets a member of an object, replacing its value; null becomes an object first. Must be called
    // for no other type. Returns this value.
    Json& set(std::string_view name, Json value) {
        if (isNull()) {
            m_value.emplace<Members>();
        }
        auto* members = std::get_if<Members>(&m_value);
        assert(members && "set() must be called for an object or null");
        for (auto& [known, old] : *members) {
            if (known == name) {
                old = std::move(value);
                return *this;
            }
        }
        members->emplace_back(std::string(name), std::move(value));
        return *this;
    }

    // Appends an element to an array; null becomes an array first. Must be called for no other
    // type. Returns this value.
    Json& append(Json value) {
        if (isNull()) {
            m_value.emplace<Elements>();
        }
        auto* elements = std::get_if<Elements>(&m_value);
        assert(elements && "append() must be called for an array or null");
        elements->push_back(std::move(value));
        return *this;
    }

    // Return whether this is of the type.
    bool isNull() const { return std::holds_alternative<std::monostate>(m_value); }
    bool isArray() const { return std::holds_alternative<Elements>(m_value); }
    bool isObject() const { return std::holds_alternative<Members>(m_value); }

    // Return the member of an object, and the element of an array; null if there is none.
    const Json& operator[](std::string_view name) const {
        if (const auto* members = std::get_if<Members>(&m_value)) {
            for (const auto& [known, value] : *members) {
                if (known == name) {
                    return value;
                }
            }
        }
        return null();
    }
    const Json& operator[](const char* name) const { return (*this)[std::string_view(name)]; }
    template <typename Index, std::enable_if_t<std::is_integral_v<Index>, int> = 0>
    const Json& operator[](Index index) const {
        const auto* elements = std::get_if<Elements>(&m_value);
        const auto position = static_cast<std::size_t>(index); // a negative one is beyond the end
        return elements && position < elements->size() ? (*elements)[position] : null();
    }

    // Iterate over the elements of an array; over nothing for any other type.
    const Json* begin() const {
        const auto* elements = std::get_if<Elements>(&m_value);
        return elements ? elements->data() : nullptr;
    }
    const Json* end() const {
        const auto* elements = std::get_if<Elements>(&m_value);
        return elements ? elements->data() + elements->size() : nullptr;
    }

    // Returns the number of elements or members; 0 for any other type.
    std::size_t size() const {
        if (const auto* members = std::get_if<Members>(&m_value)) {
            return members->size();
        }
        const auto* elements = std::get_if<Elements>(&m_value);
        return elements ? elements->size() : 0;
    }

    // Return the value as a line of `min` to `max` characters, as a number from `min` to `max`, as
    // one of `choices`, or as a bool; or else what is wrong with it: Missing for null, WrongType,
    // and the problems of reading.h. A fraction is none of an integer type.
    Reading<std::string_view> text(std::size_t min, std::size_t max) const {
        const auto* text = std::get_if<std::string>(&m_value);
        return text ? readText(*text, min, max) : Reading<std::string_view>(wrongType());
    }
    template <typename Number>
    Reading<Number> number(Number min, Number max) const;
    Reading<std::string_view> choice(std::initializer_list<std::string_view> choices) const {
        const auto* text = std::get_if<std::string>(&m_value);
        return text ? readChoice(*text, choices) : Reading<std::string_view>(wrongType());
    }
    Reading<bool> boolean() const {
        const bool* value = std::get_if<bool>(&m_value);
        return value ? Reading<bool>(*value) : Reading<bool>(wrongType());
    }

    // Returns the text as it is, which may contain any characters; nothing for any other type.
    std::optional<std::string_view> string() const {
        const auto* text = std::get_if<std::string>(&m_value);
        return text ? std::optional<std::string_view>(*text) : std::nullopt;
    }

    // Returns the value as JSON without blanks. Replaces invalid UTF-8 by U+FFFD and escapes the
    // characters that are special in HTML, so that the result is safe inside a page too.
    std::string serialized() const {
        std::string out;
        write(out);
        return out;
    }

private:
    friend class internal::JsonBuilder;

    using Elements = std::vector<Json>;
    using Members = std::vector<std::pair<std::string, Json>>;

    static const Json& null() {
        static const Json value;
        return value;
    }

    bool isNameAndValue() const {
        const auto* elements = std::get_if<Elements>(&m_value);
        return elements && elements->size() == 2 &&
               std::holds_alternative<std::string>((*elements)[0].m_value);
    }

    template <typename Integer, typename Number>
    static Reading<Number> inRange(Integer value, Number min, Number max);

    Problem wrongType() const { return isNull() ? Problem::Missing : Problem::WrongType; }

    void write(std::string& out) const;
    static void writeText(std::string& out, std::string_view text);
    template <typename Number>
    static void writeNumber(std::string& out, Number number) {
        char digits[32];
        out.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
    }

    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string, Elements,
                 Members>
        m_value;
};

namespace internal {

// An element of a braced list, from which the value is moved.
class JsonItem {
public:
    template <typename T, std::enable_if_t<std::is_constructible_v<Json, T>, int> = 0>
    JsonItem(T&& value) : m_value(std::forward<T>(value)) {}
    JsonItem(std::initializer_list<JsonItem> items) : m_value(items) {}

    Json& value() const { return m_value; }

private:
    mutable Json m_value;
};

// Returns a < b, whatever the signs and sizes of the types are.
template <typename A, typename B>
constexpr bool isLess(A a, B b) {
    if constexpr (std::is_signed_v<A> == std::is_signed_v<B>) {
        return a < b;
    } else if constexpr (std::is_signed_v<A>) {
        return a < 0 || static_cast<std::make_unsigned_t<A>>(a) < b;
    } else {
        return b >= 0 && a < static_cast<std::make_unsigned_t<B>>(b);
    }
}

} // namespace internal

inline Json::Json(std::initializer_list<internal::JsonItem> items) {
    bool isObject = items.size() > 0;
    for (const internal::JsonItem& item : items) {
        isObject = isObject && item.value().isNameAndValue();
    }
    if (!isObject) {
        *this = array(items);
        return;
    }
    auto& members = m_value.emplace<Members>();
    members.reserve(items.size());
    for (const internal::JsonItem& item : items) {
        auto& pair = *std::get_if<Elements>(&item.value().m_value);
        members.emplace_back(std::move(*std::get_if<std::string>(&pair[0].m_value)),
                             std::move(pair[1]));
    }
}

inline Json Json::array(std::initializer_list<internal::JsonItem> elements) {
    Json result;
    auto& moved = result.m_value.emplace<Elements>();
    moved.reserve(elements.size());
    for (const internal::JsonItem& element : elements) {
        moved.push_back(std::move(element.value()));
    }
    return result;
}

template <typename Integer, typename Number>
Reading<Number> Json::inRange(Integer value, Number min, Number max) {
    if (internal::isLess(value, min)) {
        return Problem::TooSmall;
    }
    return internal::isLess(max, value) ? Reading<Number>(Problem::TooLarge)
                                        : Reading<Number>(static_cast<Number>(value));
}

template <typename Number>
Reading<Number> Json::number(Number min, Number max) const {
    assert(min <= max && "`min` must not be above `max`");
    constexpr double kExact = 9007199254740992; // up to here a double has every whole number
    const auto check = [&](auto value) {
        if constexpr (std::is_floating_point_v<Number>) {
            return inRange(static_cast<Number>(value), min, max);
        } else {
            return inRange(value, min, max);
        }
    };
    if (const auto* integer = std::get_if<std::int64_t>(&m_value)) {
        return check(*integer);
    }
    if (const auto* natural = std::get_if<std::uint64_t>(&m_value)) {
        return check(*natural);
    }
    const auto* real = std::get_if<double>(&m_value);
    if (!real) {
        return wrongType();
    }
    if constexpr (std::is_floating_point_v<Number>) {
        return check(*real);
    } else if (std::trunc(*real) != *real) {
        return Problem::NotANumber;
    } else if (std::abs(*real) > kExact) {
        return *real < 0 ? Problem::TooSmall : Problem::TooLarge;
    } else {
        return check(static_cast<std::int64_t>(*real));
    }
}

inline void Json::write(std::string& out) const {
    if (const auto* members = std::get_if<Members>(&m_value)) {
        const char* before = "{";
        for (const auto& [name, value] : *members) {
            out += std::exchange(before, ",");
            writeText(out, name);
            out += ':';
            value.write(out);
        }
        out += members->empty() ? "{}" : "}";
    } else if (const auto* elements = std::get_if<Elements>(&m_value)) {
        const char* before = "[";
        for (const Json& element : *elements) {
            out += std::exchange(before, ",");
            element.write(out);
        }
        out += elements->empty() ? "[]" : "]";
    } else if (const auto* text = std::get_if<std::string>(&m_value)) {
        writeText(out, *text);
    } else if (const auto* truth = std::get_if<bool>(&m_value)) {
        out += *truth ? "true" : "false";
    } else if (const auto* integer = std::get_if<std::int64_t>(&m_value)) {
        writeNumber(out, *integer);
    } else if (const auto* natural = std::get_if<std::uint64_t>(&m_value)) {
        writeNumber(out, *natural);
    } else if (const auto* real = std::get_if<double>(&m_value); real && std::isfinite(*real)) {
        writeNumber(out, *real);
    } else {
        out += "null";
    }
}

inline void Json::writeText(std::string& out, std::string_view text) {
    constexpr std::string_view kSpecial = "\"\\<>&'\x7F";
    out += '"';
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const auto byte = static_cast<unsigned char>(text[0]);
        if (length == 0) {
            out += "\\ufffd";
        } else if (byte < 0x20 || kSpecial.find(text[0]) != kSpecial.npos) {
            constexpr char kDigits[] = "0123456789abcdef";
            out += "\\u00";
            out += kDigits[byte >> 4];
            out += kDigits[byte & 15];
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    out += '"';
}

} // namespace kit

#endif
