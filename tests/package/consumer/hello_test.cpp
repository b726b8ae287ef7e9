// Tests the page of pages.cpp, alone and in the container.
#include <kit/testing/browser.h>
#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>
#include <kit/testing/test_clock.h>

#include <sys/types.h>

#include <cstdio>
#include <ctime>
#include <string>

using namespace kit::testing;

// On 32-bit processors too: a page can read files that are dated after January 2038.
static_assert(sizeof(std::time_t) == 8 && sizeof(off_t) == 8);

extern "C" HttpServlet* createHelloPage();

namespace {

int failures = 0;

void expectEqual(const std::string& actual, const std::string& expected) {
    if (actual == expected)
        return;
    ++failures;
    std::printf("expected \"%s\", got \"%s\"\n", expected.c_str(), actual.c_str());
}

} // namespace

int main() {
    ServletRunner page(createHelloPage);
    expectEqual(page.serve(get("/servlet?p=hello&name=you")).body, "Hello, you!\n");
    expectEqual(page.serve(post("/servlet?p=hello").form({{"name", "a&b"}})).body, "Hello, a&b!\n");

    Container container(SERVLET_XML);
    Browser browser(container);
    const Response greeting = browser.send(get("/servlet?p=hello"));
    expectEqual(greeting.header("Content-Type").value_or("(none)"), "text/plain; charset=utf-8");
    expectEqual(greeting.body, "Hello, stranger!\n");
    expectEqual(std::to_string(browser.send(get("/servlet?q=none")).status), "404");

    test_clock::advanceSeconds(180);
    container.sweep();
    expectEqual(std::to_string(container.sessionCount()), "0");
    expectEqual(recorded_log::records().back().text,
                "ServletContext::doService() End. p parameter not found!\n");
    std::printf("%d failures\n", failures);
    return failures;
}
