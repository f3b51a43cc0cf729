// "vqglob deploy": sends the files of a directory that differ from what a
// daemon holds, to every target at once (a thread per target), and reports
// per target. Without -include/-exclude every regular file is sent, dot files
// included; links are not followed.
//
// A local file is read for its CRC only when a target holds it with the same
// size and time (the CRC decides) or when it is sent (the daemon checks what
// arrives against it), and then once for all targets. The CRCs are
// remembered in a cache file per source directory, so an unchanged file is
// not read again on the next run (crc_cache.h says when an entry is trusted).
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "client.h"
#include "crc_cache.h"
#include "files.h"
#include "progress.h"
#include "tool.h"
#include "vq_glob/cli.h"
#include "vq_glob/conf.h"
#include "vq_glob/env.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/mlist.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/sle.h"
#include "vq_glob/slm.h"

namespace vqglob {
namespace {

struct Options {
    std::string dir;
    std::vector<std::string> targets;
    std::vector<std::string> include;
    std::vector<std::string> exclude;
    bool insecure = false;
    bool remove = false;
    bool dry_run = false;
    bool release = false;
    bool no_cache = false;
    void *tls = nullptr;  // client context of -cert/-key/-ca, or NULL
};

std::vector<std::string> list_value(const char *name) {
    std::vector<std::string> items;
    const char *value = value_of(name, 'Q');
    char *item = nullptr;
    if (value != nullptr && cli_init_qual_iterator(value) == 1) {
        while (cli_qual_iterator_next(&item) == 1) {
            items.emplace_back(item);
        }
    }
    return items;
}

bool read_options(Options &o) {
    o.dir = value_of("DIR", 'P');
    o.targets = list_value("TO");
    o.include = list_value("INCLUDE");
    o.exclude = list_value("EXCLUDE");
    o.insecure = cli_present("INSECURE", 'Q') == 1;
    o.remove = cli_present("DELETE", 'Q') == 1;
    o.dry_run = cli_present("DRY_RUN", 'Q') == 1;
    o.release = cli_present("RELEASE", 'Q') == 1;
    o.no_cache = cli_present("NO_CACHE", 'Q') == 1;
    if (o.targets.empty()) {
        err_set_error(ERR_GEN_GENERAL, "deploy needs -to=HOST:PORT[,HOST:PORT...]");
        return false;
    }
    if (gf_is_dir(o.dir.c_str()) != 1) {
        err_set_error(ERR_GEN_GENERAL, ("<" + o.dir + "> is no directory").c_str());
        return false;
    }
    return client_tls_from_options(&o.tls);
}

// A string list of the library (ml_) holding items, or "*" when none.
bool set_rules(void *conf, const char *non_recursive, const char *recursive, std::vector<std::string> items,
               bool all_when_empty) {
    if (items.empty() && all_when_empty) {
        items.emplace_back("*");
    }
    std::vector<char *> stars(items.size(), const_cast<char *>("*"));
    std::vector<char *> patterns;
    for (std::string &item : items) {
        patterns.push_back(item.data());
    }
    stars.push_back(nullptr);
    patterns.push_back(nullptr);
    return conf_set_ml_string_field(conf, "Filter Params", non_recursive, stars.data()) == 1 &&
           conf_set_ml_string_field(conf, "Filter Params", recursive, patterns.data()) == 1;
}

// The local files: include pairs ("*", pattern) take pattern as a name at
// every level, exclude pairs the same; hidden files and mount points are not
// left out.
bool local_files(const Options &o, std::vector<FileEntry> &entries) {
    void *conf = nullptr;
    void *filter = nullptr;
    if (conf_allocate_handle(&conf) != 1) {
        return false;
    }
    bool ok = conf_set_table(conf, vq_get_filter_cf_table(), vq_get_filter_cf_keys_number()) == 1 &&  // the fields
              set_rules(conf, "Include Non Recursive Part List", "Include Recursive Part List", o.include, true) &&
              set_rules(conf, "Exclude Non Recursive Part List", "Exclude Recursive Part List", o.exclude, false) &&
              conf_set_bool_field(conf, "Filter Params", "Ignore UNIX Hidden Files", 0) == 1 &&
              conf_set_bool_field(conf, "Filter Params", "Ignore UNIX Mount Points", 0) == 1 &&
              make_filter(conf, o.dir, &filter) && list_tree(o.dir, filter, nullptr, nullptr, entries);
    close_filter(filter);
    conf_free_handle(&conf);
    return ok;
}

bool read_manifest(Reader &reader, std::vector<FileEntry> &entries, int32_t &next) {
    uint16_t code = 0;
    next = -1;
    while (reader.next(code)) {
        const void *data = nullptr;
        uint32_t length = 0;
        bool ok = code == kManifestChunk ? reader.get_void(data, length) && unpack_manifest(data, length, entries)
                  : code == kManifestNext ? reader.get_int(next)
                                          : reader.skip();
        if (!ok) {
            err_set_error(ERR_GEN_GENERAL, "the daemon's manifest is damaged");
            return false;
        }
    }
    return true;
}

// The CRCs of the local files, each found once, by whichever target asks
// first, through the cache when there is one. Targets ask for the same files
// in the same order, so one lock over the finding costs them little (and,
// unlike a once-flag per file, nothing when there is one target).
class LocalCrcs {
public:
    LocalCrcs(const std::string &dir, CrcCache *cache) : dir_(dir), cache_(cache) {}
    // Once the files are listed, before any get.
    void listed(const std::vector<FileEntry> &local) {
        local_ = &local;
        found_.assign(local.size(), 0);
        crcs_.assign(local.size(), 0);
        errors_.assign(local.size(), std::string());
    }
    size_t remembered() const { return remembered_.load(); }
    size_t read() const { return read_.load(); }
    // The CRC of local file index; false with the reason on the stack.
    bool get(size_t index, uint32_t &crc) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (found_[index] == 0) {
            find(index);
            found_[index] = 1;
        }
        if (!errors_[index].empty()) {
            err_set_error(ERR_GEN_GENERAL, errors_[index].c_str());
            return false;
        }
        crc = crcs_[index];
        return true;
    }

private:
    void find(size_t index) {
        const FileEntry &entry = (*local_)[index];
        const std::string path = join_path(dir_, entry.name);
        bool remembered = false;
        bool ok = cache_ != nullptr ? cache_->crc_of(entry.name, path, crcs_[index], remembered)
                                    : file_crc(path, crcs_[index]);
        if (!ok) {
            errors_[index] = err_get_error_msg();
        }
        ++(remembered ? remembered_ : read_);
    }

    std::string dir_;
    CrcCache *cache_;
    const std::vector<FileEntry> *local_ = nullptr;
    std::mutex mutex_;
    std::vector<char> found_;
    std::vector<uint32_t> crcs_;
    std::vector<std::string> errors_;
    std::atomic<size_t> remembered_{0};
    std::atomic<size_t> read_{0};
};

struct Plan {
    std::vector<size_t> send;  // indexes of the local files
    std::vector<std::string> remove;
    int skipped = 0;
};

// A file whose size or time differs is sent without its CRC being compared;
// only where both match does the CRC decide.
bool make_plan(const std::vector<FileEntry> &local, LocalCrcs &crcs, const std::vector<FileEntry> &remote,
               bool remove, Plan &plan) {
    std::map<std::string, const FileEntry *> there;
    for (const FileEntry &entry : remote) {
        there[entry.name] = &entry;
    }
    for (size_t i = 0; i < local.size(); ++i) {
        const FileEntry &entry = local[i];
        auto it = there.find(entry.name);
        bool same = false;
        if (it != there.end() && entry.size == it->second->size && entry.mtime == it->second->mtime) {
            uint32_t crc = 0;
            if (!crcs.get(i, crc)) {
                return false;
            }
            same = crc == it->second->crc;
        }
        if (same) {
            ++plan.skipped;
        } else {
            plan.send.push_back(i);
        }
        if (it != there.end()) {
            there.erase(it);
        }
    }
    for (const auto &[name, entry] : there) {
        if (remove) {
            plan.remove.push_back(name);
        }
    }
    return true;
}

// Attachment pieces move the progress bar as they leave.
void on_piece_sent(void *progress, int32_t, uint32_t bytes) { static_cast<Progress *>(progress)->sending(bytes); }

class TargetRun {
public:
    // local is read once local_ready says it was listed (true) or failed.
    TargetRun(const Options &o, const std::vector<FileEntry> &local, LocalCrcs &crcs,
              std::shared_future<bool> local_ready, std::string target, Progress &progress)
        : o_(o), local_(local), crcs_(crcs), local_ready_(std::move(local_ready)), target_(std::move(target)),
          progress_(progress) {}
    void run();
    bool ok() const { return ok_; }
    void report() const;

private:
    bool deploy();
    bool hello(std::vector<FileEntry> &remote);
    bool send_files(const Plan &plan);
    bool delete_files(const Plan &plan);
    bool commit();

    const Options &o_;
    const std::vector<FileEntry> &local_;
    LocalCrcs &crcs_;
    std::shared_future<bool> local_ready_;
    std::string target_;
    Progress &progress_;
    Client client_;
    bool ok_ = false;
    int sent_ = 0;
    int skipped_ = 0;
    int deleted_ = 0;
    uint64_t bytes_ = 0;
    double seconds_ = 0;
    int32_t exit_code_ = -1;
    std::string release_id_;
    std::string error_;
};

void TargetRun::run() {
    auto begin = std::chrono::steady_clock::now();
    ok_ = deploy();
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!ok_) {
        error_ = err_get_error_msg();
    }
    client_.close();
}

bool TargetRun::hello(std::vector<FileEntry> &remote) {
    Reader reader(nullptr);
    void *request = client_.start(kHello);
    int32_t flags = (o_.release ? kFlagRelease : 0) | (o_.dry_run ? kFlagDryRun : 0);
    slm_set_int(request, kVersion, kProtocolVersion);
    slm_set_int(request, kFlags, flags);
    int32_t next = 0;
    if (!client_.exchange(reader) || !read_manifest(reader, remote, next)) {
        return false;
    }
    while (next > 0) {
        slm_set_int(client_.start(kManifest), kOffset, next);
        if (!client_.exchange(reader) || !read_manifest(reader, remote, next)) {
            return false;
        }
    }
    return true;
}

// Batches go out ahead of their replies, up to kBatchesAhead at once, so
// that the daemon puts one batch in place while the next is on its way.
bool TargetRun::send_files(const Plan &plan) {
    struct Batch {
        size_t files = 0;
        uint64_t bytes = 0;
    };
    std::deque<Batch> waiting;
    size_t index = 0;
    while (index < plan.send.size() || !waiting.empty()) {
        if (index < plan.send.size() && waiting.size() < kBatchesAhead) {
            Batch batch;
            void *request = client_.start(kFiles);
            slm_set_progress_routine(request, on_piece_sent, &progress_);
            for (; index < plan.send.size() && batch.files < kBatchFiles && batch.bytes < kBatchBytes; ++index) {
                FileEntry entry = local_[plan.send[index]];
                std::string path = join_path(o_.dir, entry.name);
                if (!crcs_.get(plan.send[index], entry.crc)) {
                    client_.drain(waiting.size());
                    return false;
                }
                std::string meta = pack_meta(entry);
                if (slm_set_string(request, kFileName, entry.name.c_str()) != 1 ||
                    slm_set_void(request, kFileMeta, meta.data(), kMetaBytes) != 1 ||
                    slm_set_att(request, kFileData, path.c_str(), 1) != 1) {
                    client_.drain(waiting.size());
                    return false;
                }
                batch.bytes += entry.size;
                ++batch.files;
            }
            if (!client_.send_request()) {
                return false;
            }
            waiting.push_back(batch);
            continue;
        }
        Reader reader(nullptr);
        if (!client_.receive_reply(reader)) {
            client_.drain(waiting.size() - 1);
            return false;
        }
        sent_ += static_cast<int>(waiting.front().files);
        bytes_ += waiting.front().bytes;
        progress_.advance(target_, waiting.front().files, waiting.front().bytes);
        waiting.pop_front();
    }
    return true;
}

bool TargetRun::delete_files(const Plan &plan) {
    std::string names;
    for (size_t i = 0; i < plan.remove.size(); ++i) {
        names += plan.remove[i];
        names.push_back('\0');
        if (names.size() < kManifestChunkBytes && i + 1 < plan.remove.size()) {
            continue;
        }
        void *request = client_.start(kDelete);
        slm_set_void(request, kDeleteNames, names.data(), static_cast<uint32_t>(names.size()));
        Reader reader(nullptr);
        if (!client_.exchange(reader)) {
            return false;
        }
        uint16_t code = 0;
        int32_t count = 0;
        while (reader.next(code)) {
            if (code != kFilesDeleted || !reader.get_int(count)) {
                reader.skip();
            }
        }
        deleted_ += count;
        names.clear();
    }
    return true;
}

bool TargetRun::commit() {
    client_.start(kCommit);
    Reader reader(nullptr);
    bool ok = client_.exchange(reader);
    if (!ok && !client_.reply_failed()) {
        return false;
    }
    err_save_error();
    uint16_t code = 0;
    while (reader.next(code)) {
        bool read = code == kExitCode ? reader.get_int(exit_code_)
                    : code == kReleaseId ? reader.get_string(release_id_)
                                         : reader.skip();
        if (!read) {
            break;
        }
    }
    if (!ok) {
        err_set_error(ERR_GEN_GENERAL, err_get_saved_error());
    }
    return ok;
}

// The daemon lists its side while the local files are still being read.
bool TargetRun::deploy() {
    std::vector<FileEntry> remote;
    if (!client_.connect(target_, o_.tls, o_.insecure) || !hello(remote)) {
        return false;
    }
    if (!local_ready_.get()) {
        err_set_error(ERR_GEN_GENERAL, "the local files could not be listed");
        return false;
    }
    Plan plan;
    if (!make_plan(local_, crcs_, remote, o_.remove, plan)) {
        return false;
    }
    skipped_ = plan.skipped;
    if (o_.dry_run) {
        for (size_t index : plan.send) {
            progress_.line(target_ + ": would send " + local_[index].name);
        }
        for (const std::string &name : plan.remove) {
            progress_.line(target_ + ": would delete " + name);
        }
        return true;
    }
    uint64_t bytes = 0;
    for (size_t index : plan.send) {
        bytes += local_[index].size;
    }
    progress_.plan(plan.send.size(), bytes);
    return send_files(plan) && delete_files(plan) && commit();
}

void TargetRun::report() const {
    double rate = seconds_ > 0 ? static_cast<double>(bytes_) / seconds_ : 0;
    std::string command = exit_code_ < 0 ? "no post-deploy command" : "post-deploy exit " + std::to_string(exit_code_);
    std::printf("%s: %s: %d sent, %d skipped, %d deleted, %llu bytes in %.2f s (%s/s), %s%s%s\n", target_.c_str(),
                ok_ ? (o_.dry_run ? "dry run" : "done") : "FAILED", sent_, skipped_, deleted_,
                static_cast<unsigned long long>(bytes_), seconds_, Progress::human_bytes(rate).c_str(),
                command.c_str(), release_id_.empty() ? "" : ", release ", release_id_.c_str());
    if (!ok_) {
        std::fprintf(stderr, "%s: %s\n", target_.c_str(), error_.c_str());
    }
}

// A cache that cannot be used costs only reading: a note, and the run goes on.
void cache_note(const std::string &what) {
    std::fprintf(stderr, "vqglob: note: %s: %s\n", what.c_str(), err_get_error_msg());
    err_clear_error_stack();
}

uint64_t fnv1a(const std::string &text) {
    uint64_t hash = 0xcbf29ce484222325ull;
    for (unsigned char c : text) {
        hash = (hash ^ c) * 0x100000001b3ull;
    }
    return hash;
}

// Where the CRCs of the files of dir are kept: $XDG_CACHE_HOME/vqglob, else
// HOME/.cache/vqglob, one file named by a hash of dir's full path, which the
// file holds too (two directories never share one). false with the reason
// on the stack.
bool cache_location(const std::string &dir, std::string &full, std::string &folder, std::string &file) {
    char *expanded = nullptr;
    int32_t size = 0;
    bool ok = gf_expand_full_path(dir.c_str(), &expanded, &size) == 1 && expanded != nullptr;
    full = ok ? expanded : "";
    std::free(expanded);
    if (!ok) {
        return false;
    }
    const char *xdg = std::getenv("XDG_CACHE_HOME");
    if (xdg != nullptr && gf_is_full_path(xdg) == 1) {
        folder = join_path(xdg, "vqglob");
    } else {
        const char *home = env_get_home_dir();
        if (home == nullptr || *home == '\0') {
            return false;
        }
        folder = join_path(join_path(home, ".cache"), "vqglob");
    }
    char name[32];
    std::snprintf(name, sizeof name, "%016llx.crc", static_cast<unsigned long long>(fnv1a(full)));
    file = join_path(folder, name);
    return true;
}

// The local cache: read when its file exists; NULL with -no_cache or when
// no place for it is known.
std::unique_ptr<CrcCache> open_cache(const Options &o, std::string &folder, std::string &file) {
    std::string full;
    if (o.no_cache) {
        return nullptr;
    }
    if (!cache_location(o.dir, full, folder, file)) {
        cache_note("no place for the CRC cache");
        return nullptr;
    }
    auto cache = std::make_unique<CrcCache>(full);
    if (path_exists(file) && !cache->load(file)) {
        cache_note("CRCs are read from the files again");
    }
    return cache;
}

void save_cache(CrcCache &cache, const std::string &folder, const std::string &file) {
    if (gf_make_dirs(folder.c_str(), 0700) != 1 || !cache.save(file, folder)) {
        cache_note("the CRC cache was not saved");
    }
}

}  // namespace

int run_deploy() {
    Options o;
    std::vector<FileEntry> local;
    if (sl_net_init() != 1 || !read_options(o)) {
        free_tls(&o.tls);
        return fail();
    }
    std::string cache_folder;
    std::string cache_file;
    std::unique_ptr<CrcCache> cache = open_cache(o, cache_folder, cache_file);
    LocalCrcs crcs(o.dir, cache.get());
    Progress progress;
    std::promise<bool> listed;
    std::shared_future<bool> local_ready = listed.get_future().share();
    std::vector<std::unique_ptr<TargetRun>> runs;
    for (const std::string &target : o.targets) {
        runs.push_back(std::make_unique<TargetRun>(o, local, crcs, local_ready, target, progress));
    }
    std::vector<std::thread> threads;
    for (auto &run : runs) {
        threads.emplace_back([&run] { run->run(); });
    }
    bool local_ok = local_files(o, local);  // its reason stays on this thread's stack
    if (local_ok) {
        crcs.listed(local);
    }
    listed.set_value(local_ok);
    bool all_ok = true;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
    }
    if (!local_ok) {
        free_tls(&o.tls);
        return fail();
    }
    if (cache != nullptr) {
        save_cache(*cache, cache_folder, cache_file);
    }
    progress.finish();
    std::printf("local CRCs: %zu remembered, %zu read\n", crcs.remembered(), crcs.read());
    for (auto &run : runs) {
        run->report();
        all_ok = all_ok && run->ok();
    }
    std::fflush(stdout);
    free_tls(&o.tls);
    sl_net_clean();
    return all_ok ? 0 : 1;
}

}  // namespace vqglob
