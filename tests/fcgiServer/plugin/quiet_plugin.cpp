// A plug-in library whose one listener needs no memory and writes nothing.
#include "HttpListener.h"

namespace {

class QuietListener : public HttpListener {
    void init() override {}
    bool onRequest(HttpRequest*, HttpResponse*) override { return true; }
};

} // namespace

extern "C" HttpListener* createQuietListener() {
    static QuietListener listener;
    return &listener;
}
