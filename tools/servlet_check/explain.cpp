#include "explain.h"

#include "base/ascii.h"
#include "container_log.h"
#include "http_request.h"
#include "http_response.h"
#include "request_rules.h"

#include <fcgiapp.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace {

// Returns REQUEST_URI as front servers pass it: without scheme, host and fragment.
std::string requestUriOf(const std::string& url) {
    std::string uri = url.substr(0, url.find('#'));
    const std::size_t scheme = uri.find("://");
    if (uri.empty() || uri.front() == '/' || scheme == std::string::npos)
        return uri;
    const std::size_t path = uri.find_first_of("/?", scheme + 3);
    if (path == std::string::npos)
        return "/";
    return (uri[path] == '?' ? "/" : "") + uri.substr(path);
}

// A GET request, decoded by the container.
class Get {
public:
    explicit Get(const std::string& uri)
        : m_uri("REQUEST_URI=" + uri),
          m_query("QUERY_STRING=" +
                  (uri.find('?') != std::string::npos ? uri.substr(uri.find('?') + 1) : "")),
          m_environment{m_method.data(), m_uri.data(), m_query.data(), nullptr},
          m_fastCgi(withEnvironment(m_environment.data())), m_response(&m_fastCgi),
          m_request(&m_fastCgi, nullptr, &m_response) {}

    HttpRequest& request() { return m_request; }

private:
    static FCGX_Request withEnvironment(char** environment) {
        FCGX_Request result{};
        result.envp = environment;
        return result;
    }

    std::string m_method = "REQUEST_METHOD=GET";
    std::string m_uri;
    std::string m_query;
    std::array<char*, 4> m_environment;
    FCGX_Request m_fastCgi;
    HttpResponseImpl m_response;
    HttpRequestImpl m_request; // its constructor decodes
};

class Explanation {
public:
    Explanation(const std::string& uri, const Configuration& configuration)
        : m_uri(uri), m_configuration(configuration), m_get(uri) {}

    std::string text() {
        m_text = printable(m_uri) + '\n';
        if (isForWebServer() || isRejected() || isRedirected())
            return m_text;
        const char* query = rules::queryOf(m_uri.c_str());
        const auto requested = rules::requestedStatus(query);
        line("status", requested ? "the device status becomes \"" +
                                       std::string(rules::statusWord(*requested)) + '"'
                                 : "the device status stays as it is");
        const rules::Event event = rules::eventOf(m_get.request(), query);
        const char* page = m_get.request().getParameter("p");
        addEvent(event);
        if (event.value == nullptr && page == nullptr) {
            line("result", "404: there is neither \"p\" nor an event; the container logs "
                           "\"ServletContext::doService() End. p parameter not found!\"");
            return m_text;
        }
        addListeners();
        if (event.value != nullptr)
            line("result", "what the listeners answer; an event reaches no servlet");
        else
            addPage(page, requested);
        return m_text;
    }

private:
    void line(const std::string& what, const std::string& text) {
        constexpr std::size_t kColumn = 11;
        m_text += "  " + what + std::string(kColumn - what.size(), ' ') + printable(text) + '\n';
    }

    std::string place(unsigned line) const {
        return " (" + m_configuration.file + ':' + std::to_string(line) + ')';
    }

    // The front servers' configurations pass on what begins with "/servlet" or "/cgi-bin/", and
    // redirect "/" to the sign-in page.
    bool isForWebServer() {
        const std::string path = m_uri.substr(0, m_uri.find('?'));
        if (path.size() <= 1 || path.compare(0, 8, "/servlet") == 0 ||
            path.compare(0, 9, "/cgi-bin/") == 0)
            return false;
        line("result", "the web server answers, not the container: " + answerOfWebServer(path));
        return true;
    }

    std::string answerOfWebServer(const std::string& path) const {
        std::string lowered = path;
        for (char& byte : lowered)
            byte = base::asciiLower(byte);
        if (lowered.find("/web-inf") != std::string::npos)
            return "403, since it serves nothing of WEB-INFO";
        if (path.find_first_of("%\\") != std::string::npos ||
            path.find("/.") != std::string::npos || path.find("//") != std::string::npos)
            return "with a file of the document root, or 404";
        const auto root = std::filesystem::path(m_configuration.file).parent_path() / "../..";
        const auto file = (root / path.substr(1)).lexically_normal();
        return std::filesystem::is_regular_file(file)
                   ? "with the file " + quoted(file.string())
                   : "404, since there is no file " + quoted(file.string());
    }

    bool isRejected() {
        HttpRequest& request = m_get.request();
        takeLastRecord();
        const char* part = rules::illegalPart(m_uri.c_str(), request);
        const std::string logged = takeLastRecord();
        if (part == nullptr) {
            line("screening", "passes");
            return false;
        }
        const char* value = request.getParameter(part);
        const std::string what = logged.empty() ? "the parameter " + quoted(part) + " is " +
                                                      quoted(value != nullptr ? value : "") +
                                                      ", nothing is logged"
                                                : "the container logs " + quoted(logged);
        line("screening",
             "rejects the " + std::string(logged.empty() ? "request" : part) + ": " + what);
        line("result", "404");
        return true;
    }

    bool isRedirected() {
        const char* location = rules::legacyRedirect(m_uri.c_str());
        if (location == nullptr)
            return false;
        line("result", "an address of the older interface: redirect to " + quoted(location));
        return true;
    }

    void addEvent(const rules::Event& event) {
        if (event.name == nullptr)
            return;
        if (event.value == nullptr)
            line("event", "none: the query begins with \"" + std::string(event.name) +
                              "\", but there is no such parameter");
        else
            line("event", '"' + std::string(event.name) + "\" for the listeners");
    }

    void addListeners() {
        if (m_configuration.listeners.empty())
            line("listeners", "none");
        for (const ListenerElement& listener : m_configuration.listeners)
            line("listener", listener.createFunction + place(listener.line));
        if (!m_configuration.listeners.empty())
            line("",
                 "each may answer the request itself, for example if the user is not signed in");
    }

    void addPage(const std::string& page, const std::optional<rules::DeviceStatus>& requested) {
        std::string words; // that the container answers itself
        std::string others;
        for (std::int32_t status = rules::DeviceStatus::Idle;
             status <= rules::DeviceStatus::Configuration; ++status) {
            if (requested && *requested != status)
                continue;
            std::string& list = rules::isAnsweredInternally(page.c_str(), status) ? words : others;
            list += (list.empty() ? "\"" : ", \"") + std::string(rules::statusWord(status)) + '"';
        }
        if (!words.empty())
            line("result", "while the status is " + words +
                               ": the container answers with that word, text/html");
        if (words.empty())
            addServlet("", page);
        else if (!others.empty())
            addServlet("while the status is " + others + ": ", page);
    }

    void addServlet(const std::string& when, const std::string& page) {
        const ServletElement* servlet = page.empty() ? nullptr : m_configuration.servlet(page);
        if (servlet == nullptr) {
            line("result", when + "there is no servlet " + quoted(page) +
                               ": unless a listener answers, " + kUnknownPageAnswer +
                               "; the container logs \"ServletContainer::onRequest End.404\"");
            return;
        }
        const ServletElement* preview = m_configuration.servlet("contacts-preview");
        if (preview != nullptr && preview != servlet)
            line("before", when +
                               "destroy() of servlet \"contacts-preview\" is called, so that it "
                               "frees its preview" +
                               place(preview->line));
        line("result", when + "servlet " + quoted(page) + ", " + servlet->createFunction +
                           place(servlet->line));
    }

    const std::string& m_uri;
    const Configuration& m_configuration;
    Get m_get;
    std::string m_text;
};

} // namespace

std::string explain(const std::string& url, const Configuration& configuration) {
    return Explanation(requestUriOf(url), configuration).text();
}
