// One client connection on the daemon's side: requests are read and answered
// one at a time until the client says BYE, the connection breaks, or the
// daemon stops (which breaks the connection under it).
#ifndef VQGLOB_SESSION_H
#define VQGLOB_SESSION_H

#include <memory>
#include <string>
#include <vector>

#include "crc_cache.h"
#include "protocol.h"
#include "settings.h"

namespace vqglob {

class Session {
public:
    // net: an accepted sl_net session, owned by the caller.
    Session(void *net, std::shared_ptr<const Settings> settings, std::string peer);
    ~Session();
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // Serves requests until the connection ends.
    void run();
    // Answers the first request with a refusal carrying reason, then returns.
    void refuse(const std::string &reason);

private:
    int32_t read_op(Reader &reader);
    bool handle(int32_t op, Reader &reader);
    bool hello(Reader &reader);
    bool send_manifest(int32_t offset);
    bool receive_files(Reader &reader);
    // Puts the received temp file in place once arrived (its size and CRC as
    // received) matches what the client announced in meta.
    bool place_file(const FileEntry &meta, const FileEntry &arrived, const std::string &temp);
    bool delete_files(Reader &reader);
    bool commit();
    bool commit_release(int32_t &exit_code);
    bool list_releases_reply();
    bool rollback();
    bool run_post_deploy(const std::string &directory, int32_t &exit_code);
    bool acceptable_name(const std::string &name);
    bool require_open_deployment();
    void close_deployment();
    void save_crc_cache();
    // The name of a file of the open deployment in the CRC cache.
    std::string cache_name(const std::string &name) const;

    void *net_;
    void *in_ = nullptr;
    void *out_ = nullptr;
    std::shared_ptr<const Settings> settings_;
    std::string peer_;
    std::string temp_dir_;
    std::shared_ptr<CrcCache> crc_cache_;

    // The open deployment (between HELLO and COMMIT).
    bool open_ = false;
    bool release_ = false;
    bool dry_run_ = false;
    bool failed_ = false;
    std::string base_;  // where files go: the root, or the release being built
    std::string release_id_;
    void *filter_ = nullptr;
    std::vector<FileEntry> manifest_;
};

}  // namespace vqglob

#endif
