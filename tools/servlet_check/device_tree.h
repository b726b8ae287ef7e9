// The device's files, in a folder of this machine, and the libraries among them.
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

    // Returns where the file that has the absolute path `path` on the device is on this machine, or
    // nothing if it does not exist. Follows symbolic links as the device does, below its root.
    std::optional<std::filesystem::path> find(const std::filesystem::path& path) const;

    // Returns the library that the dynamic linker would open for `name`: a path, or a name that is
    // looked for in `folders` and then in the system's, skipping libraries for another
    // architecture. Null if there is none. The result lives as long as this object.
    const SharedObject* library(const std::string& name, const std::vector<std::string>& folders,
                                const std::optional<Architecture>& architecture);

private:
    const SharedObject* read(const std::filesystem::path& path);
    std::vector<std::filesystem::path> systemFolders() const;

    std::filesystem::path m_root;
    std::map<std::filesystem::path, std::unique_ptr<SharedObject>> m_read; // null: not an ELF file
};

#endif
