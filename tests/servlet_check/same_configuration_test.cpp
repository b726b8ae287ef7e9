// Compares servlet_check's reading of a configuration with that of the container's loader, for
// files truncated at every byte, too.
#include "configuration.h"
#include "plugin_loader.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <string>
#include <unistd.h>

extern "C" {
void* __real_dlopen(const char* path, int mode);

// Opens this program instead of any library.
std::string opened;
void* __wrap_dlopen(const char* path, int mode) {
    opened = path;
    return __real_dlopen(nullptr, mode);
}
}

namespace {

std::string contentsOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class ConfigurationReader : public testing::Test {
protected:
    void SetUp() override {
        const int file = mkstemp(m_file.data());
        ASSERT_GE(file, 0);
        close(file);
    }
    void TearDown() override { std::filesystem::remove(m_file); }

    void expectSame(const std::string& text) {
        std::ofstream(m_file, std::ios::binary) << text;
        Findings findings;
        const Configuration read = readConfiguration("servlet.xml", text, findings);
        const PluginLoader loader(m_file.c_str());
        ASSERT_EQ(read.hasRoot, loader.libraryHandle != nullptr);
        if (read.hasRoot) {
            EXPECT_EQ(read.library, opened);
        }
        std::list<std::string> listeners;
        for (const ListenerElement& listener : read.listeners)
            listeners.push_back(listener.createFunction);
        EXPECT_EQ(listeners, *loader.listenerConfig);
        EXPECT_EQ(static_cast<int>(read.servlets.size()), loader.servletConfig->m_nCount);
        for (const ServletElement& servlet : read.servlets) {
            const auto* loaded = loader.servletConfig->getAssoc(servlet.id);
            ASSERT_NE(loaded, nullptr) << servlet.id;
            EXPECT_EQ(servlet.createFunction, loaded->value);
        }
    }

    void expectSameTruncatedAnywhere(const std::string& text) {
        for (std::size_t size = 0; size <= text.size() && !HasFailure(); ++size) {
            SCOPED_TRACE(text.substr(0, size));
            expectSame(text.substr(0, size));
        }
    }

private:
    std::string m_file = testing::TempDir() + "servlet-XXXXXX";
};

TEST_F(ConfigurationReader, AgreesWithPluginLoaderOnThePhonesFile) {
    const std::string text = contentsOf(SERVLET_XML);
    ASSERT_NE(text.find("createfunction"), std::string::npos);
    expectSame(text);
}

TEST_F(ConfigurationReader, AgreesWithPluginLoaderOnTruncatedFuzzerSeeds) {
    for (const auto& seed : std::filesystem::directory_iterator(SEEDS))
        expectSameTruncatedAnywhere(contentsOf(seed.path()));
}

TEST_F(ConfigurationReader, AgreesWithPluginLoaderOnTruncatedOddities) {
    expectSameTruncatedAnywhere(
        "<!DOCTYPE a [<!ENTITY b 'c'>]><x pth='1' path='/lib/a.so' path='2'>text"
        "<servlet id='a' createfunction='f'><servlet id='b' createfunction='g'/></servlet>"
        "<listener createfunction='h'/><Listener createfunction='i'/><listener/>"
        "<servlet createfunction='j'/><servlet id='a' createfunction='&amp;k&#10;l'/>"
        "<![CDATA[z]]><?pi?><!-- r --><servlet id='&b;'/></x><x><listener/></x>");
    expectSameTruncatedAnywhere("<![CDATA[a]]><x path='b'/>");
}

} // namespace
