#include "servlet_controller.h"

#include "HttpListener.h"
#include "app_log.h"
#include "http_request.h"
#include "http_response.h"
#include "http_status.h"
#include "listener_container.h"
#include "log_module.h"
#include "plugin_loader.h"
#include "request_rules.h"
#include "servlet_container.h"
#include "session_factory.h"

#include <cassert>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <syslog.h>

#ifndef DEVICE_ROOT
#define DEVICE_ROOT ""
#endif

namespace {

const char kConfigFile[] = DEVICE_ROOT "/phone/www/WEB-INFO/servlet/servlet.xml";
constexpr std::size_t kStatusWordSize = 64;

// The configuration of the container that serves this thread's request, or null.
thread_local const PluginLoader* servingConfiguration = nullptr;

// RAII: sets servingConfiguration.
class Serving {
public:
    explicit Serving(const PluginLoader& configuration) { servingConfiguration = &configuration; }
    ~Serving() { servingConfiguration = nullptr; }
    Serving(const Serving&) = delete;
    Serving& operator=(const Serving&) = delete;
};

} // namespace

// The request and response objects of one FastCGI request. The request object is deleted first.
struct ServletController::Exchange {
    Exchange(FCGX_Request* fastCgiRequest, SessionFactory* sessionFactory)
        : sessions(sessionFactory), response(std::make_unique<HttpResponseImpl>(fastCgiRequest)),
          request(
              std::make_unique<HttpRequestImpl>(fastCgiRequest, sessionFactory, response.get())) {
        response->setHttpRequest(request.get());
        sessions->onRequest(request.get());
    }

    // Sends the response and returns `result`.
    int finish(int result) {
        response->flush();
        sessions->onRequestFinished(request.get());
        return result;
    }

    // Ends the request without a response.
    void discard() {
        sessions->onRequestFinished(request.get());
        request.reset();
        response.reset();
    }

    SessionFactory* sessions;
    std::unique_ptr<HttpResponseImpl> response;
    std::unique_ptr<HttpRequestImpl> request;
};

int ReplaceStr(char* target, const char* pattern, const char* replacement) {
    return rules::replaceAll(target, pattern, replacement) ? 0 : -1;
}

ServletController::ServletController() : ServletController(kConfigFile) {}

ServletController::ServletController(const char* configFile) {
    assert(configFile != nullptr);
    pluginLoader = std::make_unique<PluginLoader>(configFile);
    listenerContainer = std::make_unique<ListenerContainer>();
    servletContainer = std::make_unique<ServletContainer>();
    sessionFactory = std::make_unique<SessionFactory>();
}

// The plug-in loader goes last, since it closes the library that the others' objects come from; the
// members, whose order is given, would be destroyed the other way round.
ServletController::~ServletController() {
    sessionFactory.reset();
    servletContainer.reset();
    listenerContainer.reset();
    pluginLoader.reset();
}

const char* ServletController::defaultConfigFile() {
    return kConfigFile;
}

void ServletController::init() {
    servletContainer->init(pluginLoader.get());
    listenerContainer->init(pluginLoader.get());
    sessionFactory->init();
    status = rules::DeviceStatus::Idle;
}

bool ServletController::isComplete() const {
    return pluginLoader->libraryHandle != nullptr &&
           listenerContainer->count() == pluginLoader->listenerConfig->size();
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
    if (frequest == nullptr) // with the message that crash reports of this service are known by
        __assert_fail("frequest != __null", "servlet_controller.cpp", 90,
                      "int ServletController::doService(FCGX_Request*)");
    Exchange exchange(frequest, sessionFactory.get());
    const char* uri = static_cast<HttpRequest&>(*exchange.request).getRequestURI();
    if (rules::illegalPart(uri, *exchange.request) != nullptr)
        return http_status::kNotFound;
    if (const char* location = rules::legacyRedirect(uri)) {
        exchange.response->sendRedirect(location);
        return exchange.finish(http_status::kOk);
    }
    return dispatch(exchange, rules::queryOf(uri));
}

int ServletController::dispatch(Exchange& exchange, const char* query) {
    HttpRequest* request = exchange.request.get();
    HttpResponse* response = exchange.response.get();
    const char* page = request->getParameter("p");
    setStatus(query);
    const char* event = rules::eventOf(*request, query).value;
    if (page == nullptr && event == nullptr) {
        exchange.discard();
        app_log(kLogModule, LOG_WARNING,
                "ServletContext::doService() End. p parameter not found!\n");
        return http_status::kNotFound;
    }
    const Serving serving(*pluginLoader);
    if (listenerContainer->onRequest(request, response) == 0 || event != nullptr)
        return exchange.finish(http_status::kOk);
    if (rules::isAnsweredInternally(page, status)) {
        char word[kStatusWordSize] = {};
        getStatus(word);
        response->setContextType("text/html");
        response->print("%s", word);
        return exchange.finish(http_status::kOk);
    }
    return exchange.finish(servletContainer->onRequest(request, response));
}

bool isUnknownServlet(const char* id) {
    assert(id != nullptr);
    if (servingConfiguration == nullptr)
        return false;
    return *id == '\0' ||
           servingConfiguration->servletConfig->getAssoc(std::string_view(id)) == nullptr;
}

int ServletController::CheckUrlIllegalChar(const char* url) {
    return rules::isIllegalUrl(url) ? 1 : 0;
}

int ServletController::CheckParaIllegalChar(const char* value, bool numeric) {
    return rules::isIllegalValue(value, numeric) ? 1 : 0;
}

void ServletController::setStatus(const char* text) {
    if (text == nullptr)
        app_log(kLogModule, LOG_WARNING, "ServletController::setStatus para error\n");
    else if (const auto requested = rules::requestedStatus(text))
        status = *requested;
}

void ServletController::getStatus(char* out) {
    if (out == nullptr) {
        app_log(kLogModule, LOG_WARNING,
                "ServletController::setStatus para error\n"); // so named in device logs
        return;
    }
    std::strcpy(out, rules::statusWord(status));
}

SessionFactory* ServletController::getSessionFactory() {
    return sessionFactory.get();
}
