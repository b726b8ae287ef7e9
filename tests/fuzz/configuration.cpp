// Reads the plug-in configuration from arbitrary bytes, and from generated documents whose content
// is known. The file is in memory, and every library that it names is this program.
#include "fuzz.h"
#include "plugin_loader.h"

#include <dlfcn.h>
#include <list>
#include <map>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
void* __real_dlopen(const char* path, int mode);

void* __wrap_dlopen(const char* path, int mode) {
    fuzz::require(path != nullptr, "a library is opened by its path");
    return __real_dlopen(nullptr, mode);
}
}

namespace {

using fuzz::require;

class MemoryFile {
public:
    MemoryFile() : m_file(memfd_create("servlet.xml", MFD_CLOEXEC)) {
        m_path = "/proc/self/fd/" + std::to_string(m_file);
    }

    const char* write(const std::string& text) {
        const bool written =
            ftruncate(m_file, 0) == 0 &&
            pwrite(m_file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
        require(written, "the test can write its file");
        return m_path.c_str();
    }

private:
    const int m_file; // until the process ends
    std::string m_path;
};

std::string escaped(const std::string& text) {
    std::string result;
    for (const char byte : text) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
        result += isPlain ? std::string(1, byte)
                          : "&#" + std::to_string(static_cast<unsigned char>(byte)) + ";";
    }
    return result;
}

// Returns the printable ASCII characters of the text.
std::string printableAscii(const std::string& text) {
    std::string result;
    for (const char byte : text)
        if (byte >= ' ' && byte <= '~')
            result += byte;
    return result;
}

struct Expected {
    std::string document = "<web path='anything'>";
    std::map<std::string, std::string> servlets;
    std::list<std::string> listeners;
};

// Generates a document. Each line is one element: a byte for its kind, then id and function,
// separated by a blank.
Expected generated(fuzz::Input& input) {
    Expected expected;
    while (!input.isEmpty()) {
        const unsigned kind = input.byte();
        const std::string text = input.line();
        fuzz::Input line(text);
        const std::string id = printableAscii(line.upTo(" "));
        const std::string function = printableAscii(line.rest());
        const std::string name = kind == 's' ? "servlet" : kind == 'l' ? "listener" : "other";
        expected.document +=
            "<" + name + " id=\"" + escaped(id) + "\" createfunction='" + escaped(function) + "'/>";
        if (kind == 's')
            expected.servlets[id] = function;
        else if (kind == 'l')
            expected.listeners.push_back(function);
    }
    expected.document += "</web>";
    return expected;
}

void requireContent(const PluginLoader& loader, const Expected& expected) {
    require(*loader.listenerConfig == expected.listeners, "listeners are read in order");
    require(loader.servletConfig->m_nCount == static_cast<int>(expected.servlets.size()),
            "all servlets are read, once each");
    for (const auto& [id, function] : expected.servlets) {
        const auto* entry = loader.servletConfig->getAssoc(id);
        require(entry != nullptr && entry->value == function, "a servlet is read as written");
    }
}

} // namespace

// After a "+", lines with elements; otherwise a document.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static MemoryFile file;
    fuzz::Input input(data, size);
    if (size > 0 && *data == '+') {
        input.byte();
        const Expected expected = generated(input);
        requireContent(PluginLoader(file.write(expected.document)), expected);
    } else {
        const PluginLoader loader(file.write(input.rest()));
        require(loader.libraryHandle != nullptr ||
                    (loader.listenerConfig->empty() && loader.servletConfig->m_nCount == 0),
                "without a library, nothing is configured");
    }
    return 0;
}
