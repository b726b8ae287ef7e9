#include "plugin_loader.h"

#include "plugin/plugin_watch.h"
#include "servlet_controller.h"
#include "support/freed_storage.h"
#include "support/recorded_loading.h"
#include <kit/testing/recorded_log.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kit::testing;

using recorded_log::webDebug;
using Names = std::vector<std::string>;

const std::string kPlugin = TEST_PLUGIN;
const LogRecord kNoRoot = webDebug("error", "PluginLoader::init() error to get root element");
const LogRecord kNeither =
    webDebug("warn", "PluginLoader::init() find element neither servlet nor listener");
const LogRecord kEnd = webDebug("info", "PluginLoader::init End");

LogRecord begin(const std::string& path) {
    return webDebug("info", "PluginLoader::loadConfigFile Begin.configfile =" + path);
}
LogRecord servletAdded(const std::string& id, const std::string& function) {
    return webDebug("info", "PluginLoader::init() add a servlet config.id= " + id +
                                ",createfunction =" + function);
}
LogRecord listenerAdded(const std::string& function) {
    return webDebug("info",
                    "PluginLoader::init() add a listener config.createfunction =" + function);
}

// Prints, in a death test, what was logged before the process ends, for the parent to check.
void printRecordsAtExit() {
    std::atexit([] {
        for (const LogRecord& record : recorded_log::records())
            std::fprintf(stderr, "[%s %s]", record.call.c_str(), record.text.c_str());
    });
}

class PluginConfiguration : public testing::Test {
protected:
    PluginConfiguration()
        : m_path(std::string(SCRATCH_FOLDER) + "/plugin_loader_test." +
                 testing::UnitTest::GetInstance()->current_test_info()->name() + ".xml") {
        recorded_log::clear();
    }
    ~PluginConfiguration() override { std::remove(m_path.c_str()); }

    const std::string& path() const { return m_path; }
    void write(const std::string& text) { std::ofstream(m_path, std::ios::binary) << text; }
    // A configuration of the test plug-in with these children of the root.
    static std::string withChildren(const std::string& children) {
        return "<plugins path=\"" + kPlugin + "\">" + children + "</plugins>";
    }
    PluginLoader& load(const std::string& text) {
        write(text);
        m_loader = std::make_unique<PluginLoader>(m_path.c_str());
        return *m_loader;
    }
    PluginLoader& loadChildren(const std::string& children) { return load(withChildren(children)); }
    void unload() { m_loader.reset(); }
    void startOver() {
        unload();
        recorded_log::clear();
    }

    static std::map<std::string, std::string> servlets(const PluginLoader& loader) {
        std::map<std::string, std::string> result;
        const auto& table = *loader.servletConfig;
        for (auto* entry = table.firstAssoc(); entry != nullptr; entry = table.nextAssoc(entry))
            result[entry->key] = entry->value;
        EXPECT_EQ(static_cast<std::size_t>(table.m_nCount), result.size());
        return result;
    }
    static Names listeners(const PluginLoader& loader) {
        return {loader.listenerConfig->begin(), loader.listenerConfig->end()};
    }
    // Returns what was logged about the children of the root.
    std::vector<LogRecord> aboutChildren() const {
        std::vector<LogRecord> all = plugin_watch::messages();
        EXPECT_GE(all.size(), 2u);
        EXPECT_EQ(all.front(), begin(m_path));
        EXPECT_EQ(all.back(), kEnd);
        return {all.begin() + 1, all.end() - 1};
    }

private:
    std::string m_path;
    std::unique_ptr<PluginLoader> m_loader;
};

using Records = std::vector<LogRecord>;
using Servlets = std::map<std::string, std::string>;

void expectEmpty(const PluginLoader& loader) {
    EXPECT_EQ(loader.libraryHandle, nullptr);
    ASSERT_NE(loader.servletConfig, nullptr);
    EXPECT_EQ(loader.servletConfig->m_nCount, 0);
    ASSERT_NE(loader.listenerConfig, nullptr);
    EXPECT_TRUE(loader.listenerConfig->empty());
}

TEST_F(PluginConfiguration, NamesServletsById) {
    PluginLoader& loader = loadChildren("<servlet id='status' createfunction='createPage'/>"
                                        "<servlet id='other' createfunction='createOther'/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"status", "createPage"}, {"other", "createOther"}}));
    EXPECT_TRUE(loader.listenerConfig->empty());
    EXPECT_EQ(plugin_watch::messages(),
              (Records{begin(path()), servletAdded("status", "createPage"),
                       servletAdded("other", "createOther"), kEnd}));
}

TEST_F(PluginConfiguration, KeepsTheOrderOfListeners) {
    PluginLoader& loader = loadChildren("<listener createfunction='createC'/>"
                                        "<servlet id='status' createfunction='createPage'/>"
                                        "<listener createfunction='createA'/>"
                                        "<listener createfunction='createB'/>");
    EXPECT_EQ(listeners(loader), (Names{"createC", "createA", "createB"}));
    EXPECT_EQ(aboutChildren(),
              (Records{listenerAdded("createC"), servletAdded("status", "createPage"),
                       listenerAdded("createA"), listenerAdded("createB")}));
}

TEST_F(PluginConfiguration, CreatesNoPluginObject) {
    loadChildren("<servlet id='status' createfunction='createPage'/>"
                 "<listener createfunction='createA'/>");
    EXPECT_EQ(plugin_watch::events(), Names{});
    for (const std::string& call : recorded_loading::calls())
        EXPECT_EQ(call.find("dlsym"), std::string::npos) << call;
}

TEST_F(PluginConfiguration, LetsTheLaterServletOfAnIdReplaceTheEarlier) {
    PluginLoader& loader = loadChildren("<servlet id='status' createfunction='createPage'/>"
                                        "<servlet id='status' createfunction='createOther'/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"status", "createOther"}}));
    EXPECT_EQ(aboutChildren(), (Records{servletAdded("status", "createPage"),
                                        servletAdded("status", "createOther")}));
}

TEST_F(PluginConfiguration, KeepsRepeatedListenersAsSeparateEntries) {
    PluginLoader& loader = loadChildren("<listener createfunction='createA'/>"
                                        "<listener createfunction='createA'/>");
    EXPECT_EQ(listeners(loader), (Names{"createA", "createA"}));
}

TEST_F(PluginConfiguration, StoresAServletWithoutIdUnderTheEmptyId) {
    PluginLoader& loader = loadChildren("<servlet createfunction='createPage'/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"", "createPage"}}));
    EXPECT_EQ(aboutChildren(), (Records{servletAdded("", "createPage")}));
}

TEST_F(PluginConfiguration, StoresElementsWithoutCreationFunctionWithAnEmptyName) {
    PluginLoader& loader = loadChildren("<servlet id='status'/><listener/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"status", ""}}));
    EXPECT_EQ(listeners(loader), Names{""});
    EXPECT_EQ(aboutChildren(), (Records{servletAdded("status", ""), listenerAdded("")}));
}

TEST_F(PluginConfiguration, IgnoresTheIdOfAListener) {
    PluginLoader& loader = loadChildren("<listener id='status' createfunction='createA'/>");
    EXPECT_EQ(listeners(loader), Names{"createA"});
    EXPECT_EQ(servlets(loader), Servlets{});
}

TEST_F(PluginConfiguration, IgnoresOtherAttributes) {
    PluginLoader& loader =
        load("<plugins a='b' path='" + kPlugin +
             "' c='d'><servlet x='y' createfunction='createPage' z='' id='status'/></plugins>");
    EXPECT_EQ(servlets(loader), (Servlets{{"status", "createPage"}}));
}

TEST_F(PluginConfiguration, IgnoresNestedElements) {
    PluginLoader& loader = loadChildren(
        "<servlet id='outer' createfunction='createPage'>"
        "<servlet id='inner' createfunction='createOther'/><listener createfunction='createA'/>"
        "</servlet><group><listener createfunction='createB'/></group>");
    EXPECT_EQ(servlets(loader), (Servlets{{"outer", "createPage"}}));
    EXPECT_EQ(listeners(loader), Names{});
    EXPECT_EQ(aboutChildren(), (Records{servletAdded("outer", "createPage"), kNeither}));
}

TEST_F(PluginConfiguration, SkipsUnknownChildrenWithAWarningEach) {
    for (const char* unknown :
         {"<filter createfunction='createA'/>", "<Servlet id='x' createfunction='createPage'/>",
          "<SERVLET/>", "<servlets/>", "<servle/>", "<Listener/>", "text", "<![CDATA[servlet]]>"}) {
        SCOPED_TRACE(unknown);
        startOver();
        PluginLoader& loader = loadChildren(std::string("<listener createfunction='createA'/>") +
                                            unknown + "<listener createfunction='createB'/>");
        EXPECT_EQ(listeners(loader), (Names{"createA", "createB"}));
        EXPECT_EQ(servlets(loader), Servlets{});
        EXPECT_EQ(aboutChildren(),
                  (Records{listenerAdded("createA"), kNeither, listenerAdded("createB")}));
    }
}

TEST_F(PluginConfiguration, IgnoresCommentsBlanksAndProcessingInstructions) {
    PluginLoader& loader = load(
        "<?xml version='1.0'?>\n<!DOCTYPE plugins>\n<!-- pages -->\n<plugins path='" + kPlugin +
        "'>\n\t<!-- <servlet id='x' createfunction='f'/> -->\n  <?hint servlet?>\r\n "
        "<servlet id='status' createfunction='createPage'/>\n</plugins>\n");
    EXPECT_EQ(servlets(loader), (Servlets{{"status", "createPage"}}));
    EXPECT_EQ(aboutChildren(), (Records{servletAdded("status", "createPage")}));
}

TEST_F(PluginConfiguration, IsCaseSensitiveInAttributeNames) {
    PluginLoader& loader = loadChildren("<servlet ID='status' CreateFunction='createPage'/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"", ""}}));
}

TEST_F(PluginConfiguration, DecodesEscapesAndBlanksInAttributes) {
    PluginLoader& loader =
        loadChildren("<servlet id='a&amp;b&#x41;&lt;' createfunction='one\ntwo\tthree'/>");
    EXPECT_EQ(servlets(loader), (Servlets{{"a&bA<", "one two three"}}));
}

TEST_F(PluginConfiguration, AcceptsAnyNameOfTheRoot) {
    for (const char* root : {"servlet", "listener", "x", "web-app"}) {
        SCOPED_TRACE(root);
        PluginLoader& loader = load("<" + std::string(root) + " path='" + kPlugin +
                                    "'><listener createfunction='createA'/></" + root + ">");
        EXPECT_EQ(listeners(loader), Names{"createA"});
        EXPECT_EQ(servlets(loader), Servlets{});
    }
}

TEST_F(PluginConfiguration, ReadsOnlyTheFirstRoot) {
    PluginLoader& loader = load(withChildren("<listener createfunction='createA'/>") +
                                withChildren("<listener createfunction='createB'/>"));
    EXPECT_EQ(listeners(loader), Names{"createA"});
}

TEST_F(PluginConfiguration, CanHaveNoChildren) {
    PluginLoader& loader = loadChildren("");
    EXPECT_NE(loader.libraryHandle, nullptr);
    EXPECT_EQ(aboutChildren(), Records{});
}

TEST_F(PluginConfiguration, IsReadInTheEncodingThatItsFirstBytesIndicate) {
    std::string utf16 = "\xFF\xFE";
    for (const char character : withChildren("<listener createfunction='createA'/>"))
        utf16 += {character, '\0'};
    EXPECT_EQ(listeners(load(utf16)), Names{"createA"});
}

TEST_F(PluginConfiguration, IsReadUpToTheErrorInAMalformedFile) {
    for (const char* end : {"<servlet id='lost' createfunction=", "</other>", "<", "<listener"}) {
        SCOPED_TRACE(end);
        startOver();
        PluginLoader& loader = load("<plugins path='" + kPlugin +
                                    "'><servlet id='status' createfunction='createPage'/>"
                                    "<listener createfunction='createA'/>" +
                                    end);
        EXPECT_NE(loader.libraryHandle, nullptr);
        EXPECT_EQ(servlets(loader)["status"], "createPage");
        ASSERT_GE(listeners(loader).size(), 1u);
        EXPECT_EQ(listeners(loader).front(), "createA");
        EXPECT_EQ(recorded_log::records().back(), kEnd);
    }
}

TEST_F(PluginConfiguration, IsEmptyWhenTheFileCannotBeRead) {
    write(withChildren(""));
    for (const std::string& missing :
         {path() + ".missing", path() + "/below.xml", std::string(), std::string(5000, 'x')}) {
        SCOPED_TRACE(missing);
        recorded_log::clear();
        const PluginLoader loader(missing.c_str());
        expectEmpty(loader);
        // the recorded log keeps the first 4,095 characters of a line
        EXPECT_EQ(recorded_log::records().front().text, begin(missing).text.substr(0, 4095));
        ASSERT_EQ(recorded_log::records().size(), 2u);
        EXPECT_EQ(recorded_log::records().back(), kNoRoot);
    }
}

TEST_F(PluginConfiguration, IsEmptyWhenTheFileHasNoElement) {
    for (const char* text :
         {"", " \n", "<?xml version='1.0'?>", "<!-- nothing -->", "<!DOCTYPE plugins>"}) {
        SCOPED_TRACE(text);
        startOver();
        expectEmpty(load(text));
        EXPECT_EQ(recorded_log::records(), (Records{begin(path()), kNoRoot}));
    }
}

TEST_F(PluginConfiguration, ReturnsWhetherTheFileWasReadToItsEnd) {
    PluginLoader loader((path() + ".missing").c_str());
    EXPECT_EQ(loader.loadConfigFile((path() + ".missing").c_str()), -1);
    write(withChildren("<neither/><listener createfunction='createA'/>"));
    EXPECT_EQ(loader.loadConfigFile(path().c_str()), 0);
    EXPECT_EQ(listeners(loader), Names{"createA"});
}

TEST_F(PluginConfiguration, HasTheTableSizesOfTheServletContainer) {
    const PluginLoader& loader = loadChildren("");
    EXPECT_EQ(loader.servletConfig->m_nHashTableSize, 100u);
    EXPECT_EQ(loader.servletConfig->m_nBlockSize, 10);
    EXPECT_FALSE(loader.servletConfig->m_bMultiValue);
}

TEST_F(PluginConfiguration, HasItsMembersInTheirPlaces) {
    const PluginLoader& loader = loadChildren("");
    const auto offset = [&loader](const auto& member) {
        return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&loader);
    };
    constexpr std::ptrdiff_t kPointer = sizeof(void*);
    EXPECT_EQ(offset(loader.libraryHandle), kPointer);
    EXPECT_EQ(offset(loader.servletConfig), 2 * kPointer);
    EXPECT_EQ(offset(loader.listenerConfig), 3 * kPointer);
    EXPECT_EQ(sizeof loader, 4 * sizeof(void*));
}

TEST_F(PluginConfiguration, OpensTheLibraryLazilyAndThenClearsAnyLoaderError) {
    loadChildren("<listener createfunction='createA'/>");
    EXPECT_EQ(recorded_loading::calls(),
              (Names{"dlopen(" + kPlugin + ", " + std::to_string(RTLD_LAZY) + ")", "dlerror()"}));
    Names order;
    for (const LogRecord& record : recorded_log::records())
        order.push_back(record.text.substr(0, record.text.find('(')));
    EXPECT_EQ(order, (Names{"PluginLoader::loadConfigFile Begin.configfile =" + path(), "dlopen",
                            "dlerror", "PluginLoader::init", "PluginLoader::init End"}));
}

TEST_F(PluginConfiguration, OpensTheLibraryWithLocalSymbols) {
    PluginLoader& loader = loadChildren("");
    EXPECT_NE(dlsym(loader.libraryHandle, "createPage"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "createPage"), nullptr);
}

TEST_F(PluginConfiguration, AcceptsALibraryWithUndefinedFunctionsThatAreNotCalled) {
    PluginLoader& loader = loadChildren("");
    EXPECT_NE(dlsym(loader.libraryHandle, "callUndefinedFunction"), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "undefinedFunction"), nullptr);
}

TEST_F(PluginConfiguration, EndsTheProcessIfTheLibraryCannotBeOpened) {
    write("<plugins path='/no/such/library.so'><listener createfunction='createA'/></plugins>");
    EXPECT_EXIT(
        {
            printRecordsAtExit();
            PluginLoader loader(path().c_str());
        },
        testing::ExitedWithCode(255),
        // nothing else, and in this order
        "\\]\\[app_log dlopen\\(/no/such/library.so, 1\\)\\]"
        "\\[info libPath = /no/such/library.so\\]"
        "\\[app_log dlerror\\(\\)\\]"
        "\\[error Cannot load library error=/no/such/library.so: cannot open shared object file: "
        "No such file or directory\\]$");
}

TEST_F(PluginConfiguration, EndsTheProcessIfTheFileIsNoLibrary) {
    write("<plugins path='" + path() + "'/>");
    EXPECT_EXIT(
        {
            printRecordsAtExit();
            PluginLoader loader(path().c_str());
        },
        testing::ExitedWithCode(255),
        "\\[info libPath = .*\\.xml\\].*\\[error Cannot load library error=.*\\.xml: .+\\]$");
}

// The platform defines what an empty name means: some open the program itself.
TEST_F(PluginConfiguration, PassesAnEmptyNameToDlopenWithoutAPath) {
    for (const char* text : {"<plugins/>", "<plugins path=''/>", "<plugins PATH='/x'/>"}) {
        SCOPED_TRACE(text);
        write(text);
        if (void* program = dlopen("", RTLD_LAZY)) {
            startOver();
            PluginLoader& loader = load(text);
            EXPECT_EQ(loader.libraryHandle, program);
            EXPECT_EQ(recorded_loading::calls(), (Names{"dlopen(, 1)", "dlerror()"}));
            EXPECT_EQ(aboutChildren(), Records{});
            dlclose(program);
        } else {
            EXPECT_EXIT(
                {
                    printRecordsAtExit();
                    PluginLoader loader(path().c_str());
                },
                testing::ExitedWithCode(255),
                "dlopen\\(, 1\\)\\]\\[info libPath = \\].*\\[error Cannot load library error=.*");
        }
    }
}

TEST_F(PluginConfiguration, ClosesTheLibraryLast) {
    PluginLoader& loader = loadChildren("<servlet id='status' createfunction='createPage'/>"
                                        "<listener createfunction='createA'/>"
                                        "<listener createfunction='createB'/>"
                                        "<listener createfunction='createC'/>");
    std::vector<const void*> names;
    for (const std::string& name : *loader.listenerConfig)
        names.push_back(&name);
    const void* servletNode = loader.servletConfig->m_pBlocks;
    const void* servletTable = loader.servletConfig;
    const void* listenerList = loader.listenerConfig;
    const std::string handle = recorded_loading::shown(loader.libraryHandle);
    recorded_log::clear();

    std::vector<FreedStorage> freed;
    {
        plugin_watch::OnEvent markUnloading([](const std::string&) { freed_storage::mark(); });
        freed_storage::start();
        unload();
        freed = freed_storage::stop();
    }
    std::vector<std::size_t> order;
    for (const void* storage : {names[2], names[1], names[0], servletNode, servletTable,
                                listenerList, static_cast<const void*>(nullptr)})
        order.push_back(freed_storage::indexOf(freed, storage));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end())) << testing::PrintToString(order);
    EXPECT_LT(order.back(), freed.size());
    EXPECT_EQ(plugin_watch::events(), Names{"unloaded"});
    EXPECT_EQ(recorded_loading::calls(), Names{"dlclose(" + handle + ")"});
}

TEST_F(PluginConfiguration, ClosesNothingWhenNothingWasOpened) {
    { PluginLoader loader((path() + ".missing").c_str()); }
    EXPECT_EQ(recorded_loading::calls(), Names{});
}

// This program compiles the container's sources without DEVICE_ROOT, as for a device.
TEST(ShippedConfiguration, IsReadFromItsFixedPathByTheController) {
    recorded_log::clear();
    ServletController controller;
    ASSERT_FALSE(recorded_log::records().empty());
    EXPECT_EQ(recorded_log::records().front(), begin("/phone/www/WEB-INFO/servlet/servlet.xml"));
}

} // namespace
