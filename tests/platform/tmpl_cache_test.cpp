#include "template_cache.h"
#include "tmpl_fixture.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

using tmpl::TemplateCache;

const tmpl::Position kAsker{"asker", 7};

// How many seconds the clock of this program is ahead of the clock of the files.
std::atomic<time_t> clockAhead{0};

// Makes the last change of all files old enough for the cache to keep them.
void letTimePass() {
    clockAhead = 10;
}

void setTimeBack(const std::string& path) {
    const timespec longAgo[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), longAgo, 0), 0);
}

std::string writeOld(const TemplateFolder& folder, const std::string& name,
                     const std::string& text) {
    const std::string path = folder.write(name, text);
    setTimeBack(path);
    letTimePass();
    return path;
}

// Waits for the file system's clock, so that the next change gets another time stamp.
void waitForNextTime() {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

} // namespace

// Replaces the C library's function, also for the library under test.
extern "C" time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const time_t seconds = now.tv_sec + clockAhead;
    if (result != nullptr)
        *result = seconds;
    return seconds;
}

TEST(TemplateCache, ReadsAFileThatIsDatedAfterThe32BitsOfATimeStampEnd) {
    TemplateFolder folder;
    const std::string page = folder.write("page", "a template");
    const timespec january20th2038[2] = {{2147558400, 0}, {2147558400, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, page.c_str(), january20th2038, 0), 0);
    TemplateCache cache;
    EXPECT_EQ(cache.get(page, kAsker)->source, "a template");
}

TEST(FileIdentity, DiffersWhenAnyAttributeOfTheFileDiffers) {
    const struct stat file {};
    EXPECT_TRUE(tmpl::FileIdentity(file) == tmpl::FileIdentity(file));
    const std::function<void(struct stat&)> changes[] = {
        [](struct stat& other) { other.st_dev = 1; },
        [](struct stat& other) { other.st_ino = 1; },
        [](struct stat& other) { other.st_size = 1; },
        [](struct stat& other) { other.st_mtim.tv_sec = 1; },
        [](struct stat& other) { other.st_mtim.tv_nsec = 1; },
        [](struct stat& other) { other.st_ctim.tv_sec = 1; },
        [](struct stat& other) { other.st_ctim.tv_nsec = 1; }};
    for (const auto& change : changes) {
        struct stat other {};
        change(other);
        EXPECT_FALSE(tmpl::FileIdentity(file) == tmpl::FileIdentity(other));
    }
}

TEST(Cache, ReturnsTheSameParsedFileUntilItChanges) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "old");
    TemplateCache cache;
    const auto first = cache.get(page, kAsker);
    EXPECT_EQ(first->source, "old");
    EXPECT_EQ(cache.get(page, kAsker), first);
    writeOld(folder, "page.html", "newer");
    const auto second = cache.get(page, kAsker);
    EXPECT_EQ(second->source, "newer");
    EXPECT_EQ(cache.get(page, kAsker), second);
    EXPECT_EQ(first->source, "old");
}

TEST(Cache, NoticesAChangeThatKeepsSizeAndTimeOfTheFile) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "old");
    TemplateCache cache;
    EXPECT_EQ(cache.get(page, kAsker)->source, "old");
    waitForNextTime();
    writeOld(folder, "page.html", "new");
    EXPECT_EQ(cache.get(page, kAsker)->source, "new");
}

TEST(Cache, NoticesAFileThatIsReplaced) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "old");
    TemplateCache cache;
    EXPECT_EQ(cache.get(page, kAsker)->source, "old");
    setTimeBack(folder.replace("page.html", "new"));
    EXPECT_EQ(cache.get(page, kAsker)->source, "new");
}

TEST(Cache, DoesNotKeepAFileThatHasJustChanged) {
    const TemplateFolder folder;
    const std::string page = folder.write("page.html", "text");
    clockAhead = 0;
    TemplateCache cache;
    const auto first = cache.get(page, kAsker);
    EXPECT_NE(cache.get(page, kAsker), first);
}

TEST(Cache, DoesNotKeepAFileThatHasJustChangedAndHadItsTimeSetBack) {
    const TemplateFolder folder;
    const std::string page = folder.write("page.html", "text");
    setTimeBack(page);
    clockAhead = 0;
    TemplateCache cache;
    const auto first = cache.get(page, kAsker);
    EXPECT_NE(cache.get(page, kAsker), first);
}

TEST(Cache, ReportsAFileThatWasRemoved) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "text");
    TemplateCache cache;
    cache.get(page, kAsker);
    std::filesystem::remove(page);
    try {
        cache.get(page, kAsker);
        FAIL() << "a file that was removed was found";
    } catch (const tmpl::Fault& fault) {
        EXPECT_EQ(fault.kind(), tmpl::Fault::Unreadable);
        EXPECT_EQ(fault.position().file, "asker");
        EXPECT_EQ(fault.position().line, 7u);
    }
}

TEST(Cache, ForgetsTheLeastRecentlyUsedFileWhenFull) {
    const TemplateFolder folder;
    TemplateCache cache(2);
    const auto a = cache.get(writeOld(folder, "a", "a"), kAsker);
    const auto b = cache.get(writeOld(folder, "b", "b"), kAsker);
    EXPECT_EQ(cache.get(folder.path("a"), kAsker), a);
    const auto c = cache.get(writeOld(folder, "c", "c"), kAsker);
    EXPECT_EQ(cache.get(folder.path("a"), kAsker), a);
    EXPECT_EQ(cache.get(folder.path("c"), kAsker), c);
    EXPECT_NE(cache.get(folder.path("b"), kAsker), b);
}

TEST(Cache, ForgetsFilesThatTakeTooMuchMemory) {
    const TemplateFolder folder;
    const std::string large(10000, 'x');
    TemplateCache cache(100, 25000);
    const auto a = cache.get(writeOld(folder, "a", large), kAsker);
    const auto b = cache.get(writeOld(folder, "b", large), kAsker);
    EXPECT_EQ(cache.get(folder.path("a"), kAsker), a);
    const auto c = cache.get(writeOld(folder, "c", large), kAsker);
    EXPECT_EQ(cache.get(folder.path("c"), kAsker), c);
    EXPECT_EQ(cache.get(folder.path("a"), kAsker), a);
    EXPECT_NE(cache.get(folder.path("b"), kAsker), b);
}

TEST(Cache, CountsAChangedFileOnlyOnce) {
    const TemplateFolder folder;
    const std::string large(10000, 'x');
    TemplateCache cache(100, 25000);
    const auto a = cache.get(writeOld(folder, "a", large), kAsker);
    for (const char* text : {"1", "12", "123", "1234"})
        cache.get(writeOld(folder, "b", large + text), kAsker);
    EXPECT_EQ(cache.get(folder.path("a"), kAsker), a);
}

TEST(Cache, DoesNotKeepAFileLargerThanItsLimit) {
    const TemplateFolder folder;
    TemplateCache cache(100, 5000);
    const auto small = cache.get(writeOld(folder, "small", "x"), kAsker);
    const auto large = cache.get(writeOld(folder, "large", std::string(10000, 'x')), kAsker);
    EXPECT_NE(cache.get(folder.path("large"), kAsker), large);
    EXPECT_EQ(cache.get(folder.path("small"), kAsker), small);
}

TEST(Page, IsRenderedFromTheCurrentFile) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "old");
    EXPECT_EQ(renderFile(page), success("old"));
    EXPECT_EQ(renderFile(page), success("old"));
    folder.write("page.html", "new");
    EXPECT_EQ(renderFile(page), success("new"));
    folder.write("page.html", "two");
    EXPECT_EQ(renderFile(page), success("two"));
}

TEST(Page, IsRenderedFromTheCurrentIncludes) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "<TMPL_INCLUDE name=\"part.html\">");
    writeOld(folder, "part.html", "<TMPL_INCLUDE name=\"inner.html\">.");
    writeOld(folder, "inner.html", "old");
    EXPECT_EQ(renderFile(page), success("old."));
    waitForNextTime();
    writeOld(folder, "inner.html", "new");
    EXPECT_EQ(renderFile(page), success("new."));
    writeOld(folder, "part.html", "other");
    EXPECT_EQ(renderFile(page), success("other"));
    std::filesystem::remove(folder.path("part.html"));
    EXPECT_EQ(renderFile(page).result, 1);
    writeOld(folder, "part.html", "again");
    EXPECT_EQ(renderFile(page), success("again"));
}

TEST(Page, IsRenderedOnceAnErrorIsCorrected) {
    const TemplateFolder folder;
    const std::string page = writeOld(folder, "page.html", "<TMPL_ELSE>");
    EXPECT_EQ(renderFile(page).result, 2);
    EXPECT_EQ(renderFile(page).result, 2);
    waitForNextTime();
    writeOld(folder, "page.html", "now right..");
    EXPECT_EQ(renderFile(page), success("now right.."));
}

TEST(Page, IsConsistentOnEveryThreadWhileItsFilesAreReplaced) {
    const TemplateFolder folder;
    const std::string page = folder.write(
        "page.html", "<TMPL_LOOP name=\"rows\"><TMPL_INCLUDE name=\"part.html\"></TMPL_LOOP>");
    const std::string a(3000, 'a');
    const std::string b(5000, 'b');
    folder.write("part.html", a);
    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    std::atomic<int> pages{0};
    const auto work = [&] {
        TMPL_loop* rows = TMPL_add_row(TMPL_add_row(nullptr, nullptr), nullptr);
        const Variables vars(TMPL_add_loop(nullptr, "rows", rows));
        while (!stop) {
            const Rendered rendered = renderFile(page, vars.get());
            if (!(rendered == success(a + a)) && !(rendered == success(b + b)))
                ++bad;
            ++pages;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work);
    for (int i = 0; i < 200 || pages < 200; ++i) {
        folder.replace("part.html", i % 2 == 0 ? b : a);
        // From time to time as a file that the cache keeps.
        clockAhead = i % 3 == 0 ? 10 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(bad, 0);
}
