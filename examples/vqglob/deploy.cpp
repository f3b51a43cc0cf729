// "vqglob deploy": sends the files of a directory that differ from what a
// daemon holds, to every target at once (a thread per target), and reports
// per target. Without -include/-exclude every regular file is sent, dot files
// included; links are not followed.
#include <chrono>
#include <cstdio>
#include <deque>
#include <future>
#include <map>
#include <thread>

#include "client.h"
#include "files.h"
#include "progress.h"
#include "tool.h"
#include "vq_glob/cli.h"
#include "vq_glob/conf.h"
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
              make_filter(conf, o.dir, &filter) && list_tree(o.dir, filter, nullptr, true, entries);
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

bool same_file(const FileEntry &a, const FileEntry &b) {
    return a.size == b.size && a.mtime == b.mtime && a.crc == b.crc;
}

struct Plan {
    std::vector<const FileEntry *> send;
    std::vector<std::string> remove;
    int skipped = 0;
};

Plan make_plan(const std::vector<FileEntry> &local, const std::vector<FileEntry> &remote, bool remove) {
    Plan plan;
    std::map<std::string, const FileEntry *> there;
    for (const FileEntry &entry : remote) {
        there[entry.name] = &entry;
    }
    for (const FileEntry &entry : local) {
        auto it = there.find(entry.name);
        if (it != there.end() && same_file(entry, *it->second)) {
            ++plan.skipped;
        } else {
            plan.send.push_back(&entry);
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
    return plan;
}

class TargetRun {
public:
    // local is read once local_ready says it was listed (true) or failed.
    TargetRun(const Options &o, const std::vector<FileEntry> &local, std::shared_future<bool> local_ready,
              std::string target, Progress &progress)
        : o_(o), local_(local), local_ready_(std::move(local_ready)), target_(std::move(target)),
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
            for (; index < plan.send.size() && batch.files < kBatchFiles && batch.bytes < kBatchBytes; ++index) {
                const FileEntry &entry = *plan.send[index];
                std::string meta = pack_meta(entry);
                std::string path = join_path(o_.dir, entry.name);
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
    Plan plan = make_plan(local_, remote, o_.remove);
    skipped_ = plan.skipped;
    if (o_.dry_run) {
        for (const FileEntry *entry : plan.send) {
            progress_.line(target_ + ": would send " + entry->name);
        }
        for (const std::string &name : plan.remove) {
            progress_.line(target_ + ": would delete " + name);
        }
        return true;
    }
    uint64_t bytes = 0;
    for (const FileEntry *entry : plan.send) {
        bytes += entry->size;
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

}  // namespace

int run_deploy() {
    Options o;
    std::vector<FileEntry> local;
    if (sl_net_init() != 1 || !read_options(o)) {
        free_tls(&o.tls);
        return fail();
    }
    Progress progress;
    std::promise<bool> listed;
    std::shared_future<bool> local_ready = listed.get_future().share();
    std::vector<std::unique_ptr<TargetRun>> runs;
    for (const std::string &target : o.targets) {
        runs.push_back(std::make_unique<TargetRun>(o, local, local_ready, target, progress));
    }
    std::vector<std::thread> threads;
    for (auto &run : runs) {
        threads.emplace_back([&run] { run->run(); });
    }
    bool local_ok = local_files(o, local);  // its reason stays on this thread's stack
    listed.set_value(local_ok);
    bool all_ok = true;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
    }
    if (!local_ok) {
        free_tls(&o.tls);
        return fail();
    }
    progress.finish();
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
