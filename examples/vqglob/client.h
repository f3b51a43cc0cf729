// The client's side of a connection to a daemon: one request out, one reply
// in (see protocol.h).
#ifndef VQGLOB_CLIENT_H
#define VQGLOB_CLIENT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "protocol.h"

namespace vqglob {

class Client {
public:
    Client();
    ~Client();
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // Connects to target ("HOST:PORT"): over TLS with tls (a client context
    // of sle.h, not owned) when given, else in plain mode, which needs
    // insecure and a loopback host.
    bool connect(const std::string &target, void *tls, bool insecure);
    // The request being built (emptied, OP set).
    void *start(int32_t op);
    // Sends the request and receives the reply; false with the reason on the
    // stack (the daemon's own stack for a failed reply), the reader standing
    // after STATUS otherwise. reply_failed tells a failed reply from a broken
    // connection.
    bool exchange(Reader &reader);
    // The two halves of exchange, for requests sent ahead of their replies:
    // replies come in the order of the requests.
    bool send_request();
    bool receive_reply(Reader &reader);
    // Reads and drops count replies still owed (after a failed one), the
    // error stack left as it was; false when the connection broke.
    bool drain(size_t count);
    bool reply_failed() const { return reply_failed_; }
    // Ends the connection with BYE (when it has not broken) and closes it;
    // the error stack is left as it was.
    void close();
    void *reply() { return in_; }

private:
    void *net_ = nullptr;
    void *out_ = nullptr;
    void *in_ = nullptr;
    bool reply_failed_ = false;
    bool broken_ = false;
};

}  // namespace vqglob

#endif
