// The served bus: one bus of the bus library (a sim: address) shared with every client that
// connects over TCP. Answers go to the client that sent the record, events to every client, and
// the bus lock is held by one client at a time and released when that client disconnects.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "ryn/oxb.h"

namespace ryn::serve {

struct Options {
    std::string host = "127.0.0.1"; // the address to listen on
    uint16_t port = 7500;           // 0: any free port
    std::string bus = "sim:";       // the served bus's address
    std::string token;              // empty: clients need none
    int max_clients = 16;
    int hello_ms = 5000;         // how long a new connection may take to say hello
    bool handle_signals = false; // SIGINT and SIGTERM stop the server
    // One line of the log (connections, refusals, closings), without its newline; called on the
    // thread that runs the server.
    std::function<void(const std::string &)> log;
};

class Server {
  public:
    // Opens the bus and starts listening. Returns 0, or an OXB code (the bus address) or
    // OXB_ELOST (the address to listen on) with a message.
    static int create(const Options &options, std::unique_ptr<Server> *out, std::string *message);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // The port listened on (the one chosen for port 0).
    uint16_t port() const;
    // The served bus, for the simulator control of tests.
    OXB_BUS *bus() const;
    // Serves until stop() or a signal; on the calling thread.
    void run();
    // Breaks every client's connection, as a failing network would, and returns when they are
    // closed; the server goes on serving. Any thread but the server's, while run() runs.
    void disconnect_clients();
    // Ends run(): closes every connection and the listener. Any thread, any number of times.
    void stop();

    struct State;

  private:
    explicit Server(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace ryn::serve
