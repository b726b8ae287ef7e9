// A page in two languages.
#ifndef WELCOME_PAGE_H
#define WELCOME_PAGE_H

#include <kit/plugin.h>

#include <string>

class WelcomePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const std::string language(request.language({"en", "de"}));
        response.header("Content-Language", language);
        response.header("Vary", "Accept-Language");
        response.show(language + "/welcome.html",
                      kit::Variables().set("address", request.remoteAddress()));
    }
};

#endif
