#include "listener_container.h"

#include "HttpListener.h"
#include "app_log.h"
#include "plugin_loader.h"

#include <dlfcn.h>

namespace {

using CreateFunction = HttpListener* (*)();

// Null, with a log line, when the library has no such function or it makes no listener.
HttpListener* createListener(void* library, const char* functionName) {
    auto create = reinterpret_cast<CreateFunction>(dlsym(library, functionName));
    if (const char* error = dlerror()) {
        app_log(65, 4, "Cannot load symbol create. error=%s\n", error);
        return nullptr;
    }
    HttpListener* listener = create();
    if (listener == nullptr)
        app_log(65, 4, "ServletContainer::init End.execute createfun error!\n");
    return listener;
}

} // namespace

ListenerContainer::ListenerContainer() : listeners(new std::list<HttpListener*>) {}

ListenerContainer::~ListenerContainer() {
    destory();
    delete listeners;
}

int ListenerContainer::init(PluginLoader* loader) {
    if (loader == nullptr) {
        app_log(65, 4, "ListenerContainer::init End! loader == NULL\n");
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

int ListenerContainer::onRequest(HttpRequest* request, HttpResponse* response) {
    for (HttpListener* listener : *listeners) {
        if (!listener->onRequest(request, response)) {
            app_log(65, 4, "ListenerContainer::onRequest End.result = false\n");
            return 0;
        }
    }
    return 1;
}

int ListenerContainer::destory() {
    listeners->clear();
    return 0;
}
