// The lines of the log in which the daemon reports on itself.
#ifndef NOTICE_H
#define NOTICE_H

#include <string>

// Logs `text`, whatever the threshold of the log is: at the level notice, or at the threshold if
// that is more urgent.
void logNotice(const std::string& text);

#endif
