// The three pages with Pistache: pistache_pages PORT FOLDER
#include "by_hand.h"

#include <nlohmann/json.hpp>
#include <pistache/endpoint.h>
#include <pistache/router.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>

using namespace Pistache;
using nlohmann::json;

namespace {

int hexDigit(char c) {
    const std::string_view digits = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::size_t place = digits.find(lower);
    return place == digits.npos ? -1 : static_cast<int>(place);
}

std::string decoded(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
            hexDigit(text[i + 2]) >= 0) {
            result += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            result += text[i] == '+' ? ' ' : text[i];
        }
    }
    return result;
}

// Returns a field of a form, or an empty text: the library does not parse forms.
std::string fieldOf(std::string_view form, std::string_view name) {
    while (!form.empty()) {
        const std::string_view pair = form.substr(0, form.find('&'));
        form.remove_prefix(std::min(pair.size() + 1, form.size()));
        const std::size_t equals = pair.find('=');
        if (decoded(pair.substr(0, equals)) == name) {
            return equals == pair.npos ? "" : decoded(pair.substr(equals + 1));
        }
    }
    return "";
}

// Returns the content of the file in a multipart body, or nothing: the library does not parse
// these.
std::optional<std::string_view> fileIn(std::string_view body, const std::string& contentType) {
    const std::size_t begin = contentType.find("boundary=");
    if (begin == contentType.npos) {
        return std::nullopt;
    }
    std::string boundary = contentType.substr(begin + 9);
    boundary = boundary.substr(0, boundary.find(';'));
    if (boundary.size() > 1 && boundary.front() == '"' && boundary.back() == '"') {
        boundary = boundary.substr(1, boundary.size() - 2);
    }
    const std::string delimiter = "--" + boundary;
    std::size_t part = body.find(delimiter);
    while (part != body.npos) {
        const std::size_t head = part + delimiter.size();
        const std::size_t data = body.find("\r\n\r\n", head);
        const std::size_t end = body.find("\r\n" + delimiter, head);
        if (data == body.npos || end == body.npos || end < data + 4) {
            return std::nullopt;
        }
        if (body.substr(head, data - head).find("name=\"file\"") != body.npos) {
            return body.substr(data + 4, end - data - 4);
        }
        part = end + 2;
    }
    return std::nullopt;
}

std::string cookieOf(const Rest::Request& request, const std::string& name) {
    return request.cookies().has(name) ? request.cookies().get(name).value : "";
}

// A header with a fixed value. The library writes no header for which there is no class.
#define FIXED_HEADER(Class, name, value)                                                           \
    class Class : public Http::Header::Header {                                                    \
    public:                                                                                        \
        NAME(name)                                                                                 \
        void parse(const std::string&) override {}                                                 \
        void write(std::ostream& out) const override { out << (value); }                           \
    };

FIXED_HEADER(NoStore, "Cache-Control", "no-store")
FIXED_HEADER(NoSniff, "X-Content-Type-Options", "nosniff")
FIXED_HEADER(ReferrerPolicy, "Referrer-Policy", "same-origin")
FIXED_HEADER(ContentPolicy, "Content-Security-Policy", kContentPolicy)

void setCookie(Http::ResponseWriter& response, const std::string& name, const std::string& value) {
    Http::Cookie cookie(name, value);
    cookie.path = "/";
    cookie.httpOnly = true;
    cookie.ext["SameSite"] = "Strict";
    response.cookies().add(cookie);
}

void send(Http::ResponseWriter& response, Http::Code code, const std::string& body,
          const std::string& type) {
    response.headers().add<NoStore>().add<NoSniff>().add<ReferrerPolicy>().add<ContentPolicy>();
    response.send(code, body, Http::Mime::MediaType::fromString(type));
}

void sendJson(Http::ResponseWriter& response, Http::Code code, const json& value) {
    send(response, code, value.dump(), "application/json");
}

class Pages {
public:
    explicit Pages(std::string folder) : m_folder(std::move(folder)) {}

    void addTo(Rest::Router& router) {
        using Rest::Routes::bind;
        Rest::Routes::Get(router, "/todo", bind(&Pages::showList, this));
        Rest::Routes::Post(router, "/todo", bind(&Pages::add, this));
        Rest::Routes::Post(router, "/sum", bind(&Pages::sum, this));
        Rest::Routes::Post(router, "/upload", bind(&Pages::upload, this));
    }

private:
    void showList(const Rest::Request& request, Http::ResponseWriter response) {
        const auto session = m_sessions.find(cookieOf(request, "session"));
        sendList(request, response, Http::Code::Ok, session.get(), "", "");
    }

    void add(const Rest::Request& request, Http::ResponseWriter response) {
        const std::string form = request.body();
        if (!equalSecrets(fieldOf(form, "token"), cookieOf(request, "token"))) {
            send(response, Http::Code::Forbidden, "The form is stale.\n", "text/plain");
            return;
        }
        auto session = m_sessions.find(cookieOf(request, "session"));
        const std::string text = fieldOf(form, "text");
        constexpr auto kUnprocessable = Http::Code::Unprocessable_Entity;
        if (!session) {
            if (text.empty() || lineLength(text) == 0 || lineLength(text) > kMaxText) {
                Session none;
                sendList(request, response, kUnprocessable, nullptr, text, addItem(none, text));
                return;
            }
            const std::string id = m_sessions.create();
            session = m_sessions.find(id);
            setCookie(response, "session", id);
        }
        const std::string problem = addItem(*session, text);
        if (!problem.empty()) {
            sendList(request, response, kUnprocessable, session.get(), text, problem);
            return;
        }
        response.headers().add<Http::Header::Location>("/todo");
        send(response, Http::Code::See_Other, "", "text/plain");
    }

    void sum(const Rest::Request& request, Http::ResponseWriter response) {
        if (request.body().size() > kMaxJson) {
            sendJson(response, Http::Code::Request_Entity_Too_Large, {{"error", "too large"}});
            return;
        }
        const json value = json::parse(request.body(), nullptr, false);
        if (!value.is_object() || !value.contains("numbers") || !value["numbers"].is_array()) {
            sendJson(response, Http::Code::Bad_Request, {{"error", "numbers is missing"}});
            return;
        }
        double total = 0;
        for (const json& number : value["numbers"]) {
            if (!number.is_number()) {
                sendJson(response, Http::Code::Bad_Request, {{"error", "not a number"}});
                return;
            }
            total += number.get<double>();
        }
        sendJson(response, Http::Code::Ok, {{"count", value["numbers"].size()}, {"sum", total}});
    }

    // The whole body is in memory: the library does not stream it.
    void upload(const Rest::Request& request, Http::ResponseWriter response) {
        const auto type = request.headers().tryGet<Http::Header::ContentType>();
        const std::string body = request.body();
        const auto file = type ? fileIn(body, type->mime().toString()) : std::nullopt;
        const std::string path = m_folder + "/" + randomToken();
        bool stored = false;
        if (file && !file->empty() && file->size() <= kMaxUpload) {
            std::ofstream out(path, std::ios::binary);
            out.write(file->data(), static_cast<std::streamsize>(file->size()));
            out.close();
            stored = out && std::rename(path.c_str(), (m_folder + "/upload").c_str()) == 0;
        }
        if (!stored) {
            std::remove(path.c_str());
            sendJson(response, Http::Code::Unprocessable_Entity,
                     {{"error", "incomplete or too large"}});
            return;
        }
        sendJson(response, Http::Code::Ok, {{"bytes", file->size()}});
    }

    static void sendList(const Rest::Request& request, Http::ResponseWriter& response,
                         Http::Code code, Session* session, const std::string& entered,
                         const std::string& problem) {
        std::string token = cookieOf(request, "token");
        if (token.size() != 32) {
            token = randomToken();
            setCookie(response, "token", token);
        }
        send(response, code, todoPage(session, token, entered, problem),
             "text/html; charset=utf-8");
    }

    const std::string m_folder;
    Sessions m_sessions;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: pistache_pages PORT FOLDER\n";
        return EXIT_FAILURE;
    }
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    Pages pages(argv[2]);
    Rest::Router router;
    pages.addTo(router);
    Http::Endpoint endpoint(
        Address(Ipv4::loopback(), Port(static_cast<std::uint16_t>(std::atoi(argv[1])))));
    endpoint.init(Http::Endpoint::options()
                      .threads(2)
                      .flags(Tcp::Options::ReuseAddr)
                      .maxRequestSize(kMaxUpload + 64 * 1024));
    endpoint.setHandler(router.handler());
    endpoint.serveThreaded();
    int signal = 0;
    sigwait(&signals, &signal);
    endpoint.shutdown();
}
