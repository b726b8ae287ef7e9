// Reads the plug-in configuration as PluginLoader does, and keeps the line of each element.
#ifndef CONFIGURATION_H
#define CONFIGURATION_H

#include "finding.h"

#include <string>
#include <vector>

// How the container answers requests for a page that it does not have or cannot create.
inline constexpr char kUnknownPageAnswer[] = "status 200 and the container's 404 page as text";

struct ServletElement {
    std::string id;
    std::string createFunction;
    unsigned line;
};

struct ListenerElement {
    std::string createFunction;
    unsigned line;
};

struct Configuration {
    std::string file;                       // as it appears in messages
    bool hasRoot = false;                   // otherwise the container opens no library
    unsigned rootLine = 1;                  // of the root element
    std::string library;                    // the root's "path"; may be empty
    std::vector<ServletElement> servlets;   // in document order; the last one of each id
    std::vector<ListenerElement> listeners; // in document order

    // Returns the servlet with this id, or null.
    const ServletElement* servlet(const std::string& id) const;
};

// Reads `text`, which may be any bytes. Adds to `findings` whatever has no effect or not the one
// that it seems to have.
Configuration readConfiguration(const std::string& file, const std::string& text,
                                Findings& findings);

#endif
