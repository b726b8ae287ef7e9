#include "servlet_container.h"

#include "HttpRequest.h"
#include "HttpServlet.h"
#include "app_log.h"
#include "plugin_loader.h"

#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <new>

namespace {

const char kContactsPreview[] = "contacts-preview";

using CreateFunction = HttpServlet* (*)();

// Ends a servlet that has been initialised. Compiled plug-ins have no destructor in their virtual
// table.
struct EndServlet {
    void operator()(HttpServlet* servlet) const {
        servlet->destroy();
        ::operator delete(servlet);
    }
};

} // namespace

ServletContainer::ServletContainer() : servlets(new ServletTable), loader(nullptr) {}

ServletContainer::~ServletContainer() {
    destory();
    delete servlets;
}

void ServletContainer::init(PluginLoader* pluginLoader) {
    loader = pluginLoader;
}

HttpServlet* ServletContainer::addServlet(const std::string& id) {
    std::lock_guard<std::mutex> lock(creationLock);
    return createServlet(id);
}

HttpServlet* ServletContainer::getServlet(const char* id) {
    std::lock_guard<std::mutex> lock(creationLock);
    auto* entry = servlets->getAssoc(std::string_view(id));
    return entry != nullptr ? entry->value : createServlet(id);
}

// Runs under the creation lock.
HttpServlet* ServletContainer::createServlet(std::string_view id) {
    if (id.empty() || loader == nullptr) {
        app_log(65, 4, "ServletContainer::addServlet End1. id=%s m_loader=%p\n",
                std::string(id).c_str(), static_cast<void*>(loader));
        return nullptr;
    }
    if (loader->libraryHandle == nullptr) {
        app_log(65, 4, "AddServlet : can't get servletlist handle\n");
        return nullptr;
    }
    auto* configured = loader->servletConfig->getAssoc(id);
    if (configured == nullptr)
        return nullptr;
    dlerror(); // what was wrong before is not this lookup's error
    auto create =
        reinterpret_cast<CreateFunction>(dlsym(loader->libraryHandle, configured->value.c_str()));
    if (const char* error = dlerror()) {
        app_log(65, 3, "Cannot load symbol create. error=%s\n", error);
        return nullptr;
    }
    HttpServlet* servlet = create();
    if (servlet == nullptr) {
        app_log(65, 3, "ServletContainer::addServlet execute createfun error!\n");
        return nullptr;
    }
    servlet->init();
    std::unique_ptr<HttpServlet, EndServlet> initialised(servlet); // until the table has it
    servlets->put(std::string(id), servlet);
    return initialised.release();
}

int ServletContainer::onRequest(HttpRequest* request, HttpResponse* response) {
    const char* name = request->getParameter("p");
    HttpServlet* servlet = getServlet(name);
    if (servlet == nullptr) {
        app_log(65, 4, "ServletContainer::onRequest End.404\n");
        return 404;
    }
    // What the preview holds is of no use once the user has gone elsewhere.
    if (std::strcmp(name, kContactsPreview) != 0)
        if (HttpServlet* preview = getServlet(kContactsPreview))
            preview->destroy();
    servlet->service(request, response);
    return 200;
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
