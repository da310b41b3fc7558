// The web subcommand: `ryn web` serves the commissioning page and its JSON API over HTTP (see
// docs/web.md). The HTTP side lives here; what it asks of the drives is in web_hub.cpp.
#include <CLI/CLI.hpp>
#include <csignal>
#include <httplib.h>
#include <memory>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

#include "common.hpp"
#include "frames.hpp"
#include "online.hpp"
#include "output.hpp"
#include "web_assets.hpp"
#include "web_hub.hpp"

extern char **environ;

namespace ryn::cli {

namespace {

using web::Failure;
using web::Hub;
using web::Json;

struct WebOptions {
    std::string bus = "sim:";
    std::string listen = "127.0.0.1:8080";
    std::string token; // TEXT or @FILE
    bool open = false;
};

// Largest request body: a parameter file of every drive fits many times over.
constexpr size_t MAX_BODY = 8u << 20;
// Handler threads: each open connection holds one while it is served, a scope stream for as long
// as it runs, so that a stalled client holds up no one but itself.
constexpr size_t THREADS = 64;
constexpr int SESSIONS = 8;

const char *const COOKIE = "ryn_token";

// Equal texts, compared in a time that depends on their lengths only, not on where they differ.
bool same_secret(const std::string &a, const std::string &b) {
    const size_t n = std::max(a.size(), b.size());
    unsigned diff = a.size() == b.size() ? 0u : 1u;
    for (size_t i = 0; i < n; ++i) {
        const unsigned char x = i < a.size() ? static_cast<unsigned char>(a[i]) : 0;
        const unsigned char y = i < b.size() ? static_cast<unsigned char>(b[i]) : 0;
        diff |= unsigned(x ^ y);
    }
    return diff == 0;
}

bool is_loopback(const std::string &host) {
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

// The value of one cookie of a request, or "".
std::string cookie(const httplib::Request &req, const std::string &name) {
    const std::string header = req.get_header_value("Cookie");
    size_t at = 0;
    while (at < header.size()) {
        while (at < header.size() && (header[at] == ' ' || header[at] == ';'))
            ++at;
        const size_t end = std::min(header.find(';', at), header.size());
        const std::string pair = header.substr(at, end - at);
        const size_t eq = pair.find('=');
        if (eq != std::string::npos && pair.substr(0, eq) == name) return pair.substr(eq + 1);
        at = end;
    }
    return {};
}

void reply(httplib::Response &res, int status, const Json &body) {
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
                    "application/json");
}

void fail(httplib::Response &res, int status, const std::string &message) {
    reply(res, status, {{"error", message}});
}

// A request's JSON body as an object; false after answering 400 or 415.
bool body_json(const httplib::Request &req, httplib::Response &res, Json *out) {
    if (req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
        fail(res, 415, "the body must be JSON (Content-Type: application/json)");
        return false;
    }
    *out = Json::parse(req.body, nullptr, false);
    if (out->is_discarded() || !out->is_object()) {
        fail(res, 400, "the body is not a JSON object");
        return false;
    }
    return true;
}

// A member of a JSON body of the expected kind; false after answering 400.
template <typename T>
bool member(const Json &body, const char *name, T *value, httplib::Response &res,
            bool required = true) {
    const auto found = body.find(name);
    if (found == body.end()) {
        if (required) fail(res, 400, format("the body lacks \"%s\"", name));
        return !required;
    }
    try {
        *value = found->get<T>();
        return true;
    } catch (const nlohmann::json::exception &) {
        fail(res, 400, format("\"%s\" has the wrong type", name));
        return false;
    }
}

// An integer query parameter within lo .. hi (`fallback` when absent); false after answering 400.
bool query_int(const httplib::Request &req, const char *name, int lo, int hi, int fallback,
               int *value, httplib::Response &res) {
    if (!req.has_param(name)) {
        *value = fallback;
        return true;
    }
    uint64_t n = 0;
    if (!parse_number(req.get_param_value(name), n) || n < uint64_t(lo) || n > uint64_t(hi)) {
        fail(res, 400, format("parameter '%s' must be a number %d .. %d", name, lo, hi));
        return false;
    }
    *value = int(n);
    return true;
}

const char LOGIN[] = R"(<!doctype html><html lang="en"><head><meta charset="utf-8">
<title>ryn web: sign in</title><link rel="stylesheet" href="/style.css"></head>
<body class="login"><form method="post" action="/login"><h1>ryn web</h1>
<p>This server needs its token.</p><input id="token" name="token" type="password"
autocomplete="current-password" placeholder="token" autofocus>
<button id="signin" type="submit">Sign in</button></form></body></html>)";

class WebServer {
  public:
    WebServer(Hub &hub, std::string token, bool loopback)
        : hub_(hub), token_(std::move(token)), loopback_(loopback) {
        for (unsigned char c : token_)
            cookie_value_ += format("%02x", c); // any token as a cookie value
    }
    httplib::Server &http() { return http_; }
    void setup();

  private:
    bool authorized(const httplib::Request &req) const;
    bool same_origin(const httplib::Request &req) const;
    void routes();
    void job_routes();
    void scope_route();

    Hub &hub_;
    std::string token_;
    std::string cookie_value_;
    bool loopback_;
    httplib::Server http_;
};

bool WebServer::authorized(const httplib::Request &req) const {
    if (token_.empty()) return true;
    const std::string auth = req.get_header_value("Authorization");
    if (auth.rfind("Bearer ", 0) == 0) return same_secret(auth.substr(7), token_);
    const std::string c = cookie(req, COOKIE);
    return !c.empty() && same_secret(c, cookie_value_);
}

// A browser sends Origin with every POST: it must be this server. Scripts send none; their
// requests carry JSON, which no page of another site can send here without asking first.
bool WebServer::same_origin(const httplib::Request &req) const {
    if (!req.has_header("Origin")) return true;
    return req.get_header_value("Origin") == "http://" + req.get_header_value("Host");
}

void WebServer::setup() {
    http_.new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
    http_.set_payload_max_length(MAX_BODY);
    http_.set_read_timeout(5, 0);
    http_.set_write_timeout(5, 0);
    http_.set_keep_alive_timeout(2);
    http_.set_pre_routing_handler([this](const httplib::Request &req, httplib::Response &res) {
        // Without a token only loopback is served: a page of another site reaching this server
        // through a name of its own (DNS rebinding) is turned away by the Host it sends.
        if (loopback_) {
            std::string host = req.get_header_value("Host");
            host = host.substr(0, host.rfind(':') == std::string::npos || host.back() == ']'
                                      ? host.size()
                                      : host.rfind(':'));
            if (!host.empty() && host.front() == '[') host = host.substr(1, host.size() - 2);
            if (!is_loopback(host)) {
                fail(res, 403,
                     "this server answers loopback names only (start it with --token "
                     "to serve other hosts)");
                return httplib::Server::HandlerResponse::Handled;
            }
        }
        if (req.method == "POST" && !same_origin(req)) {
            fail(res, 403, "cross-site request refused");
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.method == "POST" && req.path == "/login")
            return httplib::Server::HandlerResponse::Unhandled;
        if (!authorized(req)) {
            res.status = 401;
            if (req.path.rfind("/api/", 0) == 0) {
                res.set_header("WWW-Authenticate", "Bearer");
                fail(res, 401, "this server needs its token (Authorization: Bearer TOKEN)");
            } else if (req.path == "/style.css") {
                res.status = 200; // the sign-in form's look holds nothing to protect
                return httplib::Server::HandlerResponse::Unhandled;
            } else {
                res.set_content(LOGIN, "text/html; charset=utf-8");
            }
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    http_.set_error_handler([](const httplib::Request &req, httplib::Response &res) {
        if (!res.body.empty()) return;
        if (res.status == 404)
            fail(res, 404, "unknown path " + req.path);
        else if (res.status == 413)
            fail(res, 413, format("the body is larger than %zu bytes", MAX_BODY));
        else
            fail(res, res.status, format("request refused (HTTP %d)", res.status));
    });
    http_.set_exception_handler(
        [](const httplib::Request &, httplib::Response &res, std::exception_ptr) {
            fail(res, 500, "the server failed on this request");
        });
    routes();
    job_routes();
    scope_route();
}

void WebServer::routes() {
    for (unsigned i = 0; i < web::asset_count; ++i) {
        const web::Asset &a = web::assets[i];
        auto serve = [a](const httplib::Request &, httplib::Response &res) {
            res.set_content(reinterpret_cast<const char *>(a.data), a.size, a.type);
        };
        http_.Get(a.path, serve);
        if (std::string(a.path) == "/index.html") http_.Get("/", serve);
    }
    http_.Post("/login", [this](const httplib::Request &req, httplib::Response &res) {
        const std::string given = req.get_param_value("token");
        if (token_.empty() || !same_secret(given, token_)) {
            res.status = 401;
            res.set_content(LOGIN, "text/html; charset=utf-8");
            return;
        }
        res.set_header("Set-Cookie", std::string(COOKIE) + "=" + cookie_value_ +
                                         "; Path=/; HttpOnly; SameSite=Strict");
        res.set_redirect("/", 303);
    });
    http_.Get("/api/drives", [this](const httplib::Request &, httplib::Response &res) {
        reply(res, 200, hub_.drives());
    });
    http_.Get("/api/registers", [this](const httplib::Request &req, httplib::Response &res) {
        int axis = 0, offset = 0, limit = 0;
        if (!query_int(req, "axis", 0, 63, 0, &axis, res) ||
            !query_int(req, "offset", 0, 1 << 20, 0, &offset, res) ||
            !query_int(req, "limit", 1, 500, 100, &limit, res))
            return;
        Json out;
        const bool values = req.get_param_value("values") != "0";
        if (Failure f = hub_.registers(axis, req.get_param_value("q"), offset, limit, values, &out))
            return fail(res, f.status, f.message);
        reply(res, 200, out);
    });
    http_.Get("/api/names", [this](const httplib::Request &req, httplib::Response &res) {
        int axis = 0;
        if (!query_int(req, "axis", 0, 63, 0, &axis, res)) return;
        Json out;
        if (Failure f = hub_.names(axis, &out)) return fail(res, f.status, f.message);
        reply(res, 200, out);
    });
    http_.Post("/api/send", [this](const httplib::Request &req, httplib::Response &res) {
        Json body;
        std::string line;
        int axis = -1;
        if (!body_json(req, res, &body) || !member(body, "line", &line, res) ||
            !member(body, "axis", &axis, res, false))
            return;
        if (line.size() > 4000 || line.find_first_of("\r\n") != std::string::npos)
            return fail(res, 400, "a line is one line of at most 4000 characters");
        reply(res, 200, hub_.send(line, axis));
    });
    for (const char *what : {"attach", "detach"})
        http_.Post(std::string("/api/sim/") + what,
                   [this, what](const httplib::Request &req, httplib::Response &res) {
                       Json body;
                       int axis = 0;
                       if (!body_json(req, res, &body) || !member(body, "axis", &axis, res)) return;
                       if (Failure f = hub_.simulate(axis, what[0] == 'a'))
                           return fail(res, f.status, f.message);
                       reply(res, 200, {{"axis", axis}, {what, true}});
                   });
    // Requests that change something are POSTs; a GET of them says so.
    http_.Get(R"(/api/(send|backup|restore|diff|sim/attach|sim/detach))",
              [](const httplib::Request &req, httplib::Response &res) {
                  fail(res, 405, req.path + " takes POST");
              });
}

void WebServer::job_routes() {
    auto job_json = [](const web::Job &job) {
        Json j = {{"id", job.id},
                  {"kind", job.kind},
                  {"progress", job.progress.load()},
                  {"done", job.done.load()}};
        if (job.done) j["result"] = job.result;
        return j;
    };
    http_.Post("/api/backup",
               [this, job_json](const httplib::Request &req, httplib::Response &res) {
                   Json body;
                   std::string axes;
                   if (!body_json(req, res, &body) || !member(body, "axes", &axes, res, false))
                       return;
                   std::shared_ptr<web::Job> job;
                   if (Failure f = hub_.start_backup(axes, &job))
                       return fail(res, f.status, f.message);
                   reply(res, 202, job_json(*job));
               });
    http_.Post("/api/restore",
               [this, job_json](const httplib::Request &req, httplib::Response &res) {
                   Json body;
                   std::string text;
                   bool dry_run = false, force = false;
                   if (!body_json(req, res, &body) || !member(body, "text", &text, res) ||
                       !member(body, "dry_run", &dry_run, res, false) ||
                       !member(body, "force", &force, res, false))
                       return;
                   std::shared_ptr<web::Job> job;
                   if (Failure f = hub_.start_restore(text, dry_run, force, &job))
                       return fail(res, f.status, f.message);
                   reply(res, 202, job_json(*job));
               });
    http_.Post("/api/diff", [this](const httplib::Request &req, httplib::Response &res) {
        Json body, out;
        std::string text;
        if (!body_json(req, res, &body) || !member(body, "text", &text, res)) return;
        if (Failure f = hub_.diff(text, &out)) return fail(res, f.status, f.message);
        reply(res, 200, out);
    });
    http_.Get(R"(/api/jobs/(\d{1,9}))",
              [this, job_json](const httplib::Request &req, httplib::Response &res) {
                  const auto job = hub_.job(std::stoi(req.matches[1]));
                  if (!job) return fail(res, 404, "no such job");
                  reply(res, 200, job_json(*job));
              });
    http_.Get(R"(/api/jobs/(\d{1,9})/file)",
              [this](const httplib::Request &req, httplib::Response &res) {
                  const auto job = hub_.job(std::stoi(req.matches[1]));
                  if (!job || job->kind != "backup") return fail(res, 404, "no such backup");
                  if (!job->done) return fail(res, 409, "the backup is still running");
                  if (job->code != 0)
                      return fail(res, 409, "the backup failed: " + job->result.dump());
                  res.set_header("Content-Disposition", "attachment; filename=\"ryn-backup.txt\"");
                  res.set_header("Cache-Control", "no-store");
                  res.set_content(job->file, "text/plain; charset=utf-8");
              });
}

// GET /api/scope?channels=M7.0,K1.0&period_ms=10: server-sent events, one "samples" event with
// the samples of about every 50 ms.
void WebServer::scope_route() {
    http_.Get("/api/scope", [this](const httplib::Request &req, httplib::Response &res) {
        int period = 0;
        if (!query_int(req, "period_ms", 1, 10000, 10, &period, res)) return;
        std::vector<std::string> channels;
        std::stringstream list(req.get_param_value("channels"));
        for (std::string c; std::getline(list, c, ',');)
            if (!c.empty()) channels.push_back(c);
        std::unique_ptr<web::Scope> made;
        if (Failure f = hub_.scope(channels, period, &made)) return fail(res, f.status, f.message);
        std::shared_ptr<web::Scope> scope(std::move(made));
        res.set_header("Cache-Control", "no-store");
        res.set_chunked_content_provider(
            "text/event-stream", [this, scope](size_t, httplib::DataSink &sink) {
                if (hub_.stopping()) {
                    sink.done();
                    return true;
                }
                const Json batch = scope->take(1000);
                const std::string event = batch["samples"].empty()
                                              ? std::string(": idle\n\n")
                                              : "event: samples\ndata: " + batch.dump() + "\n\n";
                return sink.write(event.data(), event.size());
            });
    });
}

// The address to open in a browser.
std::string page_url(const std::string &host, int port) {
    const std::string shown = host == "0.0.0.0"               ? "127.0.0.1"
                              : host == "::" || host == "::0" ? "::1"
                                                              : host;
    return "http://" + (shown.find(':') != std::string::npos ? "[" + shown + "]" : shown) +
           format(":%d/", port);
}

void open_browser(const std::string &url) {
    const char *argv[] = {"xdg-open", url.c_str(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, const_cast<char **>(argv), environ) != 0) {
        err() << "ryn web: cannot start a browser (xdg-open); open " << url << " yourself\n";
        err().flush();
    }
}

int serve(const WebOptions &o) {
    std::string host, why, token;
    uint16_t port = 0;
    if (!serve::parse_listen(o.listen, &host, &port, &why)) {
        err() << "ryn web: --listen " << why << '\n';
        return exit_usage;
    }
    if (!read_token(o.token, &token, &why)) {
        err() << "ryn web: --token: " << why << '\n';
        return exit_usage;
    }
    const bool loopback = is_loopback(host);
    if (token.empty() && !loopback) {
        err() << "ryn web: --listen " << o.listen
              << ": serving other hosts than this one needs --token\n";
        return exit_usage;
    }
    // The signals end the server from a thread of their own, so block them in every thread.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    std::unique_ptr<Hub> hub;
    if (Hub::open(o.bus, SESSIONS, &hub, &why) != 0) {
        err() << "ryn web: " << why << '\n';
        return exit_usage;
    }
    WebServer server(*hub, token, token.empty());
    server.setup();
    httplib::Server &http = server.http();
    const int bound = port == 0                       ? http.bind_to_any_port(host)
                      : http.bind_to_port(host, port) ? port
                                                      : -1;
    if (bound <= 0) {
        err() << "ryn web: cannot listen on " << o.listen << '\n';
        return exit_usage;
    }
    const std::string url = page_url(host, bound);
    out() << "ryn web: serving bus " << o.bus << " on " << url << '\n';
    out().flush();
    if (o.open) open_browser(url);

    std::atomic<bool> signalled{false};
    std::thread waiter([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        signalled = true;
        hub->stop();
        http.stop();
    });
    http.listen_after_bind();
    if (!signalled) pthread_kill(waiter.native_handle(), SIGTERM); // listening failed
    waiter.join();
    return exit_ok;
}

} // namespace

void add_web(CLI::App &app, int &exit_code) {
    auto o = std::make_shared<WebOptions>();
    CLI::App *w = app.add_subcommand("web", "Serve the commissioning page to a browser");
    add_bus_option(*w, o->bus);
    w->add_option("--listen", o->listen, "ADDR:PORT to listen on; port 0 picks a free one")
        ->capture_default_str();
    w->add_option("--token", o->token,
                  "TEXT or @FILE: every request must give it (needed to serve other hosts)");
    w->add_flag("--open", o->open, "Open the page in the desktop's browser");
    w->footer("The address to open goes to standard output. Without --token only loopback\n"
              "addresses are served. SIGINT or SIGTERM stops the server. The API: docs/web.md.\n"
              "Examples:\n  ryn web\n  ryn web --listen 127.0.0.1:0 --bus "
              "'sim:axes=0-3'\n  ryn web --listen 0.0.0.0:8080 --token @token.txt");
    w->callback([&exit_code, o] { exit_code = serve(*o); });
}

} // namespace ryn::cli
