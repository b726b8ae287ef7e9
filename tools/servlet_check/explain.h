// Explains what the container would do with a URL.
#ifndef EXPLAIN_H
#define EXPLAIN_H

#include "configuration.h"

#include <string>

// Returns several lines about a GET of `url`, which may be absolute. Applies the container's own
// rules to `configuration`.
std::string explain(const std::string& url, const Configuration& configuration);

#endif
