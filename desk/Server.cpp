// The routes and their guard.  Tested in tests/desk/desk_test.py.
#include "desk/Server.h"

#include <sys/socket.h>

#include <charconv>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "common/Constants.h"
#include "common/Json.h"
#include "desk/Catalogue.h"
#include "desk/Refusal.h"

using httplib::Request;
using httplib::Response;
using qz::common::JsonText;

namespace qz::desk {

namespace {

constexpr const char* HOST = "127.0.0.1";
constexpr int PORT_ATTEMPTS = 100;
constexpr int LISTENER_LIMIT = 12;
constexpr int THREAD_COUNT = LISTENER_LIMIT + 6;  // a listener keeps its thread
constexpr std::chrono::seconds LISTENER_CHECK{2}; // how soon one that has gone away is noticed

const std::string JSON = "application/json";

void Answer(Response& response, int status, const std::string& reason) {
    response.status = status;
    response.set_content("{\"reason\":" + JsonText(reason) + "}", JSON);
}

int Number(const Request& request, const char* name) {
    const std::string text = request.get_param_value(name);
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (text.empty() || result.ec != std::errc() || result.ptr != end)
        throw Refusal{WRONG_REQUEST, std::string(name) + " must be a whole number"};
    return number;
}

bool Flag(const Request& request, const char* name) {
    return request.get_param_value(name) == "1";
}

} // namespace

Server::Server(Desk& desk, std::string page) : m_Desk(desk), m_Page(std::move(page)) {
    m_Http.new_task_queue = [] { return new httplib::ThreadPool(THREAD_COUNT); };
    m_Http.set_keep_alive_max_count(1);
    m_Http.set_payload_max_length(Uploads::SIZE_LIMIT);
    // Not the default, which lets two servers have one port.
    m_Http.set_socket_options([](socket_t socket) {
        const int on = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    m_Http.set_default_headers(
        {{"Cache-Control", "no-store"},
         {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                                     "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
         {"Cross-Origin-Resource-Policy", "same-origin"},
         {"Referrer-Policy", "no-referrer"},
         {"X-Content-Type-Options", "nosniff"}});
    Guard();
    ServePage();
    ServePictures();
    ServeEvents();
    ServeActions();
}

bool Server::IsForeign(const Request& request) const {
    const std::string port = ":" + std::to_string(m_Port);
    const std::string host = request.get_header_value("Host");
    const std::string origin = request.get_header_value("Origin"); // a browser names it with every POST
    const bool ours = host == HOST + port || host == "localhost" + port;
    // Several of a header could be read in several ways.
    const bool twice = request.get_header_value_count("Host") != 1 || request.get_header_value_count("Origin") > 1;
    return !ours || twice || (request.has_header("Origin") && origin != "http://" + host);
}

void Server::Guard() {
    m_Http.set_pre_routing_handler([this](const Request& request, Response& response) {
        if (IsForeign(request))
            Answer(response, FOREIGN, "this request comes from another page, or is meant for another host");
        else if (request.method == "POST" && (!request.has_header("Content-Length") ||
                                              request.has_header("Transfer-Encoding"))) // a size without a limit
            Answer(response, WRONG_REQUEST, "the size must be given beforehand");
        else
            return httplib::Server::HandlerResponse::Unhandled;
        return httplib::Server::HandlerResponse::Handled;
    });
    m_Http.set_error_handler([](const Request&, Response& response) {
        if (response.body.empty())
            Answer(response, response.status,
                   response.status == TOO_LARGE ? "this is too large" : "there is no such page");
    });
}

void Server::ServePage() {
    // The only files of the page, by these names alone; read each time, so that an edited one shows with a reload.
    const struct {
        const char* path;
        const char* file;
        const char* type;
    } files[] = {{"/", "/index.html", "text/html; charset=utf-8"},
                 {"/desk.css", "/desk.css", "text/css; charset=utf-8"},
                 {"/desk.js", "/desk.js", "text/javascript; charset=utf-8"}};
    for (const auto& file : files) {
        m_Http.Get(file.path, [path = m_Page + file.file, type = file.type](const Request&, Response& response) {
            response.set_content(ReadFile(path), type);
        });
    }
    m_Http.Get("/catalogue", [](const Request&, Response& response) { response.set_content(CatalogueJson(), JSON); });
}

void Server::ServePictures() {
    const struct {
        const char* route;
        std::string path;
    } pictures[] = {{"/picture/live", qz::common::LIVEVIEW_PATH}, {"/picture/snapshot", qz::common::MD_CAPTURE_PATH}};
    for (const auto& picture : pictures) {
        m_Http.Get(picture.route, [path = picture.path](const Request&, Response& response) {
            const std::string bytes = ReadFile(path);
            if (bytes.empty())
                Answer(response, 404, "there is no picture yet");
            else
                response.set_content(bytes, MediaType(bytes));
        });
    }
}

void Server::ServeEvents() {
    m_Http.Get("/events", [this](const Request&, Response& response) {
        if (++m_Listeners > LISTENER_LIMIT) {
            --m_Listeners;
            Answer(response, BUSY, "the desk is open in too many windows");
            return;
        }
        // Each stream tells everything, so the page begins anew.
        auto greeting =
            std::make_shared<std::string>("retry: 1000\nevent: hello\ndata: " + std::to_string(Now()) + "\n\n");
        auto position = std::make_shared<Events::Position>();
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, greeting, position](size_t, httplib::DataSink& sink) {
                std::string text = std::exchange(*greeting, "");
                if (text.empty()) {
                    const auto news = m_Desk.TheEvents().After(*position, LISTENER_CHECK);
                    if (!news || !sink.is_writable())
                        return false;
                    text = news->empty() ? ": still here\n\n" : *news;
                }
                return sink.write(text.data(), text.size());
            },
            [this](bool) { --m_Listeners; });
    });
}

void Server::OnPost(const std::string& path, const Action& action) {
    m_Http.Post(path, [action](const Request& request, Response& response) {
        try {
            action(request);
            response.set_content("{}", JSON);
        } catch (const Refusal& refusal) {
            Answer(response, refusal.status, refusal.reason);
        }
    });
}

void Server::ServeActions() {
    const auto text = [](const Request& request, const char* name) { return request.get_param_value(name); };
    OnPost("/start", [this](const Request& request) {
        const bool turned = !request.get_param_value("rotation").empty();
        m_Desk.Start(Flag(request, "debug"), turned ? std::optional<int>(Number(request, "rotation")) : std::nullopt);
    });
    OnPost("/snapshot", [this](const Request&) { m_Desk.Snapshot(); });
    OnPost("/rotate", [this](const Request& request) { m_Desk.Rotate(Number(request, "mode")); });
    OnPost("/end", [this](const Request&) { m_Desk.End(); });
    OnPost("/keep", [this](const Request& request) { m_Desk.KeepAlive(Flag(request, "on")); });
    OnPost("/signal", [this, text](const Request& request) { m_Desk.Signal(text(request, "name")); });

    Board& board = m_Desk.TheBoard();
    OnPost("/board/event",
           [&board, text](const Request& request) { board.Event(text(request, "channel"), Number(request, "code")); });
    OnPost("/board/state", [&board](const Request& request) { board.State(Number(request, "code")); });
    OnPost("/board/log",
           [&board, text](const Request& request) { board.Log(Number(request, "level"), text(request, "text")); });
    OnPost("/board/fail",
           [&board, text](const Request& request) { board.Fail(text(request, "function"), Number(request, "times")); });
    OnPost("/board/hang", [&board, text](const Request& request) { board.Hang(text(request, "function")); });
    OnPost("/board/capture", [&board, text](const Request& request) {
        const std::string mode = text(request, "mode");
        board.Spoil(mode, mode == "slow" || mode == "truncate" ? Number(request, "amount") : 0);
    });
    OnPost("/board/picture",
           [this](const Request& request) { m_Desk.ShowPicture(request.body, Flag(request, "begin")); });
    OnPost("/board/card", [this](const Request&) { m_Desk.ShowTestCard(); });
}

int Server::Bind(int port) {
    for (int candidate = port; candidate < port + PORT_ATTEMPTS && candidate <= 65535; ++candidate) {
        if (m_Http.bind_to_port(HOST, candidate))
            return m_Port = candidate;
    }
    return 0;
}

void Server::Serve() {
    m_Http.listen_after_bind();
    m_Over = true;
}

void Server::Stop() {
    m_Desk.TheEvents().Close();             // the listeners would be waited for
    while (!m_Http.is_running() && !m_Over) // not yet
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_Http.stop();
}

} // namespace qz::desk
