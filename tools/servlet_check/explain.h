// What the container would do with a URL.
#ifndef EXPLAIN_H
#define EXPLAIN_H

#include "configuration.h"

#include <string>

// Some lines about a GET of `url`, which may begin with "http://host"; by the container's own
// rules, and by what `configuration` holds.
std::string explain(const std::string& url, const Configuration& configuration);

#endif
