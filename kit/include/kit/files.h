// Sending files: Response::file() and Response::fileFrom().
#ifndef KIT_FILES_H
#define KIT_FILES_H

#include "base/ascii.h"
#include "base/descriptor.h"
#include "kit/conditional.h"
#include "kit/response.h"
#include "web_debug.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace kit {

// Returns the content type of a file by the end of its name, in upper or lower case;
// "application/octet-stream" for an unknown one, and for scripts and style sheets: the front server
// sends the plug-in's own, and the browser shall run no others. The text lives for ever.
inline const char* contentTypeOf(std::string_view path) {
    constexpr std::string_view kTypes[][2] = {
        {".html", "text/html; charset=utf-8"},
        {".txt", "text/plain; charset=utf-8"},
        {".log", "text/plain; charset=utf-8"},
        {".csv", "text/csv; charset=utf-8"},
        {".json", "application/json"},
        {".xml", "application/xml"},
        {".pdf", "application/pdf"},
        {".zip", "application/zip"},
        {".gz", "application/gzip"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".jpg", "image/jpeg"},
        {".jpeg", "image/jpeg"},
        {".gif", "image/gif"},
        {".ico", "image/vnd.microsoft.icon"},
        {".wav", "audio/wav"},
        {".mp3", "audio/mpeg"},
        {".ogg", "audio/ogg"},
    };
    for (const auto& [ending, type] : kTypes) {
        if (path.size() >= ending.size() &&
            base::equalsIgnoringCase(path.substr(path.size() - ending.size()), ending)) {
            return type.data();
        }
    }
    return "application/octet-stream";
}

namespace internal {

// Not to wait where `path` is a pipe, and not to take over a terminal.
inline constexpr int kOpenToRead = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

// Returns whether `name` may be looked up below a folder: names between single slashes, none of
// them empty and none beginning with a dot, which "..", and hidden files such as ".htpasswd", do.
inline bool isNameBelow(std::string_view name) {
    bool isBegin = true;
    for (char c : name) {
        if (c == '\0' || (isBegin && (c == '.' || c == '/'))) {
            return false;
        }
        isBegin = c == '/';
    }
    return !isBegin;
}

// Opens the file `name` below an open folder without following symbolic links, which whoever may
// write to the folder could have placed there. Leaves a reason in errno if that fails. `name` must
// be one for which isNameBelow() returns true.
inline base::Descriptor openBelow(base::Descriptor folder, std::string name) {
    for (std::size_t slash = name.find('/'); slash != name.npos && folder; slash = name.find('/')) {
        const std::string first = name.substr(0, slash);
        name.erase(0, slash + 1);
        folder = base::Descriptor(
            openat(folder.get(), first.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    return base::Descriptor(folder ? openat(folder.get(), name.c_str(), kOpenToRead | O_NOFOLLOW)
                                   : -1);
}

// Returns whether a file that could not be opened for this reason is not there.
inline bool isMissing(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == ELOOP || reason == ENAMETOOLONG ||
           reason == ENXIO; // a socket
}

// Returns the validators of a file in the state `info`. Within the time that a file system's clock
// may stand still the file could change unnoticed, so the entity tag is weak until then.
inline Validators validatorsOf(const struct stat& info) {
    constexpr std::time_t kSettled = 2; // seconds
    const std::time_t now = std::time(nullptr);
    char tag[96];
    std::snprintf(tag, sizeof tag, "%s\"%llx-%llx.%lx-%llx.%lx\"",
                  now - info.st_mtim.tv_sec < kSettled ? "W/" : "",
                  static_cast<unsigned long long>(info.st_size),
                  static_cast<unsigned long long>(info.st_mtim.tv_sec),
                  static_cast<unsigned long>(info.st_mtim.tv_nsec),
                  static_cast<unsigned long long>(info.st_ctim.tv_sec),
                  static_cast<unsigned long>(info.st_ctim.tv_nsec));
    Validators validators{tag};
    // No date in the future (RFC 9110, section 8.8.2.1): the device's clock may have been put back.
    if (info.st_mtim.tv_sec <= now) {
        validators.lastModified = info.st_mtim.tv_sec;
    }
    return validators;
}

// Returns whether a browser runs scripts in documents of this type.
inline bool canContainScripts(std::string_view contentType) {
    const std::string_view type = contentType.substr(0, contentType.find(';'));
    return type == "text/html" || type == "image/svg+xml" || type == "application/xml";
}

} // namespace internal

inline bool Response::file(const std::string& path) {
    const base::Descriptor file(open(path.c_str(), internal::kOpenToRead));
    if (!file && errno == ENOENT) {
        WebDebug::getInstance()->error("Page %s: there is no file %s", m_request.page().data(),
                                       path.c_str());
        errno = ENOENT;
    }
    return sendFile(file, path);
}

inline bool Response::fileFrom(const std::string& folder, std::string_view name) {
    if (!internal::isNameBelow(name)) {
        WebDebug::getInstance()->warn("Page %s: refused the file name %s below %s",
                                      m_request.page().data(), std::string(name).c_str(),
                                      folder.c_str());
        return isNoFile();
    }
    base::Descriptor place(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!place) {
        WebDebug::getInstance()->error("Page %s: cannot open the folder %s: %s",
                                       m_request.page().data(), folder.c_str(),
                                       std::strerror(errno));
        fail();
        return true;
    }
    return sendFile(internal::openBelow(std::move(place), std::string(name)),
                    folder + '/' + std::string(name));
}

// Prepares the answer for a file that is not there, and returns false.
inline bool Response::isNoFile() {
    status(404);
    if (m_raw.containsHeader("Content-Disposition")) { // of attachment()
        m_raw.setHeader("Content-Disposition", "inline");
    }
    return false;
}

// Sends an open file, or answers for one that could not be opened, for the reason in errno.
inline bool Response::sendFile(const base::Descriptor& file, const std::string& path) {
    struct stat info {};
    const bool isOpen = file && fstat(file.get(), &info) == 0;
    if (isOpen ? !S_ISREG(info.st_mode) : internal::isMissing(errno)) {
        return isNoFile();
    }
    if (!isOpen) {
        WebDebug::getInstance()->error("Page %s: cannot open the file %s: %s",
                                       m_request.page().data(), path.c_str(), std::strerror(errno));
        fail();
        return true;
    }
    const internal::Validators validators = internal::validatorsOf(info);
    if (internal::isReading(m_request) && isAnsweredBy(validators)) {
        return true;
    }
    const char* type = contentTypeOf(path);
    if (internal::canContainScripts(type)) {
        setDefault("Content-Security-Policy",
                   "default-src 'self'; frame-ancestors 'none'; sandbox");
    }
    setDefault("Accept-Ranges", "bytes");
    setDefaults(type);
    sendPart(file, path, validators, static_cast<std::uint64_t>(info.st_size));
    return true;
}

// Sends the part of the file that the request asks for.
inline void Response::sendPart(const base::Descriptor& file, const std::string& path,
                               const internal::Validators& validators, std::uint64_t size) {
    const auto range = internal::rangeOf(m_request, validators, size);
    if (range) {
        const std::uint64_t end = range->begin + range->size;
        const std::string part =
            range->size == 0 ? "*" : std::to_string(range->begin) + '-' + std::to_string(end - 1);
        m_raw.setHeader("Content-Range", ("bytes " + part + '/' + std::to_string(size)).c_str());
        status(range->size == 0 ? 416 : 206);
    }
    const internal::ByteRange sent = range.value_or(internal::ByteRange{0, size});
    m_raw.setHeader("Content-Length", std::to_string(sent.size).c_str());
    copyBody(file, path, sent);
}

// Writes a part of the file to the front server, piece by piece.
inline void Response::copyBody(const base::Descriptor& file, const std::string& path,
                               internal::ByteRange part) {
    m_raw.write("", 1, 0); // commits the headers: no error page must be sent with this length
    Stream body(m_raw, m_request.method() != "HEAD");
    char piece[8192];
    while (part.size > 0) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(part.size, sizeof piece));
        const ssize_t count = pread(file.get(), piece, wanted, static_cast<off_t>(part.begin));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            WebDebug::getInstance()->error(
                "Page %s: %s was sent without its last %llu bytes: %s", m_request.page().data(),
                path.c_str(), static_cast<unsigned long long>(part.size),
                count < 0 ? std::strerror(errno) : "the file has become shorter");
            return;
        }
        if (!body.write({piece, static_cast<std::size_t>(count)})) {
            return;
        }
        part.begin += static_cast<std::uint64_t>(count);
        part.size -= static_cast<std::uint64_t>(count);
    }
}

} // namespace kit

#endif
