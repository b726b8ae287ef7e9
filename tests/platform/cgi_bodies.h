// Bodies of uploads as no browser sends them, and some as browsers do, with what is to become of
// each.
#ifndef CGI_BODIES_H
#define CGI_BODIES_H

#include "cgi_cut_input.h"
#include "cgi_upload_body.h"

#include <string>

const std::string kNoFile = "(none)";

struct OddBody {
    std::string story; // what is odd about it
    std::string bytes;
    Pairs fields;               // all of them, the file's included; of one name in their order
    std::string file = kNoFile; // what is stored
    std::string type = kUploadType;
};

std::vector<OddBody> oddBodies();

#endif
