// The result of a body does not depend on the pieces in which it arrives, and a truncated body is
// never accepted as a whole one.
#include "cgi_bodies.h"
#include "cgi_cut_input.h"
#include "cgi_list.h"
#include "cgi_temporary_folder.h"
#include "multipart.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <filesystem>

// Does nothing: whether data are on the disk is not tested here, and syncing takes time.
extern "C" int fsync(int) {
    return 0;
}

namespace {

using namespace kit::testing;

using Names = std::set<std::string>;

// Records what the parser delivers of a body in two pieces.
class Recorder : public cgi::PartSink {
public:
    Recorder(const OddBody& body, std::size_t cut) {
        const auto boundary = cgi::multipartBoundary(body.type.c_str());
        if (!boundary.has_value())
            return;
        cgi::MultipartParser parser(*boundary, *this);
        const std::vector<char> first(body.bytes.begin(),
                                      body.bytes.begin() + static_cast<std::ptrdiff_t>(cut));
        const std::vector<char> second(body.bytes.begin() + static_cast<std::ptrdiff_t>(cut),
                                       body.bytes.end());
        parser.push(first.data(), first.size());
        text += std::to_string(static_cast<int>(parser.push(second.data(), second.size())));
    }

    bool beginPart(cgi::Part part) override {
        text += "part " + part.name + '/' + part.fileName.value_or("(text)") + '\n';
        return true;
    }
    bool partData(const char* data, std::size_t size) override {
        text.append(data, size);
        return true;
    }
    bool endPart() override {
        text += "end\n";
        return true;
    }

    std::string text;
};

std::size_t openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

// Uploads to a file that contains "old".
class Uploads : public testing::Test {
protected:
    Uploads() : m_descriptors(openDescriptors()) {}
    ~Uploads() override { EXPECT_EQ(m_descriptors, openDescriptors()); }

    List upload(const OddBody& body, std::size_t size, std::size_t pieceSize = 8192) {
        MemoryInput in(body.bytes.substr(0, size), pieceSize);
        return List(CGI_fileupload(nullptr, body.type.c_str(), m_path.c_str(), in.stream()));
    }

    void putOldFile() const { m_folder.write("new.bin", "old"); }
    bool hasOldFile() const { return m_folder.read("new.bin") == "old"; }

    void expectOutcome(const OddBody& body, const List& list) const {
        expectFields(body.fields, list);
        const std::string stored = body.file != kNoFile ? body.file : "old";
        EXPECT_TRUE(stored == m_folder.read("new.bin"));
    }
    void expectNothingLeftBehind() const { EXPECT_EQ(Names{"new.bin"}, m_folder.names()); }

    const TemporaryFolder m_folder;
    const std::string m_path = m_folder.path("new.bin");

private:
    const std::size_t m_descriptors;
};

} // namespace

TEST_F(Uploads, GiveTheExpectedResultWholeAndByteByByte) {
    for (const OddBody& body : oddBodies())
        for (const std::size_t pieceSize : {std::size_t{8192}, std::size_t{1}}) {
            SCOPED_TRACE(body.story);
            putOldFile();
            expectOutcome(body, upload(body, std::string::npos, pieceSize));
            expectNothingLeftBehind();
        }
}

TEST_F(Uploads, GiveTheSameResultInMemoryWhereverTheyAreCut) {
    for (const OddBody& body : oddBodies()) {
        std::vector<char> buffer(body.bytes.size());
        for (const std::size_t cut : cutsIn(body.bytes.size())) {
            SCOPED_TRACE(body.story + ", cut at " + std::to_string(cut));
            TwoPieces in(body.bytes, cut);
            int received = -1;
            const List list(CGI_fileupload_data(nullptr, body.type.c_str(), buffer.data(),
                                                buffer.size(), in.stream(), &received));
            expectFields(body.fields, list);
            const std::string stored(buffer.data(), static_cast<std::size_t>(received));
            EXPECT_TRUE((body.file != kNoFile ? body.file : "") == stored);
        }
    }
}

TEST_F(Uploads, AreParsedTheSameWhereverTheyAreCut) {
    for (const OddBody& body : oddBodies()) {
        const std::string whole = Recorder(body, 0).text;
        for (const std::size_t cut : cutsIn(body.bytes.size()))
            ASSERT_TRUE(whole == Recorder(body, cut).text) << body.story << ", cut at " << cut;
    }
}

// A body that is cut short before a certain byte stores nothing, behind it everything.
TEST_F(Uploads, AreStoredWholeOrNotAtAllWhenCutShort) {
    for (const OddBody& body : oddBodies()) {
        bool stored = false;
        putOldFile();
        for (const std::size_t size : cutsIn(body.bytes.size())) {
            SCOPED_TRACE(body.story + ", cut short at " + std::to_string(size));
            const List list = upload(body, size);
            if (stored || !hasOldFile()) {
                stored = true;
                expectOutcome(body, list);
                putOldFile();
            } else {
                expectNoOtherFields(body.fields, list);
            }
        }
        EXPECT_TRUE(!stored || body.file != kNoFile) << body.story;
        expectNothingLeftBehind();
    }
}
