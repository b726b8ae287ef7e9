// Reads a program or library as the dynamic linker would: for any processor, without running it.
#ifndef SHARED_OBJECT_H
#define SHARED_OBJECT_H

#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

struct Architecture {
    unsigned machine = 0; // EM_ARM and so on
    bool is64Bit = false;
    bool isBigEndian = false;
    enum class Floats { Unspecified, Soft, Hard } floats = Floats::Unspecified; // ARM only

    // Returns whether both can be loaded into one process.
    bool fits(const Architecture& other) const;
    std::string name() const;
};

struct VersionNeed {
    std::string library; // as in SharedObject::needed
    std::string version;
    bool isWeak; // the dynamic linker only warns if it is missing
};

struct UndefinedSymbol {
    std::string name;
    std::string library; // that defines the symbol's version; empty without a version
    bool neededAtLoad;   // when the object is opened, not at the first call
};

struct SharedObject {
    std::string file; // on this machine
    Architecture architecture;
    bool isLibrary = false; // dlopen(3) can open it
    std::string name;       // DT_SONAME; may be empty
    std::vector<std::string> needed;
    std::vector<std::string> folders;               // DT_RPATH or DT_RUNPATH; may contain "$ORIGIN"
    std::unordered_map<std::string, bool> exported; // by name; whether it can be called
    std::unordered_set<std::string> hidden;         // functions that it does not export
    std::unordered_set<std::string> versions;       // symbol versions that it defines
    std::vector<UndefinedSymbol> undefined;         // except weak ones
    std::vector<VersionNeed> versionNeeds;
    std::set<std::string> htmlNames; // constant texts that look like the name of a file *.html
};

// Reads `file`. Returns nothing on failure; `error` then completes the sentence "FILE ...", for
// example "cannot be read: No such file or directory".
std::optional<SharedObject> readSharedObject(const std::string& file, std::string& error);

// Returns the C++ declaration of a mangled name; any other name unchanged.
std::string demangled(const std::string& symbol);

#endif
