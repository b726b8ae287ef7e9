#include "version_page.h"

#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <memory>

using namespace kit::testing;

TEST(VersionPage, IsForProgramsWithTheToken) {
    ServletRunner page([] { return kit::newServlet(std::make_unique<VersionPage>("1234")); });
    const Request request = get("/servlet?p=version");
    EXPECT_EQ(page.serve(request.header("Authorization", "Bearer 1234")).body,
              R"({"version":"1.0"})");

    for (const char* wrong : {"Bearer 123", "Bearer 12345", "bearer 1234", "1234", ""}) {
        EXPECT_EQ(page.serve(request.header("Authorization", wrong)).status, 401) << wrong;
    }
    EXPECT_EQ(page.serve(request).header("WWW-Authenticate"), "Bearer");
}

TEST(VersionPage, SupportsOnlyGet) {
    ServletRunner page([] { return kit::newServlet(std::make_unique<VersionPage>("1234")); });
    const Response response = page.serve(Request("PUT", "/servlet?p=version"));
    EXPECT_EQ(response.status, 405);
    EXPECT_EQ(response.header("Allow"), "GET");
}
