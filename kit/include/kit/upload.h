// Receiving the file of a multipart/form-data form.
#ifndef KIT_UPLOAD_H
#define KIT_UPLOAD_H

#include "kit/reading.h"
#include "kit/request.h"
#include "web_debug.h"

#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace kit {

namespace internal {

// Returns why an upload without the file was refused, and logs it unless no file was chosen.
// `error` is errno after receiving, see CGI_fileupload().
inline Problem uploadProblem(Request& request, const char* field, std::size_t maxBytes, int error) {
    const bool isTooLong = error == EFBIG || request.contentLength() > maxBytes;
    if (error == 0 && !isTooLong) {
        return Problem::Missing;
    }
    const std::string reason = error == EBADMSG ? "the form is malformed, or the client has gone"
                               : isTooLong      ? "more than " + std::to_string(maxBytes) + " bytes"
                                                : std::strerror(error);
    WebDebug::getInstance()->warn("Page %s: the upload of %s failed: %s", request.page().data(),
                                  field, reason.c_str());
    return error == EBADMSG ? Problem::Incomplete
           : isTooLong      ? Problem::TooLong
                            : Problem::NotStored;
}

} // namespace internal

// Receives the file of a form, which must be the field `field`, at `path`, where it replaces
// another file only when it is complete. The other fields of the form become parameters. Returns
// the client's name for the file, which may be empty and must never be used as a path; or Missing
// if no file was chosen, TooLong if the body has more than `maxBytes`, Incomplete, or NotStored.
// After a problem, nothing new is at `path`, and all but Missing are logged with their reason.
//   Before  check who sends the file, and put `p` into the URL: the container looks for the page
//           before it reads the body. Slow clients must not occupy all request threads.
//   Body    is read to its end in any case; Request::discardBody() says why.
inline Reading<std::string_view> saveUpload(Request& request, const char* field,
                                            const std::string& path, std::size_t maxBytes) {
    assert(field && "`field` must not be null");
    int error = EFBIG;
    struct stat before {};
    struct stat after {};
    if (request.contentLength() <= maxBytes) {
        const bool isThere = stat(path.c_str(), &before) == 0;
        errno = 0;
        request.raw().receiveUploadFile(path.c_str());
        error = errno;
        request.discardBody();
        const bool isNew =
            stat(path.c_str(), &after) == 0 &&
            !(isThere && after.st_dev == before.st_dev && after.st_ino == before.st_ino);
        const bool fits = isNew && static_cast<std::size_t>(after.st_size) <= maxBytes;
        // A text field can have the same name.
        if (const auto name = request.parameter(field); name && fits) {
            return *name;
        }
        if (isNew) {
            std::remove(path.c_str());
            error = fits ? 0 : EFBIG;
        }
    } else {
        request.discardBody();
    }
    return internal::uploadProblem(request, field, maxBytes, error);
}

// Does the same, but returns the bytes of the file, of which there can be `maxBytes`; Missing also
// for an empty file. Never returns NotStored.
inline Reading<std::string> readUpload(Request& request, const char* field, std::size_t maxBytes) {
    assert(field && "`field` must not be null");
    std::string bytes(maxBytes, '\0');
    errno = 0;
    const int size = request.raw().receiveUploadData(bytes.data(), bytes.size());
    const int error = errno;
    request.discardBody();
    if (size > 0 && request.parameter(field)) {
        bytes.resize(static_cast<std::size_t>(size));
        return Reading<std::string>(std::move(bytes));
    }
    return internal::uploadProblem(request, field, maxBytes, error);
}

} // namespace kit

#endif
