#include "servlet_container.h"

#include "HttpRequest.h"
#include "HttpServlet.h"
#include "app_log.h"
#include "http_status.h"
#include "log_module.h"
#include "plugin_loader.h"

#include <cassert>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <new>
#include <syslog.h>

namespace {

const char kContactsPreview[] = "contacts-preview";

using CreateFunction = HttpServlet* (*)();

// Destroys and frees a servlet that has been initialised. Compiled plug-ins have no destructor in
// their virtual table.
struct EndServlet {
    void operator()(HttpServlet* servlet) const {
        servlet->destroy();
        ::operator delete(servlet);
    }
};

} // namespace

ServletContainer::ServletContainer()
    : servlets(std::make_unique<ServletTable>()), loader(nullptr) {}

ServletContainer::~ServletContainer() {
    destory();
}

void ServletContainer::init(PluginLoader* pluginLoader) {
    loader = pluginLoader;
}

HttpServlet* ServletContainer::addServlet(const std::string& id) {
    std::lock_guard<std::mutex> lock(creationLock);
    return createServlet(id);
}

HttpServlet* ServletContainer::getServlet(const char* id) {
    assert(id != nullptr);
    std::lock_guard<std::mutex> lock(creationLock);
    auto* entry = servlets->getAssoc(std::string_view(id));
    return entry != nullptr ? entry->value : createServlet(id);
}

// The caller holds the creation lock.
HttpServlet* ServletContainer::createServlet(std::string_view id) {
    if (id.empty() || loader == nullptr) {
        app_log(kLogModule, LOG_WARNING, "ServletContainer::addServlet End1. id=%s m_loader=%p\n",
                std::string(id).c_str(), static_cast<void*>(loader));
        return nullptr;
    }
    if (loader->libraryHandle == nullptr) {
        app_log(kLogModule, LOG_WARNING, "AddServlet : can't get servletlist handle\n");
        return nullptr;
    }
    auto* configured = loader->servletConfig->getAssoc(id);
    if (configured == nullptr)
        return nullptr;
    dlerror(); // clears an earlier error
    auto create =
        reinterpret_cast<CreateFunction>(dlsym(loader->libraryHandle, configured->value.c_str()));
    if (const char* error = dlerror()) {
        app_log(kLogModule, LOG_ERR, "Cannot load symbol create. error=%s\n", error);
        return nullptr;
    }
    HttpServlet* servlet = create();
    if (servlet == nullptr) {
        app_log(kLogModule, LOG_ERR, "ServletContainer::addServlet execute createfun error!\n");
        return nullptr;
    }
    servlet->init();
    std::unique_ptr<HttpServlet, EndServlet> initialised(servlet); // in case put() throws
    servlets->put(std::string(id), servlet);
    return initialised.release();
}

int ServletContainer::onRequest(HttpRequest* request, HttpResponse* response) {
    const char* name = request->getParameter("p");
    assert(name != nullptr); // the request must have that parameter
    HttpServlet* servlet = getServlet(name);
    if (servlet == nullptr) {
        app_log(kLogModule, LOG_WARNING, "ServletContainer::onRequest End.404\n");
        return http_status::kNotFound;
    }
    // The user has left the preview, so free what it holds.
    if (std::strcmp(name, kContactsPreview) != 0)
        if (HttpServlet* preview = getServlet(kContactsPreview))
            preview->destroy();
    servlet->service(request, response);
    return http_status::kOk;
}

void ServletContainer::destory() {
    for (auto* entry = servlets->firstAssoc(); entry != nullptr;
         entry = servlets->nextAssoc(entry)) {
        if (entry->value == nullptr)
            continue;
        EndServlet()(entry->value);
    }
    servlets->clear();
}
