// One client connection on the daemon's side (see session.h and protocol.h).
#include "session.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "command.h"
#include "crc_cache.h"
#include "files.h"
#include "log.h"
#include "releases.h"
#include "vq_glob/conf.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace vqglob {
namespace {

std::atomic<unsigned> connection_sequence{0};

// The daemon's remembered CRCs of a target root, an entry of the root (so
// that it is the daemon's, never part of a deployed tree).
constexpr const char *kCrcCacheName = ".vqglob-crc-cache";

// One cache per target root, shared by every connection, read from the root
// when first needed. A cache that cannot be read costs only the reading of
// the files: it is logged and started empty.
std::shared_ptr<CrcCache> cache_for_root(const std::string &root) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<CrcCache>> caches;
    std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<CrcCache> &cache = caches[root];
    if (cache == nullptr) {
        cache = std::make_shared<CrcCache>();
        std::string path = join_path(root, kCrcCacheName);
        if (path_exists(path) && !cache->load(path)) {
            log_failure("CRCs are read from the files again");
            err_clear_error_stack();
        }
    }
    return cache;
}

// The cache's name of a file of the tree below prefix ("" for the root
// itself, "releases/ID/" for a release): the path relative to the root.
std::string release_prefix(const std::string &id) {
    return id.empty() ? std::string() : std::string(kReleasesDirName) + "/" + id + "/";
}

// Names of the root's own entries that belong to the daemon, never to a
// deployed tree.
bool is_daemon_entry(const std::string &top) {
    return top == kTempDirName || top == kReleasesDirName || top == kCurrentName || top.rfind(".vqglob-", 0) == 0;
}

std::string first_element(const std::string &name) { return name.substr(0, name.find('/')); }

bool failure(const std::string &text) {
    err_add_error(ERR_GEN_GENERAL, text.c_str());
    return false;
}

// The daemon's filter with base directory base, or NULL when the
// configuration has no "Filter Params" section.
bool build_filter(const Settings &settings, const std::string &base, void **filter) {
    *filter = nullptr;
    if (settings.filter_configuration.empty()) {
        return true;
    }
    void *h = nullptr;
    if (conf_allocate_handle(&h) != 1) {
        return false;
    }
    bool ok = conf_read_buffer_to_handle(h, settings.filter_configuration.c_str()) == 1 && make_filter(h, base, filter);
    conf_free_handle(&h);
    return ok;
}

bool set_filter(const Settings &settings, const std::string &base, void *&filter) {
    close_filter(filter);
    return build_filter(settings, base, &filter);
}

const char *op_name(int32_t op) {
    static const char *const kNames[] = {"?",      "HELLO",    "MANIFEST", "FILES", "DELETE",
                                         "COMMIT", "RELEASES", "ROLLBACK", "BYE"};
    return op >= kHello && op <= kBye ? kNames[op] : kNames[0];
}

}  // namespace

Session::Session(void *net, std::shared_ptr<const Settings> settings, std::string peer)
    : net_(net), settings_(std::move(settings)), peer_(std::move(peer)),
      crc_cache_(cache_for_root(settings_->target_root)) {
    std::string tmp_root = join_path(settings_->target_root, kTempDirName);
    temp_dir_ = join_path(tmp_root, "conn-" + std::to_string(connection_sequence.fetch_add(1)));
    gf_make_path(temp_dir_.c_str());
    slm_allocate_handle(&in_);
    slm_allocate_handle(&out_);
    slm_set_temp_dir(in_, temp_dir_.c_str());
}

Session::~Session() {
    close_deployment();
    slm_free_handle(&in_);
    slm_free_handle(&out_);
    remove_path(temp_dir_);
}

// The operation of the request just received; 0 with the reason on the
// stack when it names none.
int32_t Session::read_op(Reader &reader) {
    uint16_t code = 0;
    int32_t op = 0;
    if (!reader.next(code) || code != kOp || !reader.get_int(op)) {
        err_set_error(ERR_GEN_GENERAL, "a request without an operation");
        return 0;
    }
    return op;
}

void Session::run() {
    log_line(peer_ + ": connected");
    for (bool bye = false; !bye;) {
        err_clear_error_stack();
        if (slm_recv(in_, net_) != 1) {
            log_failure(peer_ + ": connection ended");
            break;
        }
        Reader reader(in_);
        int32_t op = read_op(reader);
        bye = op == kBye;
        bool ok = op != 0 && handle(op, reader);
        if (!ok) {
            log_failure(peer_ + ": " + op_name(op) + " refused");
            make_error_reply(out_);
        }
        // Attachments that were not put in place go now, whatever happened.
        remove_path(temp_dir_);
        gf_make_path(temp_dir_.c_str());
        if (slm_send(out_, net_, 1) != 1) {
            log_failure(peer_ + ": the reply could not be sent");
            break;
        }
        if (op == kCommit) {
            save_crc_cache();  // after the reply: the client need not wait for it
        }
    }
}

void Session::save_crc_cache() {
    const std::string &root = settings_->target_root;
    if (!crc_cache_->save(join_path(root, kCrcCacheName), temp_dir_)) {
        log_failure(peer_ + ": the CRC cache was not saved");
        err_clear_error_stack();
    }
}

void Session::refuse(const std::string &reason) {
    log_line(peer_ + ": refused: " + reason);
    // Every request but the client's BYE gets the refusal.
    for (bool bye = false; !bye && slm_recv(in_, net_) == 1;) {
        Reader reader(in_);
        bye = read_op(reader) == kBye;
        err_clear_error_stack();
        if (bye) {
            start_ok_reply(out_);
        } else {
            err_set_error(ERR_GEN_GENERAL, reason.c_str());
            make_error_reply(out_);
        }
        if (slm_send(out_, net_, 1) != 1) {
            break;
        }
    }
    err_clear_error_stack();
}

bool Session::handle(int32_t op, Reader &reader) {
    switch (op) {
    case kHello:
        return hello(reader);
    case kManifest: {
        uint16_t code = 0;
        int32_t offset = 0;
        return require_open_deployment() && reader.next(code) && code == kOffset && reader.get_int(offset) &&
               send_manifest(offset);
    }
    case kFiles:
        return receive_files(reader);
    case kDelete:
        return delete_files(reader);
    case kCommit:
        return commit();
    case kReleases:
        return list_releases_reply();
    case kRollback:
        return rollback();
    case kBye:
        close_deployment();  // one not committed is abandoned
        return start_ok_reply(out_);
    default:
        err_set_error(ERR_GEN_GENERAL, ("unknown operation " + std::to_string(op)).c_str());
        return false;
    }
}

bool Session::hello(Reader &reader) {
    close_deployment();
    failed_ = true;  // until the deployment is ready: a half-made one is never committed
    int32_t version = 0;
    int32_t flags = 0;
    uint16_t code = 0;
    while (reader.next(code)) {
        bool ok = code == kVersion ? reader.get_int(version) : code == kFlags ? reader.get_int(flags) : reader.skip();
        if (!ok) {
            return false;
        }
    }
    if (version != kProtocolVersion) {
        err_set_error(ERR_GEN_GENERAL, ("protocol version " + std::to_string(version) + " is not served (" +
                                        std::to_string(kProtocolVersion) + " is)")
                                           .c_str());
        return false;
    }
    const std::string &root = settings_->target_root;
    release_ = (flags & kFlagRelease) != 0;
    dry_run_ = (flags & kFlagDryRun) != 0;
    if (release_ && !can_link_current(root)) {
        return false;
    }
    // A release is compared with the release in use, the only tree then.
    const std::string current = release_ ? current_release(root) : std::string();
    std::string listed = root;
    if (release_) {
        listed = current.empty() ? std::string() : join_path(join_path(root, kReleasesDirName), current);
    }
    manifest_.clear();
    const std::string prefix = release_prefix(current);
    size_t remembered_crcs = 0;
    const CrcSource crc = [this, &prefix, &remembered_crcs](const std::string &name, const std::string &path,
                                                            gf_file_status &status, uint32_t &value) {
        bool remembered = false;
        bool ok = crc_cache_->crc_of(prefix + name, path, value, remembered, &status);
        remembered_crcs += remembered ? 1 : 0;
        return ok;
    };
    if (!listed.empty() && (!set_filter(*settings_, listed, filter_) ||
                            !list_tree(listed, filter_, release_ ? nullptr : is_daemon_entry, &crc, manifest_))) {
        return false;
    }
    base_ = root;
    if (release_ && !dry_run_) {
        std::string tmp_root = join_path(root, kTempDirName);
        do {
            release_id_ = new_release_id();
            base_ = join_path(tmp_root, "release-" + release_id_);
        } while (path_exists(join_path(join_path(root, kReleasesDirName), release_id_)) ||
                 !make_new_directory(base_));
        open_ = true;  // from here on an abandoned release is removed
        for (const FileEntry &entry : manifest_) {
            if (!prepare_parent(base_, entry.name, true) ||
                !link_or_copy(join_path(listed, entry.name), join_path(base_, entry.name))) {
                return false;
            }
        }
    }
    if (!set_filter(*settings_, base_, filter_)) {
        return false;
    }
    open_ = true;
    failed_ = false;
    log_line(peer_ + ": deployment opened" + (release_ ? " for release " + release_id_ : std::string()) +
             (dry_run_ ? " (dry run)" : "") + ", " + std::to_string(manifest_.size()) + " files held, " +
             std::to_string(remembered_crcs) + " CRCs remembered");
    return send_manifest(0);
}

bool Session::send_manifest(int32_t offset) {
    if (offset < 0 || static_cast<size_t>(offset) > manifest_.size()) {
        err_set_error(ERR_GEN_GENERAL, "a manifest offset out of range");
        return false;
    }
    std::string chunk;
    size_t next = static_cast<size_t>(offset);
    for (; next < manifest_.size() && chunk.size() < kManifestChunkBytes; ++next) {
        append_manifest_entry(chunk, manifest_[next]);
    }
    int32_t next_index = next < manifest_.size() ? static_cast<int32_t>(next) : -1;
    return start_ok_reply(out_) && slm_set_int(out_, kManifestTotal, static_cast<int32_t>(manifest_.size())) == 1 &&
           slm_set_void(out_, kManifestChunk, chunk.data(), static_cast<uint32_t>(chunk.size())) == 1 &&
           slm_set_int(out_, kManifestNext, next_index) == 1;
}

bool Session::require_open_deployment() {
    if (!open_) {
        err_set_error(ERR_GEN_GENERAL, "no deployment is open on this connection (HELLO first)");
        return false;
    }
    return true;
}

bool Session::acceptable_name(const std::string &name) {
    if (!valid_relative_name(name)) {
        return false;
    }
    if (!release_ && is_daemon_entry(first_element(name))) {
        return failure("refused file name <" + name + ">: the name belongs to the daemon");
    }
    int32_t skip = 0;
    std::string full = join_path(base_, name);
    if (filter_ != nullptr && (Skip(filter_, full.c_str(), 1, &skip) != 1 || skip != 0)) {
        return failure("refused file name <" + name + ">: the daemon's filter leaves it out");
    }
    return true;
}

bool Session::receive_files(Reader &reader) {
    if (!require_open_deployment()) {
        return false;
    }
    if (dry_run_) {
        err_set_error(ERR_GEN_GENERAL, "a dry run changes nothing: no files are taken");
        return false;
    }
    FileEntry meta;
    bool have_meta = false;
    int32_t written = 0;
    uint16_t code = 0;
    while (reader.next(code)) {
        const void *data = nullptr;
        uint32_t length = 0;
        bool ok = true;
        if (code == kFileName) {
            ok = reader.get_string(meta.name);
            have_meta = false;
        } else if (code == kFileMeta) {
            ok = reader.get_void(data, length) && unpack_meta(data, length, meta);
            have_meta = ok;
        } else if (code == kFileData) {
            char *temp = nullptr;
            char *why = nullptr;
            int32_t mode = 0;
            int32_t status = 0;
            ok = slm_get_att_and_status(in_, &temp, &mode, &status, &why) == 1;
            if (ok && (!have_meta || status != 1 || temp == nullptr)) {
                err_set_error(ERR_GEN_GENERAL, ("the data of <" + meta.name + "> did not arrive" +
                                                (why != nullptr ? std::string(": ") + why : std::string()))
                                                   .c_str());
                ok = false;
            }
            FileEntry arrived;
            ok = ok && slm_get_att_crc(in_, SLM_LAST_REFERENCE, &arrived.size, &arrived.crc) == 1 &&
                 place_file(meta, arrived, temp);
            written += ok ? 1 : 0;
            std::free(temp);
            std::free(why);
            have_meta = false;
        } else {
            ok = reader.skip();
        }
        if (!ok) {
            failed_ = true;
            return false;
        }
    }
    return start_ok_reply(out_) && slm_set_int(out_, kFilesWritten, written) == 1;
}

bool Session::place_file(const FileEntry &meta, const FileEntry &arrived, const std::string &temp) {
    if (!acceptable_name(meta.name)) {
        return false;
    }
    if (arrived.size != meta.size || arrived.crc != meta.crc) {
        return failure("<" + meta.name + "> arrived damaged: its size or CRC differs from the sender's");
    }
    std::string target = join_path(base_, meta.name);
    if (!set_mode_and_time(temp, meta.mode & 0777u, meta.mtime) || !prepare_parent(base_, meta.name, true) ||
        !rename_path(temp, target)) {
        return false;
    }
    // The CRC is known; the cache keeps it only once the file is old enough.
    const int64_t taken = CrcCache::now_ns();
    gf_file_status placed{};
    if (gf_get_file_status(target.c_str(), 1, &placed) == 1) {
        crc_cache_->store(cache_name(meta.name), placed, meta.crc, taken);
    } else {
        crc_cache_->forget(cache_name(meta.name));
    }
    return true;
}

std::string Session::cache_name(const std::string &name) const {
    return (release_ ? release_prefix(release_id_) : std::string()) + name;
}

bool Session::delete_files(Reader &reader) {
    if (!require_open_deployment()) {
        return false;
    }
    if (dry_run_) {
        err_set_error(ERR_GEN_GENERAL, "a dry run changes nothing: no files are deleted");
        return false;
    }
    uint16_t code = 0;
    const void *data = nullptr;
    uint32_t length = 0;
    if (!reader.next(code) || code != kDeleteNames || !reader.get_void(data, length)) {
        err_set_error(ERR_GEN_GENERAL, "DELETE without its names");
        return false;
    }
    const char *p = static_cast<const char *>(data);
    const char *end = p + length;
    int32_t deleted = 0;
    while (p < end) {
        const char *nul = static_cast<const char *>(std::memchr(p, '\0', static_cast<size_t>(end - p)));
        std::string name(p, nul != nullptr ? nul : end);
        p += name.size() + 1;
        if (!acceptable_name(name) || !prepare_parent(base_, name, false)) {
            failed_ = true;
            return false;
        }
        std::string target = join_path(base_, name);
        crc_cache_->forget(cache_name(name));
        if (path_exists(target)) {
            if (!remove_path(target)) {
                failed_ = true;
                return false;
            }
            ++deleted;
            remove_empty_parents(base_, name);
        }
    }
    return start_ok_reply(out_) && slm_set_int(out_, kFilesDeleted, deleted) == 1;
}

bool Session::run_post_deploy(const std::string &directory, int32_t &exit_code) {
    exit_code = -1;
    if (settings_->post_deploy_command.empty()) {
        return true;
    }
    std::string output;
    bool ok = run_command(settings_->post_deploy_command, directory, settings_->run_as_user, temp_dir_, exit_code,
                          output);
    if (!ok) {
        err_save_error();
    }
    log_line(peer_ + ": post-deploy command exited with " + std::to_string(exit_code));
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        end = end == std::string::npos ? output.size() : end;
        log_line(peer_ + ": post-deploy: " + output.substr(start, end - start));
        start = end + 1;
    }
    if (!ok) {
        err_set_error(ERR_GEN_GENERAL, err_get_saved_error());
        return failure("the post-deploy command failed with exit status " + std::to_string(exit_code));
    }
    return true;
}

bool Session::commit_release(int32_t &exit_code) {
    const std::string &root = settings_->target_root;
    std::string releases = join_path(root, kReleasesDirName);
    std::string final_dir = join_path(releases, release_id_);
    if (gf_make_path(releases.c_str()) != 1 || !rename_path(base_, final_dir)) {
        return false;
    }
    base_ = final_dir;
    if (!run_post_deploy(final_dir, exit_code)) {
        err_save_error();
        remove_path(final_dir);
        err_set_error(ERR_GEN_GENERAL, err_get_saved_error());
        return failure("release " + release_id_ + " was not made current");
    }
    return switch_current(root, release_id_);
}

bool Session::commit() {
    if (!require_open_deployment()) {
        return false;
    }
    if (failed_) {
        close_deployment();
        err_set_error(ERR_GEN_GENERAL, "the deployment had failures: it is not committed");
        return false;
    }
    int32_t exit_code = -1;
    bool ok = true;
    if (!dry_run_) {
        ok = release_ ? commit_release(exit_code) : run_post_deploy(settings_->target_root, exit_code);
    }
    std::string id = release_ ? release_id_ : std::string();
    if (ok) {
        log_line(peer_ + ": deployment committed" + (id.empty() ? std::string() : " as release " + id));
    } else {
        log_failure(peer_ + ": COMMIT failed");
    }
    close_deployment();
    bool built = ok ? start_ok_reply(out_) : make_error_reply(out_);
    return built && slm_set_int(out_, kExitCode, exit_code) == 1 && slm_set_string(out_, kReleaseId, id.c_str()) == 1;
}

bool Session::list_releases_reply() {
    std::vector<std::string> ids;
    const std::string &root = settings_->target_root;
    if (!list_releases(root, ids) || !start_ok_reply(out_)) {
        return false;
    }
    for (const std::string &id : ids) {
        if (slm_set_string(out_, kReleaseName, id.c_str()) != 1) {
            return false;
        }
    }
    return slm_set_string(out_, kCurrent, current_release(root).c_str()) == 1;
}

bool Session::rollback() {
    std::vector<std::string> ids;
    const std::string &root = settings_->target_root;
    if (!list_releases(root, ids)) {
        return false;
    }
    std::string current = current_release(root);
    size_t index = 0;
    while (index < ids.size() && ids[index] != current) {
        ++index;
    }
    if (current.empty() || index == 0 || index == ids.size()) {
        err_set_error(ERR_GEN_GENERAL, ("there is no release before " +
                                        (current.empty() ? std::string("an empty current") : current))
                                           .c_str());
        return false;
    }
    if (!switch_current(root, ids[index - 1])) {
        return false;
    }
    log_line(peer_ + ": rolled back from " + current + " to " + ids[index - 1]);
    return start_ok_reply(out_) && slm_set_string(out_, kCurrent, ids[index - 1].c_str()) == 1;
}

void Session::close_deployment() {
    if (open_ && release_ && !dry_run_ && base_ != settings_->target_root &&
        base_.rfind(join_path(settings_->target_root, kTempDirName), 0) == 0) {
        remove_path(base_);  // a release that was not committed
    }
    close_filter(filter_);
    filter_ = nullptr;
    open_ = false;
    manifest_.clear();
}

}  // namespace vqglob
