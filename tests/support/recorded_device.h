// Takes the place of the device's decoding and template functions in a test program: keeps what
// was called, with what and in which order, and answers as the test says.
#ifndef RECORDED_DEVICE_H
#define RECORDED_DEVICE_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace recorded_device {

using Values = std::vector<std::pair<std::string, std::string>>;

struct Answers {
    Values cookies;                  // what CGI_get_cookie adds to its list
    Values formFields;               // CGI_get_post
    Values queryFields;              // CGI_decode_query
    Values uploadFields;             // CGI_fileupload and CGI_fileupload_data
    std::optional<int> received = 0; // the count that CGI_fileupload_data reports, or leaves alone
    int blockSize = 0;               // the result of CGI_readblock
    char* encodedUrl = nullptr;
    std::string page;     // what TMPL_web_write writes
    int renderResult = 0; // what TMPL_web_write gives back
};

// Forgets everything and answers with nothing. Lists made before must not be used any more.
void reset();

// The answers from now on, to be changed by the test.
Answers& answers();

// Every call since reset(), such as "CGI_decode_query(list 1, 'a=1') = list 2". A call that adds
// always gives back another list than it was given, and the given one is "stale list 1" from then
// on: a caller that goes on with the old one shows. So does one that uses a list after freeing it.
// A pointer that nobody has named is "a stranger".
std::vector<std::string> calls();

// Gives `thing`, a stream or a buffer, the name that it has in calls().
void name(const void* thing, const std::string& name);
std::string nameOf(const void* thing);

} // namespace recorded_device

#endif
