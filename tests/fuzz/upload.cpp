// Receives uploads in memory and in files, and checks what they leave in the stream.
#include "fuzz.h"
#include "pairs.h"
#include "parts.h"
#include "varlist.h"

#include <kit/testing/memory_stream.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using fuzz::require;
using kit::testing::MemoryInput;

struct Received {
    CGI_varlist::Owner fields;
    std::string data;
    bool exists = false; // the file, for an upload to a file
};

// Both add what they receive to `list`.
Received receiveInMemory(CGI_varlist* list, const char* contentType, const std::string& body,
                         std::size_t pieceSize, std::size_t room) {
    MemoryInput stream(body, pieceSize);
    const auto buffer = std::make_unique<char[]>(room);
    int count = -1;
    Received received;
    received.fields.reset(
        CGI_fileupload_data(list, contentType, buffer.get(), room, stream.stream(), &count));
    require(count >= 0 && static_cast<std::size_t>(count) <= room,
            "an upload does not exceed its buffer");
    received.data.assign(buffer.get(), static_cast<std::size_t>(count));

    const std::string left = stream.unread();
    const auto rest = std::make_unique<char[]>(left.size() + 1);
    const int more = CGI_readblock(rest.get(), left.size() + 1, stream.stream());
    require(std::string(rest.get(), static_cast<std::size_t>(more)) == left,
            "the rest of the stream stays readable");
    return received;
}

// A folder that lives as long as the process, in memory if /dev/shm is writable.
class Folder {
public:
    Folder() { require(mkdtemp(m_path.data()) != nullptr, "the test can create a folder"); }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file() const { return m_path + "/upload"; }
    bool isEmpty() const { return std::filesystem::is_empty(m_path); }

private:
    std::string m_path =
        std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/fuzz-upload-XXXXXX";
};

Received receiveInFile(CGI_varlist* list, const char* contentType, const std::string& body,
                       std::size_t pieceSize) {
    static const Folder folder;
    MemoryInput stream(body, pieceSize);
    Received received;
    received.fields.reset(
        CGI_fileupload(list, contentType, folder.file().c_str(), stream.stream()));
    received.exists = access(folder.file().c_str(), F_OK) == 0;
    std::ostringstream text;
    text << std::ifstream(folder.file()).rdbuf();
    received.data = text.str();
    unlink(folder.file().c_str());
    require(folder.isEmpty(), "an upload leaves no other file");
    return received;
}

// The model: the result that the parts of a body must have, behind the fields `before`.
class Expected {
public:
    Expected(fuzz::Pairs before, const std::string& contentType, const std::string& body,
             std::size_t room)
        : m_room(room), m_fields(std::move(before)) {
        const auto boundary = cgi::multipartBoundary(contentType.c_str());
        if (!boundary.has_value())
            return;
        std::vector<fuzz::ReceivedPart> parts;
        fuzz::PartCollector sink(parts);
        cgi::MultipartParser parser(*boundary, sink);
        const auto progress = parser.push(body.data(), body.size());
        const bool accepted = std::all_of(parts.begin(), parts.end(),
                                          [this](const auto& part) { return take(part); });
        if (accepted && progress == cgi::MultipartParser::Progress::Complete)
            finish();
    }

    const fuzz::Pairs& fields() const { return m_fields; }
    bool exists() const { return m_exists; }
    const std::string& data() const { return m_file; }

private:
    // Returns false if the part makes the upload fail.
    bool take(const fuzz::ReceivedPart& part) {
        const std::string name = fuzz::decoded(part.name);
        if (!part.fileName.has_value())
            return takeText(name, part);
        const bool isChosen = !part.fileName->empty() || !part.data.empty();
        if (!isChosen || m_hasFile)
            return true;
        m_hasFile = true;
        std::string path = fuzz::decoded(*part.fileName);
        path.erase(0, path.find_last_of("/\\") + 1);
        m_fileField = {name, path == "." || path == ".." ? "" : path};
        m_file = part.data;
        const bool hasZero = (name + path).find('\0') != std::string::npos;
        return !name.empty() && !hasZero && m_file.size() <= m_room;
    }

    bool takeText(const std::string& name, const fuzz::ReceivedPart& part) {
        m_textBytes += name.size() + part.data.size();
        if (part.data.size() > 64 * 1024 || m_textBytes > 1024 * 1024)
            return false;
        if (part.isWhole)
            fuzz::add(m_fields, name, part.data);
        return true;
    }

    void finish() {
        const std::size_t count = m_fields.size();
        if (m_hasFile)
            fuzz::add(m_fields, m_fileField.first, m_fileField.second);
        m_exists = m_fields.size() > count;
    }

    const std::size_t m_room;
    std::size_t m_textBytes = 0;
    fuzz::Pairs m_fields;
    bool m_hasFile = false;
    fuzz::Pairs::value_type m_fileField;
    std::string m_file;
    bool m_exists = false;
};

void requireSame(const Received& received, const Expected& expected) {
    fuzz::requireSame(received.fields.get(), expected.fields());
    const std::string data = expected.exists() ? expected.data() : "";
    require(received.data == data, "the data is that of the file");
}

// Requires that one more field can be added behind those of an upload.
void requireAddition(CGI_varlist::Owner fields, fuzz::Pairs expected) {
    fields.reset(CGI_decode_query(fields.release(), "after=1"));
    fuzz::add(expected, "after", "1");
    fuzz::requireSame(fields.get(), expected);
}

} // namespace

// One line with the content type, one byte for the size of the pieces, odd for an upload into a
// list that has a field, one for the size of the buffer, 0 for a file instead; then the body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto contentType = fuzz::terminated(input.line());
    const std::size_t pieces = input.byte();
    const std::size_t pieceSize = pieces * 16 + 1;
    const std::string before = pieces % 2 == 0 ? "" : "before=1";
    const std::size_t room = input.byte();
    const std::string body = fuzz::stretched(input.rest());
    const bool isFile = room == 0;
    const Expected expected(fuzz::pairsOfQuery(before), contentType.get(), body,
                            isFile ? body.size() : room * 8);
    CGI_varlist* const list = CGI_decode_query(nullptr, before.c_str());
    Received received = isFile
                            ? receiveInFile(list, contentType.get(), body, pieceSize)
                            : receiveInMemory(list, contentType.get(), body, pieceSize, room * 8);
    requireSame(received, expected);
    requireAddition(std::move(received.fields), expected.fields());
    require(!isFile || received.exists == expected.exists(),
            "a file exists exactly if the upload is complete");
    return 0;
}
