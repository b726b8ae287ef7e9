#include "multipart.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <vector>

using Progress = cgi::MultipartParser::Progress;

namespace {

// A part that the parser has delivered; the file name of a text field is "(text)".
struct Received {
    std::string name;
    std::string fileName;
    std::string data;
    bool ended = false;

    bool operator==(const Received& other) const {
        return name == other.name && fileName == other.fileName && data == other.data &&
               ended == other.ended;
    }
};

std::ostream& operator<<(std::ostream& out, const Received& part) {
    return out << part.name << '/' << part.fileName << '/' << part.data << '/' << part.ended;
}

using Parts = std::vector<Received>;

Received text(std::string name, std::string data) {
    return {std::move(name), "(text)", std::move(data), true};
}
Received file(std::string name, std::string fileName, std::string data) {
    return {std::move(name), std::move(fileName), std::move(data), true};
}

class Recorder : public cgi::PartSink {
public:
    bool beginPart(cgi::Part part) override {
        parts.push_back({part.name, part.fileName.value_or("(text)"), "", false});
        return refuseBegin != parts.size();
    }
    bool partData(const char* data, std::size_t size) override {
        EXPECT_GT(size, 0u);
        parts.back().data.append(data, size);
        return !refuseData;
    }
    bool endPart() override {
        parts.back().ended = true;
        return !refuseEnd;
    }

    Parts parts;
    std::size_t refuseBegin = 0;
    bool refuseData = false;
    bool refuseEnd = false;
};

// Copies the piece to memory of its exact size, so that a sanitizer detects reads beyond it.
Progress push(cgi::MultipartParser& parser, const std::string& piece) {
    const std::vector<char> exact(piece.begin(), piece.end());
    return parser.push(exact.data(), exact.size());
}

struct Outcome {
    Progress progress;
    Parts parts;
};

template <class PieceSize>
Outcome parse(const std::string& body, const std::string& boundary, PieceSize pieceSize) {
    Recorder recorder;
    cgi::MultipartParser parser(boundary, recorder);
    Progress progress = Progress::WantsMore;
    for (std::size_t at = 0; at < body.size();) {
        const std::string piece = body.substr(at, pieceSize());
        progress = push(parser, piece);
        at += piece.size();
    }
    return {progress, recorder.parts};
}

Outcome parseWhole(const std::string& body, const std::string& boundary = "b") {
    return parse(body, boundary, [] { return std::string::npos; });
}

std::string textPart(const std::string& name, const std::string& data) {
    return "--b\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + data + "\r\n";
}
std::string filePart(const std::string& fileName, const std::string& data) {
    return "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"" + fileName +
           "\"\r\nContent-Type: text/plain\r\n\r\n" + data + "\r\n";
}
// Returns a part with these headers and the data "x".
std::string headedPart(const std::string& headers) {
    return "--b\r\n" + headers + "\r\n\r\nx\r\n";
}

const std::string kEnd = "--b--\r\n";

} // namespace

TEST(Boundary, IsReadFromTheContentType) {
    const struct {
        const char* type;
        std::string boundary;
    } table[] = {
        {"multipart/form-data; boundary=abc", "abc"},
        {"multipart/form-data;boundary=abc", "abc"},
        {"Multipart/Form-Data; BOUNDARY=aBc", "aBc"},
        {"multipart/form-data; charset=utf-8; boundary=abc; x=y", "abc"},
        {"multipart/form-data; boundary=\"abc\"", "abc"},
        {"multipart/form-data; boundary=\"a b;c=d\" ; x=y", "a b;c=d"},
        {"multipart/form-data; boundary=\"a\\\"\\\\b\"", "a\"\\b"},
        {"multipart/form-data; x=\"; boundary=no\"; boundary=abc", "abc"},
        {"multipart/form-data; boundary = abc ", "abc"},
        {"multipart/form-data;; boundary=abc;", "abc"},
        {"multipart/form-data; boundary=----=_a/b:c?d", "----=_a/b:c?d"},
        {"multipart/form-data; boundary='()+_,-./:=?", "'()+_,-./:=?"},
    };
    for (const auto& row : table)
        EXPECT_EQ(row.boundary, cgi::multipartBoundary(row.type)) << row.type;
}

TEST(Boundary, MayHaveAnyLength) {
    for (std::size_t length : {1, 69, 70, 71, 4091, 4096, 100000}) {
        const std::string boundary(length, 'b');
        const std::string unquoted = "multipart/form-data; boundary=" + boundary;
        const std::string quoted = "multipart/form-data; boundary=\"" + boundary + "\"";
        EXPECT_EQ(boundary, cgi::multipartBoundary(unquoted.c_str()));
        EXPECT_EQ(boundary, cgi::multipartBoundary(quoted.c_str()));
    }
}

TEST(Boundary, MustNotBeEmptyOrMalformedOrOfAnotherType) {
    for (const char* type :
         {static_cast<const char*>(nullptr), "", "multipart/form-data",
          "multipart/mixed; boundary=b", "multipart/form-data2; boundary=b",
          "application/x-www-form-urlencoded; boundary=b", "boundary=b", "; boundary=b",
          "multipart/form-data; boundary=", "multipart/form-data; boundary=\"\"",
          "multipart/form-data; boundary", "multipart/form-data; =b",
          "multipart/form-data; boundary=\"b", "multipart/form-data; boundary=\"b\\\"",
          "multipart/form-data; boundary=\"b\"c", "multipart/form-data; boundary=\"b\rc\"",
          "multipart/form-data; boundary=\"b\nc\"", "multipart/form-data; boundary=a\x01",
          "multipart/form-data boundary=b", "multipart/form-data; xboundary=b",
          // RFC 6266, section 4.1.
          "multipart/form-data; boundary=b; boundary=b"})
        EXPECT_EQ(std::nullopt, cgi::multipartBoundary(type))
            << (type != nullptr ? type : "(null)");
}

TEST(MultipartParser, DeliversABodyPartByPart) {
    const struct {
        std::string body;
        Parts parts;
    } table[] = {
        {kEnd, {}},
        {textPart("a", "1") + kEnd, {text("a", "1")}},
        {textPart("a", "") + kEnd, {text("a", "")}},
        {textPart("", "1") + kEnd, {text("", "1")}},
        {textPart("a", "1") + textPart("a", "2") + kEnd, {text("a", "1"), text("a", "2")}},
        {filePart("x.txt", "data") + kEnd, {file("f", "x.txt", "data")}},
        {filePart("", "") + kEnd, {file("f", "", "")}},
        // The closing boundary needs no line end, and what follows it is ignored.
        {textPart("a", "1") + "--b--", {text("a", "1")}},
        {textPart("a", "1") + "--b--epilogue\r\n" + textPart("c", "2"), {text("a", "1")}},
        // So is what precedes the first boundary (RFC 2046, section 5.1.1).
        {"preamble --b\r\n-\r\n--\r\n" + textPart("a", "1") + kEnd, {text("a", "1")}},
        {"\r\n" + textPart("a", "1") + kEnd, {text("a", "1")}},
        // Blanks may follow a boundary.
        {"--b \t \r\nContent-Disposition: form-data; name=a\r\n\r\n1\r\n--b-- \t\r\n",
         {text("a", "1")}},
        // A part without data may lack their line end, too.
        {"--b\r\nContent-Disposition: form-data; name=a\r\n\r\n--b--", {text("a", "")}},
        // Data that look like a boundary.
        {textPart("a", "\r") + kEnd, {text("a", "\r")}},
        {textPart("a", "\r\n") + kEnd, {text("a", "\r\n")}},
        {textPart("a", "\r\r\n") + kEnd, {text("a", "\r\r\n")}},
        {textPart("a", "\r\n-") + kEnd, {text("a", "\r\n-")}},
        {textPart("a", "\r\n--") + kEnd, {text("a", "\r\n--")}},
        {textPart("a", "\r\n--\r\n--") + kEnd, {text("a", "\r\n--\r\n--")}},
        {textPart("a", "\r\n--B\r\n-\r\n--a") + kEnd, {text("a", "\r\n--B\r\n-\r\n--a")}},
        {textPart("a", "x--b\r\n\n--b\r--b--") + kEnd, {text("a", "x--b\r\n\n--b\r--b--")}},
        {textPart("a", "-x") + kEnd, {text("a", "-x")}},
        {textPart("a", "--") + kEnd, {text("a", "--")}},
        {textPart("a", std::string("\0\xff", 2)) + kEnd, {text("a", std::string("\0\xff", 2))}},
        // Data are not encoded.
        {textPart("a", "%41+&=") + kEnd, {text("a", "%41+&=")}},
    };
    for (const auto& row : table) {
        const Outcome outcome = parseWhole(row.body);
        EXPECT_EQ(Progress::Complete, outcome.progress) << row.body;
        EXPECT_EQ(row.parts, outcome.parts) << row.body;
    }
}

TEST(MultipartParser, DeliversTheSamePartsHoweverTheBodyIsCut) {
    const std::string body = "preamble\r\n" + textPart("a", "\r\n--\r\n--c\r\r\n") +
                             filePart("x", "\r\n--c" + std::string(30, '\r')) + textPart("", "") +
                             "--b--epilogue";
    const Outcome whole = parseWhole(body);
    ASSERT_EQ(Progress::Complete, whole.progress);
    ASSERT_EQ(3u, whole.parts.size());

    for (std::size_t size = 1; size < 20; ++size)
        EXPECT_EQ(whole.parts, parse(body, "b", [size] { return size; }).parts);

    std::minstd_rand random(20240229);
    std::uniform_int_distribution<std::size_t> sizes(1, 40);
    for (int round = 0; round < 200; ++round)
        EXPECT_EQ(whole.parts, parse(body, "b", [&] { return sizes(random); }).parts);
}

// Compares the parser with a plain search, for random data made of pieces of the delimiter.
TEST(MultipartParser, DeliversDataThatStartsLikeADelimiter) {
    const std::string delimiter = "\r\n--b-b";
    std::minstd_rand random(7);
    for (int round = 0; round < 5000; ++round) {
        std::string data;
        while (data.size() < 30)
            data += delimiter.substr(random() % 3, random() % 6);
        if (("\r\n" + data + delimiter).find(delimiter) != data.size() + 2)
            continue;
        const std::string body =
            "--b-b\r\nContent-Disposition: form-data; name=a\r\n\r\n" + data + delimiter + "--";
        const Outcome outcome = parseWhole(body, "b-b");
        EXPECT_EQ(Progress::Complete, outcome.progress);
        ASSERT_EQ((Parts{text("a", data)}), outcome.parts);
    }
}

TEST(MultipartParser, WantsMoreUntilTheClosingBoundary) {
    const std::string body = textPart("a", "1") + filePart("x", "data") + "--b--";
    for (std::size_t length = 0; length < body.size(); ++length)
        EXPECT_EQ(Progress::WantsMore, parseWhole(body.substr(0, length)).progress) << length;
    EXPECT_EQ(Progress::Complete, parseWhole(body).progress);
}

TEST(MultipartParser, RejectsMalformedBodies) {
    const std::string good = "Content-Disposition: form-data; name=a";
    for (const std::string& body : {
             // A line of data must not begin with the delimiter (RFC 2046, section 5.1.1).
             textPart("a", "\r\n--bx") + kEnd,
             textPart("a", "--bx") + kEnd,
             textPart("a", "1") + "--b-x",
             textPart("a", "1") + "--b --",
             std::string("--b\n"),
             std::string("--b\rx"),
             // Headers.
             headedPart(""),
             headedPart("Content-Type: text/plain"),
             headedPart("nonsense"),
             headedPart(good + "\r\nnonsense"),
             headedPart(": x\r\n" + good),
             headedPart(" " + good),
             headedPart("Content-Disposition : form-data; name=a"),
             headedPart(good + "\r\n" + good),
             headedPart(good + "\nX: y"),
             headedPart(good + "\rX: y"),
             headedPart(good + std::string("\0", 1)),
             headedPart("X: y\r\n--b--"),
             // Dispositions (RFC 7578, section 4.2).
             headedPart("Content-Disposition: form-data"),
             headedPart("Content-Disposition: form-data; filename=x"),
             headedPart("Content-Disposition: attachment; name=a"),
             headedPart("Content-Disposition: name=a"),
             headedPart("Content-Disposition: form-data; name"),
             headedPart("Content-Disposition: form-data; name=\"a"),
             headedPart("Content-Disposition: form-data; name=\"a\"b"),
             headedPart(good + "; name=c"),
             headedPart(good + "; filename=x; filename=y"),
             headedPart(good + "; filename*=UTF-8''x"),
         })
        EXPECT_EQ(Progress::Bad, parseWhole(body + textPart("z", "1") + kEnd).progress) << body;
}

TEST(PartHeaders, NameFieldsAndFiles) {
    const struct {
        const char* header;
        Received part;
    } table[] = {
        {"Content-Disposition: form-data; name=\"a b\"", text("a b", "x")},
        {"CONTENT-disposition:FORM-DATA;NAME=a", text("a", "x")},
        {"Content-Disposition: form-data; name=\"a;b=c\"", text("a;b=c", "x")},
        {"Content-Disposition: form-data; name=\"a\\\"b\"", text("a\"b", "x")},
        {"Content-Disposition: form-data; name=a; filename=x.txt", file("a", "x.txt", "x")},
        {"Content-Disposition: form-data; FileName=\"\"; name=a", file("a", "", "x")},
        {"Content-Disposition: form-data; name=a; filename=", file("a", "", "x")},
        {"Content-Disposition: form-data; name=a; filename=\"C:\\dir\\x.txt\"",
         file("a", "C:\\dir\\x.txt", "x")},
        // A backslash escapes only a quote and another backslash.
        {"Content-Disposition: form-data; name=a; filename=\"x\\\\y\\z\\\\\"",
         file("a", "x\\y\\z\\", "x")},
        {"Content-Disposition: form-data; name=a; filename=x; filename*=UTF-8''y",
         file("a", "x", "x")},
        {"Content-Disposition: form-data; name=\"\xc3\xa4\"", text("\xc3\xa4", "x")},
        {"Content-Disposition: form-data;\r\n name=a;\r\n\tfilename=x", file("a", "x", "x")},
        // Unfolding removes the line end only (RFC 5322, section 2.2.3).
        {"Content-Disposition: form-data; name=\"a\r\n b\r\n\tc\"", text("a b\tc", "x")},
        {"X-Other:\r\nContent-Disposition: form-data; name=a\r\nContent-Type: x/y", text("a", "x")},
        {"Content-Transfer-Encoding: base64\r\nContent-Disposition: form-data; name=a",
         text("a", "x")},
    };
    for (const auto& row : table) {
        const Outcome outcome = parseWhole(headedPart(row.header) + kEnd);
        EXPECT_EQ(Progress::Complete, outcome.progress) << row.header;
        EXPECT_EQ((Parts{row.part}), outcome.parts) << row.header;
    }
}

TEST(PartHeaders, MayHave16KibibytesAtMost) {
    const std::string disposition = "Content-Disposition: form-data; name=a\r\nX: ";
    const std::size_t room = 16 * 1024 - disposition.size() - 4;
    EXPECT_EQ(Progress::Complete,
              parseWhole(headedPart(disposition + std::string(room, 'x')) + kEnd).progress);
    EXPECT_EQ(Progress::Bad,
              parseWhole(headedPart(disposition + std::string(room + 1, 'x')) + kEnd).progress);
    // Even if they never end.
    EXPECT_EQ(Progress::Bad, parseWhole("--b\r\n" + std::string(20000, 'x')).progress);
}

TEST(MultipartParser, StopsWhenItsSinkReturnsFalse) {
    const std::string body = textPart("a", "1") + textPart("c", "2") + kEnd;
    for (const char* refusal : {"begin", "data", "end"}) {
        Recorder recorder;
        recorder.refuseBegin = refusal == std::string("begin") ? 2 : 0;
        recorder.refuseData = refusal == std::string("data");
        recorder.refuseEnd = refusal == std::string("end");
        cgi::MultipartParser parser("b", recorder);
        EXPECT_EQ(Progress::Bad, push(parser, body)) << refusal;
        const Parts before = recorder.parts;
        EXPECT_EQ(Progress::Bad, push(parser, "\r\n" + body)) << refusal;
        EXPECT_EQ(before, recorder.parts) << refusal;
    }
}

TEST(MultipartParser, IgnoresAllBytesAfterTheClosingBoundary) {
    Recorder recorder;
    cgi::MultipartParser parser("b", recorder);
    EXPECT_EQ(Progress::Complete, push(parser, kEnd));
    EXPECT_EQ(Progress::Complete, push(parser, "\r\n" + textPart("a", "1") + kEnd));
    EXPECT_EQ(Parts(), recorder.parts);
}

TEST(MultipartParser, DeliversMebibytesOfFalseStarts) {
    const std::string boundary(4096, '-');
    const std::string head =
        "--" + boundary + "\r\nContent-Disposition: form-data; name=f; filename=x\r\n\r\n";
    const std::string falseStart = "\r\n--" + boundary.substr(1);
    std::string data;
    while (data.size() < 4 * 1024 * 1024)
        data += falseStart;
    for (const std::string& hostile :
         {data, std::string(data.size(), '\r'), std::string(data.size(), '-')}) {
        const Outcome outcome =
            parseWhole(head + "x" + hostile + "\r\n--" + boundary + "--", boundary);
        EXPECT_EQ(Progress::Complete, outcome.progress);
        ASSERT_EQ(1u, outcome.parts.size());
        EXPECT_TRUE("x" + hostile == outcome.parts[0].data);
    }
}
