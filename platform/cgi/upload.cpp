// Receives uploads into a file or into memory.
#include "decode.h"
#include "multipart.h"
#include "upload_file.h"

#include <fcgiapp.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {

using cgi::Part;
using cgi::percentDecode;
using cgi::Plus;

// Returns the name without its folders, whether the client's system separates them by "/" or "\".
// Empty for "." and "..", which name folders.
std::string baseName(const std::string& path) {
    const std::string base = path.substr(path.find_last_of("/\\") + 1); // npos + 1 is 0
    return base == "." || base == ".." ? "" : base;
}

// Collects the file in a buffer of the caller, which must outlive the target.
class BufferTarget final : public cgi::UploadTarget {
public:
    BufferTarget(char* buffer, std::size_t size) : m_buffer(buffer), m_size(size) {}

    bool begin() override { return true; }
    bool append(const char* data, std::size_t size) override {
        assert(!m_kept && "append() comes before keep()");
        if (size > m_size - m_used) {
            errno = EFBIG;
            return false;
        }
        std::memcpy(m_buffer + m_used, data, size);
        m_used += size;
        return true;
    }
    bool keep() override {
        assert(!m_kept && "keep() is called once");
        m_kept = true;
        return true;
    }

    // Returns the count of bytes collected; 0 unless the upload is complete.
    std::size_t received() const { return m_kept ? m_used : 0; }

private:
    char* m_buffer;
    std::size_t m_size;
    std::size_t m_used = 0;
    bool m_kept = false;
};

// Distributes the parts of one upload. Text fields are kept as they arrive, so those before a
// failure stay. The first file part goes to the target; later ones are ignored.
class UploadReceiver final : public cgi::PartSink {
public:
    // Keeps at most `room` fields. `target` must outlive the receiver.
    UploadReceiver(std::size_t room, cgi::UploadTarget& target) : m_room(room), m_target(target) {}

    bool beginPart(Part part) override;
    bool partData(const char* data, std::size_t size) override;
    bool endPart() override;
    // Keeps the file and adds its field, both or neither. Call once, when the closing boundary has
    // arrived.
    void finish();
    // Returns 0, or why the file was not kept, unless the body was malformed.
    int error() const { return m_error; }
    // Returns the fields received, or null without any. Call last.
    CGI_varlist::Owner takeFields() { return std::move(m_fields); }

private:
    enum class Kind {
        Text,
        File,
        NoFileChosen, // an empty file name, and no data so far
        Ignored
    };

    bool addText(const char* data, std::size_t size);
    bool withinTextLimit(std::size_t moreBytes);
    bool beginFile();
    bool noteError(bool done);
    bool isFull() const { return (m_fields != nullptr ? m_fields->size() : 0) == m_room; }
    void keepField(CGI_varlist::Owner field);

    CGI_varlist::Owner m_fields;
    const std::size_t m_room;
    cgi::UploadTarget& m_target;
    Kind m_kind = Kind::Ignored;
    std::string m_name;
    std::string m_fileName;
    std::string m_text;
    std::size_t m_textBytes = 0;    // of all names and text fields
    CGI_varlist::Owner m_fileField; // null until a file has begun
    int m_error = 0;
};

// Names arrive escaped: browsers escape quotes and line ends (HTML Standard, "Multipart form
// data"), other clients whatever is not ASCII (RFC 7578, section 2). Data are never escaped.
bool UploadReceiver::beginPart(Part part) {
    m_name = percentDecode(part.name, Plus::Itself);
    m_text.clear();
    if (!part.fileName.has_value()) {
        m_kind = Kind::Text;
        return withinTextLimit(m_name.size());
    }
    if (m_fileField != nullptr) {
        m_kind = Kind::Ignored;
        return true;
    }
    m_fileName = baseName(percentDecode(*part.fileName, Plus::Itself));
    if (!part.fileName->empty())
        return beginFile();
    m_kind = Kind::NoFileChosen;
    return true;
}

// Refuses a file whose field no list can hold: the servlet would never know that it has arrived.
bool UploadReceiver::beginFile() {
    m_kind = Kind::File;
    if (!CGI_varlist::canHold(m_name, m_fileName))
        return false;
    m_fileField = CGI_varlist::ofOne(m_name, m_fileName);
    return noteError(m_target.begin());
}

// Keeps errno if the target has failed. Returns `done`.
bool UploadReceiver::noteError(bool done) {
    if (!done)
        m_error = errno;
    return done;
}

bool UploadReceiver::partData(const char* data, std::size_t size) {
    if (m_kind == Kind::Text)
        return addText(data, size);
    if (m_kind == Kind::Ignored)
        return true;
    if (m_kind == Kind::NoFileChosen && !beginFile())
        return false;
    return noteError(m_target.append(data, size));
}

bool UploadReceiver::addText(const char* data, std::size_t size) {
    if (size > cgi::kMaxTextFieldBytes - m_text.size() || !withinTextLimit(size))
        return false;
    m_text.append(data, size);
    return true;
}

// Counts the bytes. Returns whether all names and text fields together are within their limit.
bool UploadReceiver::withinTextLimit(std::size_t moreBytes) {
    m_textBytes += moreBytes;
    return m_textBytes <= cgi::kMaxUploadTextBytes;
}

bool UploadReceiver::endPart() {
    if (m_kind == Kind::Text && !isFull() && CGI_varlist::canHold(m_name, m_text))
        keepField(CGI_varlist::ofOne(m_name, m_text));
    return true;
}

void UploadReceiver::keepField(CGI_varlist::Owner field) {
    if (m_fields != nullptr)
        m_fields->take(std::move(field));
    else
        m_fields = std::move(field);
}

void UploadReceiver::finish() {
    if (m_fileField != nullptr && isFull())
        m_error = EBADMSG;
    else if (m_fileField != nullptr && noteError(m_target.keep()))
        keepField(std::move(m_fileField));
}

// Reads up to the closing boundary or the first error. The rest of the body stays in the stream,
// except for what was read along with them. Returns 0, or why the upload has failed.
int read(FCGX_Stream* in, const std::string& boundary, UploadReceiver& receiver) {
    using Progress = cgi::MultipartParser::Progress;
    cgi::MultipartParser parser(boundary, receiver);
    Progress progress = Progress::WantsMore;
    char piece[cgi::kReadBytes];
    while (progress == Progress::WantsMore) {
        const int count = FCGX_GetStr(piece, sizeof piece, in);
        if (count <= 0)
            return EBADMSG;
        progress = parser.push(piece, static_cast<std::size_t>(count));
    }
    if (progress == Progress::Complete)
        receiver.finish();
    const bool isBad = progress == Progress::Bad && receiver.error() == 0;
    return isBad ? EBADMSG : receiver.error();
}

// Returns the fields of an upload, at most `room` of them, or null without any. Sets `error` to 0,
// or to why the upload has failed. A body of any type but multipart/form-data stays in the stream.
CGI_varlist::Owner receive(const char* contentType, cgi::UploadTarget& target, std::size_t room,
                           FCGX_Stream* in, int& error) {
    const std::optional<std::string> boundary = cgi::multipartBoundary(contentType);
    error = EBADMSG;
    if (!boundary.has_value())
        return nullptr;
    UploadReceiver receiver(room, target);
    error = read(in, *boundary, receiver);
    return receiver.takeFields();
}

} // namespace

CGI_varlist* CGI_fileupload(CGI_varlist* list, const char* content_type, const char* path,
                            FCGX_Stream* in) {
    if (path == nullptr || in == nullptr)
        return list;
    int error = ENOMEM; // unless addTo() returns with the fields
    list = cgi::addTo(list, [=, &error](std::size_t room) {
        cgi::UploadFile file(path);
        return receive(content_type, file, room, in, error);
    });
    errno = error;
    return list;
}

CGI_varlist* CGI_fileupload_data(CGI_varlist* list, const char* content_type, char* buffer,
                                 unsigned long size, FCGX_Stream* in, int* received) {
    if (received != nullptr)
        *received = 0;
    if (buffer == nullptr || in == nullptr)
        return list;
    int error = ENOMEM; // unless addTo() returns with the fields
    list = cgi::addTo(list, [=, &error](std::size_t room) {
        BufferTarget target(buffer, std::min<unsigned long>(size, INT_MAX));
        CGI_varlist::Owner fields = receive(content_type, target, room, in, error);
        if (received != nullptr)
            *received = static_cast<int>(target.received());
        return fields;
    });
    errno = error;
    return list;
}
