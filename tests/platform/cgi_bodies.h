// Upload bodies, most of which no browser sends, each with the expected result.
#ifndef CGI_BODIES_H
#define CGI_BODIES_H

#include "cgi_cut_input.h"
#include "cgi_upload_body.h"

#include <string>

const std::string kNoFile = "(none)";

struct OddBody {
    std::string story; // what is unusual about it
    std::string bytes;
    Pairs fields;               // all fields, including the file's; those of one name in order
    std::string file = kNoFile; // the data that are stored
    std::string type = kUploadType;
};

std::vector<OddBody> oddBodies();

inline std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

#endif
