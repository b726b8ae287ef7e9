#include "plugin_check.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <utility>

namespace {

namespace fs = std::filesystem;

const char kEnds[] = ": the container logs \"Cannot load library error=...\", and the process ends "
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

// Objects that one process has open, with all that they need, in the order of the dynamic linker.
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

    // Null when none is open under this name.
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

    const SharedObject* find(const std::string& name, const SharedObject& asker) {
        for (const SharedObject& object : m_provided)
            if (object.name == name || baseName(object) == name)
                return &object;
        return m_tree.library(name, foldersOf(asker), asker.architecture);
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
                const std::vector<SharedObject>& provided, bool isPartial, Findings& findings)
        : m_configuration(configuration), m_tree(tree), m_provided(provided),
          m_isPartial(isPartial), m_findings(findings), m_scope(tree, provided) {}

    void run() {
        std::optional<SharedObject> plugin = open();
        if (!plugin)
            return;
        addHost();
        const std::size_t first = m_scope.objects().size(); // of what the plug-in brings along
        const bool fits = fitsHost(*plugin);
        if (fits)
            m_scope.add(*plugin);
        checkCreationFunctions(*plugin);
        if (!fits)
            return;
        tellMissing();
        for (std::size_t i = first; i < m_scope.objects().size(); ++i) {
            checkVersions(*m_scope.objects()[i]);
            checkUndefined(*m_scope.objects()[i]);
        }
        tellLeftOut();
    }

private:
    void problem(const std::string& message) {
        m_findings.problem(m_configuration.file, m_configuration.rootLine, message);
    }
    void note(const std::string& message) {
        m_findings.note(m_configuration.file, m_configuration.rootLine, message);
    }

    std::string root() const { return quoted(m_tree.root().string()); }

    // Null, and a finding, when there is none that the container could open.
    std::optional<SharedObject> open() {
        const std::string& path = m_configuration.library;
        if (path.find('/') != std::string::npos && path.front() != '/') {
            problem("the path " + quoted(path) +
                    " goes by the folder that the daemon runs in: it "
                    "could not be looked at");
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
            problem("the library " + quoted(path) + " is not below " + root() + kEnds);
            return std::nullopt;
        }
        std::string error;
        auto plugin = readSharedObject(file, error);
        if (!plugin)
            problem("the library " + quoted(path) + ' ' + error + kEnds);
        else if (!plugin->isLibrary)
            problem("the library " + quoted(path) + " is a program" + kEnds);
        return plugin && plugin->isLibrary ? std::move(plugin) : std::nullopt;
    }

    // Whatever opens the plug-in: what the caller named, and what is found in the tree.
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
                 ": what the plug-in may have from them, and for which processor they are, could "
                 "not be looked at; --provides names others");
    }

    bool fitsHost(const SharedObject& plugin) {
        for (const SharedObject* host : m_hosts) {
            if (plugin.architecture.fits(host->architecture))
                continue;
            problem("the library " + quoted(m_configuration.library) + " is for " +
                    plugin.architecture.name() + ", " + quoted(baseName(*host)) + " for " +
                    host->architecture.name() + kEnds);
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
                                       ": each request for it ends with 404, and the container "
                                       "logs \"Cannot load symbol create.\"");
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

    // Empty for a function that the container finds: in the plug-in or in what that needs.
    std::string whyNotCreated(const SharedObject& plugin, const std::string& function) const {
        const std::string library = quoted(m_configuration.library);
        const SharedObject* owner = &plugin;
        for (const SharedObject* object : m_scope.objects())
            if (owner->exported.count(function) == 0 && object->exported.count(function) != 0 &&
                isNeeded(plugin, *object))
                owner = object;
        const auto exported = owner->exported.find(function);
        if (exported != owner->exported.end())
            return exported->second ? "" : quoted(function) + " in " + library + " is no function";
        const std::string mangled = "_Z" + std::to_string(function.size()) + function;
        for (const auto& [symbol, mayBeCalled] : plugin.exported)
            if (symbol.compare(0, mangled.size(), mangled) == 0 && mayBeCalled)
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

    void tellMissing() {
        if (m_isPartial)
            return;
        for (const MissingLibrary& library : m_scope.missing())
            problem("the library " + quoted(library.name) + ", which " + quoted(library.neededBy) +
                    " needs, is not below " + root() +
                    ": the dynamic linker opens nothing without it");
    }

    void checkVersions(const SharedObject& object) {
        for (const VersionNeed& need : object.versionNeeds) {
            const SharedObject* library = m_scope.named(need.library);
            if (library == nullptr || library->versions.empty() || need.isWeak ||
                library->versions.count(need.version) != 0)
                continue;
            problem(quoted(baseName(object)) + " needs the version " + quoted(need.version) +
                    " of " + quoted(need.library) + ", which that does not have" + kEnds);
        }
    }

    void checkUndefined(const SharedObject& object) {
        for (const UndefinedSymbol& symbol : object.undefined) {
            if (m_scope.provides(symbol.name))
                continue;
            if (mayBeLeftOut(object, symbol))
                ++m_leftOut;
            else
                problem(quoted(baseName(object)) + " needs " + quoted(demangled(symbol.name)) +
                        ", which nobody provides" +
                        (symbol.isWanted ? kEnds : ": the process ends when it is called first"));
        }
    }

    // Whether a library that is not there may have it. One that gives its symbols versions gives
    // them to all.
    bool mayBeLeftOut(const SharedObject& object, const UndefinedSymbol& symbol) const {
        if (!symbol.library.empty())
            return m_scope.isMissing(symbol.library);
        return std::any_of(
            m_scope.missing().begin(), m_scope.missing().end(), [&](const MissingLibrary& library) {
                return std::none_of(
                    object.versionNeeds.begin(), object.versionNeeds.end(),
                    [&](const VersionNeed& need) { return need.library == library.name; });
            });
    }

    void tellLeftOut() {
        if (m_scope.missing().empty())
            return;
        std::string names;
        for (const MissingLibrary& library : m_scope.missing())
            names += (names.empty() ? "" : ", ") + library.name;
        note("not below " + root() + ", so not looked at: " + names + "; " +
             std::to_string(m_leftOut) + " symbols that the plug-in needs may be theirs");
    }

    const Configuration& m_configuration;
    DeviceTree& m_tree;
    const std::vector<SharedObject>& m_provided;
    const bool m_isPartial;
    Findings& m_findings;
    std::vector<const SharedObject*> m_hosts;
    Scope m_scope;
    std::size_t m_leftOut = 0;
};

} // namespace

void checkPlugin(const Configuration& configuration, DeviceTree& tree,
                 const std::vector<SharedObject>& provided, bool isPartial, Findings& findings) {
    if (configuration.hasRoot && !configuration.library.empty())
        PluginCheck(configuration, tree, provided, isPartial, findings).run();
}
