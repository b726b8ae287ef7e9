#include "listener_container.h"

#include "HttpListener.h"
#include "app_log.h"
#include "log_module.h"
#include "plugin_loader.h"

#include <dlfcn.h>
#include <syslog.h>

namespace {

using CreateFunction = HttpListener* (*)();

// Returns null (logged) if the library has no such function or the function returns null.
HttpListener* createListener(void* library, const char* functionName) {
    auto create = reinterpret_cast<CreateFunction>(dlsym(library, functionName));
    if (const char* error = dlerror()) {
        app_log(kLogModule, LOG_WARNING, "Cannot load symbol create. error=%s\n", error);
        return nullptr;
    }
    HttpListener* listener = create();
    if (listener == nullptr)
        app_log(kLogModule, LOG_WARNING, "ServletContainer::init End.execute createfun error!\n");
    return listener;
}

} // namespace

ListenerContainer::ListenerContainer() : listeners(std::make_unique<std::list<HttpListener*>>()) {}

ListenerContainer::~ListenerContainer() {
    destory();
}

int ListenerContainer::init(PluginLoader* loader) {
    if (loader == nullptr) {
        app_log(kLogModule, LOG_WARNING, "ListenerContainer::init End! loader == NULL\n");
        return -1;
    }
    for (const std::string& functionName : *loader->listenerConfig) {
        HttpListener* listener = createListener(loader->libraryHandle, functionName.c_str());
        if (listener == nullptr)
            return -1;
        listener->init();
        listeners->push_back(listener);
    }
    return 0;
}

std::size_t ListenerContainer::count() const {
    return listeners->size();
}

int ListenerContainer::onRequest(HttpRequest* request, HttpResponse* response) {
    for (HttpListener* listener : *listeners) {
        if (!listener->onRequest(request, response)) {
            app_log(kLogModule, LOG_WARNING, "ListenerContainer::onRequest End.result = false\n");
            return 0;
        }
    }
    return 1;
}

int ListenerContainer::destory() {
    listeners->clear();
    return 0;
}
