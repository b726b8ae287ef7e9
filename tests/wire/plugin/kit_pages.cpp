// The pages of the wire tests that are written with the kit.
#include "kit/plugin.h"

#include <cstdlib>
#include <string>

namespace {

// Sends the file "name" of the folder "files" below the one that WIRE_FOLDER names.
class FilePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const char* folder = std::getenv("WIRE_FOLDER");
        const std::string files = std::string(folder ? folder : ".") + "/files";
        if (!response.fileFrom(files, request.parameter("name").value_or(""))) {
            response.text("There is no such file.\n");
        }
    }
};

// Sends as many lines of 100 bytes as the parameter "lines" says.
class StreamPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const std::string line = std::string(99, 's') + '\n';
        kit::Stream body = response.stream("text/plain");
        for (int left = request.number("lines", 0, 1000000).valueOr(0); left > 0; --left) {
            if (!body.write(line)) {
                return;
            }
        }
    }
};

// Announces 1000 bytes and sends 3, as for a file that becomes shorter while it is sent.
class ShortPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override {
        response.header("Content-Length", "1000");
        response.text("cut");
    }
};

class VersionPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override {
        if (!response.notModified("v1")) {
            response.html("<p>The first version.</p>\n");
        }
    }
};

class CookiesPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        response.cookie({"one", "1"});
        response.cookie({"two", "2"});
        request.raw().getSession(true);
        response.cookie({"three", "3"});
        response.text("three cookies and a session\n");
    }
};

// Sends what web servers compress when it comes from a file: a style sheet, or the page around it.
class StylePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        std::string rules;
        for (int number = 0; number < 500; ++number) {
            rules += ".a { margin: 0; }\n";
        }
        if (request.parameter("inline")) {
            response.html("<style>\n" + rules + "</style>\n");
        } else {
            response.send("text/css; charset=utf-8", rules);
        }
    }
};

} // namespace

KIT_SERVLET(createFilePage, FilePage)
KIT_SERVLET(createStreamPage, StreamPage)
KIT_SERVLET(createShortPage, ShortPage)
KIT_SERVLET(createVersionPage, VersionPage)
KIT_SERVLET(createCookiesPage, CookiesPage)
KIT_SERVLET(createStylePage, StylePage)
