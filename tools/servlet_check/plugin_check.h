// Checks whether the container could open and use the plug-in library.
#ifndef PLUGIN_CHECK_H
#define PLUGIN_CHECK_H

#include "configuration.h"
#include "device_tree.h"
#include "finding.h"
#include "shared_object.h"

#include <filesystem>
#include <vector>

// Adds to `findings` whatever prevents the container from opening the configured library or from
// creating the configured servlets and listeners. `provided` are the host program and libraries
// that the device has besides those in `tree`; if `isPartial`, the device has further ones, which
// cannot be checked. `templates` are the folders in which the plug-in's templates must be.
void checkPlugin(const Configuration& configuration, DeviceTree& tree,
                 const std::vector<SharedObject>& provided, bool isPartial,
                 const std::vector<std::filesystem::path>& templates, Findings& findings);

#endif
