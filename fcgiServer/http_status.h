// The HTTP status codes (RFC 9110, section 15) that the container itself returns. Internal: not
// installed.
#ifndef HTTP_STATUS_H
#define HTTP_STATUS_H

namespace http_status {

constexpr int kOk = 200;
constexpr int kNotFound = 404;
constexpr int kInternalServerError = 500;

} // namespace http_status

#endif
