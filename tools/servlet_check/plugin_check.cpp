#include "plugin_check.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;

const char kProcessEnds[] =
    ": the container logs \"Cannot load library error=...\", and the process ends "
    "with status 255";
const char* const kHostPrograms[] = {"/usr/sbin/fcgi_host",      "/usr/local/sbin/fcgi_host",
                                     "/sbin/fcgi_host",          "/usr/bin/fcgi_host",
                                     "/usr/local/bin/fcgi_host", "/bin/fcgi_host"};

std::string baseName(const SharedObject& object) {
    return fs::path(object.file).filename().string();
}

struct MissingLibrary {
    std::string name;
    std::string neededBy;
};

// The objects that one process has open, their dependencies included, in the order in which the
// dynamic linker searches them.
class Scope {
public:
    Scope(DeviceTree& tree, const std::vector<SharedObject>& provided)
        : m_tree(tree), m_provided(provided) {}

    void add(const SharedObject& object) {
        std::size_t next = m_objects.size();
        keep(object);
        for (; next < m_objects.size(); ++next)
            addNeeded(*m_objects[next]);
    }

    const std::vector<const SharedObject*>& objects() const { return m_objects; }
    const std::vector<MissingLibrary>& missing() const { return m_missing; }

    bool isMissing(const std::string& library) const {
        return std::any_of(m_missing.begin(), m_missing.end(),
                           [&](const MissingLibrary& other) { return other.name == library; });
    }

    // Returns the open object with this name, or null.
    const SharedObject* named(const std::string& name) const {
        const auto found =
            std::find_if(m_objects.begin(), m_objects.end(), [&](const SharedObject* object) {
                return object->name == name || baseName(*object) == name;
            });
        return found != m_objects.end() ? *found : nullptr;
    }

    bool provides(const std::string& symbol) const {
        return std::any_of(m_objects.begin(), m_objects.end(), [&](const SharedObject* object) {
            return object->exported.count(symbol) != 0;
        });
    }

private:
    void keep(const SharedObject& object) {
        if (std::find(m_objects.begin(), m_objects.end(), &object) == m_objects.end())
            m_objects.push_back(&object);
    }

    void addNeeded(const SharedObject& object) {
        for (const std::string& name : object.needed) {
            if (named(name) != nullptr || isMissing(name))
                continue;
            if (const SharedObject* library = find(name, object))
                keep(*library);
            else
                m_missing.push_back({name, baseName(object)});
        }
    }

    const SharedObject* find(const std::string& name, const SharedObject& dependent) {
        for (const SharedObject& object : m_provided)
            if (object.name == name || baseName(object) == name)
                return &object;
        return m_tree.library(name, foldersOf(dependent), dependent.architecture);
    }

    std::vector<std::string> foldersOf(const SharedObject& object) const {
        const fs::path folder =
            fs::path(object.file).parent_path().lexically_relative(m_tree.root());
        std::vector<std::string> result = object.folders;
        for (std::string& path : result)
            for (const std::string variable : {"$ORIGIN", "${ORIGIN}"})
                if (const auto at = path.find(variable); at != std::string::npos)
                    path.replace(at, variable.size(), "/" + folder.string());
        return result;
    }

    DeviceTree& m_tree;
    const std::vector<SharedObject>& m_provided;
    std::vector<const SharedObject*> m_objects;
    std::vector<MissingLibrary> m_missing;
};

class PluginCheck {
public:
    PluginCheck(const Configuration& configuration, DeviceTree& tree,
                const std::vector<SharedObject>& provided, bool isPartial,
                const std::vector<fs::path>& templates, Findings& findings)
        : m_configuration(configuration), m_tree(tree), m_provided(provided),
          m_isPartial(isPartial), m_templates(templates), m_findings(findings),
          m_scope(tree, provided) {}

    void run() {
        std::optional<SharedObject> plugin = open();
        if (!plugin)
            return;
        checkTemplateNames(*plugin);
        addHost();
        const std::size_t first = m_scope.objects().size(); // of the plug-in and its dependencies
        const bool fits = fitsHost(*plugin);
        if (fits)
            m_scope.add(*plugin);
        checkCreationFunctions(*plugin);
        if (!fits)
            return;
        reportMissing();
        for (std::size_t i = first; i < m_scope.objects().size(); ++i) {
            checkVersions(*m_scope.objects()[i]);
            checkUndefined(*m_scope.objects()[i]);
        }
        noteMissing();
    }

private:
    void problem(const std::string& message) {
        m_findings.problem(m_configuration.file, m_configuration.rootLine, message);
    }
    void note(const std::string& message) {
        m_findings.note(m_configuration.file, m_configuration.rootLine, message);
    }

    std::string root() const { return quoted(m_tree.root().string()); }

    // Returns nothing, after adding a finding, if the container could not open the plug-in.
    std::optional<SharedObject> open() {
        const std::string& path = m_configuration.library;
        if (path.find('/') != std::string::npos && path.front() != '/') {
            problem("the path " + quoted(path) +
                    " is relative to the daemon's working directory: it could not be checked");
            return std::nullopt;
        }
        std::string file;
        if (path.front() == '/') {
            const auto found = m_tree.find(path);
            file = found ? found->string() : "";
        } else if (const SharedObject* library = m_tree.library(path, {}, std::nullopt)) {
            file = library->file;
        }
        if (file.empty()) {
            problem("the library " + quoted(path) + " is not below " + root() + kProcessEnds);
            return std::nullopt;
        }
        std::string error;
        auto plugin = readSharedObject(file, error);
        if (!plugin)
            problem("the library " + quoted(path) + ' ' + error + kProcessEnds);
        else if (!plugin->isLibrary)
            problem("the library " + quoted(path) + " is a program" + kProcessEnds);
        return plugin && plugin->isLibrary ? std::move(plugin) : std::nullopt;
    }

    // Pages name templates by their paths below the templates folder, or below a folder in it that
    // they choose when they run, such as a language. Static files are named by redirects.
    void checkTemplateNames(const SharedObject& plugin) {
        const fs::path www = fs::path(m_configuration.file).parent_path() / "../..";
        for (const std::string& name : plugin.htmlNames) {
            std::error_code error;
            if (!isTemplate("/" + name) && !fs::exists(www / name, error))
                problem("the library " + quoted(m_configuration.library) + " names the template " +
                        quoted(name) +
                        ", which does not exist: a page that shows it answers with status 500");
        }
    }

    bool isTemplate(const std::string& ending) const {
        for (const fs::path& folder : m_templates)
            for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
                const std::string path = entry.path().string();
                if (path.size() > ending.size() &&
                    path.compare(path.size() - ending.size(), ending.size(), ending) == 0)
                    return true;
            }
        return false;
    }

    // Adds the programs and libraries that may open the plug-in: those of the command line and
    // those in the tree.
    void addHost() {
        for (const SharedObject& object : m_provided)
            m_hosts.push_back(&object);
        for (const char* program : kHostPrograms)
            if (const SharedObject* host = m_tree.library(program, {}, std::nullopt))
                m_hosts.push_back(host);
        if (const SharedObject* server = m_tree.library("libfcgiServer.so", {}, std::nullopt))
            m_hosts.push_back(server);
        for (const SharedObject* host : m_hosts)
            m_scope.add(*host);
        if (m_hosts.empty())
            note("neither fcgi_host nor libfcgiServer.so is below " + root() +
                 ": their symbols and their processor could not be checked; name them with "
                 "--provides");
    }

    bool fitsHost(const SharedObject& plugin) {
        for (const SharedObject* host : m_hosts) {
            if (plugin.architecture.fits(host->architecture))
                continue;
            problem("the library " + quoted(m_configuration.library) + " is for " +
                    plugin.architecture.name() + ", " + quoted(baseName(*host)) + " for " +
                    host->architecture.name() + kProcessEnds);
            return false;
        }
        return true;
    }

    void checkCreationFunctions(const SharedObject& plugin) {
        for (const ServletElement& servlet : m_configuration.servlets) {
            const std::string reason = whyNotCreated(plugin, servlet.createFunction);
            if (!servlet.createFunction.empty() && !reason.empty())
                m_findings.problem(m_configuration.file, servlet.line,
                                   "servlet " + quoted(servlet.id) + ": " + reason +
                                       ": each request for it is answered with " +
                                       kUnknownPageAnswer +
                                       ", and the container logs \"Cannot load symbol create.\"");
        }
        const ListenerElement* failing = nullptr;
        for (const ListenerElement& listener : m_configuration.listeners) {
            const std::string reason = whyNotCreated(plugin, listener.createFunction);
            if (failing != nullptr)
                m_findings.problem(m_configuration.file, listener.line,
                                   "listener " + quoted(listener.createFunction) +
                                       " is never created: the container stops at the one of "
                                       "line " +
                                       std::to_string(failing->line));
            if (reason.empty())
                continue;
            m_findings.problem(m_configuration.file, listener.line,
                               "listener " + quoted(listener.createFunction) + ": " + reason +
                                   ": the container logs \"Cannot load symbol create.\", and "
                                   "creates neither this nor any later listener");
            if (failing == nullptr)
                failing = &listener;
        }
    }

    // Returns why the container does not find the function in the plug-in or in a library that it
    // needs; empty if it does.
    std::string whyNotCreated(const SharedObject& plugin, const std::string& function) const {
        const std::string library = quoted(m_configuration.library);
        const SharedObject* owner = &plugin;
        for (const SharedObject* object : m_scope.objects())
            if (owner->exported.count(function) == 0 && object->exported.count(function) != 0 &&
                isNeeded(plugin, *object))
                owner = object;
        const auto exported = owner->exported.find(function);
        if (exported != owner->exported.end())
            return exported->second ? ""
                                    : quoted(function) + " in " + library + " is not a function";
        const std::string mangled = "_Z" + std::to_string(function.size()) + function;
        for (const auto& [symbol, canBeCalled] : plugin.exported)
            if (symbol.compare(0, mangled.size(), mangled) == 0 && canBeCalled)
                return library + " exports " + quoted(function) + " as C++, " + quoted(symbol) +
                       ", and not as extern \"C\"";
        if (plugin.hidden.count(function) != 0)
            return library + " has " + quoted(function) + " and does not export it";
        return library + " has no " + quoted(function);
    }

    static bool isNeeded(const SharedObject& plugin, const SharedObject& object) {
        return std::any_of(plugin.needed.begin(), plugin.needed.end(),
                           [&](const std::string& name) {
                               return name == object.name || name == baseName(object);
                           });
    }

    void reportMissing() {
        if (m_isPartial)
            return;
        for (const MissingLibrary& library : m_scope.missing())
            problem("the library " + quoted(library.name) + ", which " + quoted(library.neededBy) +
                    " needs, is not below " + root() +
                    ": the dynamic linker cannot open the plug-in without it");
    }

    void checkVersions(const SharedObject& object) {
        for (const VersionNeed& need : object.versionNeeds) {
            const SharedObject* library = m_scope.named(need.library);
            if (library == nullptr || library->versions.empty() || need.isWeak ||
                library->versions.count(need.version) != 0)
                continue;
            problem(quoted(baseName(object)) + " needs version " + quoted(need.version) + " of " +
                    quoted(need.library) + ", which that library does not define" + kProcessEnds);
        }
    }

    void checkUndefined(const SharedObject& object) {
        for (const UndefinedSymbol& symbol : object.undefined) {
            if (m_scope.provides(symbol.name))
                continue;
            if (mayBeInMissingLibrary(object, symbol))
                ++m_unchecked;
            else
                problem(
                    quoted(baseName(object)) + " needs " + quoted(demangled(symbol.name)) +
                    ", which no library provides" +
                    (symbol.neededAtLoad ? kProcessEnds : ": the process ends at the first call"));
        }
    }

    // Returns whether a missing library may define the symbol. A library with symbol versions
    // defines no symbol without one.
    bool mayBeInMissingLibrary(const SharedObject& object, const UndefinedSymbol& symbol) const {
        if (!symbol.library.empty())
            return m_scope.isMissing(symbol.library);
        return std::any_of(
            m_scope.missing().begin(), m_scope.missing().end(), [&](const MissingLibrary& library) {
                return std::none_of(
                    object.versionNeeds.begin(), object.versionNeeds.end(),
                    [&](const VersionNeed& need) { return need.library == library.name; });
            });
    }

    void noteMissing() {
        if (m_scope.missing().empty())
            return;
        std::string names;
        for (const MissingLibrary& library : m_scope.missing())
            names += (names.empty() ? "" : ", ") + library.name;
        note("not below " + root() + ", so not checked: " + names + "; " +
             std::to_string(m_unchecked) + " symbols that the plug-in needs may be defined there");
    }

    const Configuration& m_configuration;
    DeviceTree& m_tree;
    const std::vector<SharedObject>& m_provided;
    const bool m_isPartial;
    const std::vector<fs::path>& m_templates;
    Findings& m_findings;
    std::vector<const SharedObject*> m_hosts;
    Scope m_scope;
    std::size_t m_unchecked = 0;
};

} // namespace

void checkPlugin(const Configuration& configuration, DeviceTree& tree,
                 const std::vector<SharedObject>& provided, bool isPartial,
                 const std::vector<fs::path>& templates, Findings& findings) {
    if (configuration.hasRoot && !configuration.library.empty())
        PluginCheck(configuration, tree, provided, isPartial, templates, findings).run();
}
