#include <kit/plugin.h>

#include <unistd.h>

class FirstPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override {
        char name[256] = "";
        gethostname(name, sizeof name - 1);
        response.show("first.html", kit::Variables().set("device", name));
    }
};

KIT_SERVLET(createFirstPage, FirstPage)
