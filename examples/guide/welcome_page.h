// A page in two languages.
#ifndef WELCOME_PAGE_H
#define WELCOME_PAGE_H

#include <kit/plugin.h>

#include <string>

class WelcomePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        char buffer[64];
        const char* first = request.raw().getLocale(buffer, sizeof buffer); // null if it is longer
        const std::string language =
            std::string(first ? first : "").substr(0, 2) == "de" ? "de" : "en";
        response.header("Content-Language", language);
        response.header("Vary", "Accept-Language");
        response.show(language + "/welcome.html",
                      kit::Variables().set("address", request.remoteAddress()));
    }
};

#endif
