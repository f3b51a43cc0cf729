// Connections to a daemon (see client.h) and the address helpers of tool.h.
#include "client.h"

#include <cstdlib>

#include "tls.h"
#include "tool.h"
#include "vq_glob/err.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"
#include "vq_glob/slm.h"

namespace vqglob {

bool is_loopback(const std::string &host) {
    uint32_t address = 0;
    if (sl_net_resolve_hostname(host.c_str(), &address) != 1) {
        return false;
    }
    return reinterpret_cast<const unsigned char *>(&address)[0] == 127;
}

bool split_host_port(const std::string &text, std::string &host, uint16_t &port) {
    size_t colon = text.rfind(':');
    char *end = nullptr;
    long number = colon == std::string::npos ? 0 : std::strtol(text.c_str() + colon + 1, &end, 10);
    if (colon == std::string::npos || colon == 0 || end == text.c_str() + colon + 1 || *end != '\0' || number < 1 ||
        number > 65535) {
        err_set_error(ERR_GEN_GENERAL, ("<" + text + "> is no HOST:PORT").c_str());
        return false;
    }
    host = text.substr(0, colon);
    port = static_cast<uint16_t>(number);
    return true;
}

void free_net(void **net) {
    if (*net != nullptr) {
        sl_net_free_handle(net);
    }
}

void free_tls(void **tls) {
    if (*tls != nullptr) {
        sle_free_context(tls);
    }
}

Client::Client() {
    slm_allocate_handle(&out_);
    slm_allocate_handle(&in_);
}

Client::~Client() {
    close();
    slm_free_handle(&out_);
    slm_free_handle(&in_);
}

bool Client::connect(const std::string &target, void *tls, bool insecure) {
    std::string host;
    uint16_t port = 0;
    if (!split_host_port(target, host, port)) {
        return false;
    }
    if (tls == nullptr && (!insecure || !is_loopback(host))) {
        err_set_error(ERR_GEN_GENERAL, (target + " needs TLS (-cert, -key and -ca); plain mode needs a loopback "
                                                 "address and -insecure")
                                           .c_str());
        return false;
    }
    sl_net_remote_info info{host.c_str(), nullptr, port};
    bool ok = sl_net_allocate_handle(SL_NET_TCP, &net_) == 1 && sl_net_set_remote_info(net_, 0, &info) == 1 &&
              sl_net_set_connect_timeout(net_, 30) == 1 && sl_net_connect(net_) == 1 &&
              (tls == nullptr || sle_attach(tls, net_) == 1);
    broken_ = !ok;
    return ok;
}

// The TLS context of the -cert, -key and -ca qualifiers, NULL without them.
bool client_tls_from_options(void **tls) {
    *tls = nullptr;
    const char *cert = value_of("CERT", 'Q');
    const char *key = value_of("KEY", 'Q');
    const char *ca = value_of("CA", 'Q');
    if (cert == nullptr && key == nullptr && ca == nullptr) {
        return true;
    }
    return make_client_tls(cert != nullptr ? cert : "", key != nullptr ? key : "", ca != nullptr ? ca : "", tls);
}

namespace {

// Keeps this thread's error stack as it was over a scope.
class StackKeeper {
public:
    StackKeeper() {
        void *entries = nullptr;
        err_get_stack_desc(&entries, &size_, &depth_);
        if (entries != nullptr) {
            saved_.assign(static_cast<const char *>(entries), static_cast<size_t>(size_));
        }
    }
    ~StackKeeper() { err_set_stack_desc(saved_.data(), size_, depth_); }
    StackKeeper(const StackKeeper &) = delete;
    StackKeeper &operator=(const StackKeeper &) = delete;

private:
    std::string saved_;
    int32_t size_ = 0;
    int32_t depth_ = 0;
};

}  // namespace

void Client::close() {
    if (net_ != nullptr && !broken_) {
        StackKeeper keep;  // what the caller has on the stack outlives the goodbye
        start(kBye);
        Reader reader(nullptr);
        exchange(reader);
    }
    free_net(&net_);
}

bool Client::drain(size_t count) {
    StackKeeper keep;
    for (; count > 0 && !broken_; --count) {
        Reader reader(nullptr);
        receive_reply(reader);
    }
    return !broken_;
}

void *Client::start(int32_t op) {
    slm_init_handle(out_);
    slm_set_int(out_, kOp, op);
    return out_;
}

bool Client::exchange(Reader &reader) { return send_request() && receive_reply(reader); }

bool Client::send_request() {
    if (slm_send(out_, net_, 1) != 1) {
        broken_ = true;
        err_add_error(ERR_GEN_GENERAL, "the connection to the daemon broke");
        return false;
    }
    return true;
}

bool Client::receive_reply(Reader &reader) {
    reply_failed_ = false;
    if (slm_recv(in_, net_) != 1) {
        broken_ = true;
        err_add_error(ERR_GEN_GENERAL, "the connection to the daemon broke");
        return false;
    }
    reader = Reader(in_);
    if (!read_reply_status(reader)) {
        reply_failed_ = true;
        return false;
    }
    return true;
}

}  // namespace vqglob
