// TLS contexts and the client identity check (see tls.h).
#include "tls.h"

#include <algorithm>

#include "vq_glob/err.h"
#include "vq_glob/sle.h"

namespace vqglob {

bool make_server_tls(const Settings &settings, void **context) {
    *context = nullptr;
    if (settings.key_file.empty() || settings.ca_file.empty()) {
        err_set_error(ERR_GEN_GENERAL, "TLS needs \"Certificate File\", \"Key File\" and \"CA File\" together");
        return false;
    }
    bool ok = sle_allocate_context(context, SLE_SERVER) == 1 &&
              sle_set_certificate(*context, settings.certificate_file.c_str(), settings.key_file.c_str()) == 1 &&
              sle_set_ca_file(*context, settings.ca_file.c_str()) == 1 &&
              sle_set_require_peer_certificate(*context, 1) == 1;
    if (!ok && *context != nullptr) {
        sle_free_context(context);
    }
    return ok;
}

bool make_client_tls(const std::string &cert, const std::string &key, const std::string &ca, void **context) {
    *context = nullptr;
    if (cert.empty() || key.empty() || ca.empty()) {
        err_set_error(ERR_GEN_GENERAL, "TLS needs -cert, -key and -ca together");
        return false;
    }
    bool ok = sle_allocate_context(context, SLE_CLIENT) == 1 &&
              sle_set_certificate(*context, cert.c_str(), key.c_str()) == 1 &&
              sle_set_ca_file(*context, ca.c_str()) == 1;
    if (!ok && *context != nullptr) {
        sle_free_context(context);
    }
    return ok;
}

bool client_allowed(void *session, const std::vector<std::string> &allowed, std::string &identity) {
    char name[256] = "";
    char fingerprint[SLE_FINGERPRINT_SIZE] = "";
    if (sle_get_peer_name(session, name, sizeof name) != 1 || sle_get_peer_fingerprint(session, fingerprint) != 1) {
        identity = "a client without a certificate";
        return false;
    }
    identity = std::string(name) + " (" + fingerprint + ")";
    return std::find(allowed.begin(), allowed.end(), name) != allowed.end() ||
           std::find(allowed.begin(), allowed.end(), fingerprint) != allowed.end();
}

}  // namespace vqglob
