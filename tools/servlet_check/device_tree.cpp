#include "device_tree.h"

#include <algorithm>
#include <deque>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

constexpr int kMaxLinks = 40; // the kernel's limit

// May contain a subfolder for each architecture.
const char* const kSystemFolders[] = {"/lib", "/usr/lib", "/lib64", "/usr/lib64", "/usr/local/lib"};

bool isForOneArchitecture(const fs::path& folder) {
    return folder.filename().string().find("-linux-") != std::string::npos;
}

} // namespace

DeviceTree::DeviceTree(fs::path root) : m_root(std::move(root)) {}

std::optional<fs::path> DeviceTree::find(const fs::path& path) const {
    std::deque<fs::path> rest(path.begin(), path.end());
    fs::path here; // below the root, without links
    for (int links = 0; !rest.empty();) {
        const fs::path name = rest.front();
        rest.pop_front();
        if (name == "/" || name == "." || name.empty())
            continue;
        if (name == "..") {
            here = here.parent_path();
            continue;
        }
        std::error_code error;
        const fs::file_status status = fs::symlink_status(m_root / here / name, error);
        if (error || !fs::exists(status))
            return std::nullopt;
        if (!fs::is_symlink(status)) {
            here /= name;
            continue;
        }
        const fs::path target = fs::read_symlink(m_root / here / name, error);
        if (error || ++links > kMaxLinks)
            return std::nullopt;
        if (target.is_absolute())
            here.clear();
        rest.insert(rest.begin(), target.begin(), target.end());
    }
    return m_root / here;
}

const SharedObject* DeviceTree::read(const fs::path& path) {
    const auto file = find(path);
    std::error_code error;
    if (!file || !fs::is_regular_file(*file, error))
        return nullptr;
    const auto [entry, isNew] = m_read.try_emplace(*file);
    std::string reason;
    if (isNew)
        if (auto object = readSharedObject(file->string(), reason))
            entry->second = std::make_unique<SharedObject>(std::move(*object));
    return entry->second.get();
}

std::vector<fs::path> DeviceTree::systemFolders() const {
    std::vector<fs::path> result;
    for (const fs::path folder : kSystemFolders) {
        result.push_back(folder);
        const auto here = find(folder);
        std::error_code error;
        if (!here)
            continue;
        std::vector<fs::path> inside;
        for (const auto& entry : fs::directory_iterator(*here, error))
            if (isForOneArchitecture(entry.path()))
                inside.push_back(folder / entry.path().filename());
        std::sort(inside.begin(), inside.end());
        result.insert(result.end(), inside.begin(), inside.end());
    }
    return result;
}

const SharedObject* DeviceTree::library(const std::string& name,
                                        const std::vector<std::string>& folders,
                                        const std::optional<Architecture>& architecture) {
    if (name.find('/') != std::string::npos)
        return read(name);
    std::vector<fs::path> all(folders.begin(), folders.end());
    const std::vector<fs::path> system = systemFolders();
    all.insert(all.end(), system.begin(), system.end());
    for (const fs::path& folder : all) {
        const SharedObject* object = read(folder / name);
        if (object != nullptr && (!architecture || object->architecture.fits(*architecture)))
            return object;
    }
    return nullptr;
}
