// Uploads into memory and into a file, and what they leave in the stream.
#include "fuzz.h"
#include "varlist.h"

#include <kit/testing/memory_stream.h>

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
};

Received receiveInMemory(const char* contentType, const std::string& body, std::size_t pieceSize,
                         std::size_t room) {
    MemoryInput stream(body, pieceSize);
    const auto buffer = std::make_unique<char[]>(room);
    int count = -1;
    Received received;
    received.fields.reset(
        CGI_fileupload_data(nullptr, contentType, buffer.get(), room, stream.stream(), &count));
    require(count >= 0 && static_cast<std::size_t>(count) <= room,
            "no more than there is room for");
    received.data.assign(buffer.get(), static_cast<std::size_t>(count));

    const std::string left = stream.unread();
    const auto rest = std::make_unique<char[]>(left.size() + 1);
    const int more = CGI_readblock(rest.get(), left.size() + 1, stream.stream());
    require(std::string(rest.get(), static_cast<std::size_t>(more)) == left,
            "what the upload leaves can be read");
    return received;
}

// A folder in memory, as long as the process lives.
class Folder {
public:
    Folder() { require(mkdtemp(m_path) != nullptr, "there is a folder for uploads"); }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string file() const { return std::string(m_path) + "/upload"; }
    bool isEmpty() const { return std::filesystem::is_empty(m_path); }

private:
    char m_path[32] = "/dev/shm/fuzz-upload-XXXXXX";
};

Received receiveInFile(const char* contentType, const std::string& body, std::size_t pieceSize) {
    static const Folder folder;
    MemoryInput stream(body, pieceSize);
    Received received;
    received.fields.reset(
        CGI_fileupload(nullptr, contentType, folder.file().c_str(), stream.stream()));
    std::ostringstream text;
    text << std::ifstream(folder.file()).rdbuf();
    received.data = text.str();
    unlink(folder.file().c_str());
    require(folder.isEmpty(), "nothing but the upload is left");
    return received;
}

void requireSame(const Received& one, const Received& other) {
    const std::size_t count = one.fields != nullptr ? one.fields->size() : 0;
    const std::size_t otherCount = other.fields != nullptr ? other.fields->size() : 0;
    require(count == otherCount, "there are as many fields");
    require(one.data == other.data, "the data are the same");
}

} // namespace

// One line with the content type, one byte for the size of the pieces, and one for the room there
// is, 0 for a file instead; then the body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto contentType = fuzz::terminated(input.line());
    const std::size_t pieceSize = input.byte() * 16 + 1;
    const std::size_t room = input.byte();
    const std::string body = fuzz::stretched(input.rest());
    if (room == 0)
        requireSame(receiveInFile(contentType.get(), body, pieceSize),
                    receiveInMemory(contentType.get(), body, body.size() + 1, body.size()));
    else
        requireSame(receiveInMemory(contentType.get(), body, pieceSize, room * 8),
                    receiveInMemory(contentType.get(), body, body.size() + 1, room * 8));
    return 0;
}
