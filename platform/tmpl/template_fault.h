// The exception for a template that cannot be rendered.
#ifndef TEMPLATE_FAULT_H
#define TEMPLATE_FAULT_H

#include <exception>
#include <string>
#include <utility>

namespace tmpl {

// A place in a template. Lines count from 1.
struct Position {
    std::string file;
    unsigned line;
};

// Thrown by all functions that read and check templates. The C functions catch it.
class Fault : public std::exception {
public:
    // The values are results of TMPL_web_write().
    enum Kind { Unreadable = 1, Wrong = 2 };

    Fault(Kind kind, Position position, std::string reason)
        : m_kind(kind), m_position(std::move(position)), m_reason(std::move(reason)) {}

    Kind kind() const { return m_kind; }
    const Position& position() const { return m_position; }
    // Returns the reason in English, without the position. It may quote text of the template, with
    // any control characters.
    const char* what() const noexcept override { return m_reason.c_str(); }

private:
    Kind m_kind;
    Position m_position;
    std::string m_reason;
};

} // namespace tmpl

#endif
