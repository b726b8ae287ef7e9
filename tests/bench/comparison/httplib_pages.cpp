// The three pages with cpp-httplib: httplib_pages PORT FOLDER
#include "by_hand.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>

using nlohmann::json;

namespace {

// Returns the value of a cookie, or an empty text: the library does not parse cookies.
std::string cookieOf(const httplib::Request& request, const std::string& name) {
    const std::string header = "; " + request.get_header_value("Cookie");
    const std::size_t begin = header.find("; " + name + "=");
    if (begin == header.npos) {
        return "";
    }
    const std::size_t value = begin + name.size() + 3;
    return header.substr(value, header.find(';', value) - value);
}

void setCookie(httplib::Response& response, const std::string& name, const std::string& value) {
    response.set_header("Set-Cookie", name + "=" + value + "; Path=/; HttpOnly; SameSite=Strict");
}

void answerJson(httplib::Response& response, int status, const json& value) {
    response.status = status;
    response.set_content(value.dump(), "application/json");
}

class Pages {
public:
    explicit Pages(std::string folder) : m_folder(std::move(folder)) {}

    void showList(const httplib::Request& request, httplib::Response& response) {
        const auto session = m_sessions.find(cookieOf(request, "session"));
        answerList(request, response, session.get(), "", "");
    }

    void add(const httplib::Request& request, httplib::Response& response) {
        const std::string known = cookieOf(request, "token");
        if (!equalSecrets(request.get_param_value("token"), known)) {
            response.status = 403;
            response.set_content("The form is stale.\n", "text/plain; charset=utf-8");
            return;
        }
        std::string id = cookieOf(request, "session");
        auto session = m_sessions.find(id);
        const std::string text = request.get_param_value("text");
        if (!session) {
            if (text.empty() || lineLength(text) == 0 || lineLength(text) > kMaxText) {
                Session none;
                answerList(request, response, nullptr, text, addItem(none, text));
                response.status = 422;
                return;
            }
            id = m_sessions.create();
            session = m_sessions.find(id);
            setCookie(response, "session", id);
        }
        const std::string problem = addItem(*session, text);
        if (!problem.empty()) {
            answerList(request, response, session.get(), text, problem);
            response.status = 422;
            return;
        }
        response.set_redirect("/todo", 303);
    }

    void sum(const httplib::Request& request, httplib::Response& response,
             const httplib::ContentReader& read) {
        std::string body;
        const bool fits = read([&](const char* data, std::size_t size) {
            body.append(data, size);
            return body.size() <= kMaxJson;
        });
        if (!fits) {
            answerJson(response, 413, {{"error", "too large"}});
            return;
        }
        const json value = json::parse(body, nullptr, false);
        if (!value.is_object() || !value.contains("numbers") || !value["numbers"].is_array()) {
            answerJson(response, 400, {{"error", "numbers is missing"}});
            return;
        }
        double total = 0;
        for (const json& number : value["numbers"]) {
            if (!number.is_number()) {
                answerJson(response, 400, {{"error", "not a number"}});
                return;
            }
            total += number.get<double>();
        }
        answerJson(response, 200, {{"count", value["numbers"].size()}, {"sum", total}});
        (void)request;
    }

    void upload(const httplib::Request& request, httplib::Response& response,
                const httplib::ContentReader& read) {
        if (!request.is_multipart_form_data()) {
            answerJson(response, 415, {{"error", "no upload"}});
            return;
        }
        const std::string path = m_folder + "/" + randomToken();
        std::ofstream file(path, std::ios::binary);
        std::size_t bytes = 0;
        bool isFile = false;
        const bool complete = read(
            [&](const httplib::MultipartFormData& part) {
                isFile = part.name == "file";
                return true;
            },
            [&](const char* data, std::size_t size) {
                if (isFile) {
                    file.write(data, static_cast<std::streamsize>(size));
                    bytes += size;
                }
                return bytes <= kMaxUpload && file.good();
            });
        file.close();
        if (!complete || bytes == 0 || !file ||
            std::rename(path.c_str(), (m_folder + "/upload").c_str()) != 0) {
            std::remove(path.c_str());
            answerJson(response, 422, {{"error", "incomplete or too large"}});
            return;
        }
        answerJson(response, 200, {{"bytes", bytes}});
    }

private:
    static void answerList(const httplib::Request& request, httplib::Response& response,
                           Session* session, const std::string& entered,
                           const std::string& problem) {
        std::string token = cookieOf(request, "token");
        if (token.size() != 32) {
            token = randomToken();
            setCookie(response, "token", token);
        }
        response.set_content(todoPage(session, token, entered, problem),
                             "text/html; charset=utf-8");
    }

    const std::string m_folder;
    Sessions m_sessions;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: httplib_pages PORT FOLDER\n";
        return EXIT_FAILURE;
    }
    using httplib::ContentReader;
    using httplib::Request;
    using httplib::Response;
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    Pages pages(argv[2]);
    httplib::Server server;
    std::thread([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        server.stop();
    }).detach();
    server.new_task_queue = [] { return new httplib::ThreadPool(2); };
    server.set_post_routing_handler([](const Request&, Response& response) {
        response.set_header("Cache-Control", "no-store");
        response.set_header("X-Content-Type-Options", "nosniff");
        response.set_header("Referrer-Policy", "same-origin");
        response.set_header("Content-Security-Policy", kContentPolicy);
    });
    server.Get("/todo", [&](const Request& in, Response& out) { pages.showList(in, out); });
    server.Post("/todo", [&](const Request& in, Response& out) { pages.add(in, out); });
    server.Post("/sum", [&](const Request& in, Response& out, const ContentReader& read) {
        pages.sum(in, out, read);
    });
    server.Post("/upload", [&](const Request& in, Response& out, const ContentReader& read) {
        pages.upload(in, out, read);
    });
    return server.listen("127.0.0.1", std::atoi(argv[1])) ? EXIT_SUCCESS : EXIT_FAILURE;
}
