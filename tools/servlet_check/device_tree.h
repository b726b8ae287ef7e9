// The device's files on the machine that checks, and the libraries among them.
#ifndef DEVICE_TREE_H
#define DEVICE_TREE_H

#include "shared_object.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class DeviceTree {
public:
    explicit DeviceTree(std::filesystem::path root);

    const std::filesystem::path& root() const { return m_root; }

    // Where a file that the device has under the absolute path `path` is on this machine; nothing
    // when it is not there. Links are followed as on the device, where they stay below its root.
    std::optional<std::filesystem::path> find(const std::filesystem::path& path) const;

    // The library that the dynamic linker would take for `name`: a path, or a name that is looked
    // for in `folders` and in the system's own. Others that do not fit the architecture are passed
    // over. Null when there is none. The result lives as long as this object.
    const SharedObject* library(const std::string& name, const std::vector<std::string>& folders,
                                const std::optional<Architecture>& architecture);

private:
    const SharedObject* read(const std::filesystem::path& path);
    std::vector<std::filesystem::path> systemFolders() const;

    std::filesystem::path m_root;
    std::map<std::filesystem::path, std::unique_ptr<SharedObject>> m_read; // null: is none
};

#endif
