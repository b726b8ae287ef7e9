// The findings of a check, and their output as text and as JSON.
#ifndef FINDING_H
#define FINDING_H

#include <string>
#include <vector>

struct Finding {
    enum class Severity { Problem, Note }; // a note reports what could not be checked

    std::string file;
    unsigned line; // from 1
    Severity severity;
    std::string message; // may contain any bytes; escaped when it is printed
};

class Findings {
public:
    void problem(std::string file, unsigned line, std::string message);
    void note(std::string file, unsigned line, std::string message);

    // Returns whether any of them is a problem.
    bool containProblems() const;
    // Returns the findings by file and line, those of one line in the order in which they were
    // added, without repetitions.
    std::vector<Finding> sorted() const;

private:
    std::vector<Finding> m_findings;
};

// Returns one line for each finding, "file:line: message" or "file:line: note: message". Control
// characters are escaped.
std::string asLines(const std::vector<Finding>& findings);

// Returns a JSON array of objects with the members file, line, severity ("problem" or "note") and
// message, one object on each line. Invalid UTF-8 becomes U+FFFD.
std::string asJson(const std::vector<Finding>& findings);

// Returns at most 200 bytes of `text` in double quotes, for a message that quotes a file.
std::string quoted(const std::string& text);

// Returns `text` with its control characters escaped, so that it is one line and safe to print on a
// terminal.
std::string printable(const std::string& text);

#endif
