#include "servlet_controller.h"

#include "app_log.h"
#include "http_request.h"
#include "http_response.h"
#include "listener_container.h"
#include "plugin_loader.h"
#include "request_rules.h"
#include "servlet_container.h"
#include "session_factory.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <strings.h>

#ifndef DEVICE_ROOT
#define DEVICE_ROOT ""
#endif

namespace {

const char kConfigFile[] = DEVICE_ROOT "/phone/www/WEB-INFO/servlet/servlet.xml";
const char kSignInPage[] = "/servlet?p=login&q=loginForm&jumpto=status";
constexpr std::size_t kQueryOffset = sizeof "/servlet?" - 1;
constexpr std::size_t kRewriteSize = 512;
constexpr std::size_t kStatusWordSize = 64;

// Shared by all threads, without a lock. Its last byte stays zero, so that the text in it ends
// whatever two threads do at once.
char rewriteBuffer[kRewriteSize];

// Pages of the device's older interface that have one successor.
const char* const kLegacyPages[] = {
    "/cgi-bin/Velmoranix.acx?Id=1",
    "/cgi-bin/Velmoranix.acx?Id=7",
    "/cgi-bin/Quillpage.tpx?page=Status.htm",
    "/cgi-bin/Quillpage.tpx?page=Phone-Upgrade.htm",
};

// Programs of the older interface whose other pages go by the same query today.
const char* const kLegacyPrograms[] = {"cgi-bin/Quillpage.tpx", "cgi-bin/Velmoranix.acx"};

// Queries that are events for the listeners, by how they begin; the first match decides.
const char* const kEvents[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                               "Server", "push",   "download", "command",      "csta"};
const char kEventWithoutValue[] = "csta";

using rules::DeviceStatus;

// Indexed by the device status.
const char* const kStatusWords[] = {"idle",          "reboot",  "reset",
                                    "autoprovision", "upgrade", "configration"};

bool startsWith(const char* text, const char* prefix) {
    while (*prefix != '\0' && *text == *prefix) {
        ++text;
        ++prefix;
    }
    return *prefix == '\0';
}

bool contains(const char* text, const char* part) {
    return std::strstr(text, part) != nullptr;
}
bool equal(const char* text, const char* other) {
    return std::strcmp(text, other) == 0;
}

// Whether it begins with "<" or ">", plain or escaped, or with "script", in any case.
bool isMarkup(const char* text) {
    switch (*text) {
    case '<':
    case '>':
        return true;
    case '%':
        return strncasecmp(text, "%3c", 3) == 0 || strncasecmp(text, "%3e", 3) == 0;
    case 's':
    case 'S':
        return strncasecmp(text, "script", 6) == 0;
    default:
        return false;
    }
}

} // namespace

const char* rules::refusedPart(ServletController& controller, const char* uri,
                               HttpRequest& request) {
    const char* jumpto = request.getParameter("jumpto");
    const char* account = request.getParameter("acc");
    const char* page = request.getParameter("p");
    const char* model = request.getParameter("model");
    if (controller.CheckUrlIllegalChar(uri) != 0)
        return "URL";
    if (controller.CheckParaIllegalChar(jumpto, false) != 0)
        return "jumpto";
    if (controller.CheckParaIllegalChar(page, false) != 0)
        return "p";
    if (controller.CheckParaIllegalChar(account, true) != 0)
        return "acc";
    if (controller.CheckParaIllegalChar(model, true) != 0)
        return "model";
    return nullptr;
}

const char* rules::successorOf(const char* uri) {
    if (uri == nullptr)
        return nullptr;
    for (const char* page : kLegacyPages)
        if (startsWith(uri, page))
            return kSignInPage;
    std::strncpy(rewriteBuffer, uri, sizeof rewriteBuffer - 1);
    for (const char* program : kLegacyPrograms)
        if (ReplaceStr(rewriteBuffer, program, "servlet") == 0)
            return rewriteBuffer;
    return nullptr;
}

const char* rules::queryOf(const char* uri) {
    return uri != nullptr && std::strlen(uri) >= kQueryOffset ? uri + kQueryOffset : "";
}

rules::Event rules::eventOf(HttpRequest& request, const char* query) {
    for (const char* event : kEvents)
        if (startsWith(query, event))
            return {event, equal(event, kEventWithoutValue) ? event : request.getParameter(event)};
    return {nullptr, nullptr};
}

std::optional<DeviceStatus> rules::statusAskedBy(const char* query) {
    if (contains(query, "reboot=true") || contains(query, "q=reboot"))
        return REBOOT;
    if (contains(query, "p=settings-upgrade&q=reset"))
        return RESET;
    if (contains(query, "now=true"))
        return AUTOPROVISION;
    if (equal(query, "p=settings-config&q=import") ||
        equal(query, "p=settings-config&q=localconfig&type=import") ||
        equal(query, "p=settings-config&q=localconfig&type=remove"))
        return CONFIGURATION;
    if (contains(query, "p=notice"))
        return std::nullopt;
    return IDLE;
}

const char* rules::wordOf(std::int32_t status) {
    const bool known = status >= IDLE && status <= CONFIGURATION;
    return known ? kStatusWords[status] : "unkown";
}

bool rules::isAnsweredByTheWord(const char* page, std::int32_t status) {
    return equal(page, "notice") && status != AUTOPROVISION;
}

// The request and response objects of one FastCGI request. The request object is deleted first.
struct ServletController::Exchange {
    Exchange(FCGX_Request* fastCgiRequest, SessionFactory* sessionFactory)
        : sessions(sessionFactory), response(new HttpResponseImpl(fastCgiRequest)),
          request(new HttpRequestImpl(fastCgiRequest, sessionFactory, response.get())) {
        response->setHttpRequest(request.get());
        sessions->onRequest(request.get());
    }

    // Sends the response and gives `result` back.
    int finish(int result) {
        response->flush();
        sessions->onRequestFinished(request.get());
        return result;
    }

    // Ends the request without a response.
    void drop() {
        sessions->onRequestFinished(request.get());
        request.reset();
        response.reset();
    }

    SessionFactory* sessions;
    std::unique_ptr<HttpResponseImpl> response;
    std::unique_ptr<HttpRequestImpl> request;
};

int ReplaceStr(char* target, const char* pattern, const char* replacement) {
    if (target == nullptr || pattern == nullptr || replacement == nullptr || *pattern == '\0')
        return -1;
    const char* match = std::strstr(target, pattern);
    if (match == nullptr)
        return -1;

    char result[kRewriteSize] = {};
    std::size_t used = 0;
    const auto append = [&](const char* text, std::size_t length) {
        if (length >= sizeof result - used)
            return false;
        std::memcpy(result + used, text, length);
        used += length;
        return true;
    };
    const std::size_t patternLength = std::strlen(pattern);
    const std::size_t replacementLength = std::strlen(replacement);
    const char* rest = target;
    for (; match != nullptr; match = std::strstr(rest, pattern)) {
        if (!append(rest, static_cast<std::size_t>(match - rest)) ||
            !append(replacement, replacementLength))
            return -1;
        rest = match + patternLength;
    }
    if (!append(rest, std::strlen(rest)))
        return -1;
    std::strcpy(target, result);
    return 0;
}

ServletController::ServletController() : ServletController(kConfigFile) {}

ServletController::ServletController(const char* configFile) {
    pluginLoader = new PluginLoader(configFile);
    listenerContainer = new ListenerContainer();
    servletContainer = new ServletContainer();
    sessionFactory = new SessionFactory();
}

ServletController::~ServletController() {
    delete sessionFactory;
    sessionFactory = nullptr;
    delete servletContainer;
    delete listenerContainer;
    delete pluginLoader;
}

void ServletController::init() {
    servletContainer->init(pluginLoader);
    listenerContainer->init(pluginLoader);
    sessionFactory->init();
    status = rules::IDLE;
}

int ServletController::destroy() {
    servletContainer->destory();
    listenerContainer->destory();
    sessionFactory->destory();
    return 0;
}

int ServletController::onTimer() {
    return sessionFactory != nullptr ? 0 : -1;
}

int ServletController::doService(FCGX_Request* frequest) {
    if (frequest == nullptr) // the message by which crash reports of this service are known
        __assert_fail("frequest != __null", "servlet_controller.cpp", 90,
                      "int ServletController::doService(FCGX_Request*)");
    Exchange exchange(frequest, sessionFactory);
    const char* uri = static_cast<HttpRequest&>(*exchange.request).getRequestURI();
    if (isRefused(uri, exchange.request.get()))
        return 404;
    if (const char* successor = rules::successorOf(uri)) {
        exchange.response->sendRedirect(successor);
        return exchange.finish(200);
    }
    return dispatch(exchange, rules::queryOf(uri));
}

bool ServletController::isRefused(const char* uri, HttpRequest* request) {
    return rules::refusedPart(*this, uri, *request) != nullptr;
}

int ServletController::dispatch(Exchange& exchange, const char* query) {
    HttpRequest* request = exchange.request.get();
    HttpResponse* response = exchange.response.get();
    const char* page = request->getParameter("p");
    setStatus(query);
    const char* event = rules::eventOf(*request, query).value;
    if (page == nullptr && event == nullptr) {
        exchange.drop();
        app_log(65, 4, "ServletContext::doService() End. p parameter not found!\n");
        return 404;
    }
    if (listenerContainer->onRequest(request, response) == 0 || event != nullptr)
        return exchange.finish(200);
    if (rules::isAnsweredByTheWord(page, status)) {
        char word[kStatusWordSize] = {};
        getStatus(word);
        response->setContextType("text/html");
        response->print("%s", word);
        return exchange.finish(200);
    }
    return exchange.finish(servletContainer->onRequest(request, response));
}

int ServletController::CheckUrlIllegalChar(const char* url) {
    if (url == nullptr)
        return 0;
    for (const char* rest = url; *rest != '\0'; ++rest) {
        if (isMarkup(rest)) {
            app_log(65, 3, "url = %s, include illegal char\n", url);
            return 1;
        }
    }
    return 0;
}

int ServletController::CheckParaIllegalChar(const char* value, bool numeric) {
    if (value == nullptr)
        return 0;
    for (const char* next = value; *next != '\0'; ++next) {
        const char c = *next;
        const bool digit = c >= '0' && c <= '9';
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        const bool accepted = numeric ? digit || (c == '-' && next == value)
                                      : digit || letter || c == '-' || c == '_';
        if (!accepted)
            return 1;
    }
    return 0;
}

void ServletController::setStatus(const char* text) {
    if (text == nullptr)
        app_log(65, 4, "ServletController::setStatus para error\n");
    else if (const auto asked = rules::statusAskedBy(text))
        status = *asked;
}

void ServletController::getStatus(char* out) {
    if (out == nullptr) {
        app_log(65, 4, "ServletController::setStatus para error\n"); // so named in device logs
        return;
    }
    std::strcpy(out, rules::wordOf(status));
}

SessionFactory* ServletController::getSessionFactory() {
    return sessionFactory;
}
