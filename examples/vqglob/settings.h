// The daemon's configuration: section "Server" read through a constant table
// from the configuration cache (cconf.h), so that SIGHUP reads the file again
// only when it changed, and the filter's own "Filter Params" section.
#ifndef VQGLOB_SETTINGS_H
#define VQGLOB_SETTINGS_H

#include <cstdint>
#include <string>
#include <vector>

namespace vqglob {

struct Settings {
    std::string listen_address;
    int32_t port = 0;
    std::string target_root;
    std::string certificate_file;
    std::string key_file;
    std::string ca_file;
    std::vector<std::string> allowed_clients;
    bool insecure_loopback = false;
    std::string post_deploy_command;
    std::string run_as_user;
    std::string log_file;
    int32_t max_clients = 0;
    // The whole configuration text when it has a "Filter Params" section
    // (the filter is built from it per deployment), else empty.
    std::string filter_configuration;
};

// Reads file (a regular file) into settings and checks the values; false with
// the reasons on the stack. cconf_init must have run.
bool load_settings(const std::string &file, Settings &settings);

// The usage text of the configuration keys.
const char *settings_usage();

}  // namespace vqglob

#endif
