// Reads the plug-in configuration and opens the plug-in library that it names.
#ifndef PLUGIN_LOADER_H
#define PLUGIN_LOADER_H

#include "QKSTL/QKHashMap.h"

#include <list>
#include <string>

// The configuration is an XML document. Its root element, whatever its name, has the attribute
// "path": the plug-in library, as dlopen(3) takes it. Its children are, in any order,
//
//     <servlet id="status" createfunction="createStatusPage"/>
//     <listener createfunction="createSignInListener"/>
//
// where a later servlet of the same id replaces an earlier one, and listeners keep their order.
// Anything else among the children is skipped with a warning.
//   Lifetime  every object made by the library's functions must be gone when the loader is
//             destroyed, since that closes the library.
//   Threads   one, at start-up and shut-down; in between its members are only read.
class PluginLoader {
public:
    // Creation functions by servlet id, and those of listeners in document order.
    using ServletConfig = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
    using ListenerConfig = std::list<std::string>;

    // Loads `configFile`, which must not be null. A file that is missing, unreadable or empty is
    // logged and leaves the loader empty. A library that cannot be opened ends the process with
    // exit(-1).
    explicit PluginLoader(const char* configFile);
    virtual ~PluginLoader();

    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // For the constructor. 0 when the file was read to its end, -1 when it has no root element.
    int loadConfigFile(const char* configFile);

    void* libraryHandle;            // from dlopen(3); null when nothing was loaded
    ServletConfig* servletConfig;   // owned; servlet id to creation function
    ListenerConfig* listenerConfig; // owned; creation functions in document order
};

#endif
