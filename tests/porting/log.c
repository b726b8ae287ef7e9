// Writes the log to standard error.
#include "app_log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { threshold = 6, record_size = 1000 };

void app_log(int module, int level, const char* format, ...) {
    if (level > threshold)
        return;
    const int kept = errno;
    char text[record_size];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    size_t length = strlen(text);
    if (length > 0 && text[length - 1] == '\n')
        text[--length] = '\0';

    char line[4 * record_size + 40];
    char* to = line + sprintf(line, "own device %d %d: ", module, level);
    for (const char* from = text; *from != '\0'; ++from) {
        const unsigned char byte = (unsigned char)*from;
        to += sprintf(to, byte < 0x20 || byte == 0x7F ? "\\x%02X" : "%c", byte);
    }
    *to++ = '\n';
    const ssize_t written = write(STDERR_FILENO, line, (size_t)(to - line));
    (void)written; // there is no other place to report a failure
    errno = kept;
}
