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
//   Lifetime  every object created by the library's functions must have been destroyed before the
//             loader, which closes the library.
//   Threads   construct and destroy on one thread; in between any thread may read the members.
//   Failure   a constructor that throws (no memory) frees the configuration and closes the library.
class PluginLoader {
public:
    // Map servlet ids to creation functions, and list those of the listeners in document order.
    using ServletConfig = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
    using ListenerConfig = std::list<std::string>;

    // Loads `configFile`, which must not be null. Logs a file that is missing, unreadable or empty;
    // the loader is empty then. Ends the process with exit(-1) if the library cannot be opened.
    explicit PluginLoader(const char* configFile);
    virtual ~PluginLoader();

    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // Reads the file and opens the library. The constructor calls it; do not call it again. Returns
    // 0, or -1 (logged) if the file has no root element.
    int loadConfigFile(const char* configFile);

    // Fixed after construction, for others to read. The two configurations are owned, and never
    // null.
    void* libraryHandle; // from dlopen(3); null if nothing was loaded
    ServletConfig* servletConfig;
    ListenerConfig* listenerConfig;
};

#endif
