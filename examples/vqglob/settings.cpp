// Reading the daemon's configuration (see settings.h).
#include "settings.h"

#include <iterator>

#include "tool.h"
#include "vq_glob/cconf.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf_path.h"

namespace vqglob {
namespace {

enum Key : int32_t {
    kServer = 100,
    kListenAddress,
    kPort,
    kTargetRoot,
    kCertificateFile,
    kKeyFile,
    kCaFile,
    kAllowedClients,
    kInsecureLoopback,
    kPostDeployCommand,
    kRunAsUser,
    kLogFile,
    kMaxClients,
};

constexpr conf_table_row kTable[] = {
    {kServer, "Server", CONF_TYPE_SECTION, nullptr, 0, 0, nullptr},
    {kListenAddress, "Listen Address", CONF_TYPE_STRING, "127.0.0.1", 0, 0, nullptr},
    {kPort, "Port", CONF_TYPE_INT, nullptr, 7340, 0, nullptr},
    {kTargetRoot, "Target Root", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kCertificateFile, "Certificate File", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kKeyFile, "Key File", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kCaFile, "CA File", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kAllowedClients, "Allowed Clients", CONF_TYPE_ML_TEXT, nullptr, 0, 0, nullptr},
    {kInsecureLoopback, "Insecure Loopback", CONF_TYPE_BOOL, nullptr, 0, 0, nullptr},
    {kPostDeployCommand, "Post Deploy Command", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kRunAsUser, "Run As User", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kLogFile, "Log File", CONF_TYPE_STRING, nullptr, 0, 0, nullptr},
    {kMaxClients, "Max Clients", CONF_TYPE_INT, nullptr, 64, 0, nullptr},
};
constexpr int32_t kRows = static_cast<int32_t>(std::size(kTable));

bool read_string(void *h, int32_t key, std::string &out) {
    char *text = nullptr;
    if (conf_get_string_field_by_const(h, key, &text) != 1) {
        return false;
    }
    out = text != nullptr ? text : "";
    return true;
}

bool read_fields(void *h, Settings &s) {
    int32_t insecure = 0;
    char **allowed = nullptr;
    bool ok = read_string(h, kListenAddress, s.listen_address) && conf_get_int_field_by_const(h, kPort, &s.port) == 1 &&
              read_string(h, kTargetRoot, s.target_root) && read_string(h, kCertificateFile, s.certificate_file) &&
              read_string(h, kKeyFile, s.key_file) && read_string(h, kCaFile, s.ca_file) &&
              conf_get_ml_string_field_by_const(h, kAllowedClients, &allowed) == 1 &&
              conf_get_bool_field_by_const(h, kInsecureLoopback, &insecure) == 1 &&
              read_string(h, kPostDeployCommand, s.post_deploy_command) &&
              read_string(h, kRunAsUser, s.run_as_user) && read_string(h, kLogFile, s.log_file) &&
              conf_get_int_field_by_const(h, kMaxClients, &s.max_clients) == 1;
    for (char **a = allowed; ok && a != nullptr && *a != nullptr; ++a) {
        s.allowed_clients.emplace_back(*a);
    }
    s.insecure_loopback = insecure != 0;
    return ok;
}

bool has_filter_section(void *h) {
    void *context = nullptr;
    if (conf_init_field_search_context(h, "Filter Params", &context) != 1) {
        err_clear_error_stack();
        return false;
    }
    conf_free_search_context(context);
    return true;
}

bool invalid(const std::string &text) {
    err_add_error(ERR_GEN_GENERAL, text.c_str());
    return false;
}

bool check(const Settings &s) {
    if (s.target_root.empty()) {
        return invalid("\"Target Root\" of section \"Server\" is required");
    }
    if (gf_is_dir(s.target_root.c_str()) != 1) {
        return invalid("\"Target Root\" <" + s.target_root + "> is no directory");
    }
    if (s.port < 0 || s.port > 65535) {
        return invalid("\"Port\" must be 0 to 65535, not " + std::to_string(s.port));
    }
    if (s.max_clients < 1) {
        return invalid("\"Max Clients\" must be 1 or more, not " + std::to_string(s.max_clients));
    }
    return true;
}

// Reads file into s; false with the reason on the stack.
bool read_settings(const std::string &file, Settings &s) {
    void *h = nullptr;
    if (!require_regular_file(file.c_str()) || cconf_allocate_handle(&h, file.c_str(), kTable, kRows) != 1) {
        return false;
    }
    conf_lock_handle(h);
    bool ok = read_fields(h, s);
    char *text = nullptr;
    if (ok && has_filter_section(h)) {
        ok = conf_write_buffer(h, &text) == 1;
        s.filter_configuration = text != nullptr ? text : "";
        conf_free_buffer(text);
    }
    conf_unlock_handle(h);
    cconf_free_handle(file.c_str());
    return ok && check(s);
}

}  // namespace

bool load_settings(const std::string &file, Settings &settings) {
    Settings s;
    if (!read_settings(file, s)) {
        err_add_error(ERR_GEN_GENERAL, ("bad configuration file <" + file + ">").c_str());
        return false;
    }
    settings = std::move(s);
    return true;
}

const char *settings_usage() {
    return "Configuration of \"serve\" (section [Server]):\n"
           "  Listen Address=127.0.0.1     address to listen on\n"
           "  Port=7340                    TCP port (0: any free port)\n"
           "  Target Root=DIR              where deployments arrive (required)\n"
           "  Certificate File, Key File, CA File   TLS identity and client CA\n"
           "  Allowed Clients=_ml_text_... client certificate names or SHA-256 fingerprints\n"
           "  Insecure Loopback=FALSE      TRUE: plain clients on a loopback address (beside\n"
           "                               TLS ones when a Certificate File is set)\n"
           "  Post Deploy Command=CMD      run in the target after each deployment\n"
           "  Run As User=NAME             the user the command runs as\n"
           "  Log File=FILE                log file (default: the system log)\n"
           "  Max Clients=64               connections served at once\n"
           "Section [Filter Params] (filter.h) limits what the daemon accepts;\n"
           "its Base Directory is set by the daemon.\n";
}

}  // namespace vqglob
