// "vqglob serve": the deployment daemon. It listens on the configured
// address, with TLS and client certificates checked against "Allowed
// Clients" when a "Certificate File" is configured (plain mode otherwise,
// only on a loopback address with "Insecure Loopback"), serves each connection on a thread of its own (at most "Max
// Clients" at once; past that a connection gets a refusal), reloads its
// configuration on SIGHUP and stops on SIGTERM or SIGINT, breaking the
// connections that are still open so that their transfers are abandoned and
// their temporary files removed.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "files.h"
#include "log.h"
#include "releases.h"
#include "session.h"
#include "settings.h"
#include "tls.h"
#include "tool.h"
#include "vq_glob/cconf.h"
#include "vq_glob/err.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"

namespace vqglob {
namespace {

volatile std::sig_atomic_t stop_requested = 0;
volatile std::sig_atomic_t reload_requested = 0;

extern "C" void on_stop_signal(int) { stop_requested = 1; }
#ifdef SIGHUP
extern "C" void on_reload_signal(int) { reload_requested = 1; }
#endif

// Connections refused for want of room still get their answer; beyond this
// many at once they are closed without one.
constexpr int kMaxRefusals = 8;
// A connection silent for this long is dropped.
constexpr int32_t kIdleSeconds = 600;
// How often the accept loop looks at the signal flags.
constexpr int32_t kPollMilliseconds = 200;

void install_signal_handlers() {
    std::signal(SIGTERM, on_stop_signal);
    std::signal(SIGINT, on_stop_signal);
#ifdef SIGHUP
    std::signal(SIGHUP, on_reload_signal);
#endif
}

std::string dotted(uint32_t network_order) {
    const auto *b = reinterpret_cast<const unsigned char *>(&network_order);
    return std::to_string(b[0]) + "." + std::to_string(b[1]) + "." + std::to_string(b[2]) + "." + std::to_string(b[3]);
}

struct Connection {
    std::thread thread;
    void *net = nullptr;  // NULL once the thread has freed it
    bool refusal = false;
    bool done = false;
};

class Daemon {
public:
    explicit Daemon(std::string config_file) : config_file_(std::move(config_file)) {}
    ~Daemon() { free_tls(&tls_); }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    int run();

private:
    bool start();
    void accept_connection();
    void reap(bool wait_all);
    void stop_connections();
    void reload();
    bool speaks_tls(Connection *c, const Settings &current, const std::string &peer);
    void serve(Connection *c, std::shared_ptr<const Settings> current, const std::string &peer,
               std::string reason);
    std::shared_ptr<const Settings> settings();

    std::string config_file_;
    std::mutex mutex_;
    std::list<std::unique_ptr<Connection>> connections_;
    int serving_ = 0;
    int refusing_ = 0;
    std::shared_ptr<const Settings> settings_;
    void *listener_ = nullptr;
    void *tls_ = nullptr;  // the server context; NULL in plain mode
};

std::shared_ptr<const Settings> Daemon::settings() {
    std::lock_guard<std::mutex> lock(mutex_);
    return settings_;
}

bool Daemon::start() {
    Settings s;
    if (!load_settings(config_file_, s)) {
        return false;
    }
    if (!s.certificate_file.empty() && !make_server_tls(s, &tls_)) {
        return false;
    }
    if (tls_ == nullptr && (!s.insecure_loopback || !is_loopback(s.listen_address))) {
        err_set_error(ERR_GEN_GENERAL,
                      "without a \"Certificate File\" (TLS) serve needs \"Insecure Loopback\"=TRUE and a loopback "
                      "\"Listen Address\" (plain mode)");
        return false;
    }
    std::string tmp = join_path(s.target_root, kTempDirName);
    if (!remove_path(tmp) || gf_make_path(tmp.c_str()) != 1 || !log_open(s.log_file)) {
        return false;
    }
    uint16_t port = 0;
    if (sl_net_allocate_handle(SL_NET_TCP, &listener_) != 1 ||
        sl_net_bind(listener_, s.listen_address.c_str(), static_cast<uint16_t>(s.port)) != 1 ||
        sl_net_listen(listener_, 64) != 1 || sl_net_get_local_port(listener_, &port) != 1) {
        return false;
    }
    settings_ = std::make_shared<const Settings>(std::move(s));
    std::printf("listening on %s:%u\n", settings_->listen_address.c_str(), static_cast<unsigned>(port));
    std::fflush(stdout);
    log_line("serving " + settings_->target_root + " on " + settings_->listen_address + ":" + std::to_string(port));
    return true;
}

void Daemon::accept_connection() {
    void *net = nullptr;
    if (sl_net_accept(listener_, &net) != 1) {
        log_failure("accept failed");
        return;
    }
    uint32_t address = 0;
    sl_net_get_peer_address(net, &address);
    std::string peer = dotted(address);
    std::shared_ptr<const Settings> current = settings();
    std::string reason;
    if (tls_ == nullptr && !is_loopback(peer)) {
        reason = "plain mode serves loopback clients only";
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (reason.empty() && serving_ >= current->max_clients) {
        reason = "the daemon serves at most " + std::to_string(current->max_clients) +
                 " clients at once: try again later";
    }
    if (!reason.empty() && refusing_ >= kMaxRefusals) {
        log_line(peer + ": closed at once: " + reason);
        sl_net_free_handle(&net);
        return;
    }
    sl_net_set_recv_timeout(net, kIdleSeconds);
    sl_net_set_send_timeout(net, kIdleSeconds);
    auto connection = std::make_unique<Connection>();
    Connection *c = connection.get();
    c->net = net;
    c->refusal = !reason.empty();
    ++(c->refusal ? refusing_ : serving_);
    c->thread = std::thread([this, c, current, peer, reason] {
        serve(c, current, peer, reason);
        {
            std::lock_guard<std::mutex> done_lock(mutex_);
            sl_net_free_handle(&c->net);
            --(c->refusal ? refusing_ : serving_);
            c->done = true;
        }
        // Everything of the connection, its temporary files too, is gone.
        log_line(peer + ": closed");
    });
    connections_.push_back(std::move(connection));
}

// Whether a connection speaks TLS: always when TLS is on, unless plain
// loopback clients are allowed too and this one's first byte is no TLS
// handshake record (0x16). A client that sends nothing is taken as TLS and
// fails its handshake within the idle time-out.
bool Daemon::speaks_tls(Connection *c, const Settings &current, const std::string &peer) {
    if (tls_ == nullptr) {
        return false;
    }
    if (!current.insecure_loopback || !is_loopback(peer)) {
        return true;
    }
    constexpr unsigned char kTlsHandshakeRecord = 0x16;
    unsigned char first = 0;
    return sl_net_peek(c->net, &first, 1, nullptr) != 1 || first == kTlsHandshakeRecord;
}

// A connection's thread: the TLS handshake and the client's identity first,
// when it speaks TLS, then its requests (or its refusal).
void Daemon::serve(Connection *c, std::shared_ptr<const Settings> current, const std::string &peer,
                   std::string reason) {
    if (speaks_tls(c, *current, peer)) {
        std::string identity;
        if (sle_attach(tls_, c->net) != 1) {
            log_failure(peer + ": TLS handshake failed");
            return;
        }
        if (!client_allowed(c->net, current->allowed_clients, identity) && reason.empty()) {
            reason = "client " + identity + " is not among the Allowed Clients";
        }
        log_line(peer + ": TLS client " + identity);
    }
    Session session(c->net, current, peer);
    if (reason.empty()) {
        session.run();
    } else {
        session.refuse(reason);
    }
}

void Daemon::reap(bool wait_all) {
    std::list<std::unique_ptr<Connection>> finished;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto it = connections_.begin(); it != connections_.end();) {
            if (wait_all || (*it)->done) {
                finished.push_back(std::move(*it));
                it = connections_.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto &c : finished) {
        c->thread.join();
    }
}

void Daemon::stop_connections() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto &c : connections_) {
            if (c->net != nullptr) {
                sl_net_abort(c->net);
            }
        }
    }
    reap(true);
}

void Daemon::reload() {
    Settings s;
    std::shared_ptr<const Settings> old = settings();
    if (!load_settings(config_file_, s)) {
        log_failure("the configuration was not reloaded, the previous one stays");
        return;
    }
    if (s.listen_address != old->listen_address || s.port != old->port) {
        log_line("a new Listen Address or Port takes effect at the next start");
    }
    if (s.log_file != old->log_file && !log_open(s.log_file)) {
        log_failure("the new log file cannot be opened");
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        settings_ = std::make_shared<const Settings>(std::move(s));
    }
    log_line("configuration reloaded");
}

int Daemon::run() {
    if (!start()) {
        free_net(&listener_);
        return fail();
    }
    install_signal_handlers();
    void *group = nullptr;
    sl_net_allocate_selection_group(&group);
    sl_net_add_to_selection_group(group, listener_, SL_NET_EVENT_READ);
    while (stop_requested == 0) {
        if (reload_requested != 0) {
            reload_requested = 0;
            reload();
        }
        int32_t ready = 0;
        if (sl_net_select(group, kPollMilliseconds, &ready) == 1 && ready > 0) {
            accept_connection();
        }
        reap(false);
    }
    log_line("stopping: open connections are broken off");
    sl_net_free_selection_group(&group);
    free_net(&listener_);
    stop_connections();
    remove_path(join_path(settings_->target_root, kTempDirName));
    log_line("stopped");
    log_close();
    return 0;
}

}  // namespace

int run_serve() {
    const char *config = value_of("CONFIG", 'Q');
    if (config == nullptr) {
        err_set_error(ERR_GEN_GENERAL, "serve needs -config=FILE");
        return fail();
    }
    if (sl_net_init() != 1 || cconf_init(16) != 1) {
        return fail();
    }
    cconf_set_lock_critical_section(1);
    Daemon daemon(config);
    int status = daemon.run();
    cconf_cleanup();
    sl_net_clean();
    return status;
}

}  // namespace vqglob
