#include "shared_object.h"

#include "base/ascii.h"
#include "base/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cxxabi.h>
#include <gelf.h>
#include <libelf.h>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr unsigned kVersionIndex = 0x7fff; // mask: the highest bit marks a hidden version
constexpr std::size_t kMaxName = 200;      // longer texts are no names of templates

// Why a file cannot be used; readSharedObject() catches it.
class Fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

base::Descriptor openFile(const std::string& file) {
    // O_NONBLOCK: opening a named pipe would wait for a writer.
    base::Descriptor result(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    int error = 0;
    if (!result || ::fstat(result.get(), &status) != 0)
        error = errno;
    else if (!S_ISREG(status.st_mode))
        error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    if (error != 0)
        throw Fault("cannot be read: " + std::generic_category().message(error));
    return result;
}

struct EndElf {
    void operator()(Elf* elf) const { elf_end(elf); }
};

struct Section {
    GElf_Shdr header;
    Elf_Data* data; // never null
};

struct Dynamic {
    std::vector<std::pair<std::int64_t, std::uint64_t>> entries;

    std::uint64_t value(std::int64_t tag) const {
        for (const auto& [known, value] : entries)
            if (known == tag)
                return value;
        return 0;
    }
};

class Reader {
public:
    explicit Reader(const std::string& file) : m_descriptor(openFile(file)) {
        elf_version(EV_CURRENT);
        m_elf.reset(elf_begin(m_descriptor.get(), ELF_C_READ, nullptr));
        if (m_elf == nullptr || elf_kind(m_elf.get()) != ELF_K_ELF)
            throw Fault("is not an ELF file");
        if (gelf_getehdr(m_elf.get(), &m_header) == nullptr)
            fail();
        m_result.file = file;
    }

    SharedObject read() {
        readArchitecture();
        readSections();
        if (m_dynamicSymbols.empty() || m_dynamicSections.empty())
            throw Fault("is truncated, or not a shared library: the dynamic linker's tables are "
                        "missing");
        readDynamic();
        readVersions();
        readRelocations();
        for (const Section& section : m_dynamicSymbols)
            readSymbols(section);
        for (const Section& section : m_allSymbols)
            readHidden(section);
        return std::move(m_result);
    }

private:
    [[noreturn]] static void fail() {
        const char* reason = elf_errmsg(-1);
        throw Fault(std::string("is truncated or damaged") +
                    (reason != nullptr ? std::string(": ") + reason : ""));
    }

    void readArchitecture() {
        Architecture& result = m_result.architecture;
        result.machine = m_header.e_machine;
        result.is64Bit = m_header.e_ident[EI_CLASS] == ELFCLASS64;
        result.isBigEndian = m_header.e_ident[EI_DATA] == ELFDATA2MSB;
        if (result.machine == EM_ARM && (m_header.e_flags & EF_ARM_ABI_FLOAT_HARD) != 0)
            result.floats = Architecture::Floats::Hard;
        else if (result.machine == EM_ARM && (m_header.e_flags & EF_ARM_ABI_FLOAT_SOFT) != 0)
            result.floats = Architecture::Floats::Soft;
    }

    void readSections() {
        for (Elf_Scn* scn = elf_nextscn(m_elf.get(), nullptr); scn != nullptr;
             scn = elf_nextscn(m_elf.get(), scn)) {
            GElf_Shdr header;
            if (gelf_getshdr(scn, &header) == nullptr)
                fail();
            if (isConstant(header))
                readTexts(scn);
            std::vector<Section>* sections = sectionsOf(header.sh_type);
            if (sections == nullptr)
                continue;
            Elf_Data* data = elf_getdata(scn, nullptr);
            if (data == nullptr)
                fail();
            sections->push_back({header, data});
        }
    }

    static bool isConstant(const GElf_Shdr& header) {
        return header.sh_type == SHT_PROGBITS && (header.sh_flags & SHF_ALLOC) != 0 &&
               (header.sh_flags & (SHF_WRITE | SHF_EXECINSTR)) == 0;
    }

    void readTexts(Elf_Scn* section) {
        const Elf_Data* data = elf_getdata(section, nullptr);
        if (data == nullptr || data->d_buf == nullptr)
            return; // the dynamic linker does without
        const std::string_view texts(static_cast<const char*>(data->d_buf), data->d_size);
        for (std::size_t begin = 0; begin < texts.size();) {
            const std::size_t end = std::min(texts.find('\0', begin), texts.size());
            const std::string_view text = texts.substr(begin, end - begin);
            if (isHtmlName(text))
                m_result.htmlNames.emplace(text);
            begin = end + 1;
        }
    }

    // Names that begin with "/" or "." are addresses, or parts of names.
    static bool isHtmlName(std::string_view text) {
        constexpr std::string_view kEnding = ".html";
        const auto isPart = [](char c) {
            return base::isAsciiLetter(c) || base::isAsciiDigit(c) || c == '/' || c == '.' ||
                   c == '-' || c == '_';
        };
        return text.size() > kEnding.size() && text.size() <= kMaxName &&
               text.substr(text.size() - kEnding.size()) == kEnding && text[0] != '/' &&
               text[0] != '.' && std::all_of(text.begin(), text.end(), isPart);
    }

    std::vector<Section>* sectionsOf(unsigned type) {
        switch (type) {
        case SHT_DYNAMIC:
            return &m_dynamicSections;
        case SHT_DYNSYM:
            return &m_dynamicSymbols;
        case SHT_SYMTAB:
            return &m_allSymbols;
        case SHT_REL:
        case SHT_RELA:
            return &m_relocations;
        case SHT_GNU_versym:
            return &m_symbolVersions;
        case SHT_GNU_verneed:
            return &m_needSections;
        case SHT_GNU_verdef:
            return &m_versionSections;
        default:
            return nullptr;
        }
    }

    static int countOf(const Section& section) {
        const std::uint64_t size = section.header.sh_entsize;
        return size != 0 ? static_cast<int>(section.data->d_size / size) : 0;
    }

    // Returns a string of the table that belongs to `section`.
    std::string text(const Section& section, std::size_t offset) const {
        const char* result = elf_strptr(m_elf.get(), section.header.sh_link, offset);
        if (result == nullptr)
            fail();
        return result;
    }

    void readDynamic() {
        const Section& section = m_dynamicSections.front();
        for (int i = 0; i < countOf(section); ++i) {
            GElf_Dyn entry;
            if (gelf_getdyn(section.data, i, &entry) == nullptr)
                fail();
            if (entry.d_tag == DT_NULL)
                break;
            m_dynamic.entries.emplace_back(entry.d_tag, entry.d_un.d_val);
            if (entry.d_tag == DT_NEEDED)
                m_result.needed.push_back(text(section, entry.d_un.d_val));
            else if (entry.d_tag == DT_SONAME)
                m_result.name = text(section, entry.d_un.d_val);
            else if (entry.d_tag == DT_RPATH || entry.d_tag == DT_RUNPATH)
                addFolders(text(section, entry.d_un.d_val));
        }
        const bool isProgram = (m_dynamic.value(DT_FLAGS_1) & DF_1_PIE) != 0;
        m_result.isLibrary = m_header.e_type == ET_DYN && !isProgram;
    }

    void addFolders(const std::string& list) {
        for (std::size_t begin = 0; begin <= list.size();) {
            const std::size_t end = std::min(list.find(':', begin), list.size());
            if (end > begin)
                m_result.folders.push_back(list.substr(begin, end - begin));
            begin = end + 1;
        }
    }

    void readVersions() {
        for (const Section& section : m_needSections)
            eachOf(section, section.header.sh_info, [&](int at) { return readNeed(section, at); });
        for (const Section& section : m_versionSections)
            eachOf(section, section.header.sh_info,
                   [&](int at) { return readDefinition(section, at); });
    }

    // Reads a chain of entries: `read` returns the distance from one entry to the next, 0 for the
    // last.
    template <class Read>
    static void eachOf(const Section& section, std::size_t count, Read read) {
        std::size_t at = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t next = read(static_cast<int>(at));
            if (next == 0 || next > section.data->d_size - at)
                break;
            at += next;
        }
    }

    std::size_t readNeed(const Section& section, int at) {
        GElf_Verneed need;
        if (gelf_getverneed(section.data, at, &need) == nullptr)
            fail();
        const std::string library = text(section, need.vn_file);
        std::size_t entry = static_cast<std::size_t>(at) + need.vn_aux;
        for (unsigned i = 0; i < need.vn_cnt; ++i) {
            GElf_Vernaux aux;
            if (entry > section.data->d_size ||
                gelf_getvernaux(section.data, static_cast<int>(entry), &aux) == nullptr)
                fail();
            const bool isWeak = (aux.vna_flags & VER_FLG_WEAK) != 0;
            m_result.versionNeeds.push_back({library, text(section, aux.vna_name), isWeak});
            m_libraryOfVersion[aux.vna_other & kVersionIndex] = library;
            if (aux.vna_next == 0)
                break;
            entry += aux.vna_next;
        }
        return need.vn_next;
    }

    std::size_t readDefinition(const Section& section, int at) {
        GElf_Verdef definition;
        GElf_Verdaux aux;
        if (gelf_getverdef(section.data, at, &definition) == nullptr)
            fail();
        const std::size_t first = static_cast<std::size_t>(at) + definition.vd_aux;
        if (first > section.data->d_size ||
            gelf_getverdaux(section.data, static_cast<int>(first), &aux) == nullptr)
            fail();
        m_result.versions.insert(text(section, aux.vda_name));
        return definition.vd_next;
    }

    // Finds the symbols that are needed at load. Functions are looked up at their first call,
    // unless the object was linked with -z now; everything else is looked up when the object is
    // opened.
    void readRelocations() {
        const bool bindsNow = (m_dynamic.value(DT_FLAGS) & DF_BIND_NOW) != 0 ||
                              (m_dynamic.value(DT_FLAGS_1) & DF_1_NOW) != 0;
        const std::uint64_t calls = m_dynamic.value(DT_JMPREL);
        for (const Section& section : m_relocations) {
            if (section.header.sh_addr == calls && !bindsNow)
                continue;
            for (int i = 0; i < countOf(section); ++i)
                m_neededAtLoad.insert(symbolOf(section, i));
        }
    }

    static std::size_t symbolOf(const Section& section, int index) {
        GElf_Rel rel;
        GElf_Rela rela;
        if (section.header.sh_type == SHT_REL && gelf_getrel(section.data, index, &rel) != nullptr)
            return GELF_R_SYM(rel.r_info);
        if (section.header.sh_type == SHT_RELA &&
            gelf_getrela(section.data, index, &rela) != nullptr)
            return GELF_R_SYM(rela.r_info);
        fail();
    }

    static GElf_Sym symbolAt(const Section& section, int index) {
        GElf_Sym symbol;
        if (gelf_getsym(section.data, index, &symbol) == nullptr)
            fail();
        return symbol;
    }

    void readSymbols(const Section& section) {
        for (int i = 1; i < countOf(section); ++i) {
            const GElf_Sym symbol = symbolAt(section, i);
            const unsigned binding = GELF_ST_BIND(symbol.st_info);
            const unsigned visibility = GELF_ST_VISIBILITY(symbol.st_other);
            const std::string name = text(section, symbol.st_name);
            if (name.empty() || binding == STB_LOCAL)
                continue;
            if (symbol.st_shndx == SHN_UNDEF) {
                if (binding != STB_WEAK)
                    m_result.undefined.push_back(
                        {name, libraryOf(i),
                         m_neededAtLoad.count(static_cast<std::size_t>(i)) != 0});
            } else if (visibility == STV_DEFAULT || visibility == STV_PROTECTED) {
                m_result.exported[name] = canBeCalled(symbol);
            }
        }
    }

    static bool canBeCalled(const GElf_Sym& symbol) {
        const unsigned type = GELF_ST_TYPE(symbol.st_info);
        return type == STT_FUNC || type == STT_GNU_IFUNC || type == STT_NOTYPE;
    }

    std::string libraryOf(int symbol) const {
        GElf_Versym version;
        if (m_symbolVersions.empty() ||
            gelf_getversym(m_symbolVersions.front().data, symbol, &version) == nullptr)
            return "";
        const auto found = m_libraryOfVersion.find(version & kVersionIndex);
        return found != m_libraryOfVersion.end() ? found->second : "";
    }

    void readHidden(const Section& section) {
        for (int i = 1; i < countOf(section); ++i) {
            const GElf_Sym symbol = symbolAt(section, i);
            if (symbol.st_shndx == SHN_UNDEF || GELF_ST_TYPE(symbol.st_info) != STT_FUNC)
                continue;
            const std::string name = text(section, symbol.st_name);
            if (m_result.exported.count(name) == 0)
                m_result.hidden.insert(name);
        }
    }

    base::Descriptor m_descriptor;
    std::unique_ptr<Elf, EndElf> m_elf;
    GElf_Ehdr m_header{};
    SharedObject m_result;
    Dynamic m_dynamic;
    std::vector<Section> m_dynamicSections;
    std::vector<Section> m_dynamicSymbols;
    std::vector<Section> m_allSymbols;
    std::vector<Section> m_relocations;
    std::vector<Section> m_symbolVersions;
    std::vector<Section> m_needSections;
    std::vector<Section> m_versionSections;
    std::unordered_map<unsigned, std::string> m_libraryOfVersion; // by the version's index
    std::unordered_set<std::size_t> m_neededAtLoad;               // symbols, by their index
};

std::string machineName(unsigned machine) {
    constexpr std::pair<unsigned, const char*> kNames[] = {
        {EM_386, "x86"},         {EM_ARM, "ARM"},      {EM_AARCH64, "AArch64"},
        {EM_X86_64, "x86-64"},   {EM_MIPS, "MIPS"},    {EM_PPC, "PowerPC"},
        {EM_PPC64, "PowerPC64"}, {EM_RISCV, "RISC-V"}, {EM_SH, "SuperH"},
    };
    for (const auto& [known, name] : kNames)
        if (known == machine)
            return name;
    return "machine " + std::to_string(machine);
}

} // namespace

bool Architecture::fits(const Architecture& other) const {
    const bool floatsDiffer = floats != Floats::Unspecified &&
                              other.floats != Floats::Unspecified && floats != other.floats;
    return machine == other.machine && is64Bit == other.is64Bit &&
           isBigEndian == other.isBigEndian && !floatsDiffer;
}

std::string Architecture::name() const {
    const char* how = floats == Floats::Hard   ? ", hard floats"
                      : floats == Floats::Soft ? ", soft floats"
                                               : "";
    return machineName(machine) + " (" + (is64Bit ? "64" : "32") + " bit, " +
           (isBigEndian ? "big" : "little") + "-endian" + how + ')';
}

std::optional<SharedObject> readSharedObject(const std::string& file, std::string& error) {
    try {
        return Reader(file).read();
    } catch (const Fault& fault) {
        error = fault.what();
        return std::nullopt;
    }
}

std::string demangled(const std::string& symbol) {
    if (symbol.compare(0, 2, "_Z") != 0)
        return symbol; // a name like "x" would be demangled as a type
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
    return text != nullptr ? text.get() : symbol;
}
