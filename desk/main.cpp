// The desk: a page on which the appliance can be seen and pressed.  Runs on a private appliance (scripts/desk.sh).
#include <signal.h>

#include <iostream>
#include <string>
#include <thread>

#include <CLI/CLI.hpp>

#include "desk/Desk.h"
#include "desk/Refusal.h"
#include "desk/Server.h"

int main(int argc, char** argv) {
    int port = 8080;
    std::string page;
    std::string folder;
    CLI::App options("Shows the appliance with the simulated board on a page at 127.0.0.1");
    options.add_option("--port", port, "The page's port, or the next one that is free")->check(CLI::Range(1, 65535));
    options.add_option("--page", page, "The folder with the page's files")->required()->check(CLI::ExistingDirectory);
    options.add_option("FOLDER", folder, "For the desk's own files; empty")->required()->check(CLI::ExistingDirectory);
    CLI11_PARSE(options, argc, argv);

    // For sigwait below; every thread inherits it.
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&ends, signal);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    signal(SIGPIPE, SIG_IGN); // browsers and daemons may go away at any time

    qz::desk::Desk desk(folder);
    qz::desk::Server server(desk, page);
    try {
        desk.KeepAlive(true); // until somebody looks
        desk.Start(true, 0);
    } catch (const qz::desk::Refusal& refusal) {
        std::cerr << "desk: " << refusal.reason << std::endl;
        return 1;
    }
    const int taken = server.Bind(port);
    if (taken == 0) {
        std::cerr << "desk: no port from " << port << " on is free" << std::endl;
        return 1;
    }
    std::thread serving([&server] { server.Serve(); });
    std::cout << "desk: http://127.0.0.1:" << taken << "/    Ctrl-C ends it" << std::endl;
    int received = 0;
    sigwait(&ends, &received);
    server.Stop();
    serving.join();
    return 0;
}
