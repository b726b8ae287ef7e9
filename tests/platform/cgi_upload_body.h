// Parts of multipart/form-data bodies.
#ifndef CGI_UPLOAD_BODY_H
#define CGI_UPLOAD_BODY_H

#include <string>

constexpr const char* kUploadType = "multipart/form-data; boundary=b";
const std::string kUploadEnd = "--b--\r\n";

inline std::string textPart(const std::string& name, const std::string& data) {
    return "--b\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + data + "\r\n";
}

inline std::string filePart(const std::string& name, const std::string& fileName,
                            const std::string& data) {
    return "--b\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + fileName +
           "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + data + "\r\n";
}

#endif
