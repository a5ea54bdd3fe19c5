#pragma once

#include <atomic>
#include <functional>
#include <string>

#include <httplib.h>

#include "desk/Desk.h"

namespace qz::desk {

// Serves the page and carries out what is pressed on it, on 127.0.0.1 alone.
//
// The browser that shows the page also shows pages of others, and whatever they are made to send must not press a
// button: a request is refused when it is addressed to another host than this one (a foreign name that was made to mean
// 127.0.0.1) or comes from another page.  A connection serves one request, so that nothing in the body of a refused one
// can be taken for a second.
//
// Threads: main; requests are served on threads of its own.
class Server {
public:
    Server(Desk& desk, std::string page); // page: the folder with its files

    // Takes the port, or the next one that is free, and returns it; 0 when there is none.
    int Bind(int port);

    // Serves until Stop, which any thread may call.
    void Serve();
    void Stop();

private:
    using Action = std::function<void(const httplib::Request&)>;

    bool IsForeign(const httplib::Request& request) const;
    void Guard();
    void ServePage();
    void ServePictures();
    void ServeEvents();
    void ServeActions();
    void OnPost(const std::string& path, const Action& action);

    Desk& m_Desk;
    const std::string m_Page;
    httplib::Server m_Http;
    int m_Port = 0;
    std::atomic<int> m_Listeners{0}; // of events
    std::atomic<bool> m_Over{false};
};

} // namespace qz::desk
