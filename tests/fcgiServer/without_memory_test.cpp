// The state of the container's objects after an allocation has failed: each allocation in turn.
#include "failing_allocations.h"
#include "fcgi_server.h"
#include "http_request.h"
#include "http_response.h"
#include "http_session.h"
#include "plugin_loader.h"
#include "servlet_controller.h"
#include "session_factory.h"
#include "tmpl.h"
#include <kit/testing/recorded_log.h>
#include <kit/testing/request.h>
#include <kit/testing/response.h>
#include <kit/testing/test_clock.h>

#include "web_debug.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace {

using namespace kit::testing;

constexpr char kClient[] = "10.0.0.5";
constexpr long kLongerThanASession = 1000; // seconds
const std::string kLongName = "a_name_too_long_to_be_kept_inside_a_string";
const std::string kLongValue = "a value that is too long to be kept inside a string";
const char* const kEnd = nullptr;

// A request and its response, as the controller creates them.
struct Exchange {
    Exchange(const Request& asked, SessionFactory& sessions)
        : fastCgi(asked.from(kClient).inMemory()), response(fastCgi.get()),
          request(fastCgi.get(), &sessions, &response) {
        response.setHttpRequest(&request);
    }

    HttpRequest& asked() { return request; }
    HttpResponse& answer() { return response; }
    Response written() const { return Response(fastCgi.out().text()); }

    MemoryRequest fastCgi;
    HttpResponseImpl response;
    HttpRequestImpl request;
};

class WithoutMemory : public testing::Test {
protected:
    WithoutMemory() {
        WebDebug::getInstance()->info("The recorded log keeps the room that it once had.");
        recorded_log::clear();
    }
    ~WithoutMemory() override { m_sessions.destory(); }

    void makeExchange(const Request& asked) {
        m_exchange = std::make_unique<Exchange>(asked, m_sessions);
    }
    HttpRequest& request() { return m_exchange->asked(); }
    HttpResponse& response() { return m_exchange->answer(); }

    // Ends the request as the controller does after a servlet has failed.
    void finish() {
        m_exchange->response.flush();
        m_sessions.onRequestFinished(&m_exchange->request);
    }
    void end() {
        m_exchange.reset();
        recorded_log::clear();
    }

    std::string valueOf(const char* name) {
        const char* value = request().getParameter(name);
        return value != nullptr ? value : "(none)";
    }

    SessionFactory m_sessions;
    std::unique_ptr<Exchange> m_exchange;
};

const Request kForm = post("/servlet?p=form&" + kLongName + "=query")
                          .form({{kLongName, kLongValue}, {"short", "1"}})
                          .cookie("JSESSIONID", kLongName);

} // namespace

// If there is no memory to decode a source of fields, it counts as empty.
TEST_F(WithoutMemory, RequestHasAllFieldsOrNoneOfItsFormAndOfItsQuery) {
    failEachAllocation([] {}, [this] { makeExchange(kForm); },
                       [this](bool refused) {
                           if (!refused) {
                               const bool form = valueOf("short") == "1";
                               const bool query = valueOf("p") == "form";
                               char** values = request().getParameterValues(kLongName.c_str());
                               EXPECT_EQ(values != nullptr, form || query);
                               if (form) {
                                   EXPECT_EQ(kLongValue, *values++);
                               }
                               if (query) {
                                   EXPECT_STREQ("query", *values++);
                               }
                               EXPECT_TRUE(values == nullptr || *values == nullptr);
                               const char* id = request().getSessionId();
                               EXPECT_TRUE(id == nullptr || id == kLongName);
                               finish();
                           }
                           end();
                           makeExchange(kForm);
                           EXPECT_EQ(valueOf("short"), "1");
                           EXPECT_EQ(valueOf("p"), "form");
                           EXPECT_EQ(request().getSessionId(), kLongName);
                           finish();
                           end();
                       });
}

// A session whose cookie could not be sent must not stay busy for ever.
TEST_F(WithoutMemory, SessionExpiresWhetherOrNotItsCookieIsSent) {
    int made = 0;
    failEachAllocation([this] { makeExchange(get("/servlet?p=page")); },
                       [this] { request().getSession(true); },
                       [&](bool refused) {
                           made += m_sessions.sessionNum();
                           EXPECT_EQ(response().containsHeader("Set-Cookie"), !refused);
                           finish();
                           end();
                           test_clock::advanceSeconds(kLongerThanASession);
                           m_sessions.onTimer();
                           EXPECT_EQ(m_sessions.sessionNum(), 0);
                           m_sessions.destory(); // the table may keep room for the next session
                       });
    EXPECT_GT(made, 1) << "no session was created whose cookie could not be sent";
}

TEST_F(WithoutMemory, SessionKeepsItsAttributes) {
    std::string address = kClient;
    HttpSession* session = m_sessions.createSession(address);
    int values[20] = {};
    const auto name = [](int number) { return kLongName + std::to_string(number); };
    for (int i = 0; i < 10; ++i) // as many as there is room for at once
        session->setAttribute(name(i).c_str(), &values[i]);
    const std::string fresh = name(10);
    const auto expectOthers = [&] {
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(session->getAttribute(name(i).c_str()), &values[i]);
    };

    failEachAllocation([] {}, [&] { session->setAttribute(fresh.c_str(), &values[10]); },
                       [&](bool refused) {
                           EXPECT_EQ(session->existAttribute(fresh.c_str()), !refused);
                           expectOthers();
                           EXPECT_TRUE(session->setAttribute(fresh.c_str(), &values[11]));
                           EXPECT_EQ(session->getAttribute(fresh.c_str()), &values[11]);
                           session->removeAttribute(fresh.c_str());
                           expectOthers();
                       });
    session->setAttribute(fresh.c_str(), &values[10]);
    failEachAllocation([] {}, [&] { session->setAttribute(fresh.c_str(), &values[12]); },
                       [&](bool refused) {
                           EXPECT_EQ(session->getAttribute(fresh.c_str()),
                                     refused ? &values[10] : &values[12]);
                           expectOthers();
                           session->setAttribute(fresh.c_str(), &values[10]);
                       });
    failEachAllocation([] {}, [&] { session->removeAttribute(fresh.c_str()); },
                       [&](bool refused) {
                           EXPECT_EQ(session->existAttribute(fresh.c_str()), refused);
                           expectOthers();
                           session->setAttribute(fresh.c_str(), &values[10]);
                       });
}

TEST_F(WithoutMemory, ResponseHasOnlyCompleteHeaders) {
    const std::string other = "Other-" + kLongName;
    const std::string added = "Added-" + kLongName;
    const struct {
        std::string story;
        std::function<void(HttpResponse&)> act;
        std::string name;
        std::set<std::string> values; // that it may have; "" for none
    } table[] = {
        {"a new header",
         [&](auto& r) { r.setHeader(added.c_str(), kLongValue.c_str()); },
         added,
         {"", kLongValue}},
        {"a header set anew",
         [&](auto& r) { r.setHeader(other.c_str(), kLongValue.c_str()); },
         other,
         {"", "1", kLongValue}},
        {"a header that is added to",
         [&](auto& r) { r.addHeader(other.c_str(), kLongValue.c_str()); },
         other,
         {"1", "1" + kLongValue}},
        {"a cookie",
         [&](auto& r) { r.addCookie("a", kLongValue.c_str()); },
         "Set-Cookie",
         {"", "a=" + kLongValue}},
        {"a redirect",
         [&](auto& r) { r.sendRedirect(kLongValue.c_str()); },
         "Location",
         {"", kLongValue}},
        {"a content type",
         [&](auto& r) { r.setContextType(kLongValue.c_str()); },
         "ContentType",
         {"", kLongValue}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.story);
        failEachAllocation(
            [&] {
                makeExchange(get("/servlet?p=page"));
                response().setHeader(other.c_str(), "1");
                for (int i = 0; i < 9; ++i) // with it as many as there is room for at once
                    response().setHeader(("X" + std::to_string(i)).c_str(), "1");
            },
            [&] { row.act(response()); },
            [&](bool refused) {
                finish();
                const Response answer = m_exchange->written();
                const std::string value = answer.header(row.name).value_or("");
                EXPECT_EQ(row.values.count(value), 1u) << value;
                EXPECT_TRUE(refused || value == *row.values.rbegin()) << value;
                for (int i = 0; i < 9; ++i)
                    EXPECT_EQ(answer.header("X" + std::to_string(i)), "1");
                end();
            });
    }
}

namespace {

class TemplatesWithoutMemory : public WithoutMemory {
protected:
    TemplatesWithoutMemory() {
        std::ofstream(m_path) << "<TMPL_VAR name=\"" << kLongName << "\">";
        makeExchange(get("/servlet?p=page"));
        response().setTemplate(m_path.c_str(), variables());
        finish(); // the template is cached from now on
        end();
    }
    ~TemplatesWithoutMemory() override { std::remove(m_path.c_str()); }

    static TMPL_varlist* variables() {
        return TMPL_add_var(nullptr, kLongName.c_str(), kLongValue.c_str(), kEnd);
    }

    const std::string m_path = testing::TempDir() +
                               "a_template_that_the_test_with_this_number_wrote_" +
                               std::to_string(getpid());
};

} // namespace

// The response owns the variables even if there is no memory for the template's name.
TEST_F(TemplatesWithoutMemory, RenderTheirPageOrNothing) {
    TMPL_varlist* list = nullptr;
    failEachAllocation(
        [&] {
            makeExchange(get("/servlet?p=page"));
            list = variables();
        },
        [&] { response().setTemplate(m_path.c_str(), list); },
        [&](bool refused) {
            finish();
            EXPECT_EQ(m_exchange->written().body, refused ? "" : kLongValue);
            end();
        });
}

// A page may have freed the variables of its first template.
TEST_F(TemplatesWithoutMemory, ReplaceTheFirstTemplateOrKeepNone) {
    TMPL_varlist* list = nullptr;
    failEachAllocation(
        [&] {
            makeExchange(get("/servlet?p=page"));
            response().setTemplate("", variables());
            list = variables();
            TMPL_free_varlist(response().getMainVarList());
        },
        [&] { response().setTemplate(m_path.c_str(), list); },
        [&](bool refused) {
            response().setTemplate(refused ? "" : m_path.c_str(), response().getMainVarList());
            finish();
            EXPECT_EQ(m_exchange->written().body, refused ? "" : kLongValue);
            end();
        });
}

TEST_F(TemplatesWithoutMemory, WriteTheWholePageOrNothing) {
    failEachAllocation(
        [&] {
            makeExchange(get("/servlet?p=page"));
            response().setTemplate(m_path.c_str(), variables());
        },
        [&] { finish(); },
        [&](bool refused) {
            EXPECT_FALSE(refused);
            const std::string body = m_exchange->written().body;
            EXPECT_TRUE(body.empty() || body == kLongValue) << body;
            end();
        });
}

namespace {

class StartUpWithoutMemory : public WithoutMemory {
protected:
    bool isLibraryOpen() {
        void* library = dlopen(QUIET_PLUGIN, RTLD_LAZY | RTLD_NOLOAD);
        if (library != nullptr)
            dlclose(library);
        return library != nullptr;
    }

    // Constructs an `Owner` of the plug-in library; failEachAllocation() checks that no memory is
    // left, this checks that no library is.
    template <class Owner>
    void failEachAllocationOf() {
        std::unique_ptr<Owner> owner;
        failEachAllocation([] {}, [&] { owner = std::make_unique<Owner>(QUIET_XML); },
                           [&](bool refused) {
                               EXPECT_EQ(owner == nullptr, refused);
                               EXPECT_EQ(isLibraryOpen(), !refused);
                               owner.reset();
                               EXPECT_FALSE(isLibraryOpen());
                               recorded_log::clear();
                           });
    }
};

} // namespace

TEST_F(StartUpWithoutMemory, ReleasesThePluginLoader) {
    failEachAllocationOf<PluginLoader>();
}

TEST_F(StartUpWithoutMemory, ReleasesTheController) {
    failEachAllocationOf<ServletController>();
}

TEST_F(StartUpWithoutMemory, ReleasesTheServer) {
    failEachAllocationOf<FCGIServer>();
}
