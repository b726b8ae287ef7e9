#include <HttpRequest.h>
#include <HttpResponse.h>
#include <HttpServlet.h>

class HelloPage : public HttpServlet {
public:
    void init() override {}
    void service(HttpRequest* request, HttpResponse* response) override {
        const char* name = request->getParameter("name");
        response->setHeader("Content-Type", "text/plain; charset=utf-8");
        response->print("Hello, %s!\n", name != nullptr ? name : "stranger");
    }
    void destroy() override {}
};

extern "C" HttpServlet* createHelloPage() {
    return new HelloPage;
}
