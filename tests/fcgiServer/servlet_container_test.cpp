#include "servlet_container.h"

#include "HttpServlet.h"
#include "plugin/plugin_watch.h"
#include "plugin_loader.h"
#include "support/freed_storage.h"
#include "support/recorded_loading.h"
#include "support/rendezvous.h"
#include "support/visit.h"
#include <kit/testing/recorded_log.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kit::testing;

using plugin_watch::events;
using plugin_watch::messages;
using recorded_log::appLog;
using Names = std::vector<std::string>;
using Records = std::vector<LogRecord>;

using Table = QKHashMap<std::string, HttpServlet*, INT_HASH<std::string>>;

const LogRecord kNotFound = appLog(4, "ServletContainer::onRequest End.404\n");

class Servlets : public testing::Test {
protected:
    Servlets() : m_loader(SCRATCH_FOLDER "/no configuration.xml") {
        m_loader.libraryHandle = dlopen(TEST_PLUGIN, RTLD_LAZY);
        container.init(&m_loader);
        recorded_log::clear();
    }

    PluginLoader& loader() { return m_loader; }
    void configure(const std::string& id, const std::string& function) {
        m_loader.servletConfig->put(id, function);
    }
    // Serves a request whose parameter "p" is `id`.
    int request(const std::string& id) {
        Visit visit("p=" + id);
        return container.onRequest(visit.request(), visit.response());
    }
    std::string lookup(const std::string& name) {
        return "dlsym(" + recorded_loading::shown(m_loader.libraryHandle) + ", " + name + ")";
    }

    // Returns the container's first member, after its virtual table pointer.
    Table* table() { return static_cast<Table*>(reinterpret_cast<void**>(&container)[1]); }

private:
    PluginLoader m_loader; // is still there when the container goes

protected:
    ServletContainer container;
};

using ServletContainerObject = Servlets;

TEST_F(Servlets, AreNotCreatedBeforeARequestNamesThem) {
    configure("status", "createPage");
    container.init(&loader());
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Servlets, AreCreatedByTheFirstRequestAndKept) {
    configure("status", "createPage");
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(), (Names{"page 1 created", "page 1 init", "page 1 service"}));
    recorded_log::clear();
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(), Names{"page 1 service"});
    EXPECT_EQ(recorded_loading::calls(), Names{});
    EXPECT_EQ(messages(), Records{});
}

TEST_F(Servlets, ReadTheRequestAndWriteTheResponse) {
    configure("status", "createPage");
    Visit visit("p=status&text=hello");
    EXPECT_EQ(container.onRequest(visit.request(), visit.response()), 200);
    EXPECT_EQ(visit.output(), "\r\n<page hello>");
}

TEST_F(Servlets, AreOnePerIdEvenWhenTheyShareACreationFunction) {
    configure("status", "createPage");
    configure("network", "createPage");
    request("status");
    request("network");
    EXPECT_EQ(events(), (Names{"page 1 created", "page 1 init", "page 1 service", "page 2 created",
                               "page 2 init", "page 2 service"}));
    EXPECT_NE(container.getServlet("status"), container.getServlet("network"));
    EXPECT_EQ(container.getServlet("status"), container.getServlet("status"));
}

TEST_F(Servlets, AreLookedUpAfterEarlierLoaderErrorsAreCleared) {
    configure("status", "createPage");
    dlsym(loader().libraryHandle, "leavesAnErrorBehind");
    recorded_log::clear();
    EXPECT_NE(container.addServlet("status"), nullptr);
    EXPECT_EQ(recorded_loading::calls(), (Names{"dlerror()", lookup("createPage"), "dlerror()"}));
}

TEST_F(Servlets, AreNotFoundUnderAnIdThatIsNotConfigured) {
    configure("status", "createPage");
    for (const char* id : {"other", "Status", "statu", "status ", "createPage"}) {
        SCOPED_TRACE(id);
        for (int attempt = 0; attempt < 2; ++attempt) {
            recorded_log::clear();
            EXPECT_EQ(request(id), 404);
            EXPECT_EQ(recorded_log::records(), Records{kNotFound});
        }
    }
}

TEST_F(Servlets, AreNotFoundUnderTheEmptyIdEvenWhenItIsConfigured) {
    configure("", "createPage");
    EXPECT_EQ(request(""), 404);
    EXPECT_EQ(recorded_log::records(),
              (Records{appLog(4, "ServletContainer::addServlet End1. id= m_loader=" +
                                     recorded_loading::shown(&loader()) + "\n"),
                       kNotFound}));
}

TEST_F(Servlets, AreNotFoundWithoutALoader) {
    ServletContainer without;
    EXPECT_EQ(without.getServlet("status"), nullptr);
    EXPECT_EQ(without.addServlet("page"), nullptr);
    configure("status", "createPage");
    container.init(nullptr);
    EXPECT_EQ(request("status"), 404);
    const std::string before = "ServletContainer::addServlet End1. id=";
    EXPECT_EQ(recorded_log::records(),
              (Records{appLog(4, before + "status m_loader=(nil)\n"),
                       appLog(4, before + "page m_loader=(nil)\n"),
                       appLog(4, before + "status m_loader=(nil)\n"), kNotFound}));
}

TEST_F(Servlets, AreNotFoundWithoutALibrary) {
    PluginLoader empty(SCRATCH_FOLDER "/no configuration.xml");
    empty.servletConfig->put("status", "createPage");
    container.init(&empty);
    recorded_log::clear();
    for (const char* id : {"status", "unknown"})
        EXPECT_EQ(request(id), 404);
    const LogRecord noHandle = appLog(4, "AddServlet : can't get servletlist handle\n");
    EXPECT_EQ(recorded_log::records(), (Records{noHandle, kNotFound, noHandle, kNotFound}));
}

TEST_F(Servlets, AreNotFoundWhenTheirCreationFunctionIsMissing) {
    for (const char* function : {"createMissing", "createpage", ""}) {
        SCOPED_TRACE(function);
        configure("status", function);
        dlsym(loader().libraryHandle, function);
        const std::string reason = dlerror();
        for (int attempt = 0; attempt < 2; ++attempt) {
            recorded_log::clear();
            EXPECT_EQ(request("status"), 404);
            EXPECT_EQ(messages(),
                      (Records{appLog(3, "Cannot load symbol create. error=" + reason + "\n"),
                               kNotFound}));
        }
    }
}

TEST_F(Servlets, AreNotFoundWhenTheirCreationFails) {
    configure("broken", "createNoPage");
    for (int attempt = 0; attempt < 2; ++attempt) {
        recorded_log::clear();
        EXPECT_EQ(request("broken"), 404);
        EXPECT_EQ(messages(),
                  (Records{appLog(3, "ServletContainer::addServlet execute createfun error!\n"),
                           kNotFound}));
        EXPECT_EQ(events(), Names{"no page created"});
    }
}

TEST_F(Servlets, AreFoundAsSoonAsTheirCreationSucceeds) {
    configure("status", "createMissing");
    EXPECT_EQ(request("status"), 404);
    configure("status", "createPage");
    EXPECT_EQ(request("status"), 200);
}

TEST_F(Servlets, LeaveTheResponseEmptyIfNoneIsFound) {
    Visit visit("p=unknown");
    EXPECT_EQ(container.onRequest(visit.request(), visit.response()), 404);
    EXPECT_EQ(visit.output(), "");
    EXPECT_FALSE(visit.response()->isHeaderCommited());
}

TEST_F(Servlets, AreReplacedByAddServlet) {
    configure("status", "createPage");
    HttpServlet* first = container.getServlet("status");
    HttpServlet* second = container.addServlet("status");
    EXPECT_NE(first, second);
    EXPECT_EQ(container.getServlet("status"), second);
    ::operator delete(first); // the container has lost it
}

TEST_F(Servlets, AreDestroyedByDestroyAndThenFreed) {
    configure("status", "createPage");
    request("status");
    const void* servlet = container.getServlet("status");
    recorded_log::clear();

    std::vector<FreedStorage> freed;
    {
        plugin_watch::OnEvent markDestroying([](const std::string&) { freed_storage::mark(); });
        freed_storage::start();
        container.destory();
        freed = freed_storage::stop();
    }
    EXPECT_EQ(events(), Names{"page 1 destroy"}); // and no destructor
    EXPECT_LT(freed_storage::indexOf(freed, nullptr), freed_storage::indexOf(freed, servlet));
    EXPECT_LT(freed_storage::indexOf(freed, servlet), freed.size());
}

TEST_F(Servlets, AreDestroyedInTheOrderOfTheirTable) {
    QKHashMap<std::string, std::string, INT_HASH<std::string>> table;
    for (const char* id : {"zebra", "login", "status", "settings-config", "a"}) {
        configure(id, "createPage");
        request(id);
        table.put(id, "page " + std::to_string(table.m_nCount + 1) + " destroy");
    }
    Names expected;
    for (auto* entry = table.firstAssoc(); entry != nullptr; entry = table.nextAssoc(entry))
        expected.push_back(entry->value);
    recorded_log::clear();
    container.destory();
    EXPECT_EQ(events(), expected);
}

TEST_F(Servlets, AreDestroyedOnce) {
    configure("status", "createPage");
    container.destory();
    EXPECT_EQ(recorded_log::records(), Records{});
    request("status");
    container.destory();
    recorded_log::clear();
    container.destory();
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Servlets, AreDestroyedBesideAnEntryWithoutAServlet) {
    configure("status", "createPage");
    request("status");
    table()->put("ghost", nullptr);
    recorded_log::clear();
    container.destory();
    EXPECT_EQ(events(), Names{"page 1 destroy"});
    EXPECT_EQ(table()->m_nCount, 0);
}

TEST_F(Servlets, AreCreatedAgainAfterDestory) {
    configure("status", "createPage");
    request("status");
    container.destory();
    recorded_log::clear();
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(), (Names{"page 2 created", "page 2 init", "page 2 service"}));
}

TEST_F(Servlets, AreDestroyedWithTheirContainer) {
    configure("status", "createPage");
    {
        ServletContainer other;
        other.init(&loader());
        other.getServlet("status");
        recorded_log::clear();
    }
    EXPECT_EQ(events(), Names{"page 1 destroy"});
}

TEST_F(Servlets, AreCalledOnlyThroughTheFirstThreeSlotsOfTheirVirtualTable) {
    configure("raw", "createRawPage");
    EXPECT_EQ(request("raw"), 200);
    EXPECT_EQ(request("raw"), 200);
    container.destory();
    EXPECT_EQ(events(), (Names{"raw slot 1", "raw slot 2", "raw slot 2", "raw slot 3"}));
}

TEST_F(ServletContainerObject, HasItsMembersInTheirPlaces) {
    const auto* members = reinterpret_cast<void* const*>(&container);
    const auto* table = static_cast<const Table*>(members[1]);
    EXPECT_EQ(table->m_nHashTableSize, 100u);
    EXPECT_EQ(table->m_nBlockSize, 10);
    EXPECT_EQ(members[2], &loader());
    EXPECT_EQ(table->m_nCount, 0);
    configure("status", "createPage");
    request("status");
    request("unknown");
    EXPECT_EQ(table->m_nCount, 1);
    EXPECT_EQ(table->getAssoc("status")->value, container.getServlet("status"));
    container.destory();
    EXPECT_EQ(table->m_nCount, 0);
    EXPECT_EQ(table->m_pBlocks, nullptr);
    EXPECT_EQ(members[1], table);
    EXPECT_EQ(members[2], &loader());
}

class ContactsPreview : public Servlets {
protected:
    ContactsPreview() {
        configure("status", "createPage");
        configure("contacts-preview", "createPreview");
    }
};

TEST_F(ContactsPreview, ReleasesItsDataBeforeAnotherServletServes) {
    EXPECT_EQ(request("contacts-preview"), 200);
    recorded_log::clear();
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(),
              (Names{"page 1 created", "page 1 init", "preview 1 destroy", "page 1 service"}));
}

TEST_F(ContactsPreview, IsCreatedAndReleasedByTheFirstRequestForAnotherServlet) {
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(), (Names{"page 1 created", "page 1 init", "preview 1 created",
                               "preview 1 init", "preview 1 destroy", "page 1 service"}));
    recorded_log::clear();
    EXPECT_EQ(request("status"), 200);
    EXPECT_EQ(events(), (Names{"preview 1 destroy", "page 1 service"}));
}

TEST_F(ContactsPreview, KeepsItsDataForItsOwnRequests) {
    EXPECT_EQ(request("contacts-preview"), 200);
    EXPECT_EQ(request("contacts-preview"), 200);
    EXPECT_EQ(events(), (Names{"preview 1 created", "preview 1 init", "preview 1 service",
                               "preview 1 service"}));
}

TEST_F(ContactsPreview, IsKeptAfterReleasingItsData) {
    request("contacts-preview");
    HttpServlet* preview = container.getServlet("contacts-preview");
    request("status");
    EXPECT_EQ(container.getServlet("contacts-preview"), preview);
    recorded_log::clear();
    EXPECT_EQ(request("contacts-preview"), 200);
    EXPECT_EQ(events(), Names{"preview 1 service"});
}

TEST_F(ContactsPreview, IsAnotherServletUnderAnyOtherSpelling) {
    configure("Contacts-preview", "createOther");
    EXPECT_EQ(request("Contacts-preview"), 200);
    EXPECT_EQ(events().back(), "other 1 service");
    EXPECT_EQ(*(events().end() - 2), "preview 1 destroy");
}

TEST_F(ContactsPreview, KeepsItsDataWhenARequestFindsNoServlet) {
    request("contacts-preview");
    recorded_log::clear();
    EXPECT_EQ(request("unknown"), 404);
    EXPECT_EQ(recorded_log::records(), Records{kNotFound});
}

TEST_F(ContactsPreview, LogsAFailureWithoutAffectingTheOtherServlet) {
    configure("contacts-preview", "createNoPage");
    for (int attempt = 0; attempt < 2; ++attempt) {
        recorded_log::clear();
        EXPECT_EQ(request("status"), 200);
        EXPECT_EQ(messages(),
                  Records{appLog(3, "ServletContainer::addServlet execute createfun error!\n")});
        EXPECT_EQ(events().back(), "page 1 service");
    }
}

TEST_F(ContactsPreview, IsDestroyedOnceMoreInDestory) {
    request("contacts-preview");
    request("status");
    recorded_log::clear();
    container.destory();
    Names told = events();
    std::sort(told.begin(), told.end());
    EXPECT_EQ(told, (Names{"page 1 destroy", "preview 1 destroy"}));
}

class ServletsOnManyThreads : public Servlets {
protected:
    static void onThreads(int count, const std::function<void(int)>& action) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back(action, i);
        for (std::thread& thread : threads)
            thread.join();
    }
};

TEST_F(ServletsOnManyThreads, AreCreatedOnceEach) {
    constexpr int kThreads = 8;
    const char* const ids[] = {"one", "two", "three"};
    for (const char* id : ids)
        configure(id, "createPage");
    // Long enough for the other threads to enter the creation, if nothing stopped them.
    plugin_watch::OnEvent slowCreation([](const std::string& event) {
        if (event.find("created") != std::string::npos)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    Rendezvous start(kThreads);
    std::atomic<int> served{0};
    onThreads(kThreads, [&](int) {
        start.arrive();
        for (const char* id : ids)
            served += request(id) == 200;
    });
    EXPECT_EQ(served, kThreads * 3);
    const Names all = events();
    const auto count = [&all](const char* what) {
        return std::count_if(all.begin(), all.end(), [what](const std::string& event) {
            return event.find(what) != std::string::npos;
        });
    };
    EXPECT_EQ(count("created"), 3);
    EXPECT_EQ(count("init"), 3);
    EXPECT_EQ(count("service"), kThreads * 3);
}

TEST_F(ServletsOnManyThreads, ServeSeveralRequestsAtOnce) {
    configure("status", "createPage");
    configure("network", "createOther");
    request("status");
    Rendezvous inService(3);
    std::atomic<int> met{0};
    plugin_watch::OnEvent meet([&](const std::string& event) {
        if (event.find("service") != std::string::npos)
            met += inService.arrive();
    });
    onThreads(3, [&](int thread) { request(thread < 2 ? "status" : "network"); });
    EXPECT_EQ(met, 3);
}

TEST_F(ServletsOnManyThreads, ServeWhileThePreviewReleasesItsData) {
    configure("status", "createPage");
    configure("contacts-preview", "createPreview");
    request("status");
    Rendezvous together(2);
    std::atomic<int> met{0};
    std::thread other;
    plugin_watch::OnEvent meet([&](const std::string& event) {
        if (event == "preview 1 destroy")
            other = std::thread([this] { request("contacts-preview"); });
        if (event == "preview 1 destroy" || event == "preview 1 service")
            met += together.arrive();
    });
    request("status");
    ASSERT_TRUE(other.joinable());
    other.join();
    EXPECT_EQ(met, 2);
}

} // namespace
