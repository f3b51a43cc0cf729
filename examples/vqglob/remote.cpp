// "vqglob releases" and "vqglob rollback": a daemon's releases, and moving
// its "current" back by one.
#include <cstdio>
#include <string>

#include "client.h"
#include "tool.h"
#include "vq_glob/cli.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"

namespace vqglob {
namespace {

// Connects to the TARGET parameter and exchanges one request of op.
int ask(int32_t op, Reader &reader, Client &client) {
    const char *target = value_of("TARGET", 'P');
    void *tls = nullptr;
    bool connected = sl_net_init() == 1 && client_tls_from_options(&tls) &&
                     client.connect(target, tls, cli_present("INSECURE", 'Q') == 1);
    free_tls(&tls);  // the connection keeps what it needs
    if (!connected) {
        return fail();
    }
    client.start(op);
    return client.exchange(reader) ? 0 : fail();  // the client says BYE when it goes
}

}  // namespace

int run_releases() {
    Client client;
    Reader reader(nullptr);
    if (ask(kReleases, reader, client) != 0) {
        return 1;
    }
    std::vector<std::string> names;
    std::string current;
    uint16_t code = 0;
    std::string text;
    while (reader.next(code) && (code == kReleaseName || code == kCurrent ? reader.get_string(text) : reader.skip())) {
        if (code == kReleaseName) {
            names.push_back(text);
        } else if (code == kCurrent) {
            current = text;
        }
    }
    for (const std::string &name : names) {
        std::printf("%s %s\n", name == current ? "*" : " ", name.c_str());
    }
    return 0;
}

int run_rollback() {
    Client client;
    Reader reader(nullptr);
    if (ask(kRollback, reader, client) != 0) {
        return 1;
    }
    uint16_t code = 0;
    std::string current;
    while (reader.next(code) && (code == kCurrent ? reader.get_string(current) : reader.skip())) {
    }
    std::printf("current is now %s\n", current.c_str());
    return 0;
}

}  // namespace vqglob
