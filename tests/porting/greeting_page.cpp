// A page that makes the container call every function of the device's libraries.
#include <kit/plugin.h>

#include <cstdlib>
#include <string>

namespace {

class GreetingPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const std::string name(request.parameter("name").value_or("stranger"));
        const std::string what(request.parameter("q").value_or("page"));
        if (what == "all")
            response.text(everything(request, response));
        else if (what == "loop")
            response.show("loop.html", rows());
        else
            response.show("greeting.html", kit::Variables().set("name", name));
    }

    static kit::Variables rows() {
        const std::string letters = "ab";
        return kit::Variables().rows("rows", letters, [](char c) {
            return kit::Variables().set("letter", std::string(1, c));
        });
    }

    static std::string everything(kit::Request& request, kit::Response& response) {
        std::string text;
        for (std::string_view value : request.parameters("name"))
            text += "name=" + std::string(value) + "\n";
        text += "cookie=" + std::string(request.cookie("colour").value_or("none")) + "\n";
        char* url = response.raw().encodeURL("/a b?c=\xE4");
        text += "url=" + std::string(url) + "\n";
        std::free(url);
        char buffer[16];
        text += "file=" + std::to_string(request.raw().receiveUploadData(buffer, sizeof buffer));
        request.raw().receiveUploadFile("/nowhere/at-all");
        const int size = request.raw().receiveBlockData(buffer, sizeof buffer);
        text += "\nbody=" + std::string(buffer, static_cast<std::size_t>(size)) + "\n";
        WebDebug::getInstance()->setUser("somebody");
        WebDebug::getInstance()->warn("asked for everything by %s", "a\nforger");
        WebDebug::getInstance()->setUser(nullptr);
        return text;
    }
};

} // namespace

KIT_SERVLET(createGreetingPage, GreetingPage)
