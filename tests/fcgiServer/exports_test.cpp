// What hosts and plug-ins that were compiled long ago find in the shared library: its name, its
// symbols and the order of its virtual tables; and what it needs of libfcgi.
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

struct Operation {
    const char* declaration;
    const char* symbol;
};

// Constructors and destructors are those of complete objects (C1, D1) and the deleting
// destructors (D0).
const Operation kOperations[] = {
    {"FCGIServer::run()", "_ZN10FCGIServer3runEv"},
    {"FCGIServer::onError(FCGX_Request*, int)", "_ZN10FCGIServer7onErrorEP12FCGX_Requesti"},
    {"FCGIServer::onTimer()", "_ZN10FCGIServer7onTimerEv"},
    {"FCGIServer::getController()", "_ZN10FCGIServer13getControllerEv"},
    {"FCGIServer::FCGIServer()", "_ZN10FCGIServerC1Ev"},
    {"FCGIServer::~FCGIServer()", "_ZN10FCGIServerD0Ev"},
    {"FCGIServer::~FCGIServer()", "_ZN10FCGIServerD1Ev"},
    {"ServletController::CheckUrlIllegalChar(char const*)",
     "_ZN17ServletController19CheckUrlIllegalCharEPKc"},
    {"ServletController::CheckParaIllegalChar(char const*, bool)",
     "_ZN17ServletController20CheckParaIllegalCharEPKcb"},
    {"ServletController::init()", "_ZN17ServletController4initEv"},
    {"ServletController::destroy()", "_ZN17ServletController7destroyEv"},
    {"ServletController::onTimer()", "_ZN17ServletController7onTimerEv"},
    {"ServletController::getSessionFactory()", "_ZN17ServletController17getSessionFactoryEv"},
    {"ServletController::doService(FCGX_Request*)",
     "_ZN17ServletController9doServiceEP12FCGX_Request"},
    {"ServletController::getStatus(char*)", "_ZN17ServletController9getStatusEPc"},
    {"ServletController::setStatus(char const*)", "_ZN17ServletController9setStatusEPKc"},
    {"ServletController::ServletController()", "_ZN17ServletControllerC1Ev"},
    {"ServletController::~ServletController()", "_ZN17ServletControllerD0Ev"},
    {"ServletController::~ServletController()", "_ZN17ServletControllerD1Ev"},
    {"HttpRequestImpl::getSession(bool)", "_ZN15HttpRequestImpl10getSessionEb"},
    {"HttpRequestImpl::getProtocal()", "_ZN15HttpRequestImpl11getProtocalEv"},
    {"HttpRequestImpl::getRefferer()", "_ZN15HttpRequestImpl11getReffererEv"},
    {"HttpRequestImpl::getParameter(char const*)", "_ZN15HttpRequestImpl12getParameterEPKc"},
    {"HttpRequestImpl::getSessionId()", "_ZN15HttpRequestImpl12getSessionIdEv"},
    {"HttpRequestImpl::getUserAgent()", "_ZN15HttpRequestImpl12getUserAgentEv"},
    {"HttpRequestImpl::doProcessData()", "_ZN15HttpRequestImpl13doProcessDataEv"},
    {"HttpRequestImpl::getRemoteAddr()", "_ZN15HttpRequestImpl13getRemoteAddrEv"},
    {"HttpRequestImpl::getRemoteHost()", "_ZN15HttpRequestImpl13getRemoteHostEv"},
    {"HttpRequestImpl::getRequestURI()", "_ZN15HttpRequestImpl13getRequestURIEv"},
    {"HttpRequestImpl::getServerName()", "_ZN15HttpRequestImpl13getServerNameEv"},
    {"HttpRequestImpl::getServerPort()", "_ZN15HttpRequestImpl13getServerPortEv"},
    {"HttpRequestImpl::getContextPath()", "_ZN15HttpRequestImpl14getContextPathEv"},
    {"HttpRequestImpl::getContextType()", "_ZN15HttpRequestImpl14getContextTypeEv"},
    {"HttpRequestImpl::getQueryString()", "_ZN15HttpRequestImpl14getQueryStringEv"},
    {"HttpRequestImpl::getServletPath()", "_ZN15HttpRequestImpl14getServletPathEv"},
    {"HttpRequestImpl::getDocumentRoot()", "_ZN15HttpRequestImpl15getDocumentRootEv"},
    {"HttpRequestImpl::getAcceptCharset()", "_ZN15HttpRequestImpl16getAcceptCharsetEv"},
    {"HttpRequestImpl::getContentLength()", "_ZN15HttpRequestImpl16getContentLengthEv"},
    {"HttpRequestImpl::receiveBlockData(char*, unsigned long)",
     "_ZN15HttpRequestImpl16receiveBlockDataEPcm"},
    {"HttpRequestImpl::getAcceptEncoding()", "_ZN15HttpRequestImpl17getAcceptEncodingEv"},
    {"HttpRequestImpl::getAcceptLanguage()", "_ZN15HttpRequestImpl17getAcceptLanguageEv"},
    {"HttpRequestImpl::receiveUploadData(char*, unsigned long)",
     "_ZN15HttpRequestImpl17receiveUploadDataEPcm"},
    {"HttpRequestImpl::receiveUploadFile(char const*)",
     "_ZN15HttpRequestImpl17receiveUploadFileEPKc"},
    {"HttpRequestImpl::getParameterValues(char const*)",
     "_ZN15HttpRequestImpl18getParameterValuesEPKc"},
    {"HttpRequestImpl::getRole()", "_ZN15HttpRequestImpl7getRoleEv"},
    {"HttpRequestImpl::isSecure()", "_ZN15HttpRequestImpl8isSecureEv"},
    {"HttpRequestImpl::setLocal(char const*)", "_ZN15HttpRequestImpl8setLocalEPKc"},
    {"HttpRequestImpl::getAccept()", "_ZN15HttpRequestImpl9getAcceptEv"},
    {"HttpRequestImpl::getCookie()", "_ZN15HttpRequestImpl9getCookieEv"},
    {"HttpRequestImpl::getLocale(char*, int)", "_ZN15HttpRequestImpl9getLocaleEPci"},
    {"HttpRequestImpl::getMethod()", "_ZN15HttpRequestImpl9getMethodEv"},
    {"HttpRequestImpl::HttpRequestImpl(FCGX_Request*, SessionFactory*, HttpResponse*)",
     "_ZN15HttpRequestImplC1EP12FCGX_RequestP14SessionFactoryP12HttpResponse"},
    {"HttpRequestImpl::~HttpRequestImpl()", "_ZN15HttpRequestImplD0Ev"},
    {"HttpRequestImpl::~HttpRequestImpl()", "_ZN15HttpRequestImplD1Ev"},
    {"HttpResponseImpl::setDevtype(char*)", "_ZN16HttpResponseImpl10setDevtypeEPc"},
    {"HttpResponseImpl::setTemplate(char const*, TMPL_varlist*)",
     "_ZN16HttpResponseImpl11setTemplateEPKcP12TMPL_varlist"},
    {"HttpResponseImpl::commitHeader()", "_ZN16HttpResponseImpl12commitHeaderEv"},
    {"HttpResponseImpl::removeHeader(char const*)", "_ZN16HttpResponseImpl12removeHeaderEPKc"},
    {"HttpResponseImpl::sendRedirect(char const*)", "_ZN16HttpResponseImpl12sendRedirectEPKc"},
    {"HttpResponseImpl::containsHeader(char const*)", "_ZN16HttpResponseImpl14containsHeaderEPKc"},
    {"HttpResponseImpl::getMainVarList()", "_ZN16HttpResponseImpl14getMainVarListEv"},
    {"HttpResponseImpl::setContextType(char const*)", "_ZN16HttpResponseImpl14setContextTypeEPKc"},
    {"HttpResponseImpl::setHttpRequest(HttpRequestImpl*)",
     "_ZN16HttpResponseImpl14setHttpRequestEP15HttpRequestImpl"},
    {"HttpResponseImpl::isHeaderCommited()", "_ZN16HttpResponseImpl16isHeaderCommitedEv"},
    {"HttpResponseImpl::flush()", "_ZN16HttpResponseImpl5flushEv"},
    {"HttpResponseImpl::print(char const*, ...)", "_ZN16HttpResponseImpl5printEPKcz"},
    {"HttpResponseImpl::write(void const*, unsigned int, unsigned int)",
     "_ZN16HttpResponseImpl5writeEPKvjj"},
    {"HttpResponseImpl::write(int)", "_ZN16HttpResponseImpl5writeEi"},
    {"HttpResponseImpl::addCookie(char const*, char const*)",
     "_ZN16HttpResponseImpl9addCookieEPKcS1_"},
    {"HttpResponseImpl::addHeader(char const*, char const*)",
     "_ZN16HttpResponseImpl9addHeaderEPKcS1_"},
    {"HttpResponseImpl::encodeURL(char const*)", "_ZN16HttpResponseImpl9encodeURLEPKc"},
    {"HttpResponseImpl::setHeader(char const*, char const*)",
     "_ZN16HttpResponseImpl9setHeaderEPKcS1_"},
    {"HttpResponseImpl::setStatus(int)", "_ZN16HttpResponseImpl9setStatusEi"},
    {"HttpResponseImpl::webPrintf(char const*, ...)", "_ZN16HttpResponseImpl9webPrintfEPKcz"},
    {"HttpResponseImpl::HttpResponseImpl(FCGX_Request*)",
     "_ZN16HttpResponseImplC1EP12FCGX_Request"},
    {"HttpResponseImpl::~HttpResponseImpl()", "_ZN16HttpResponseImplD0Ev"},
    {"HttpResponseImpl::~HttpResponseImpl()", "_ZN16HttpResponseImplD1Ev"},
    {"HttpSessionImpl::invalidate()", "_ZN15HttpSessionImpl10invalidateEv"},
    {"HttpSessionImpl::isValidate()", "_ZN15HttpSessionImpl10isValidateEv"},
    {"HttpSessionImpl::getAttribute(char const*)", "_ZN15HttpSessionImpl12getAttributeEPKc"},
    {"HttpSessionImpl::setAttribute(char const*, void*)",
     "_ZN15HttpSessionImpl12setAttributeEPKcPv"},
    {"HttpSessionImpl::getCreateTime()", "_ZN15HttpSessionImpl13getCreateTimeEv"},
    {"HttpSessionImpl::existAttribute(char const*)", "_ZN15HttpSessionImpl14existAttributeEPKc"},
    {"HttpSessionImpl::removeAttribute(char const*)", "_ZN15HttpSessionImpl15removeAttributeEPKc"},
    {"HttpSessionImpl::getLastAccessedTime()", "_ZN15HttpSessionImpl19getLastAccessedTimeEv"},
    {"HttpSessionImpl::getMaxInactiveInterval()", "_ZN15HttpSessionImpl22getMaxInactiveIntervalEv"},
    {"HttpSessionImpl::setMaxInactiveInterval(int)",
     "_ZN15HttpSessionImpl22setMaxInactiveIntervalEi"},
    {"HttpSessionImpl::getId[abi:cxx11]()", "_ZN15HttpSessionImpl5getIdB5cxx11Ev"},
    {"HttpSessionImpl::update()", "_ZN15HttpSessionImpl6updateEv"},
    {"HttpSessionImpl::HttpSessionImpl(std::string const&)",
     "_ZN15HttpSessionImplC1ERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"HttpSessionImpl::~HttpSessionImpl()", "_ZN15HttpSessionImplD0Ev"},
    {"HttpSessionImpl::~HttpSessionImpl()", "_ZN15HttpSessionImplD1Ev"},
    {"SessionFactory::getSession(HttpRequest*)", "_ZN14SessionFactory10getSessionEP11HttpRequest"},
    {"SessionFactory::sessionNum()", "_ZN14SessionFactory10sessionNumEv"},
    {"SessionFactory::findSession(HttpRequest*)",
     "_ZN14SessionFactory11findSessionEP11HttpRequest"},
    {"SessionFactory::checkSession()", "_ZN14SessionFactory12checkSessionEv"},
    {"SessionFactory::existSession(std::string&)",
     "_ZN14SessionFactory12existSessionERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"SessionFactory::createSession(std::string&)",
     "_ZN14SessionFactory13createSessionERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"SessionFactory::removeSession(std::string&)",
     "_ZN14SessionFactory13removeSessionERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"SessionFactory::endSession(HttpRequest*)", "_ZN14SessionFactory10endSessionEP11HttpRequest"},
    {"SessionFactory::onRequestFinished(HttpRequest*)",
     "_ZN14SessionFactory17onRequestFinishedEP11HttpRequest"},
    {"SessionFactory::init()", "_ZN14SessionFactory4initEv"},
    {"SessionFactory::destory()", "_ZN14SessionFactory7destoryEv"},
    {"SessionFactory::onTimer()", "_ZN14SessionFactory7onTimerEv"},
    {"SessionFactory::onRequest(HttpRequest*)", "_ZN14SessionFactory9onRequestEP11HttpRequest"},
    {"SessionFactory::SessionFactory()", "_ZN14SessionFactoryC1Ev"},
    {"SessionFactory::~SessionFactory()", "_ZN14SessionFactoryD0Ev"},
    {"SessionFactory::~SessionFactory()", "_ZN14SessionFactoryD1Ev"},
    {"PluginLoader::loadConfigFile(char const*)", "_ZN12PluginLoader14loadConfigFileEPKc"},
    {"PluginLoader::PluginLoader(char const*)", "_ZN12PluginLoaderC1EPKc"},
    {"PluginLoader::~PluginLoader()", "_ZN12PluginLoaderD0Ev"},
    {"PluginLoader::~PluginLoader()", "_ZN12PluginLoaderD1Ev"},
    {"ServletContainer::addServlet(std::string const&)",
     "_ZN16ServletContainer10addServletERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"},
    {"ServletContainer::getServlet(char const*)", "_ZN16ServletContainer10getServletEPKc"},
    {"ServletContainer::init(PluginLoader*)", "_ZN16ServletContainer4initEP12PluginLoader"},
    {"ServletContainer::destory()", "_ZN16ServletContainer7destoryEv"},
    {"ServletContainer::onRequest(HttpRequest*, HttpResponse*)",
     "_ZN16ServletContainer9onRequestEP11HttpRequestP12HttpResponse"},
    {"ServletContainer::ServletContainer()", "_ZN16ServletContainerC1Ev"},
    {"ServletContainer::~ServletContainer()", "_ZN16ServletContainerD0Ev"},
    {"ServletContainer::~ServletContainer()", "_ZN16ServletContainerD1Ev"},
    {"ListenerContainer::init(PluginLoader*)", "_ZN17ListenerContainer4initEP12PluginLoader"},
    {"ListenerContainer::destory()", "_ZN17ListenerContainer7destoryEv"},
    {"ListenerContainer::onRequest(HttpRequest*, HttpResponse*)",
     "_ZN17ListenerContainer9onRequestEP11HttpRequestP12HttpResponse"},
    {"ListenerContainer::ListenerContainer()", "_ZN17ListenerContainerC1Ev"},
    {"ListenerContainer::~ListenerContainer()", "_ZN17ListenerContainerD0Ev"},
    {"ListenerContainer::~ListenerContainer()", "_ZN17ListenerContainerD1Ev"},
    {"ReplaceStr(char*, char const*, char const*)", "_Z10ReplaceStrPcPKcS1_"},
    {"currentRequest()", "_Z14currentRequestv"},
    {"endRequestSession(HttpRequest&)", "_Z17endRequestSessionR11HttpRequest"},
    {"isUnknownServlet(char const*)", "_Z16isUnknownServletPKc"},
    {"loopActivity()", "_Z12loopActivityv"},
    {"requestVariable(HttpRequest&, char const*)", "_Z15requestVariableR11HttpRequestPKc"},
};

const char* const kRequest[] = {
    "getParameter(char const*)",
    "getParameterValues(char const*)",
    "getQueryString()",
    "getCookie()",
    "getRole()",
    "getRequestURI()",
    "getDocumentRoot()",
    "getRemoteAddr()",
    "getRemoteHost()",
    "getServerPort()",
    "getServerName()",
    "getContextType()",
    "getContentLength()",
    "getProtocal()",
    "getRefferer()",
    "getUserAgent()",
    "getMethod()",
    "getContextPath()",
    "getServletPath()",
    "isSecure()",
    "getLocale(char*, int)",
    "setLocal(char const*)",
    "getAccept()",
    "getAcceptLanguage()",
    "getAcceptEncoding()",
    "getAcceptCharset()",
    "getSessionId()",
    "getSession(bool)",
    "receiveUploadFile(char const*)",
    "receiveUploadData(char*, unsigned long)",
    "receiveBlockData(char*, unsigned long)",
};
const char* const kResponse[] = {
    "setContextType(char const*)",
    "setHeader(char const*, char const*)",
    "addHeader(char const*, char const*)",
    "containsHeader(char const*)",
    "encodeURL(char const*)",
    "sendRedirect(char const*)",
    "addCookie(char const*, char const*)",
    "setStatus(int)",
    "print(char const*, ...)",
    "write(void const*, unsigned int, unsigned int)",
    "write(int)",
    "setTemplate(char const*, TMPL_varlist*)",
    "getMainVarList()",
    "isHeaderCommited()",
    "setDevtype(char*)",
};
const char* const kSession[] = {
    "getId[abi:cxx11]()",
    "setAttribute(char const*, void*)",
    "getAttribute(char const*)",
    "removeAttribute(char const*)",
    "existAttribute(char const*)",
    "invalidate()",
    "getCreateTime()",
    "getLastAccessedTime()",
    "setMaxInactiveInterval(int)",
    "getMaxInactiveInterval()",
};

std::string demangled(const char* symbol) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), &std::free);
    if (text == nullptr)
        return symbol;
    static const std::string kString =
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
    std::string result = text.get();
    for (std::size_t at = 0; (at = result.find(kString)) != std::string::npos;)
        result.replace(at, kString.size(), "std::string");
    return result;
}

// Returns a symbol's size in the symbol table.
std::size_t sizeOf(void* address) {
    Dl_info info;
    const ElfW(Sym)* entry = nullptr;
    void* extra = nullptr;
    if (dladdr1(address, &info, &extra, RTLD_DL_SYMENT) == 0 || extra == nullptr)
        return 0;
    entry = static_cast<const ElfW(Sym)*>(extra);
    return entry->st_size;
}

void expectSize(void* address, std::size_t size) {
#if defined __clang__ && defined __SANITIZE_ADDRESS__
    EXPECT_GT(sizeOf(address), size); // with the red zone that clang puts behind it
#else
    EXPECT_EQ(sizeOf(address), size);
#endif
}

// Returns the symbols with this prefix that the ELF file at `path` takes from other libraries.
std::set<std::string> neededSymbols(const char* path, const std::string& prefix) {
    std::ifstream in(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(in), {}};
    const auto at = [&file](std::size_t offset) { return file.data() + offset; };
    const auto* header = reinterpret_cast<const ElfW(Ehdr)*>(at(0));
    const auto* sections = reinterpret_cast<const ElfW(Shdr)*>(at(header->e_shoff));
    std::set<std::string> names;
    for (const auto* section = sections; section != sections + header->e_shnum; ++section) {
        if (section->sh_type != SHT_DYNSYM)
            continue;
        const char* texts = at(sections[section->sh_link].sh_offset);
        const auto* symbol = reinterpret_cast<const ElfW(Sym)*>(at(section->sh_offset));
        for (std::size_t count = section->sh_size / sizeof *symbol; count > 0; --count, ++symbol) {
            const std::string name = texts + symbol->st_name;
            if (symbol->st_shndx == SHN_UNDEF && name.compare(0, prefix.size(), prefix) == 0)
                names.insert(name);
        }
    }
    return names;
}

class ServerLibrary : public testing::Test {
protected:
    void SetUp() override {
        m_handle = dlopen(SERVER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(m_handle, nullptr) << dlerror();
    }
    void TearDown() override {
        if (m_handle != nullptr)
            dlclose(m_handle);
    }

    void* handle() { return m_handle; }
    void* find(const std::string& symbol) {
        void* address = dlsym(m_handle, symbol.c_str());
        EXPECT_NE(address, nullptr) << demangled(symbol.c_str());
        return address;
    }
    // The class's virtual table has these operations, then its two destructors, and nothing else.
    template <class Names>
    void expectVirtualTable(const std::string& className, const Names& operations) {
        SCOPED_TRACE(className);
        const std::string mangled = std::to_string(className.size()) + className;
        auto* table = static_cast<void**>(find("_ZTV" + mangled));
        ASSERT_NE(table, nullptr);
        const std::size_t count = std::size(operations);
        expectSize(table, (2 + count + 2) * sizeof(void*));
        EXPECT_EQ(table[0], nullptr); // it is the whole object's
        EXPECT_EQ(table[1], find("_ZTI" + mangled));
        void** slots = table + 2;
        for (std::size_t i = 0; i < count; ++i) {
            Dl_info info;
            ASSERT_NE(dladdr(slots[i], &info), 0) << i;
            ASSERT_NE(info.dli_sname, nullptr) << i;
            EXPECT_EQ(demangled(info.dli_sname), className + "::" + operations[i]) << i;
        }
        EXPECT_EQ(slots[count], find("_ZN" + mangled + "D1Ev"));
        EXPECT_EQ(slots[count + 1], find("_ZN" + mangled + "D0Ev"));
    }

private:
    void* m_handle = nullptr;
};

TEST_F(ServerLibrary, ExportsEveryOperationOfItsClasses) {
    for (const Operation& operation : kOperations) {
        EXPECT_EQ(demangled(operation.symbol), operation.declaration);
        void* address = find(operation.symbol);
        Dl_info info;
        if (address != nullptr && dladdr(address, &info) != 0) {
            EXPECT_STREQ(std::strrchr(info.dli_fname, '/'), "/libfcgiServer.so");
        }
    }
}

TEST_F(ServerLibrary, ExportsTheSessionMutexReadyForUse) {
    auto* mutex = static_cast<pthread_mutex_t*>(find("session_mutex"));
    ASSERT_NE(mutex, nullptr);
    expectSize(mutex, sizeof *mutex);
    const pthread_mutex_t fresh = PTHREAD_MUTEX_INITIALIZER; // so it is not recursive
    EXPECT_EQ(std::memcmp(mutex, &fresh, sizeof fresh), 0);
    EXPECT_EQ(pthread_mutex_trylock(mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(mutex), 0);
}

TEST_F(ServerLibrary, ReplacesTextForItsHosts) {
    using Function = int (*)(char*, const char*, const char*);
    const auto replaceStr = reinterpret_cast<Function>(find("_Z10ReplaceStrPcPKcS1_"));
    ASSERT_NE(replaceStr, nullptr);
    char text[32] = "/a/x/b/x";
    EXPECT_EQ(replaceStr(text, "x", "servlet"), 0);
    EXPECT_STREQ(text, "/a/servlet/b/servlet");
}

TEST_F(ServerLibrary, IsNamedAsHostsLinkedIt) {
    link_map* map = nullptr;
    ASSERT_EQ(dlinfo(handle(), RTLD_DI_LINKMAP, &map), 0) << dlerror();
    const char* strings = nullptr;
    ElfW(Xword) name = 0;
    bool named = false;
    for (const ElfW(Dyn)* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_STRTAB)
            strings = reinterpret_cast<const char*>(entry->d_un.d_ptr);
        if (entry->d_tag == DT_SONAME) {
            named = true;
            name = entry->d_un.d_val;
        }
    }
    ASSERT_TRUE(named);
    EXPECT_STREQ(strings + name, "libfcgiServer.so");
}

// A device may bring a libfcgi of its own.
TEST_F(ServerLibrary, NeedsTenFunctionsOfLibfcgi) {
    const std::set<std::string> ten = {
        "FCGX_Accept_r", "FCGX_FFlush",  "FCGX_FPrintF",     "FCGX_Finish_r", "FCGX_GetParam",
        "FCGX_Init",     "FCGX_PutChar", "FCGX_InitRequest", "FCGX_PutStr",   "FCGX_VFPrintF"};
    EXPECT_EQ(neededSymbols(SERVER_LIBRARY, "FCGX_"), ten);
}

TEST_F(ServerLibrary, HasOnlyDestructorsInTheVirtualTablesOfItsOwners) {
    for (const char* owner : {"FCGIServer", "ServletController", "SessionFactory", "PluginLoader",
                              "ServletContainer", "ListenerContainer"})
        expectVirtualTable(owner, std::vector<const char*>());
}

TEST_F(ServerLibrary, KeepsTheOrderInWhichPluginsCallItsObjects) {
    expectVirtualTable("HttpRequestImpl", kRequest);
    expectVirtualTable("HttpResponseImpl", kResponse);
    expectVirtualTable("HttpSessionImpl", kSession);
}

} // namespace
