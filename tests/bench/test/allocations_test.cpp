// Limits the allocations of a request, so that an additional one is a deliberate decision.
#include "counted_memory.h"
#include "http_session.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include <kit/testing/request.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using kit::testing::get;
using kit::testing::MemoryRequest;
using kit::testing::post;
using kit::testing::Request;

constexpr char kClient[] = "10.0.0.5";
constexpr std::size_t kMaxResponse = 64 * 1024;

// The container with the benchmark's plug-in, which has two listeners, and a client with a session.
class Allocations : public testing::Test {
protected:
    Allocations() {
        setenv("TEMPLATE", TEMPLATE, 1);
        m_controller.init();
        std::string address = kClient;
        m_id = m_controller.getSessionFactory()->createSession(address)->getId();
    }
    ~Allocations() override { m_controller.destroy(); }

    // Returns the allocations of the second of two equal requests: the first one fills caches.
    long allocationsOf(const Request& request) {
        serve(request);
        return serve(request);
    }

private:
    long serve(const Request& description) {
        MemoryRequest request = description.from(kClient).cookie("JSESSIONID", m_id).inMemory();
        // Room for the whole response, so that the stream does not allocate.
        FCGX_Stream* out = request.get()->out;
        std::vector<unsigned char> response(kMaxResponse);
        out->wrNext = response.data();
        out->stop = response.data() + response.size();
        const long before = counted_memory::made();
        EXPECT_EQ(m_controller.doService(request.get()), 200);
        const long made = counted_memory::made() - before;
        const std::string text(response.data(), out->wrNext);
        EXPECT_NE(text.find("Cache-Control: no-store"), std::string::npos);
        EXPECT_EQ(text.find("Status:"), std::string::npos) << "the page reports an error";
        return made;
    }

    ServletController m_controller{SERVLET_XML};
    std::string m_id;
};

TEST_F(Allocations, PageWithSessionAndThreeHeadersStaysWithinBudget) {
    // The request, the response and its map of headers; the map's buckets and its block of nodes;
    // a name and a value of more than 15 bytes; the cookies and the query.
    EXPECT_LE(allocationsOf(get("/servlet?p=page&x=1")), 9);
}

TEST_F(Allocations, FormOfTenFieldsStaysWithinBudget) {
    kit::testing::Fields fields;
    for (int i = 0; i < 10; ++i)
        fields.emplace_back("field" + std::to_string(i), "value " + std::to_string(i) + "!");
    EXPECT_LE(allocationsOf(post("/servlet?p=form").form(fields)), 10);
}

TEST_F(Allocations, TemplateOfTwentyVariablesAndFiftyRowsStaysWithinBudget) {
    // As above; 20 texts of the page itself; two blocks for its lists, which fill a third one, too;
    // the path of the template, twice; its files, and its scopes.
    EXPECT_LE(allocationsOf(get("/servlet?p=template")), 35);
}

} // namespace
