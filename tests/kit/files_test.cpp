#include "served.h"

#include <kit/testing/recorded_log.h>

#include <base/descriptor.h>
#include <http_request.h>
#include <http_response.h>
#include <session_factory.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <new>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

using namespace kit::testing;

namespace {

constexpr char kContent[] = "0123456789";

// A folder "files" beside a file that no client may see.
class Files : public testing::Test {
protected:
    Files() {
        char name[] = "/tmp/kit_files.XXXXXX";
        m_root = mkdtemp(name);
        folder = m_root + "/files";
        mkdir(folder.c_str(), 0700);
        put("../secret.txt", "secret");
        path = put("a.txt", kContent);
        recorded_log::clear();
    }
    ~Files() override { EXPECT_EQ(std::system(("rm -rf " + m_root).c_str()), 0); }

    // Creates a file that was last changed an hour ago.
    std::string put(const std::string& name, const std::string& content) const {
        const std::string file = folder + "/" + name;
        std::ofstream(file) << content;
        setAge(file, 3600);
        return file;
    }

    static void setAge(const std::string& file, std::time_t seconds) {
        timespec times[2] = {};
        times[0].tv_sec = times[1].tv_sec = std::time(nullptr) - seconds;
        ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    }

    Response sent(const std::string& file, const Request& request = get("/servlet?p=x")) const {
        return answerTo(request, [&](kit::Request&, kit::Response& response) {
            if (!response.file(file)) {
                response.text("no such file");
            }
        });
    }
    Response sentFrom(const std::string& name) const {
        return answerTo(get("/servlet?p=x"), [&](kit::Request&, kit::Response& response) {
            if (!response.fileFrom(folder, name)) {
                response.text("no such file");
            }
        });
    }

    std::string folder;
    std::string path;

private:
    std::string m_root;
};

} // namespace

TEST_F(Files, AreSentWithTheirHeaders) {
    const Response response = sent(path);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kContent);
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(response.header("Content-Length"), "10");
    EXPECT_EQ(response.header("Accept-Ranges"), "bytes");
    EXPECT_EQ(response.header("Cache-Control"), "private, no-cache");
    EXPECT_EQ(response.header("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(response.header("Content-Range"), std::nullopt);
    const auto date = kit::readHttpDate(response.header("Last-Modified").value_or(""));
    ASSERT_TRUE(date);
    EXPECT_NEAR(static_cast<double>(*date), static_cast<double>(std::time(nullptr) - 3600), 60);
    const std::string tag = response.header("ETag").value_or("");
    ASSERT_GT(tag.size(), 2u);
    EXPECT_EQ(tag.front(), '"') << "not weak";
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(Files, AreSentWhateverTheirDate) {
    // 2038-01-20, which does not fit into 32 bits.
    const timespec times[2] = {{2147558400, 0}, {2147558400, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    const Response response = sent(path);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, kContent);
    EXPECT_NE(response.header("ETag").value_or("").find("-80012400."), std::string::npos);
}

TEST_F(Files, AreSentFromBeyondTwoGibibytes) {
    constexpr std::uint64_t kSize = 5'000'000'000;
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(kSize)), 0);
    std::fstream(path).seekp(kSize - 3) << "end";
    const Response response = sent(path, get("/servlet?p=x").header("Range", "bytes=-3"));
    EXPECT_EQ(response.status, 206);
    EXPECT_EQ(response.body, "end");
    EXPECT_EQ(response.header("Content-Range"), "bytes 4999999997-4999999999/5000000000");
}

TEST_F(Files, HaveTheTypeOfTheirName) {
    const struct {
        const char* name;
        const char* type;
    } kCases[] = {
        {"a.html", "text/html; charset=utf-8"}, {"a.HTML", "text/html; charset=utf-8"},
        {".html", "text/html; charset=utf-8"},  {"a.txt", "text/plain; charset=utf-8"},
        {"a.log", "text/plain; charset=utf-8"}, {"a.csv", "text/csv; charset=utf-8"},
        {"a.b.pdf", "application/pdf"},         {"a.jpeg", "image/jpeg"},
        {"a.js", "application/octet-stream"},   {"a.css", "application/octet-stream"},
        {"a.img", "application/octet-stream"},  {"html", "application/octet-stream"},
        {"a.", "application/octet-stream"},     {"", "application/octet-stream"},
    };
    for (const auto& one : kCases) {
        EXPECT_STREQ(kit::contentTypeOf(one.name), one.type) << one.name;
    }
    const Response response = answerTo(get("/servlet?p=x"), [&](kit::Request&, kit::Response& out) {
        out.header("Content-Type", "text/x");
        out.header("Cache-Control", "max-age=60");
        EXPECT_TRUE(out.file(path));
    });
    EXPECT_EQ(response.header("Content-Type"), "text/x");
    EXPECT_EQ(response.header("Cache-Control"), "max-age=60");
}

TEST_F(Files, RunNoScripts) {
    for (const char* name : {"a.html", "a.svg", "a.xml"}) {
        const auto policy = sent(put(name, "<script>")).header("Content-Security-Policy");
        EXPECT_NE(policy.value_or("").find("; sandbox"), std::string::npos) << name;
    }
    EXPECT_EQ(sent(path).header("Content-Security-Policy").value_or("").find("sandbox"),
              std::string::npos);
}

TEST_F(Files, AreNotSentAgainToABrowserThatHasThem) {
    const Response first = sent(path);
    const std::string tag = *first.header("ETag");
    const std::string date = *first.header("Last-Modified");
    for (const char* method : {"GET", "HEAD"}) {
        const Request again(method, "/servlet?p=x");
        for (const Request& request :
             {again.header("If-None-Match", tag), again.header("If-Modified-Since", date)}) {
            const Response response = sent(path, request);
            EXPECT_EQ(response.status, 304) << method;
            EXPECT_EQ(response.body, "");
            EXPECT_EQ(response.header("ETag"), tag);
            EXPECT_EQ(response.header("Last-Modified"), date);
            EXPECT_EQ(response.header("Cache-Control"), "private, no-cache");
            EXPECT_EQ(response.header("Content-Length"), std::nullopt);
        }
    }
    const Response posted = sent(path, post("/servlet?p=x").header("If-None-Match", tag));
    EXPECT_EQ(posted.status, 200) << "conditions of other methods mean something else";
    EXPECT_EQ(sent(path, get("/servlet?p=x").header("If-Match", "\"other\"")).status, 412);
    put("a.txt", "9876543210");
    EXPECT_EQ(sent(path, get("/servlet?p=x").header("If-None-Match", tag)).body, "9876543210")
        << "another file with the same size and date";
}

TEST_F(Files, HaveAWeakEntityTagWhileTheyMayChangeUnnoticed) {
    setAge(path, 0);
    EXPECT_EQ(sent(path).header("ETag").value_or("").substr(0, 3), "W/\"");
}

TEST_F(Files, HaveNoDateInTheFuture) {
    setAge(path, -3600);
    const Response response = sent(path);
    EXPECT_EQ(response.header("Last-Modified"), std::nullopt);
    EXPECT_EQ(response.body, kContent);
}

TEST_F(Files, AreSentInParts) {
    const auto part = [&](const char* range) {
        return sent(path, get("/servlet?p=x").header("Range", range));
    };
    const Response middle = part("bytes=2-4");
    EXPECT_EQ(middle.status, 206);
    EXPECT_EQ(middle.body, "234");
    EXPECT_EQ(middle.header("Content-Range"), "bytes 2-4/10");
    EXPECT_EQ(middle.header("Content-Length"), "3");
    EXPECT_EQ(middle.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(part("bytes=8-").body, "89");
    EXPECT_EQ(part("bytes=-1").body, "9");
    EXPECT_EQ(part("bytes=0-").status, 206);

    const Response none = part("bytes=10-");
    EXPECT_EQ(none.status, 416);
    EXPECT_EQ(none.body, "");
    EXPECT_EQ(none.header("Content-Range"), "bytes */10");
    EXPECT_EQ(none.header("Content-Length"), "0");

    const Response several = part("bytes=0-1,4-5");
    EXPECT_EQ(several.status, 200);
    EXPECT_EQ(several.body, kContent);
}

TEST_F(Files, AreSentInPartsOfTheVersionThatTheBrowserHas) {
    const Request resumed = get("/servlet?p=x").header("Range", "bytes=8-");
    const std::string tag = *sent(path).header("ETag");
    EXPECT_EQ(sent(path, resumed.header("If-Range", tag)).body, "89");
    EXPECT_EQ(sent(path, resumed.header("If-Range", "\"other\"")).body, kContent);
    EXPECT_EQ(sent(path, resumed.header("If-None-Match", tag)).status, 304);
}

TEST_F(Files, AreAnsweredToHeadWithoutTheirContent) {
    const Response response = sent(path, Request("HEAD", "/servlet?p=x"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("Content-Length"), "10");
    EXPECT_EQ(response.body, "");
}

TEST_F(Files, MayBeEmptyAndLarge) {
    const Response empty = sent(put("empty", ""), get("/servlet?p=x").header("Range", "bytes=0-"));
    EXPECT_EQ(empty.status, 200);
    EXPECT_EQ(empty.header("Content-Length"), "0");
    EXPECT_EQ(empty.body, "");
    std::string bytes(100000, 'x');
    bytes[8191] = '\0';
    bytes[8192] = '\xFF';
    EXPECT_EQ(sent(put("large", bytes)).body, bytes);
}

TEST_F(Files, AreOfferedForDownload) {
    const Response response = answerTo(get("/servlet?p=x"), [&](kit::Request&, kit::Response& out) {
        EXPECT_FALSE(out.attachment("a b"));
        EXPECT_TRUE(out.attachment("numbers.txt"));
        EXPECT_TRUE(out.file(path));
    });
    EXPECT_EQ(response.header("Content-Disposition"), "attachment; filename=numbers.txt");
    EXPECT_EQ(response.body, kContent);
    EXPECT_EQ(recorded_log::records(),
              std::vector{recorded_log::webDebug("error", "Page x: refused the file name a b")});
    const Response missing = answerTo(get("/servlet?p=x"), [&](kit::Request&, kit::Response& out) {
        out.attachment("numbers.txt");
        EXPECT_FALSE(out.fileFrom(folder, "none"));
        out.text("none");
    });
    EXPECT_EQ(missing.header("Content-Disposition"), "inline") << "the error is for reading";
}

TEST_F(Files, ThatAreMissingAreAnsweredByThePage) {
    mkfifo((folder + "/pipe").c_str(), 0600);
    const base::Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{AF_UNIX, ""};
    (folder + "/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    for (const std::string& missing :
         {folder + "/none", folder, folder + "/pipe", folder + "/socket", path + "/a",
          std::string("/dev/null"), std::string(), folder + "/" + std::string(300, 'x')}) {
        const Response response = sent(missing);
        EXPECT_EQ(response.status, 404) << missing;
        EXPECT_EQ(response.body, "no such file") << missing;
        EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(response.header("ETag"), std::nullopt);
        EXPECT_EQ(response.header("Content-Disposition"), std::nullopt);
    }
    EXPECT_EQ(recorded_log::records(),
              (std::vector{
                  recorded_log::webDebug("error", "Page x: there is no file " + folder + "/none"),
                  recorded_log::webDebug("error", "Page x: there is no file ")}));
}

TEST_F(Files, ThatCannotBeOpenedAreAnsweredWithAnError) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    // clang's check of an object's type needs a pipe, unless it has seen an object of that type
    // before.
    Response response = sent(path);
    ASSERT_EQ(response.status, 200);
    {
        const rlimit none{0, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        response = sent(path);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    }
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "The page failed; the device's log says why.\n");
    EXPECT_EQ(recorded_log::records(),
              std::vector{recorded_log::webDebug("error", "Page x: cannot open the file " + path +
                                                              ": Too many open files")});
}

TEST_F(Files, AreFoundBelowTheirFolder) {
    mkdir((folder + "/sub").c_str(), 0700);
    put("sub/b.txt", "b");
    put("sub/..b", "hidden");
    EXPECT_EQ(sentFrom("a.txt").body, kContent);
    EXPECT_EQ(sentFrom("sub/b.txt").body, "b");
    EXPECT_EQ(sentFrom("sub/b.txt").header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(sentFrom("sub").status, 404);
    EXPECT_EQ(sentFrom("none").status, 404);
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(Files, CannotBeReachedOutsideTheirFolder) {
    mkdir((folder + "/sub").c_str(), 0700);
    put(".hidden", "hidden");
    const std::string names[] = {"../secret.txt",
                                 "sub/../../secret.txt",
                                 "..",
                                 ".",
                                 "",
                                 "/etc/passwd",
                                 path,
                                 "sub//../../secret.txt",
                                 "./a.txt",
                                 "a.txt/",
                                 "//a.txt",
                                 ".hidden",
                                 "sub/.",
                                 std::string("a.txt\0.png", 10)};
    for (const std::string& name : names) {
        const Response response = sentFrom(name);
        EXPECT_EQ(response.status, 404) << name;
        EXPECT_EQ(response.body, "no such file") << name;
    }
    EXPECT_EQ(recorded_log::records()[0],
              recorded_log::webDebug("warn", "Page x: refused the file name ../secret.txt below " +
                                                 folder));
    EXPECT_EQ(recorded_log::records().size(), std::size(names));
}

TEST_F(Files, CannotBeReachedThroughSymbolicLinks) {
    const auto link = [&](const std::string& target, const char* name) {
        ASSERT_EQ(symlink(target.c_str(), (folder + "/" + name).c_str()), 0);
    };
    link("../secret.txt", "secret.txt");
    link("..", "up");
    link("a.txt", "same.txt");
    for (const char* name : {"secret.txt", "up/secret.txt", "same.txt"}) {
        EXPECT_EQ(sentFrom(name).status, 404) << name;
    }
    // The folder itself may be one: its path is the page's own.
    link(".", "link");
    folder += "/link";
    EXPECT_EQ(sentFrom("a.txt").body, kContent);
}

TEST_F(Files, OfAFolderThatIsNotThereAreAnError) {
    folder += "/none";
    EXPECT_EQ(sentFrom("a.txt").status, 500);
    EXPECT_EQ(recorded_log::records(), std::vector{recorded_log::webDebug(
                                           "error", "Page x: cannot open the folder " + folder +
                                                        ": No such file or directory")});
}

TEST_F(Files, ThatBecomeShorterAreCutOffAndLogged) {
    std::ofstream(path, std::ios::app) << std::string(20000, 'x');
    // Cuts the file as soon as its first piece has been written.
    class Cutting final : public HttpResponseImpl {
    public:
        Cutting(FCGX_Request* request, std::string file)
            : HttpResponseImpl(request), m_file(std::move(file)) {}
        unsigned int write(const void* data, unsigned int size, unsigned int count) override {
            if (count > 0) {
                EXPECT_EQ(truncate(m_file.c_str(), 100), 0);
            }
            return HttpResponseImpl::write(data, size, count);
        }

    private:
        const std::string m_file;
    };
    SessionFactory sessions;
    MemoryRequest fastCgi = get("/servlet?p=x").inMemory();
    Cutting raw(fastCgi.get(), path);
    HttpRequestImpl rawRequest(fastCgi.get(), &sessions, &raw);
    kit::Request request(rawRequest);
    EXPECT_TRUE(kit::Response(raw, request).file(path));
    EXPECT_EQ(Response(fastCgi.out().text()).body.size(), 8192u);
    EXPECT_EQ(recorded_log::records(),
              std::vector{recorded_log::webDebug(
                  "error", "Page x: " + path +
                               " was sent without its last 11818 bytes: the file "
                               "has become shorter")});
}

TEST_F(Files, AreNotReadForAClientThatHasGone) {
    class Counting final : public HttpResponseImpl {
    public:
        using HttpResponseImpl::HttpResponseImpl;
        unsigned int write(const void* data, unsigned int size, unsigned int count) override {
            bytes += count;
            return HttpResponseImpl::write(data, size, count);
        }
        std::size_t bytes = 0;
    };
    FunctionPage page([&](kit::Request&, kit::Response& response) {
        EXPECT_TRUE(response.file(put("large", std::string(1000000, 'x'))));
        kit::Stream stream = response.stream("text/plain");
        EXPECT_FALSE(stream.write("more"));
        EXPECT_FALSE(stream.write("")) << "it stays like that";
    });
    SessionFactory sessions;
    MemoryRequest fastCgi = get("/servlet?p=x").inMemory();
    Counting raw(fastCgi.get());
    HttpRequestImpl request(fastCgi.get(), &sessions, &raw);
    fastCgi.out().breakPipe();
    kit::internal::ServletHandle(page, "createX").service(&request, &raw);
    EXPECT_GT(raw.bytes, 0u);
    EXPECT_LT(raw.bytes, 20000u);
}

// The attack on a browser's cache: an error that is kept with the file's ETag would be shown until
// the file changes.
TEST_F(Files, AreNotKeptByABrowserIfTheyFail) {
    class Failing final : public HttpResponseImpl {
        using HttpResponseImpl::HttpResponseImpl;
        void setHeader(const char* name, const char* value) override {
            if (std::string_view(name) == "Accept-Ranges") {
                throw std::bad_alloc();
            }
            HttpResponseImpl::setHeader(name, value);
        }
    };
    FunctionPage page([&](kit::Request&, kit::Response& response) { response.file(path); });
    SessionFactory sessions;
    MemoryRequest fastCgi = get("/servlet?p=x").inMemory();
    Failing raw(fastCgi.get());
    HttpRequestImpl request(fastCgi.get(), &sessions, &raw);
    kit::internal::ServletHandle(page, "createX").service(&request, &raw);
    TMPL_free_varlist(raw.getMainVarList()); // as flush() would
    const Response response(fastCgi.out().text());
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
}

TEST(KitStream, RefusesAContentTypeAndThenSendsNothing) {
    const Response response = answerTo(get("/servlet?p=x"), [](kit::Request&, kit::Response& out) {
        EXPECT_FALSE(out.stream("text/x\r\nX: y").write("body"));
    });
    EXPECT_EQ(response.header("X"), std::nullopt);
    EXPECT_EQ(response.body, "");
}

TEST(KitStream, SendsABodyInPieces) {
    const auto page = [](kit::Request&, kit::Response& response) {
        kit::Stream stream = response.stream("text/csv");
        for (int line = 0; line < 1000 && stream.write("0123456789\n"); ++line) {
        }
        stream.write(std::string("\0", 1));
    };
    const Response response = answerTo(get("/servlet?p=x"), page);
    EXPECT_EQ(response.body.size(), 11001u);
    EXPECT_EQ(response.header("Content-Type"), "text/csv");
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
    const Response head = answerTo(Request("HEAD", "/servlet?p=x"), page);
    EXPECT_EQ(head.body, "");
    EXPECT_EQ(head.header("Content-Type"), "text/csv");
}
