// The sim subcommands: `ryn sim serve` serves a simulated bus to clients over TCP (tcp:// addresses
// of the bus library) until SIGINT or SIGTERM.
#include <CLI/CLI.hpp>
#include <memory>
#include <sstream>
#include <string>

#include "common.hpp"
#include "frames.hpp"
#include "output.hpp"
#include "server.hpp"

namespace ryn::cli {

namespace {

struct ServeOptions {
    std::string listen = "127.0.0.1:7500";
    std::string bus = "sim:";
    std::string token; // TEXT, or @FILE
    int max_clients = 16;
};

int serve(const ServeOptions &o) {
    serve::Options options;
    std::string why;
    if (!serve::parse_listen(o.listen, &options.host, &options.port, &why)) {
        err() << "ryn sim serve: --listen " << why << '\n';
        return exit_usage;
    }
    if (!read_token(o.token, &options.token, &why)) {
        err() << "ryn sim serve: --token: " << why << '\n';
        return exit_usage;
    }
    if (options.token.size() > wire::NET_MAX_TOKEN) {
        err() << "ryn sim serve: --token: a token has at most " << wire::NET_MAX_TOKEN
              << " bytes\n";
        return exit_usage;
    }
    options.bus = o.bus;
    options.max_clients = o.max_clients;
    options.handle_signals = true;
    options.log = [](const std::string &line) {
        err() << "ryn sim serve: " << line << '\n';
        err().flush();
    };
    std::unique_ptr<serve::Server> server;
    const int rc = serve::Server::create(options, &server, &why);
    if (rc != 0) {
        err() << "ryn sim serve: " << why << '\n';
        return rc == OXB_ELOST ? exit_failure : exit_usage;
    }
    const std::string host =
        options.host.find(':') != std::string::npos ? "[" + options.host + "]" : options.host;
    out() << "listening on " << host << ':' << static_cast<unsigned>(server->port()) << '\n';
    out().flush();
    server->run();
    return exit_ok;
}

} // namespace

void add_sim(CLI::App &app, int &exit_code) {
    CLI::App *sim = app.add_subcommand("sim", "Simulated drives");
    sim->require_subcommand(1);

    auto o = std::make_shared<ServeOptions>();
    CLI::App *s = sim->add_subcommand("serve", "Serve a simulated bus to tcp:// clients");
    s->add_option("--listen", o->listen, "ADDR:PORT to listen on; port 0 picks a free one")
        ->capture_default_str();
    s->add_option("--bus", o->bus, "The sim: address of the served bus")->capture_default_str();
    s->add_option("--token", o->token,
                  "TEXT or @FILE: clients must give this token (tcp://...?token= or RYN_TOKEN)");
    s->add_option("--max-clients", o->max_clients, "Most clients at once; more are refused")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    s->footer("The listening address goes to standard output, the log of connections to standard\n"
              "error. SIGINT or SIGTERM stops the server.\n"
              "Examples:\n  ryn sim serve\n  ryn sim serve --listen 127.0.0.1:0 --bus "
              "'sim:axes=0-3;latency_us=200'\n  ryn sim serve --token @token.txt --max-clients 4");
    s->callback([&exit_code, o] { exit_code = serve(*o); });
}

} // namespace ryn::cli
