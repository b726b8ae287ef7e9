// What a check finds, and how it is printed.
#ifndef FINDING_H
#define FINDING_H

#include <string>
#include <vector>

struct Finding {
    enum class Severity { Problem, Note }; // a note tells what could not be looked at

    std::string file;
    unsigned line; // counts from 1
    Severity severity;
    std::string message; // any bytes; the printed form escapes them
};

class Findings {
public:
    void problem(std::string file, unsigned line, std::string message);
    void note(std::string file, unsigned line, std::string message);

    bool holdProblems() const;
    // By file and line, the same finding once; of one line as they were found.
    std::vector<Finding> sorted() const;

private:
    std::vector<Finding> m_findings;
};

// "file:line: what", a line each; notes as "file:line: note: what". Control characters are escaped.
std::string asLines(const std::vector<Finding>& findings);

// An array of objects with file, line, severity ("problem" or "note") and message; bytes that are
// no UTF-8 become U+FFFD.
std::string asJson(const std::vector<Finding>& findings);

// As messages quote what others wrote: at most 200 bytes of it, in double quotes.
std::string quoted(const std::string& text);

// One line for a terminal: control characters are escaped.
std::string printable(const std::string& text);

#endif
