#include "listener_container.h"

#include "plugin/plugin_watch.h"
#include "plugin_loader.h"
#include "support/freed_storage.h"
#include "support/recorded_loading.h"
#include "support/rendezvous.h"
#include "support/visit.h"
#include <kit/testing/recorded_log.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <list>
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

const LogRecord kRefused = appLog(4, "ListenerContainer::onRequest End.result = false\n");

// Listeners outlive their container by contract. So that no test leaks them, the fixture frees each
// one, which it finds through the container's memory layout.
class Listeners : public testing::Test {
protected:
    Listeners() : m_loader(SCRATCH_FOLDER "/no configuration.xml") {
        m_loader.libraryHandle = dlopen(TEST_PLUGIN, RTLD_LAZY);
        recorded_log::clear();
    }
    ~Listeners() override {
        for (HttpListener* listener : m_created)
            ::operator delete(listener);
    }

    PluginLoader& loader() { return m_loader; }
    int init(const Names& functions) {
        m_loader.listenerConfig->assign(functions.begin(), functions.end());
        const int result = container.init(&m_loader);
        for (HttpListener* listener : *held())
            m_created.push_back(listener);
        return result;
    }
    int request(const std::string& query = "p=status") {
        Visit visit(query);
        return container.onRequest(visit.request(), visit.response());
    }
    // Returns the container's only member, after its virtual table pointer.
    std::list<HttpListener*>* held() {
        return static_cast<std::list<HttpListener*>*>(reinterpret_cast<void**>(&container)[1]);
    }
    std::string lookup(const std::string& name) {
        return "dlsym(" + recorded_loading::shown(m_loader.libraryHandle) + ", " + name + ")";
    }

private:
    PluginLoader m_loader;
    std::list<HttpListener*> m_created;

protected:
    ListenerContainer container;
};

using ListenerContainers = Listeners;

TEST_F(Listeners, AreNoneAtFirst) {
    EXPECT_EQ(request(), 1);
    EXPECT_TRUE(held()->empty());
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Listeners, CanBeNone) {
    EXPECT_EQ(init({}), 0);
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Listeners, AreCreatedAndInitialisedOneByOneInOrder) {
    EXPECT_EQ(init({"createB", "createA", "createC"}), 0);
    EXPECT_EQ(events(), (Names{"B 1 created", "B 1 init", "A 1 created", "A 1 init", "C 1 created",
                               "C 1 init"}));
    EXPECT_EQ(messages(), Records{});
    EXPECT_EQ(held()->size(), 3u);
}

TEST_F(Listeners, AreHeldBeforeTheNextOneIsCreated) {
    Names steps;
    plugin_watch::OnEvent countHeld([&](const std::string& event) {
        steps.push_back(event + ", " + std::to_string(held()->size()) + " held");
    });
    EXPECT_EQ(init({"createA", "createB"}), 0);
    EXPECT_EQ(steps, (Names{"A 1 created, 0 held", "A 1 init, 0 held", "B 1 created, 1 held",
                            "B 1 init, 1 held"}));
}

TEST_F(Listeners, AreLookedUpWithoutClearingEarlierLoaderErrors) {
    EXPECT_EQ(init({"createA", "createB"}), 0);
    EXPECT_EQ(recorded_loading::calls(),
              (Names{lookup("createA"), "dlerror()", lookup("createB"), "dlerror()"}));
}

TEST_F(Listeners, AllSeeARequestThatNoneRefuses) {
    init({"createC", "createA", "createB"});
    recorded_log::clear();
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(events(), (Names{"C 1 onRequest", "A 1 onRequest", "B 1 onRequest"}));
    EXPECT_EQ(messages(), Records{});
}

TEST_F(Listeners, DoNotSeeARequestThatAnEarlierOneRefused) {
    init({"createA", "createB", "createC"});
    const struct {
        const char* query;
        Names asked;
    } cases[] = {
        {"refuse=A", {"A 1 onRequest"}},
        {"refuse=B", {"A 1 onRequest", "B 1 onRequest"}},
        {"refuse=C", {"A 1 onRequest", "B 1 onRequest", "C 1 onRequest"}},
    };
    for (const auto& example : cases) {
        SCOPED_TRACE(example.query);
        recorded_log::clear();
        EXPECT_EQ(request(example.query), 0);
        EXPECT_EQ(events(), example.asked);
        EXPECT_EQ(messages(), Records{kRefused});
    }
    EXPECT_EQ(request(), 1);
}

TEST_F(Listeners, WriteTheResponseToARequestThatTheyRefuse) {
    init({"createA"});
    Visit visit("refuse=A");
    EXPECT_EQ(container.onRequest(visit.request(), visit.response()), 0);
    EXPECT_EQ(visit.output(), "\r\n<refused by A>");
}

TEST_F(ListenerContainers, WriteNothingToTheResponse) {
    init({"createA"});
    Visit visit("p=status");
    EXPECT_EQ(container.onRequest(visit.request(), visit.response()), 1);
    EXPECT_EQ(visit.output(), "");
}

TEST_F(Listeners, AreSeparateObjectsEvenOfOneFunction) {
    EXPECT_EQ(init({"createA", "createA"}), 0);
    EXPECT_EQ(events(), (Names{"A 1 created", "A 1 init", "A 2 created", "A 2 init"}));
    recorded_log::clear();
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(events(), (Names{"A 1 onRequest", "A 2 onRequest"}));
}

TEST_F(Listeners, StopAtTheFirstThatIsMissing) {
    dlsym(loader().libraryHandle, "createMissing");
    const std::string reason = dlerror();
    recorded_log::clear();
    EXPECT_EQ(init({"createA", "createMissing", "createC"}), -1);
    EXPECT_EQ(messages(), Records{appLog(4, "Cannot load symbol create. error=" + reason + "\n")});
    EXPECT_EQ(recorded_loading::calls(),
              (Names{lookup("createA"), "dlerror()", lookup("createMissing"), "dlerror()"}));
    EXPECT_EQ(held()->size(), 1u);
    recorded_log::clear();
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(events(), Names{"A 1 onRequest"});
}

TEST_F(Listeners, StopAtTheFirstThatCannotBeCreated) {
    EXPECT_EQ(init({"createA", "createNoListener", "createC"}), -1);
    EXPECT_EQ(messages(),
              Records{appLog(4, "ServletContainer::init End.execute createfun error!\n")});
    EXPECT_EQ(events(), (Names{"A 1 created", "A 1 init", "no listener created"}));
    recorded_log::clear();
    EXPECT_EQ(request("refuse=A"), 0);
    EXPECT_EQ(events(), Names{"A 1 onRequest"});
}

TEST_F(Listeners, AreNoneWithoutALoader) {
    EXPECT_EQ(container.init(nullptr), -1);
    EXPECT_EQ(recorded_log::records(),
              Records{appLog(4, "ListenerContainer::init End! loader == NULL\n")});
    EXPECT_EQ(request(), 1);
}

TEST_F(Listeners, AreNoneWithALoaderThatFoundNoConfiguration) {
    PluginLoader empty(SCRATCH_FOLDER "/no configuration.xml");
    recorded_log::clear();
    EXPECT_EQ(container.init(&empty), 0);
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Listeners, AreNeitherCalledNorFreedByDestory) {
    init({"createA", "createB"});
    const std::vector<const void*> listeners(held()->begin(), held()->end());
    recorded_log::clear();
    freed_storage::start();
    EXPECT_EQ(container.destory(), 0);
    const std::vector<FreedStorage> freed = freed_storage::stop();
    for (const void* listener : listeners)
        EXPECT_EQ(freed_storage::indexOf(freed, listener), freed.size());
    EXPECT_EQ(freed.size(), 2u); // the entries of the list
    EXPECT_TRUE(held()->empty());
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(request("refuse=A"), 1);
    EXPECT_EQ(container.destory(), 0);
    EXPECT_EQ(recorded_log::records(), Records{});
}

TEST_F(Listeners, AreNotCalledWhenTheirContainerIsDestroyed) {
    HttpListener* listener = nullptr;
    loader().listenerConfig->push_back("createA");
    {
        ListenerContainer other;
        other.init(&loader());
        listener =
            static_cast<std::list<HttpListener*>*>(reinterpret_cast<void**>(&other)[1])->front();
        recorded_log::clear();
    }
    EXPECT_EQ(recorded_log::records(), Records{});
    ::operator delete(listener);
}

TEST_F(Listeners, AreCalledOnlyThroughTheFirstTwoSlotsOfTheirVirtualTable) {
    EXPECT_EQ(init({"createRawListener"}), 0);
    EXPECT_EQ(request(), 1);
    EXPECT_EQ(request("refuse=raw"), 0);
    container.destory();
    EXPECT_EQ(events(), (Names{"raw slot 1", "raw slot 2", "raw slot 2"}));
}

TEST_F(Listeners, SeeSeveralRequestsAtOnce) {
    init({"createA"});
    Rendezvous inListener(2);
    std::atomic<int> met{0};
    plugin_watch::OnEvent meet([&](const std::string&) { met += inListener.arrive(); });
    std::thread other([this] { request(); });
    request();
    other.join();
    EXPECT_EQ(met, 2);
}

} // namespace
