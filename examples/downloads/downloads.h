// Pages that send files and long texts, a page that browsers keep, and one that sets a cookie.
#ifndef DOWNLOADS_H
#define DOWNLOADS_H

#include <kit/forms.h>
#include <kit/plugin.h>

#include <atomic>
#include <string>
#include <utility>

// Sends one of the files in a folder: /servlet?p=recordings&name=2026/monday.wav
class RecordingsPage final : public kit::Page {
public:
    explicit RecordingsPage(std::string folder) : m_folder(std::move(folder)) {}

    void answer(kit::Request& request, kit::Response& response) override {
        if (!response.fileFrom(m_folder, request.parameter("name").value_or(""))) {
            response.text("There is no such recording.\n"); // with status 404
        }
    }

private:
    const std::string m_folder;
};

// Lets the browser save a file whose path the page knows.
class ManualPage final : public kit::Page {
public:
    explicit ManualPage(std::string path) : m_path(std::move(path)) {}

    void answer(kit::Request&, kit::Response& response) override {
        response.attachment("manual.pdf");
        if (!response.file(m_path)) {
            response.text("This device has no manual.\n");
        }
    }

private:
    const std::string m_path;
};

// Sends a table that is made while it is sent.
class MeasurementsPage final : public kit::Page {
    void answer(kit::Request&, kit::Response& response) override {
        response.attachment("measurements.csv");
        kit::Stream table = response.stream("text/csv; charset=utf-8");
        table.write("second,volts\n");
        for (int second = 0; second < 100000; ++second) {
            if (!table.write(std::to_string(second) + ",5.0\n")) {
                return; // the client has gone, or wants the headers only
            }
        }
    }
};

// Shows a list that changes seldom. Browsers keep the page and ask whether it is still valid.
class NewsPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (kit::isFromForm(request)) {
            ++m_changes;
            response.seeOther("/servlet?p=news");
        } else if (!response.notModified(std::to_string(m_changes))) {
            response.text("The news changed " + std::to_string(m_changes) + " times.\n");
        }
    }

    std::atomic<int> m_changes{0};
};

// Keeps the visitor's choice for a year.
class ThemePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        constexpr long kYear = 365L * 24 * 60 * 60;
        if (const auto chosen = request.choice("theme", {"light", "dark"})) {
            kit::Cookie cookie{"theme", std::string(*chosen)};
            cookie.maxAge = kYear;
            cookie.sameSite = kit::Cookie::SameSite::Strict;
            response.cookie(cookie);
            response.text("The theme is now " + std::string(*chosen) + ".\n");
        } else {
            const std::string theme(request.cookie("theme").value_or("light"));
            response.text("The theme is " + theme + ".\n");
        }
    }
};

#endif
