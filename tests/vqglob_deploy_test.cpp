// The deployment daemon and client as a user runs them: the built vqglob
// serves a target root on 127.0.0.1 and deploy sends trees made here. Each
// test waits for the daemon's "listening on" line and its log lines, and for
// the exit of every command.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>

#include "../examples/vqglob/protocol.h"
#include "support/env_var.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/hash.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"
#include "vqglob_harness.h"

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace vqglob_test;
using vq::test::ScratchDir;

#ifndef _WIN32

void put(const fs::path &path, const std::string &text, int64_t mtime, fs::perms mode = fs::perms(0644)) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    fs::permissions(path, mode);
    fs::last_write_time(path, std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(mtime))));
}

struct stat stat_of(const fs::path &path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st;
}

// The regular files below dir, relative, with their contents.
std::map<std::string, std::string> tree(const fs::path &dir) {
    std::map<std::string, std::string> files;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        std::string rel = fs::relative(it->path(), dir).generic_string();
        if (rel.rfind(".vqglob-", 0) == 0 || rel.rfind("releases", 0) == 0 || rel == "current") {
            it.disable_recursion_pending();
            continue;
        }
        if (it->is_regular_file()) {
            files[rel] = contents(it->path());
        }
    }
    return files;
}

bool empty_dir(const fs::path &dir) { return fs::is_directory(dir) && fs::is_empty(dir); }

class VqglobDeploy : public ::testing::Test {
protected:
    void SetUp() override {
        if (kTool == nullptr) {
            GTEST_SKIP() << "the tool is not built";
        }
        put(src() / "a.txt", "alpha", 1500000000);
        put(src() / ".hidden", "dot file", 1500000001);
        put(src() / "sub/deep/b.bin", std::string("\0\1\2binary", 9), 1500000002, fs::perms(0750));
        put(src() / "sub/c.log", "log", 1500000003);
        // The client's CRC cache goes to the scratch directory, not the user's.
        vq::test::set_env("XDG_CACHE_HOME", (scratch_.path() / "cache").c_str());
    }
    void TearDown() override {
        vq::test::set_env("XDG_CACHE_HOME", nullptr);
        vq::test::set_env("VQGLOB_TIMESTAMP_STEP_NS", nullptr);
    }
    fs::path src() const { return scratch_.path() / "src"; }
    fs::path client_cache_dir() const { return scratch_.path() / "cache/vqglob"; }
    ToolResult deploy(const Daemon &d, std::vector<std::string> extra = {}) {
        std::vector<std::string> args = {"deploy", src().string(), "-to=" + d.target(), "-insecure"};
        args.insert(args.end(), extra.begin(), extra.end());
        return run_tool(args);
    }

    ScratchDir scratch_{"vqglob_deploy"};
};

TEST_F(VqglobDeploy, FirstDeployCopiesTheTreeAndTheNextSendsOnlyWhatChanged) {
    Daemon d(scratch_.path(), "");
    ToolResult first = deploy(d);
    ASSERT_EQ(first.status, 0) << first.output;
    EXPECT_TRUE(first.says("4 sent, 0 skipped")) << first.output;
    EXPECT_EQ(tree(d.root()), tree(src()));
    struct stat bin = stat_of(d.root() / "sub/deep/b.bin");
    EXPECT_EQ(bin.st_mode & 0777, 0750u);
    EXPECT_EQ(bin.st_mtime, 1500000002);
    d.wait_connections_closed();
    EXPECT_TRUE(empty_dir(d.root() / ".vqglob-tmp"));
    EXPECT_NE(contents(scratch_.path() / "serve.log").find("127.0.0.1: deployment committed"), std::string::npos);
    // The client said goodbye: a plain close, no broken connection.
    EXPECT_EQ(d.child().count_lines("127.0.0.1: closed"), 1u) << d.child().output();
    EXPECT_EQ(d.child().count_lines("connection ended"), 0u) << d.child().output();

    // One file changes; the others stay as they are on the target, inode and time.
    struct stat before = stat_of(d.root() / "a.txt");
    put(src() / "sub/c.log", "log, longer", 1600000000);
    ToolResult second = deploy(d);
    ASSERT_EQ(second.status, 0) << second.output;
    EXPECT_TRUE(second.says("1 sent, 3 skipped")) << second.output;
    struct stat after = stat_of(d.root() / "a.txt");
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(after.st_ctim.tv_sec, before.st_ctim.tv_sec);
    EXPECT_EQ(contents(d.root() / "sub/c.log"), "log, longer");
    EXPECT_EQ(stat_of(d.root() / "sub/c.log").st_mtime, 1600000000);

    // Same size and time but other bytes: the CRC tells them apart.
    put(src() / "a.txt", "ALPHA", 1500000000);
    ToolResult third = deploy(d);
    ASSERT_EQ(third.status, 0) << third.output;
    EXPECT_EQ(contents(d.root() / "a.txt"), "ALPHA");
    EXPECT_TRUE(third.says("1 sent, 3 skipped")) << third.output;
}

// Both sides remember CRCs; each must notice a file rewritten in place with
// its size and modification time restored, which only the change time tells.
TEST_F(VqglobDeploy, RememberedCrcsMissAFileRewrittenWithItsSizeAndTimeRestored) {
    vq::test::set_env("VQGLOB_TIMESTAMP_STEP_NS", "0");  // this file system keeps nanoseconds
    Daemon d(scratch_.path(), "");
    ASSERT_EQ(deploy(d).status, 0);
    ToolResult again = deploy(d);
    ASSERT_EQ(again.status, 0) << again.output;
    EXPECT_TRUE(again.says("0 sent, 4 skipped")) << again.output;
    EXPECT_TRUE(again.says("local CRCs: 4 remembered, 0 read")) << again.output;
    d.child().wait_line("4 files held, 4 CRCs remembered");

    put(src() / "a.txt", "ALPHA", 1500000000);  // same inode, size and time
    ToolResult source_side = deploy(d);
    ASSERT_EQ(source_side.status, 0) << source_side.output;
    EXPECT_TRUE(source_side.says("1 sent, 3 skipped")) << source_side.output;
    EXPECT_EQ(contents(d.root() / "a.txt"), "ALPHA");

    put(d.root() / "sub/c.log", "LOG", 1500000003);  // the target's copy, likewise
    ToolResult target_side = deploy(d);
    ASSERT_EQ(target_side.status, 0) << target_side.output;
    EXPECT_TRUE(target_side.says("1 sent, 3 skipped")) << target_side.output;
    EXPECT_EQ(contents(d.root() / "sub/c.log"), "log");

    // Without the cache every file is read; nothing of it is needed.
    ToolResult uncached = deploy(d, {"-no_cache"});
    EXPECT_TRUE(uncached.says("0 sent, 4 skipped")) << uncached.output;
    EXPECT_TRUE(uncached.says("local CRCs: 0 remembered, 4 read")) << uncached.output;
}

// A cache file is untrusted input: torn or lying, it is ignored with a note,
// the deployment is still right and a good cache replaces it.
TEST_F(VqglobDeploy, DamagedCacheFilesAreIgnoredAndReplaced) {
    vq::test::set_env("VQGLOB_TIMESTAMP_STEP_NS", "0");
    auto d = std::make_unique<Daemon>(scratch_.path(), "");
    ASSERT_EQ(deploy(*d).status, 0);
    ASSERT_EQ(deploy(*d).status, 0);  // the daemon's cache is written now
    EXPECT_EQ(d->stop(), 0);
    const fs::path daemon_cache = d->root() / ".vqglob-crc-cache";
    std::string whole = contents(daemon_cache);
    ASSERT_GT(whole.size(), 40u);
    std::ofstream(daemon_cache, std::ios::binary | std::ios::trunc) << whole.substr(0, whole.size() / 2);

    // A well-formed header whose count and name length promise more than
    // the file holds, under a correct checksum.
    std::vector<fs::path> client_files;
    for (const auto &entry : fs::directory_iterator(client_cache_dir())) {
        client_files.push_back(entry.path());
    }
    ASSERT_EQ(client_files.size(), 1u);
    std::string lying("VQGCRC1\n\0\0\0\0\xff\xff\xff\x7f\xff\xff" "abc", 21);
    updcrc(nullptr, 0);
    uint32_t sum = updcrc(reinterpret_cast<const unsigned char *>(lying.data()), static_cast<uint32_t>(lying.size()));
    for (int i = 0; i < 4; ++i) {
        lying.push_back(static_cast<char>((sum >> (8 * i)) & 0xff));
    }
    std::ofstream(client_files[0], std::ios::binary | std::ios::trunc) << lying;

    put(d->root() / "a.txt", "ALPHA", 1500000000);  // only reading it again finds this
    d = std::make_unique<Daemon>(scratch_.path(), "");
    ToolResult run = deploy(*d);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(run.says("note: CRCs are read from the files again")) << run.output;
    EXPECT_TRUE(run.says("local CRCs: 0 remembered, 4 read")) << run.output;
    EXPECT_TRUE(run.says("1 sent, 3 skipped")) << run.output;
    EXPECT_EQ(tree(d->root()), tree(src()));
    EXPECT_GE(d->child().count_lines("CRCs are read from the files again"), 1u) << d->child().output();

    ToolResult next = deploy(*d);
    EXPECT_TRUE(next.says("local CRCs: 4 remembered, 0 read")) << next.output;
    EXPECT_FALSE(next.says("note:")) << next.output;
    d->wait_connections_closed();
    d->child().wait_line("4 files held, 4 CRCs remembered");
    EXPECT_TRUE(empty_dir(d->root() / ".vqglob-tmp"));
    EXPECT_EQ(std::distance(fs::directory_iterator(client_cache_dir()), fs::directory_iterator()), 1);
}

TEST_F(VqglobDeploy, DeleteRemovesWhatTheSourceLostAndDryRunOnlyTellsIt) {
    Daemon d(scratch_.path(), "");
    ASSERT_EQ(deploy(d).status, 0);
    fs::remove_all(src() / "sub/deep");
    put(src() / "new.txt", "new", 1500000009);

    ToolResult dry = deploy(d, {"-delete", "-dry_run"});
    EXPECT_EQ(dry.status, 0) << dry.output;
    EXPECT_TRUE(dry.says("would delete sub/deep/b.bin")) << dry.output;
    EXPECT_TRUE(dry.says("would send new.txt")) << dry.output;
    EXPECT_TRUE(fs::exists(d.root() / "sub/deep/b.bin"));
    EXPECT_FALSE(fs::exists(d.root() / "new.txt"));

    ToolResult kept = deploy(d);  // without -delete nothing goes
    ASSERT_EQ(kept.status, 0) << kept.output;
    EXPECT_TRUE(fs::exists(d.root() / "sub/deep/b.bin"));

    ToolResult real = deploy(d, {"-delete"});
    ASSERT_EQ(real.status, 0) << real.output;
    EXPECT_TRUE(real.says("1 deleted")) << real.output;
    EXPECT_FALSE(fs::exists(d.root() / "sub/deep"));
    EXPECT_EQ(tree(d.root()), tree(src()));
}

TEST_F(VqglobDeploy, IncludeAndExcludeChooseTheFilesSent) {
    Daemon d(scratch_.path(), "");
    ToolResult run = deploy(d, {"-include=*.txt,*.log", "-exclude=c.*"});
    ASSERT_EQ(run.status, 0) << run.output;
    std::map<std::string, std::string> wanted = {{"a.txt", "alpha"}};
    EXPECT_EQ(tree(d.root()), wanted);
}

TEST_F(VqglobDeploy, TheDaemonsFilterRefusesWhatItLeavesOut) {
    Daemon d(scratch_.path(), "[Filter Params]\nIgnore UNIX Hidden Files=FALSE\n"
                              "Include Non Recursive Part List=_ml_text_\n*\n_ml_text_\n"
                              "Include Recursive Part List=_ml_text_\n*\n_ml_text_\n"
                              "Exclude Non Recursive Part List=_ml_text_\n*\n_ml_text_\n"
                              "Exclude Recursive Part List=_ml_text_\n*.log\n_ml_text_\n");
    // Enough files for several batches on their way at once, a refused one
    // in each: the client still reads every reply owed and says goodbye.
    for (int i = 0; i < 300; ++i) {
        put(src() / "many" / ("f" + std::to_string(i) + (i % 50 == 7 ? ".log" : ".txt")), std::to_string(i), 1500000000);
    }
    ToolResult refused = deploy(d);
    EXPECT_NE(refused.status, 0) << refused.output;
    EXPECT_TRUE(refused.says(".log>: the daemon's filter leaves it out")) << refused.output;
    EXPECT_FALSE(fs::exists(d.root() / "sub/c.log"));
    d.wait_connections_closed();
    EXPECT_EQ(d.child().count_lines("connection ended"), 0u) << d.child().output();
    EXPECT_EQ(d.child().count_lines("could not be sent"), 0u) << d.child().output();
    ToolResult accepted = deploy(d, {"-exclude=*.log"});
    EXPECT_EQ(accepted.status, 0) << accepted.output;
    std::map<std::string, std::string> wanted = tree(src());
    std::erase_if(wanted, [](const auto &file) { return file.first.ends_with(".log"); });
    EXPECT_EQ(tree(d.root()), wanted);
}

TEST_F(VqglobDeploy, PostDeployCommandRunsInTheRootAndItsFailureFailsTheDeploy) {
    Daemon d(scratch_.path(), "Post Deploy Command=echo ran in $(pwd); ls sub\n");
    ToolResult ok = deploy(d);
    ASSERT_EQ(ok.status, 0) << ok.output;
    EXPECT_TRUE(ok.says("post-deploy exit 0")) << ok.output;
    d.child().wait_line("post-deploy: ran in " + fs::canonical(d.root()).string());
    d.child().wait_line("post-deploy: deep");  // it ran after the files were in place

    d.reload("Post Deploy Command=echo failing; exit 3\n");
    put(src() / "a.txt", "changed", 1500000100);
    ToolResult failed = deploy(d);
    EXPECT_NE(failed.status, 0) << failed.output;
    EXPECT_TRUE(failed.says("post-deploy exit 3")) << failed.output;
    EXPECT_TRUE(failed.says("failed with exit status 3")) << failed.output;
    d.child().wait_line("post-deploy: failing");
}

TEST_F(VqglobDeploy, ReleasesSwitchCurrentAndRollBack) {
    Daemon d(scratch_.path(), "");
    ToolResult first = deploy(d, {"-release"});
    ASSERT_EQ(first.status, 0) << first.output;
    put(src() / "a.txt", "second", 1500000200);
    ToolResult second = deploy(d, {"-release"});
    ASSERT_EQ(second.status, 0) << second.output;
    EXPECT_TRUE(second.says("1 sent, 3 skipped")) << second.output;

    ToolResult list = run_tool({"releases", d.target(), "-insecure"});
    ASSERT_EQ(list.status, 0) << list.output;
    std::vector<std::string> ids;
    for (auto &entry : fs::directory_iterator(d.root() / "releases")) {
        ids.push_back(entry.path().filename().string());
    }
    std::sort(ids.begin(), ids.end());
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_TRUE(list.says("  " + ids[0] + "\n* " + ids[1])) << list.output;
    EXPECT_EQ(fs::read_symlink(d.root() / "current").generic_string(), "releases/" + ids[1]);
    EXPECT_EQ(contents(d.root() / "current/a.txt"), "second");
    EXPECT_EQ(tree(d.root() / "current"), tree(src()));
    // An unchanged file is shared with the release before, not sent again.
    EXPECT_EQ(stat_of(d.root() / "releases" / ids[0] / "sub/c.log").st_ino,
              stat_of(d.root() / "releases" / ids[1] / "sub/c.log").st_ino);
    EXPECT_FALSE(fs::exists(d.root() / "a.txt"));  // nothing outside the releases

    ToolResult back = run_tool({"rollback", d.target(), "-insecure"});
    ASSERT_EQ(back.status, 0) << back.output;
    EXPECT_EQ(contents(d.root() / "current/a.txt"), "alpha");
    ToolResult none = run_tool({"rollback", d.target(), "-insecure"});
    EXPECT_NE(none.status, 0);
    EXPECT_TRUE(none.says("no release before " + ids[0])) << none.output;

    // A failing command leaves current where it was and no new release.
    d.reload("Post Deploy Command=exit 1\n");
    put(src() / "a.txt", "third", 1500000300);
    ToolResult failed = deploy(d, {"-release"});
    EXPECT_NE(failed.status, 0) << failed.output;
    EXPECT_EQ(fs::read_symlink(d.root() / "current").generic_string(), "releases/" + ids[0]);
    EXPECT_EQ(std::distance(fs::directory_iterator(d.root() / "releases"), fs::directory_iterator()), 2);
    d.wait_connections_closed();
    EXPECT_TRUE(empty_dir(d.root() / ".vqglob-tmp"));
}

TEST_F(VqglobDeploy, SeveralTargetsAreServedAndEachReported) {
    ScratchDir other("vqglob_deploy_b");
    Daemon a(scratch_.path(), "");
    Daemon b(other.path(), "");
    ToolResult run = run_tool({"deploy", src().string(), "-to=" + a.target() + "," + b.target(), "-insecure"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(run.says(a.target() + ": done: 4 sent")) << run.output;
    EXPECT_TRUE(run.says(b.target() + ": done: 4 sent")) << run.output;
    EXPECT_EQ(tree(a.root()), tree(src()));
    EXPECT_EQ(tree(b.root()), tree(src()));

    // One target gone: the run fails, the other target still gets its files.
    EXPECT_EQ(b.stop(), 0);
    put(src() / "a.txt", "again", 1500000400);
    ToolResult half = run_tool({"deploy", src().string(), "-to=" + a.target() + "," + b.target(), "-insecure"});
    EXPECT_NE(half.status, 0) << half.output;
    EXPECT_TRUE(half.says(b.target() + ": FAILED")) << half.output;
    EXPECT_EQ(contents(a.root() / "a.txt"), "again");
}

TEST_F(VqglobDeploy, PlainModeNeedsInsecureOnBothSides) {
    Daemon d(scratch_.path(), "");
    ToolResult no_flag = run_tool({"deploy", src().string(), "-to=" + d.target()});
    EXPECT_NE(no_flag.status, 0);
    EXPECT_TRUE(no_flag.says("needs TLS (-cert, -key and -ca)")) << no_flag.output;
    ToolResult certs = run_tool({"deploy", src().string(), "-to=" + d.target(), "-insecure", "-cert=c.pem"});
    EXPECT_NE(certs.status, 0);
    EXPECT_TRUE(certs.says("TLS needs -cert, -key and -ca together")) << certs.output;
    EXPECT_TRUE(tree(d.root()).empty());

    ScratchDir strict("vqglob_strict");
    fs::create_directories(strict.path() / "root");
    std::ofstream(strict.path() / "s.conf") << "[Server]\nPort=0\nTarget Root=" << (strict.path() / "root").string()
                                            << "\n";
    ToolResult refused = run_tool({"serve", "-config=" + (strict.path() / "s.conf").string()});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.says("without a \"Certificate File\" (TLS) serve needs")) << refused.output;
    EXPECT_FALSE(refused.says("listening on")) << refused.output;
}

TEST_F(VqglobDeploy, BadConfigurationsExitWithTheStackBeforeListening) {
    const fs::path conf = scratch_.path() / "bad.conf";
    const std::string root = "Target Root=" + scratch_.path().string() + "\n";
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"[Server]\nPort=0\nInsecure Loopback=TRUE\n", "\"Target Root\" of section \"Server\" is required"},
        {"[Server]\nPort=0\nInsecure Loopback=TRUE\nTarget Root=/no/such/dir\n", "is no directory"},
        {"[Server]\nPort=70000\nInsecure Loopback=TRUE\n" + root, "\"Port\" must be 0 to 65535"},
        {"[Server]\nPort=0\nMax Clients=0\nInsecure Loopback=TRUE\n" + root, "\"Max Clients\" must be 1 or more"},
        {"this is no configuration\n", "illegal line"},
        {"[Server]\nPort=0\nInsecure Loopback=TRUE\nAllowed Clients=abc\n" + root, "field <Allowed Clients>"},
    };
    for (const auto &[text, reason] : cases) {
        std::ofstream(conf) << text;
        ToolResult run = run_tool({"serve", "-config=" + conf.string()});
        EXPECT_EQ(run.status, 1) << text;
        EXPECT_TRUE(run.says(reason)) << text << run.output;
        EXPECT_FALSE(run.says("listening on")) << run.output;
        // The stack printed is the configuration's, newest entry first, and
        // nothing left over from the clean-up on top of it.
        EXPECT_EQ(run.output.rfind("GEN-E-GENERAL, bad configuration file <" + conf.string() + ">", 0), 0u)
            << run.output;
    }
    ToolResult missing = run_tool({"serve", "-config=" + (scratch_.path() / "none.conf").string()});
    EXPECT_EQ(missing.status, 1);
    EXPECT_FALSE(missing.says("listening on")) << missing.output;
}

// A connection that said HELLO and waits, as a deploy between requests.
struct HeldClient {
    void *session = nullptr;
    explicit HeldClient(const std::string &port) {
        session = vq::test::client_for(static_cast<uint16_t>(std::stoi(port)));
        EXPECT_EQ(sl_net_connect(session), 1) << err_get_error_msg();
        vq::test::Message hello;
        slm_set_int(hello.get(), vqglob::kOp, vqglob::kHello);
        slm_set_int(hello.get(), vqglob::kVersion, vqglob::kProtocolVersion);
        slm_set_int(hello.get(), vqglob::kFlags, vqglob::kFlagRelease);
        EXPECT_EQ(slm_send(hello.get(), session, 1), 1) << err_get_error_msg();
        vq::test::Message reply;
        EXPECT_EQ(slm_recv(reply.get(), session), 1) << err_get_error_msg();
        int32_t status = -1;
        EXPECT_EQ(slm_get_int_by_code(reply.get(), vqglob::kStatus, &status), 1);
        EXPECT_EQ(status, vqglob::kStatusOk);
    }
    ~HeldClient() { vq::test::free_session(session); }
};

class VqglobDaemon : public VqglobDeploy {
protected:
    void SetUp() override {
        VqglobDeploy::SetUp();
        sl_net_init();
    }
    void TearDown() override { sl_net_clean(); }
};

TEST_F(VqglobDaemon, ClientsPastMaxClientsAreRefusedWithAMessage) {
    Daemon d(scratch_.path(), "Max Clients=1\n");
    {
        HeldClient held(d.port());
        ToolResult refused = deploy(d);
        EXPECT_NE(refused.status, 0);
        EXPECT_TRUE(refused.says("serves at most 1 clients at once")) << refused.output;
    }
    d.child().wait_line(": closed", 2);  // the held connection is gone
    ToolResult served = deploy(d);
    EXPECT_EQ(served.status, 0) << served.output;
}

TEST_F(VqglobDaemon, TermStopsWithTransfersAbandonedAndThePortRebindsAtOnce) {
    auto d = std::make_unique<Daemon>(scratch_.path(), "");
    std::string port = d->port();
    {
        HeldClient held(port);  // a release being built, under .vqglob-tmp
        EXPECT_FALSE(empty_dir(d->root() / ".vqglob-tmp"));
        EXPECT_EQ(d->stop(), 0);
        EXPECT_GE(d->child().count_lines("stopped"), 1u);
    }
    EXPECT_TRUE(!fs::exists(d->root() / ".vqglob-tmp") || empty_dir(d->root() / ".vqglob-tmp"));
    EXPECT_FALSE(fs::exists(d->root() / "releases"));
    d.reset();
    Daemon again(scratch_.path(), "", port);
    EXPECT_EQ(again.port(), port);
    EXPECT_EQ(deploy(again).status, 0);
}

TEST_F(VqglobDaemon, StartSweepsWhatACrashLeftInTheTemporaryDirectory) {
    fs::create_directories(scratch_.path() / "root/.vqglob-tmp/release-x");
    put(scratch_.path() / "root/.vqglob-tmp/slm12345678", "half a file", 1500000000);
    Daemon d(scratch_.path(), "");
    EXPECT_TRUE(empty_dir(d.root() / ".vqglob-tmp"));
}

#endif

}  // namespace
