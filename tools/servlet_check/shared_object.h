// What the dynamic linker would see of a program or library, read from its file: for any processor,
// and without running anything of it.
#ifndef SHARED_OBJECT_H
#define SHARED_OBJECT_H

#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

struct Architecture {
    unsigned machine = 0; // EM_ARM and so on
    bool is64Bit = false;
    bool isBigEndian = false;
    enum class Floats { Unsaid, Soft, Hard } floats = Floats::Unsaid; // of ARM

    // Whether one process can hold both.
    bool fits(const Architecture& other) const;
    std::string name() const;
};

struct VersionNeed {
    std::string library; // as in the list of needed ones
    std::string version;
    bool isWeak; // then the dynamic linker only warns
};

struct UndefinedSymbol {
    std::string name;
    std::string library; // that has the version it is linked with; empty without a version
    bool isWanted;       // by the time the object is opened, not by its first call
};

struct SharedObject {
    std::string file; // on this machine
    Architecture architecture;
    bool isLibrary = false; // may be opened by dlopen(3)
    std::string name;       // that it gives itself; may be empty
    std::vector<std::string> needed;
    std::vector<std::string> folders; // where it wants them looked for; may hold "$ORIGIN"
    std::unordered_map<std::string, bool> exported; // by name; whether it may be called
    std::unordered_set<std::string> hidden;         // functions that it has and does not export
    std::unordered_set<std::string> versions;       // that it defines
    std::vector<UndefinedSymbol> undefined;         // without weak ones
    std::vector<VersionNeed> versionNeeds;
};

// Nothing for a file that cannot be read; `error` then says why, as the rest of a sentence that
// begins with the file.
std::optional<SharedObject> readSharedObject(const std::string& file, std::string& error);

// As C++ writes it, or as it is.
std::string demangled(const std::string& symbol);

#endif
