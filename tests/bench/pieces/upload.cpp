// Stores uploads of several sizes in a file; compared with storing the same bytes in the simplest
// way: read a piece, write it, sync, rename. The counter "peak bytes" is the peak of the heap.
#include "pieces.h"

#include "body.h"
#include "cgi.h"
#include "temporary_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

namespace {

using namespace pieces;

constexpr std::size_t kMebibyte = 1024 * 1024;
constexpr std::size_t kPieceBytes = 16 * 1024;
const char* const kType = "multipart/form-data; boundary=----kBoundary7MA4YWxkTrZu0gW";

// Random bytes, like those of a compressed firmware image.
std::string content(long mebibytes) {
    std::mt19937_64 random(1);
    std::string bytes(static_cast<std::size_t>(mebibytes) * kMebibyte, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string uploadOf(const std::string& bytes) {
    return "------kBoundary7MA4YWxkTrZu0gW\r\n"
           "Content-Disposition: form-data; name=\"firmware\"; filename=\"image.rom\"\r\n"
           "Content-Type: application/octet-stream\r\n\r\n" +
           bytes + "\r\n------kBoundary7MA4YWxkTrZu0gW--\r\n";
}

bool sync(const std::string& path, int flags) {
    const int file = open(path.c_str(), flags | O_CLOEXEC);
    const bool synced = file >= 0 && fsync(file) == 0;
    return file >= 0 && close(file) == 0 && synced;
}

bool copyAll(FCGX_Stream* in, int file) {
    char piece[kPieceBytes];
    for (;;) {
        const int count = FCGX_GetStr(piece, sizeof piece, in);
        if (count <= 0)
            return true;
        if (write(file, piece, static_cast<std::size_t>(count)) != count)
            return false;
    }
}

class Upload {
public:
    explicit Upload(long mebibytes) : m_content(content(mebibytes)) {}

    long mebibytes() const { return static_cast<long>(m_content.size() / kMebibyte); }

    bool receive() {
        CGI_varlist* list = CGI_fileupload(nullptr, kType, m_target.c_str(), m_upload.stream());
        const bool complete = CGI_lookup(list, "firmware") != nullptr;
        CGI_free_varlist(list);
        return complete;
    }

    bool copy() {
        const std::string temporary = m_folder.path("copied");
        const int file = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        const bool copied = file >= 0 && copyAll(m_plain.stream(), file) && fsync(file) == 0;
        return file >= 0 && close(file) == 0 && copied &&
               rename(temporary.c_str(), m_target.c_str()) == 0 &&
               sync(m_folder.path("."), O_RDONLY | O_DIRECTORY);
    }

private:
    const std::string m_content;
    const std::string m_body = uploadOf(m_content);
    const TemporaryFolder m_folder;
    const std::string m_target = m_folder.path("image");
    Body m_plain{m_content};
    Body m_upload{m_body};
};

// Keeps one upload at a time, since the large ones need much memory.
Upload& uploadOf(long mebibytes) {
    static std::unique_ptr<Upload> upload;
    if (upload == nullptr || upload->mebibytes() != mebibytes) {
        upload.reset();
        upload = std::make_unique<Upload>(mebibytes);
    }
    return *upload;
}

void storeRepeatedly(benchmark::State& state, Upload& made, bool (Upload::*store)()) {
    const AllocationCounter counter(state);
    for (auto each : state) {
        static_cast<void>(each);
        if (!(made.*store)())
            state.SkipWithError("the upload was not stored");
    }
}

void addOne(long mebibytes, const char* subject, bool (Upload::*store)()) {
    const auto run = [mebibytes, store](benchmark::State& state) {
        Upload& made = uploadOf(mebibytes);
        const PeakMemory peak;
        storeRepeatedly(state, made, store);
        state.counters["peak bytes"] = static_cast<double>(peak.bytes());
        state.SetBytesProcessed(state.iterations() * mebibytes * static_cast<long>(kMebibyte));
    };
    benchmark::RegisterBenchmark(nameOf("upload/MiB to a file", mebibytes, subject).c_str(), run)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
}

} // namespace

void pieces::addUpload() {
    for (const long mebibytes : {1, 10, 64}) {
        addOne(mebibytes, "ours", &Upload::receive);
        addOne(mebibytes, "copy", &Upload::copy);
    }
}
