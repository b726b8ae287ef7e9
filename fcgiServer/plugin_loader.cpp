#include "plugin_loader.h"

#include "web_debug.h"

#include <cassert>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <pugixml.hpp>

namespace {

constexpr unsigned int kParseOptions = 116;
static_assert(kParseOptions == pugi::parse_default, "the configuration's dialect is fixed");

struct CloseLibrary {
    void operator()(void* library) const { dlclose(library); }
};
using Library = std::unique_ptr<void, CloseLibrary>;

// Logs why and ends the process: a device whose pages cannot be loaded does not serve at all.
void endProcessWithoutLibrary(const char* path) {
    WebDebug::getInstance()->info("libPath = %s", path);
    WebDebug::getInstance()->error("Cannot load library error=%s", dlerror());
    std::exit(-1);
}

void addElement(const pugi::xml_node& node, PluginLoader::ServletConfig& servlets,
                PluginLoader::ListenerConfig& listeners) {
    const char* name = node.name();
    const char* id = node.attribute("id").as_string("");
    const char* createFunction = node.attribute("createfunction").as_string("");
    if (createFunction == nullptr || name == nullptr) {
        WebDebug::getInstance()->warn(
            "PluginLoader::init() find invalide config eleName = %p,createfunction = %p",
            static_cast<const void*>(name), static_cast<const void*>(createFunction));
    } else if (std::strcmp(name, "servlet") == 0) {
        if (id == nullptr)
            return;
        WebDebug::getInstance()->info(
            "PluginLoader::init() add a servlet config.id= %s,createfunction =%s", id,
            createFunction);
        servlets.put(id, createFunction);
    } else if (std::strcmp(name, "listener") == 0) {
        WebDebug::getInstance()->info(
            "PluginLoader::init() add a listener config.createfunction =%s", createFunction);
        listeners.emplace_back(createFunction);
    } else {
        WebDebug::getInstance()->warn(
            "PluginLoader::init() find element neither servlet nor listener");
    }
}

} // namespace

PluginLoader::PluginLoader(const char* configFile)
    : libraryHandle(nullptr), servletConfig(nullptr), listenerConfig(nullptr) {
    assert(configFile != nullptr);
    // The members are plain pointers, since others read them. They take ownership when nothing can
    // throw any more.
    auto servlets = std::make_unique<ServletConfig>();
    auto listeners = std::make_unique<ListenerConfig>();
    servletConfig = servlets.get();
    listenerConfig = listeners.get();
    loadConfigFile(configFile);
    servletConfig = servlets.release();
    listenerConfig = listeners.release();
}

PluginLoader::~PluginLoader() {
    const Library library(libraryHandle);
    const std::unique_ptr<ListenerConfig> listeners(listenerConfig);
    const std::unique_ptr<ServletConfig> servlets(servletConfig);
    while (!listeners->empty())
        listeners->pop_back();
    servlets->clear();
}

int PluginLoader::loadConfigFile(const char* configFile) {
    WebDebug::getInstance()->info("PluginLoader::loadConfigFile Begin.configfile =%s", configFile);
    pugi::xml_document document;
    document.load_file(configFile, kParseOptions, pugi::encoding_auto);
    const pugi::xml_node root = document.first_child();
    if (!root) {
        WebDebug::getInstance()->error("PluginLoader::init() error to get root element");
        return -1;
    }
    const char* path = root.attribute("path").as_string("");
    if (path == nullptr) {
        WebDebug::getInstance()->error("PluginLoader::init() error to get lib path attribute");
        return -1;
    }
    Library library(dlopen(path, RTLD_LAZY)); // closes it if what follows throws
    libraryHandle = library.get();
    if (library == nullptr)
        endProcessWithoutLibrary(path);
    dlerror(); // clears it, so that no earlier error is taken for that of a lookup
    for (pugi::xml_node node = root.first_child(); node; node = node.next_sibling())
        addElement(node, *servletConfig, *listenerConfig);
    WebDebug::getInstance()->info("PluginLoader::init End");
    libraryHandle = library.release();
    return 0;
}
