// What the access log of the web server says about a request beyond what that server knows.
#ifndef ACCESS_LOG_H
#define ACCESS_LOG_H

#include <fcgiapp.h>

#include <string_view>

// Returns the id of the page that the query string asks for (the first "p"), or an empty text if it
// is missing, or is none that the log should show: ids have letters, digits, "-" and "_", 64 at
// most.
std::string_view pageOf(const char* query);

// Begins the response with the header "X-Access-Log: request=1041 p=status", which the web server
// writes into its access log: `number` is the one in this process's log. No page is "-".
void writeAccessLogHeader(FCGX_Request& request, unsigned long number);

#endif
