#include <kit/plugin.h>

class HelloPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const std::string name(request.parameter("name").value_or("stranger"));
        response.text("Hello, " + name + "!\n");
    }
};

KIT_SERVLET(createHelloPage, HelloPage)
