// Replaces the device's decoding and template functions in a test program: records the calls with
// their arguments, in order, and returns what the test says.
#ifndef RECORDED_DEVICE_H
#define RECORDED_DEVICE_H

#include <functional>
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
    std::function<void()> duringAddVar; // what TMPL_add_var calls, if set
    std::string page;                   // what TMPL_web_write writes
    int renderResult = 0;               // what TMPL_web_write returns
};

// Clears the calls and the answers. Lists created before must not be used any more.
void reset();

// Returns the answers from now on, for the test to change.
Answers& answers();

// Returns every call since reset(), such as "CGI_decode_query(list 1, 'a=1') = list 2". A call that
// adds always returns another list, and the old one is "stale list 1" from then on: so tests notice
// a caller that continues to use it, and one that uses a list after freeing it. A pointer without a
// name is "a stranger".
std::vector<std::string> calls();

// Adds a call of another function to calls().
void record(const std::string& call);

// Sets and returns the name that `thing`, a stream or a buffer, has in calls().
void name(const void* thing, const std::string& name);
std::string nameOf(const void* thing);

} // namespace recorded_device

#endif
