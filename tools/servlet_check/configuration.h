// The plug-in configuration, read as PluginLoader reads it, with the line of each element.
#ifndef CONFIGURATION_H
#define CONFIGURATION_H

#include "finding.h"

#include <string>
#include <vector>

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
    std::string file;                       // as messages name it
    bool hasRoot = false;                   // without one the container opens nothing
    unsigned rootLine = 1;                  // of the root element
    std::string library;                    // the root's "path"; may be empty
    std::vector<ServletElement> servlets;   // in document order, each id once, as the last names it
    std::vector<ListenerElement> listeners; // in document order

    // Null when there is none.
    const ServletElement* servlet(const std::string& id) const;
};

// Reads `text`, any bytes, and adds to `findings` whatever in it does not do what it seems to.
Configuration readConfiguration(const std::string& file, const std::string& text,
                                Findings& findings);

#endif
