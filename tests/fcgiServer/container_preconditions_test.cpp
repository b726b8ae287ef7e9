// Callers that break a written precondition of the container fail an assertion.
#include "plugin_loader.h"
#include "request_rules.h"
#include "servlet_container.h"
#include "support/visit.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(RulesDeathTest, NeedAQueryAndAPage) {
    Visit visit("p=status");
    EXPECT_EQ(rules::eventOf(*visit.request(), "p=status").name, nullptr);
    EXPECT_DEATH(rules::eventOf(*visit.request(), nullptr), "query != nullptr");
    EXPECT_DEATH(rules::requestedStatus(nullptr), "query != nullptr");
    EXPECT_DEATH(rules::isAnsweredInternally(nullptr, 0), "page != nullptr");
}

TEST(ResponseDeathTest, NeedsNamesAndValues) {
    Visit visit("p=status");
    HttpResponse* response = visit.response();
    response->addCookie("a", "1");
    EXPECT_DEATH(response->addCookie(nullptr, "1"), "name != nullptr");
    EXPECT_DEATH(response->addCookie("a", nullptr), "value != nullptr");
    EXPECT_DEATH(response->setTemplate(nullptr, nullptr), "name != nullptr");
}

TEST(ResponseDeathTest, IsFlushedAfterItHasARequest) {
    kit::testing::MemoryRequest fastCgi = kit::testing::get("/servlet?p=status").inMemory();
    HttpResponseImpl response(fastCgi.get());
    EXPECT_DEATH(response.flush(), "httpRequest != nullptr");
}

TEST(ServletContainerDeathTest, NeedsAnId) {
    ServletContainer servlets;
    EXPECT_EQ(servlets.getServlet("status"), nullptr);
    EXPECT_DEATH(servlets.getServlet(nullptr), "id != nullptr");
}

TEST(ServletContainerDeathTest, ServesRequestsWithAPage) {
    ServletContainer servlets;
    Visit visit("q=1");
    EXPECT_DEATH(servlets.onRequest(visit.request(), visit.response()), "name != nullptr");
}

TEST(PluginLoaderDeathTest, NeedsAFileName) {
    EXPECT_DEATH(PluginLoader(nullptr), "configFile != nullptr");
}

} // namespace
