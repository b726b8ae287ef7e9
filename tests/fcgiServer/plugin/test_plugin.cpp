// A plug-in library that logs every call of its servlets and listeners.
#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "plugin/plugin_watch.h"

#include "app_log.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <typeinfo>

// Undefined everywhere: the library can only be opened with lazy binding.
extern "C" void undefinedFunction();

namespace {

void note(const char* event) {
    app_log(plugin_watch::kModule, 6, "%s", event);
    pluginReached(event);
}

// Numbers its objects.
class Numbered {
protected:
    Numbered(const char* name, int number) : m_name(name), m_number(number) { tell("created"); }
    ~Numbered() { tell("destructed"); }

    void tell(const char* what) const {
        char event[64];
        std::snprintf(event, sizeof event, "%s %d %s", m_name, m_number, what);
        note(event);
    }
    const char* name() const { return m_name; }

private:
    const char* m_name;
    int m_number;
};

class Page final : public HttpServlet, private Numbered {
public:
    Page(const char* name, int number) : Numbered(name, number) {}

    void init() override { tell("init"); }
    void service(HttpRequest* request, HttpResponse* response) override {
        tell("service");
        const char* text = request->getParameter("text");
        response->print("<%s %s>", name(), text != nullptr ? text : "without text");
    }
    void destroy() override { tell("destroy"); }
};

// Refuses the requests whose parameter "refuse" is its name.
class Guard final : public HttpListener, private Numbered {
public:
    Guard(const char* name, int number) : Numbered(name, number) {}

    void init() override { tell("init"); }
    bool onRequest(HttpRequest* request, HttpResponse* response) override {
        tell("onRequest");
        const char* refused = request->getParameter("refuse");
        if (refused == nullptr || std::strcmp(refused, name()) != 0)
            return true;
        response->print("<refused by %s>", name());
        return false;
    }
};

// Objects with a hand-made virtual table, as a plug-in from another compiler may have. The offset
// to the whole object and the type precede the slots.
struct VirtualTable {
    std::ptrdiff_t offsetToTop;
    const std::type_info* type;
    void (*slots[8])();
};
struct RawObject {
    const void* slots;
    void* self;
};

void noteRaw(RawObject* object, const char* event) {
    note(object->self == object ? event : "raw called on another object");
}
void rawInit(RawObject* self) {
    noteRaw(self, "raw slot 1");
}
void rawService(RawObject* self, HttpRequest* request, HttpResponse* response) {
    noteRaw(self, request != nullptr && response != nullptr ? "raw slot 2" : "raw slot 2 of null");
}
void rawDestroy(RawObject* self) {
    noteRaw(self, "raw slot 3");
}
bool rawOnRequest(RawObject* self, HttpRequest* request, HttpResponse*) {
    noteRaw(self, "raw slot 2");
    return request->getParameter("refuse") == nullptr;
}
void rawBeyond() {
    note("raw slot that nobody may call");
}

template <class Function>
void (*slot(Function* function))() {
    return reinterpret_cast<void (*)()>(function);
}

const VirtualTable kRawServlet = {
    0,
    &typeid(HttpServlet),
    {slot(rawInit), slot(rawService), slot(rawDestroy), rawBeyond, rawBeyond, rawBeyond}};
const VirtualTable kRawListener = {
    0,
    &typeid(HttpListener),
    {slot(rawInit), slot(rawOnRequest), rawBeyond, rawBeyond, rawBeyond, rawBeyond}};

RawObject* createRaw(const VirtualTable& table) {
    auto* object = static_cast<RawObject*>(::operator new(sizeof(RawObject)));
    object->slots = table.slots;
    object->self = object;
    return object;
}

__attribute__((destructor)) void unload() {
    note("unloaded");
}

} // namespace

extern "C" {

HttpServlet* createPage() {
    static int count = 0;
    return new Page("page", ++count);
}
HttpServlet* createOther() {
    static int count = 0;
    return new Page("other", ++count);
}
HttpServlet* createPreview() {
    static int count = 0;
    return new Page("preview", ++count);
}
HttpServlet* createNoPage() {
    note("no page created");
    return nullptr;
}
HttpServlet* createRawPage() {
    return reinterpret_cast<HttpServlet*>(createRaw(kRawServlet));
}

HttpListener* createA() {
    static int count = 0;
    return new Guard("A", ++count);
}
HttpListener* createB() {
    static int count = 0;
    return new Guard("B", ++count);
}
HttpListener* createC() {
    static int count = 0;
    return new Guard("C", ++count);
}
HttpListener* createNoListener() {
    note("no listener created");
    return nullptr;
}
HttpListener* createRawListener() {
    return reinterpret_cast<HttpListener*>(createRaw(kRawListener));
}

void callUndefinedFunction() {
    undefinedFunction();
}

} // extern "C"
