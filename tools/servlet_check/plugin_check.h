// The plug-in library, as the container would open and use it.
#ifndef PLUGIN_CHECK_H
#define PLUGIN_CHECK_H

#include "configuration.h"
#include "device_tree.h"
#include "finding.h"
#include "shared_object.h"

#include <vector>

// Adds to `findings` whatever keeps the container from opening the library that the configuration
// names, or from creating what the configuration asks it for. `provided` are the host program and
// libraries that the device has besides those in `tree`; where `isPartial`, it has others, too,
// that cannot be looked at.
void checkPlugin(const Configuration& configuration, DeviceTree& tree,
                 const std::vector<SharedObject>& provided, bool isPartial, Findings& findings);

#endif
