// TLS for both ends (sle.h): the daemon's context from its configuration,
// the client's from -cert/-key/-ca, and the daemon's check of a client's
// identity against "Allowed Clients".
#ifndef VQGLOB_TLS_H
#define VQGLOB_TLS_H

#include <string>
#include <vector>

#include "settings.h"

namespace vqglob {

// A server context: the daemon's certificate and key, the CA its clients'
// certificates are verified against, client certificates required. false
// with the reason on the stack (nothing allocated).
bool make_server_tls(const Settings &settings, void **context);
// A client context with this side's certificate and key and the daemons' CA.
bool make_client_tls(const std::string &cert, const std::string &key, const std::string &ca, void **context);
// Whether the verified peer of a TLS session is allowed: its certificate's
// common name or SHA-256 fingerprint (lower-case hex) is in allowed. identity
// names the peer for the log either way.
bool client_allowed(void *session, const std::vector<std::string> &allowed, std::string &identity);

}  // namespace vqglob

#endif
