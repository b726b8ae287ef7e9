// The calls that the container makes of other libraries, for whole requests: these functions, with
// these arguments, in this order, and no others beside them. A device may bring its own libfcgi and
// its own libdevice, which need to expect nothing else.
//
// Functions that compilers replace by code of their own, such as strncmp(3) and strtol(3), are left
// out. The program is not linked to libfcgi, so the container links only if it calls no function of
// libfcgi but those that are replaced here.
#include "support/library_calls.h"

#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "fcgi_server.h"
#include "http_session.h"
#include "recorded_device.h"
#include "servlet_controller.h"
#include "session_factory.h"

#include <gtest/gtest.h>

#include <link.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using library_calls::Calls;
using library_calls::note;
using recorded_device::answers;

constexpr char kClient[] = "10.0.0.5";

// The plug-in.

class Listener final : public HttpListener {
public:
    void init() override { note("listener: init"); }
    bool onRequest(HttpRequest*, HttpResponse*) override {
        note("listener: onRequest");
        return true;
    }
};

class Servlet : public HttpServlet {
public:
    void init() override { note("servlet: init"); }
    void destroy() override { note("servlet: destroy"); }

protected:
    ~Servlet() = default;
};

// Sends three headers and a body to a client with a session.
class Page final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        note("servlet: service");
        if (request->getSession(false) == nullptr)
            return;
        response->setHeader("A", "1");
        response->setHeader("B", "2");
        response->setHeader("C", "3");
        response->write("body", 1, 4);
    }
};

class SignIn final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        note("servlet: service");
        request->getSession(true)->setAttribute("user", this);
        response->print("signed in");
    }
};

class Template final : public Servlet {
public:
    void service(HttpRequest*, HttpResponse* response) override {
        note("servlet: service");
        char type[] = "T9000";
        response->setDevtype(type);
        response->setTemplate("page.html", nullptr);
    }
};

class Form final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse* response) override {
        note("servlet: service");
        request->getParameter("name");
        request->getParameterValues("colour");
        response->write('!');
    }
};

class Upload final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse*) override {
        note("servlet: service");
        request->receiveUploadFile("/tmp/image");
    }
};

class Environment final : public Servlet {
public:
    void service(HttpRequest* request, HttpResponse*) override {
        note("servlet: service");
        request->getQueryString();
        request->getCookie();
        request->getRole();
        request->getRequestURI();
        request->getDocumentRoot();
        request->getRemoteAddr();
        request->getRemoteHost();
        request->getServerPort();
        request->getServerName();
        request->getContextType();
        request->getContentLength();
        request->getProtocal();
        request->getRefferer();
        request->getUserAgent();
        request->getMethod();
        request->getContextPath();
        request->getServletPath();
        request->isSecure();
        request->getAccept();
        request->getAcceptLanguage();
        request->getAcceptEncoding();
        request->getAcceptCharset();
        request->getServerName(); // again: nothing is cached
    }
};

HttpListener* createListener() {
    static Listener listener; // the container does not delete listeners
    return &listener;
}
template <class Kind>
HttpServlet* create() {
    return new Kind;
}

// A configuration with the plug-in's pages, for as long as the object lives.
class ConfigFile {
public:
    ConfigFile() : m_path(testing::TempDir() + "library_calls." + std::to_string(getpid())) {
        std::ofstream(m_path) << "<web path='plugin.so'>"
                                 "<listener createfunction='createListener'/>"
                                 "<servlet id='page' createfunction='createPage'/>"
                                 "<servlet id='sign-in' createfunction='createSignIn'/>"
                                 "<servlet id='template' createfunction='createTemplate'/>"
                                 "<servlet id='form' createfunction='createForm'/>"
                                 "<servlet id='upload' createfunction='createUpload'/>"
                                 "<servlet id='environment' createfunction='createEnvironment'/>"
                                 "<servlet id='broken' createfunction='createNothing'/>"
                                 "</web>";
        export_("createListener", createListener);
        export_("createPage", create<Page>);
        export_("createSignIn", create<SignIn>);
        export_("createTemplate", create<Template>);
        export_("createForm", create<Form>);
        export_("createUpload", create<Upload>);
        export_("createEnvironment", create<Environment>);
    }
    ~ConfigFile() { unlink(m_path.c_str()); }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    const char* path() const { return m_path.c_str(); }

private:
    template <class Function>
    static void export_(const char* name, Function* function) {
        library_calls::exportFunction(name, reinterpret_cast<void*>(function));
    }

    std::string m_path;
};

Calls joined(const std::vector<Calls>& parts) {
    Calls all;
    for (const Calls& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// Returns one line for each call, for a readable difference.
std::string lines(const Calls& calls) {
    std::string text;
    for (const std::string& call : calls)
        text += call + '\n';
    return text;
}
std::string linesOf(const std::vector<Calls>& parts) {
    return lines(joined(parts));
}

std::string parameter(const std::string& variable) {
    return "FCGX_GetParam('" + variable + "')";
}
std::string lookup(const std::string& list, const std::string& name) {
    return "CGI_lookup(" + list + ", '" + name + "')";
}

Calls withTableLocked(const Calls& calls) {
    return joined(
        {{"pthread_mutex_lock(session table)"}, calls, {"pthread_mutex_unlock(session table)"}});
}

const Calls kAccept = {"pthread_mutex_lock(accept)", "FCGX_Accept_r()",
                       "pthread_mutex_unlock(accept)"};
const Calls kAcceptFails =
    joined({kAccept, {"app_log(65, 4, 'FCGIServer::run() accept request failed. err= -1\\n')"}});

// The end of a request without a template.
const Calls kFlush = {parameter("HTTP_ACCEPT_LANGUAGE"),
                      "TMPL_add_var(null, 'local', 'en', null) = variables 1",
                      "TMPL_free_varlist(variables 1)"};
const Calls kFindNoSession = withTableLocked({parameter("REMOTE_ADDR")});

class LibraryCalls : public testing::Test {
protected:
    LibraryCalls() {
        library_calls::reset();
        m_config.emplace();
        m_server = std::make_unique<FCGIServer>(m_config->path());
        m_start = library_calls::take();
        nameTheMutexes();
        m_id = sessions().createSession(m_client)->getId();
        library_calls::take();
    }
    ~LibraryCalls() override { stop(); }

    SessionFactory& sessions() { return *m_server->getController()->getSessionFactory(); }

    void stop() { m_server.reset(); }

    // Names of the CGI lists depend on which of them have values. All requests here have a query,
    // and those with a session have a cookie, whose list is the first.
    static void queryIs(const std::string& name, const std::string& value) {
        answers().queryFields = {{name, value}};
    }
    void cookieIsTheSessions() { answers().cookies = {{"JSESSIONID", m_id}}; }

    // Serves one request. Returns the calls between the accept and the next.
    std::string callsOf(const std::vector<std::string>& environment) {
        library_calls::sendRequest(environment);
        library_calls::take();
        EXPECT_EQ(m_server->run(), -1);
        const Calls all = library_calls::take();
        const Calls begin = joined({{"FCGX_InitRequest(0, 0)"}, kAccept});
        const auto length = static_cast<std::ptrdiff_t>(begin.size());
        const auto tail = static_cast<std::ptrdiff_t>(kAcceptFails.size());
        EXPECT_EQ(Calls(all.begin(), all.begin() + length), begin);
        EXPECT_EQ(Calls(all.end() - tail, all.end()), kAcceptFails);
        return lines(Calls(all.begin() + length, all.end() - tail));
    }
    std::string callsOfGet(const std::string& query) {
        return callsOf({"REQUEST_METHOD=GET", "REQUEST_URI=/servlet?" + query,
                        "QUERY_STRING=" + query, "HTTP_COOKIE=cookies",
                        std::string("REMOTE_ADDR=") + kClient});
    }

    // What a GET begins with, up to the call of the listeners: with a session the list of cookies
    // is "list 1" and the list of parameters "list 2", without one they are null and "list 1".
    static Calls decoding(const std::string& query, const std::string& cookies,
                          const std::string& parameters) {
        return {parameter("REQUEST_METHOD"),
                parameter("HTTP_COOKIE"),
                "CGI_get_cookie(null, 'cookies') = " + cookies,
                parameter("QUERY_STRING"),
                "CGI_decode_query(null, '" + query + "') = " + parameters,
                lookup(cookies, "JSESSIONID")};
    }
    static Calls screening(const std::string& parameters) {
        return {parameter("REQUEST_URI"), lookup(parameters, "jumpto"), lookup(parameters, "acc"),
                lookup(parameters, "p"), lookup(parameters, "model")};
    }
    static Calls beginWithSession(const std::string& query) {
        return joined({decoding(query, "list 1", "list 2"),
                       withTableLocked({parameter("REMOTE_ADDR"), "times()", "times()"}),
                       screening("list 2"),
                       {lookup("list 2", "p")}});
    }
    static Calls beginWithoutSession(const std::string& query) {
        return joined({decoding(query, "null", "list 1"),
                       kFindNoSession,
                       screening("list 1"),
                       {lookup("list 1", "p")}});
    }
    static Calls endWithoutSession() {
        return joined(
            {kFlush, kFindNoSession, {"CGI_free_varlist(list 1)", "CGI_free_varlist(null)"}});
    }
    static Calls create(const std::string& function) {
        return {"dlerror()", "dlsym(the library, '" + function + "')", "dlerror()",
                "servlet: init"};
    }

    std::optional<ConfigFile> m_config;
    std::unique_ptr<FCGIServer> m_server;
    Calls m_start;
    std::string m_client = kClient;
    std::string m_id; // of the client's session

private:
    // The two mutexes are private to their modules, but each is locked by a known operation.
    void nameTheMutexes() {
        library_calls::name(&session_mutex, "session_mutex");
        m_server->run();
        library_calls::name(library_calls::lastLocked(), "accept");
        sessions().existSession(m_client);
        library_calls::name(library_calls::lastLocked(), "session table");
    }
};

// Returns the two calls that log a line through WebDebug.
Calls logged(const std::string& operation, const std::string& text) {
    return {"WebDebug::getInstance()", "WebDebug::" + operation + "('" + text + "')"};
}
Calls addedServlet(const std::string& id, const std::string& function) {
    return logged("info", "PluginLoader::init() add a servlet config.id= " + id +
                              ",createfunction =" + function);
}

TEST_F(LibraryCalls, NeedNoLibfcgiWithOtherFunctions) {
    const auto isLibfcgi = [](dl_phdr_info* object, std::size_t, void*) {
        return static_cast<int>(std::strstr(object->dlpi_name, "libfcgi.") != nullptr);
    };
    EXPECT_EQ(dl_iterate_phdr(isLibfcgi, nullptr), 0) << "it is linked";
}

TEST_F(LibraryCalls, AreExactlyTheseForTheStart) {
    EXPECT_EQ(
        lines(m_start),
        linesOf(
            {{"FCGX_Init()"},
             logged("info", std::string("PluginLoader::loadConfigFile Begin.configfile =") +
                                m_config->path()),
             {"dlopen('plugin.so', 1)", "dlerror()"},
             logged("info",
                    "PluginLoader::init() add a listener config.createfunction =createListener"),
             addedServlet("page", "createPage"),
             addedServlet("sign-in", "createSignIn"),
             addedServlet("template", "createTemplate"),
             addedServlet("form", "createForm"),
             addedServlet("upload", "createUpload"),
             addedServlet("environment", "createEnvironment"),
             addedServlet("broken", "createNothing"),
             logged("info", "PluginLoader::init End"),
             {"dlsym(the library, 'createListener')", "dlerror()", "listener: init"}}));
}

TEST_F(LibraryCalls, AreExactlyTheseForAPageWithASessionAndHeaders) {
    cookieIsTheSessions();
    queryIs("p", "page");
    EXPECT_EQ(
        callsOfGet("p=page"),
        linesOf({beginWithSession("p=page"),
                 {"listener: onRequest", lookup("list 2", "p")},
                 create("createPage"),
                 {"servlet: service", parameter("REMOTE_ADDR")},
                 withTableLocked({parameter("REMOTE_ADDR"), "times()"}),
                 {"FCGX_VFPrintF(out, '%s: %s \\r\\n') = 'A: 1 \\r\\n'",
                  "FCGX_VFPrintF(out, '%s: %s \\r\\n') = 'B: 2 \\r\\n'",
                  "FCGX_VFPrintF(out, '%s: %s \\r\\n') = 'C: 3 \\r\\n'",
                  "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'", "FCGX_PutStr('body', 4, out)"},
                 kFlush,
                 withTableLocked({parameter("REMOTE_ADDR"), "times()"}),
                 {"CGI_free_varlist(list 2)", "CGI_free_varlist(list 1)", "FCGX_Finish_r()"}}));
    EXPECT_EQ(library_calls::response(), "A: 1 \r\nB: 2 \r\nC: 3 \r\n\r\nbody");
}

TEST_F(LibraryCalls, AreExactlyTheseForAPageThatCreatesASession) {
    queryIs("p", "sign-in");
    const std::string calls = callsOfGet("p=sign-in");
    const std::string line =
        library_calls::response().substr(0, library_calls::response().find("\r"));
    EXPECT_EQ(calls,
              linesOf({beginWithoutSession("p=sign-in"),
                       {"listener: onRequest", lookup("list 1", "p")},
                       create("createSignIn"),
                       {"servlet: service", parameter("REMOTE_ADDR")},
                       withTableLocked({"times()"}),
                       {"pthread_mutex_lock(session_mutex)", "pthread_mutex_unlock(session_mutex)",
                        "FCGX_VFPrintF(out, '%s: %s \\r\\n') = '" + line + "\\r\\n'",
                        "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'",
                        "FCGX_VFPrintF(out, 'signed in') = 'signed in'", "FCGX_FFlush(out)"},
                       kFlush,
                       withTableLocked({parameter("REMOTE_ADDR"), "times()"}),
                       {"CGI_free_varlist(list 1)", "CGI_free_varlist(null)", "FCGX_Finish_r()"}}));
    EXPECT_EQ(line.substr(0, 23), "Set-Cookie: JSESSIONID=");
}

TEST_F(LibraryCalls, AreExactlyTheseForATemplatePage) {
    queryIs("p", "template");
    EXPECT_EQ(
        callsOfGet("p=template"),
        linesOf({beginWithoutSession("p=template"),
                 {"listener: onRequest", lookup("list 1", "p")},
                 create("createTemplate"),
                 {"servlet: service", "TMPL_add_var(null, 'devtype', 'T9000', null) = variables 1",
                  "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'", parameter("HTTP_ACCEPT_LANGUAGE"),
                  "TMPL_add_var(variables 1, 'local', 'en', null) = variables 2",
                  "TMPL_web_write('page.html', null, null, variables 2, out, stderr)",
                  "TMPL_free_varlist(variables 2)"},
                 kFindNoSession,
                 {"CGI_free_varlist(list 1)", "CGI_free_varlist(null)", "FCGX_Finish_r()"}}));
}

const std::vector<std::string> kForm = {"REQUEST_METHOD=POST", "REQUEST_URI=/servlet?p=form",
                                        "QUERY_STRING=p=form", "CONTENT_TYPE=text/x",
                                        "CONTENT_LENGTH=7",    "REMOTE_ADDR=10.0.0.5"};

TEST_F(LibraryCalls, AreExactlyTheseForAForm) {
    answers().formFields = {{"name", "Alice"}};
    queryIs("p", "form");
    EXPECT_EQ(
        callsOf(kForm),
        linesOf({{parameter("REQUEST_METHOD"), parameter("HTTP_COOKIE"),
                  "CGI_get_cookie(null, null) = null", parameter("CONTENT_TYPE"),
                  parameter("CONTENT_LENGTH"), "CGI_get_post(null, 'text/x', 7, in) = list 1",
                  parameter("QUERY_STRING"), "CGI_decode_query(list 1, 'p=form') = list 2",
                  lookup("null", "JSESSIONID")},
                 kFindNoSession,
                 screening("list 2"),
                 {lookup("list 2", "p"), "listener: onRequest", lookup("list 2", "p")},
                 create("createForm"),
                 {"servlet: service", lookup("list 2", "name"), "CGI_lookup_all(list 2, 'colour')",
                  "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'", "FCGX_PutChar(33, out)"},
                 kFlush,
                 kFindNoSession,
                 {"CGI_free_varlist(list 2)", "CGI_free_varlist(null)", "FCGX_Finish_r()"}}));
}

TEST_F(LibraryCalls, AreExactlyTheseForAnUpload) {
    answers().uploadFields = {{"file", "image"}};
    queryIs("p", "upload");
    EXPECT_EQ(callsOfGet("p=upload"),
              linesOf({beginWithoutSession("p=upload"),
                       {"listener: onRequest", lookup("list 1", "p")},
                       create("createUpload"),
                       {"servlet: service", parameter("CONTENT_TYPE"),
                        "CGI_fileupload(list 1, null, '/tmp/image', in) = list 2",
                        "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'"},
                       kFlush,
                       kFindNoSession,
                       {"CGI_free_varlist(list 2)", "CGI_free_varlist(null)", "FCGX_Finish_r()"}}));
}

TEST_F(LibraryCalls, AreOneForEachReadingOfTheEnvironment) {
    queryIs("p", "environment");
    EXPECT_EQ(callsOfGet("p=environment"), linesOf({beginWithoutSession("p=environment"),
                                                    {"listener: onRequest", lookup("list 1", "p")},
                                                    create("createEnvironment"),
                                                    {"servlet: service"},
                                                    {parameter("QUERY_STRING"),
                                                     parameter("HTTP_COOKIE"),
                                                     parameter("FCGI_ROLE"),
                                                     parameter("REQUEST_URI"),
                                                     parameter("DOCUMENT_ROOT"),
                                                     parameter("REMOTE_ADDR"),
                                                     parameter("REMOTE_HOST"),
                                                     parameter("SERVER_PORT"),
                                                     parameter("SERVER_NAME"),
                                                     parameter("CONTENT_TYPE"),
                                                     parameter("CONTENT_LENGTH"),
                                                     parameter("SERVER_PROTOCOL"),
                                                     parameter("REFFERER"),
                                                     parameter("USER_AGENT"),
                                                     parameter("REQUEST_METHOD"),
                                                     parameter("CONTEXT_PATH"),
                                                     parameter("SCRIPT_NAME"),
                                                     parameter("SCRIPT_NAME"),
                                                     parameter("HTTP_ACCEPT"),
                                                     parameter("HTTP_ACCEPT_LANGUAGE"),
                                                     parameter("HTTP_ACCEPT_ENCODING"),
                                                     parameter("HTTP_ACCEPT_CHARSET"),
                                                     parameter("SERVER_NAME")},
                                                    {"FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'"},
                                                    endWithoutSession(),
                                                    {"FCGX_Finish_r()"}}));
}

const Calls kErrorPage = {
    "FCGX_FPrintF(out, 'Status: %d \\r\\n') = 'Status: 404 \\r\\n'",
    "FCGX_FPrintF(out, 'ContentType: text/html \\r\\n') = 'ContentType: text/html \\r\\n'",
    "FCGX_FPrintF(out, '\\r\\n') = '\\r\\n'",
    "FCGX_FPrintF(out, '<h1>404 - Not Found</h1>') = '<h1>404 - Not Found</h1>'",
    "FCGX_Finish_r()"};

TEST_F(LibraryCalls, AreExactlyTheseForAServletThatCannotBeCreated) {
    queryIs("p", "broken");
    EXPECT_EQ(callsOfGet("p=broken"),
              linesOf({beginWithoutSession("p=broken"),
                       {"listener: onRequest", lookup("list 1", "p"), "dlerror()",
                        "dlsym(the library, 'createNothing')", "dlerror()",
                        "app_log(65, 3, 'Cannot load symbol create. error=no such function\\n')",
                        "app_log(65, 4, 'ServletContainer::onRequest End.404\\n')",
                        "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'"},
                       endWithoutSession(),
                       kErrorPage}));
}

TEST_F(LibraryCalls, AreExactlyTheseForARequestThatNamesNoPage) {
    queryIs("q", "1");
    EXPECT_EQ(callsOfGet("q=1"),
              linesOf({beginWithoutSession("q=1"),
                       kFindNoSession,
                       {"CGI_free_varlist(list 1)", "CGI_free_varlist(null)",
                        "app_log(65, 4, 'ServletContext::doService() End. p parameter not found!\\n"
                        "')"},
                       kErrorPage}));
}

TEST_F(LibraryCalls, AreExactlyTheseForAParameterThatScreeningRefuses) {
    queryIs("acc", "x");
    EXPECT_EQ(callsOfGet("acc=x"), linesOf({decoding("acc=x", "null", "list 1"),
                                            kFindNoSession,
                                            screening("list 1"),
                                            {"CGI_free_varlist(list 1)", "CGI_free_varlist(null)"},
                                            kErrorPage}));
}

TEST_F(LibraryCalls, AreExactlyTheseForARedirect) {
    queryIs("Id", "1");
    EXPECT_EQ(callsOf({"REQUEST_METHOD=GET", "REQUEST_URI=/cgi-bin/Velmoranix.acx?Id=1",
                       "QUERY_STRING=Id=1", "HTTP_COOKIE=cookies"}),
              linesOf({decoding("Id=1", "null", "list 1"),
                       kFindNoSession,
                       screening("list 1"),
                       {"FCGX_VFPrintF(out, '%s: %s \\r\\n') = "
                        "'Location: /servlet?p=login&q=loginForm&jumpto=status \\r\\n'",
                        "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'"},
                       endWithoutSession(),
                       {"FCGX_Finish_r()"}}));
}

TEST_F(LibraryCalls, AreExactlyTheseForAnEvent) {
    queryIs("key", "7");
    EXPECT_EQ(callsOfGet("key=7"), linesOf({beginWithoutSession("key=7"),
                                            {lookup("list 1", "key"), "listener: onRequest",
                                             "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'"},
                                            endWithoutSession(),
                                            {"FCGX_Finish_r()"}}));
}

TEST_F(LibraryCalls, AreExactlyTheseForTheDeviceStatus) {
    queryIs("p", "notice");
    EXPECT_EQ(callsOfGet("p=notice"),
              linesOf({beginWithoutSession("p=notice"),
                       {"listener: onRequest",
                        "FCGX_VFPrintF(out, '%s: %s \\r\\n') = 'ContentType: text/html \\r\\n'",
                        "FCGX_VFPrintF(out, '\\r\\n') = '\\r\\n'",
                        "FCGX_VFPrintF(out, '%s') = 'idle'", "FCGX_FFlush(out)"},
                       endWithoutSession(),
                       {"FCGX_Finish_r()"}}));
}

TEST_F(LibraryCalls, AreExactlyTheseForEachErrorPage) {
    const struct {
        int status;
        Calls body;
    } cases[] = {
        {404, {"FCGX_FPrintF(out, '<h1>404 - Not Found</h1>') = '<h1>404 - Not Found</h1>'"}},
        {500,
         {"FCGX_FPrintF(out, '<h2>500 - Service not avaliable now !</h2>') = "
          "'<h2>500 - Service not avaliable now !</h2>'"}},
        {403, {}},
        {-2147483647, {}}};
    for (const auto& example : cases) {
        FCGX_Request request{};
        library_calls::sendRequest({});
        FCGX_Accept_r(&request);
        library_calls::take();
        m_server->onError(&request, example.status);
        EXPECT_EQ(
            lines(library_calls::take()),
            linesOf(
                {{"FCGX_FPrintF(out, 'Status: %d \\r\\n') = 'Status: " +
                      std::to_string(example.status) + " \\r\\n'",
                  "FCGX_FPrintF(out, 'ContentType: text/html \\r\\n') = 'ContentType: text/html "
                  "\\r\\n'",
                  "FCGX_FPrintF(out, '\\r\\n') = '\\r\\n'"},
                 example.body}));
    }
}

TEST_F(LibraryCalls, AreExactlyTheseForTheStop) {
    queryIs("p", "form");
    callsOfGet("p=form");
    library_calls::take();
    stop();
    EXPECT_EQ(lines(library_calls::take()),
              linesOf({{"servlet: destroy"},
                       withTableLocked({"pthread_mutex_lock(session_mutex)",
                                        "WebDebug::getInstance()", "WebDebug::setUser(null)",
                                        "pthread_mutex_unlock(session_mutex)"}),
                       {"dlclose(the library)"}}));
}

} // namespace
