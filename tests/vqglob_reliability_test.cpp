// The deployment daemon under crashes and load: a daemon killed with SIGKILL
// at many points of a deployment leaves only whole files behind and its
// restart sweeps what the crash left; fifty clients deploying at once each
// get their own tree intact. Every step waits for an event (a file renamed
// into the root, a daemon line, a process's exit), never for time.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/net_support.h"
#include "vqglob_harness.h"

#ifndef _WIN32
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace vqglob_test;
using vq::test::ScratchDir;

#ifndef _WIN32

// Bytes that differ from file to file and from round to round.
std::string pattern(size_t size, uint32_t seed) {
    std::string text(size, '\0');
    uint32_t state = seed * 2654435761u + 1;
    for (char &c : text) {
        state = state * 1103515245u + 12345u;
        c = static_cast<char>(state >> 24);
    }
    return text;
}

// Counts files renamed into one directory (inotify's IN_MOVED_TO): the
// daemon puts every received file in place with a rename.
class ArrivalWatch {
public:
    explicit ArrivalWatch(const fs::path &dir) {
        fd_ = inotify_init1(IN_CLOEXEC);
        EXPECT_GE(fd_, 0);
        EXPECT_GE(inotify_add_watch(fd_, dir.c_str(), IN_MOVED_TO), 0);
    }
    ~ArrivalWatch() { close(fd_); }
    ArrivalWatch(const ArrivalWatch &) = delete;
    ArrivalWatch &operator=(const ArrivalWatch &) = delete;

    // Waits until count files have arrived since the watch began; false when
    // none came for the give-up bound (a broken run).
    bool wait_arrivals(size_t count) {
        while (seen_ < count) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, static_cast<int>(std::chrono::milliseconds(kGiveUp).count())) != 1) {
                return false;
            }
            alignas(inotify_event) char buffer[4096];
            ssize_t got = read(fd_, buffer, sizeof buffer);
            for (ssize_t at = 0; at < got;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
                seen_ += (event->mask & IN_MOVED_TO) != 0 ? 1 : 0;
                at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            }
        }
        return true;
    }

private:
    int fd_ = -1;
    size_t seen_ = 0;
};

class VqglobReliability : public ::testing::Test {
protected:
    void SetUp() override {
        if (kTool == nullptr) {
            GTEST_SKIP() << "the tool is not built";
        }
    }
    ScratchDir scratch_{"vqglob_reliability"};
};

constexpr size_t kCrashFiles = 12;
constexpr int kCrashRounds = 50;

// The versions of each file written so far, by the hash of their bytes.
using Versions = std::map<std::string, std::set<size_t>>;

size_t hash_of(const std::string &bytes) { return std::hash<std::string>{}(bytes); }

// Writes round's version of every file of the flat source tree (13 MB in
// all: two FILES batches, so that kills also land while the second one is
// still arriving) and remembers each version written.
void write_round(const fs::path &src, int round, Versions &versions) {
    for (size_t i = 0; i < kCrashFiles; ++i) {
        std::string name = "f" + std::to_string(i) + ".bin";
        std::string text = pattern(16384 + i * 200000, static_cast<uint32_t>(round * 100 + static_cast<int>(i)));
        std::ofstream(src / name, std::ios::binary) << text;
        versions[name].insert(hash_of(text));
    }
}

// Every file in the root is a whole version of a source file, and nothing
// but the source's names and the daemon's temporary directory is there.
void expect_only_whole_files(const fs::path &root, const Versions &versions, int round) {
    for (const auto &entry : fs::directory_iterator(root)) {
        std::string name = entry.path().filename().string();
        if (name == ".vqglob-tmp") {
            EXPECT_TRUE(fs::is_empty(entry.path())) << "round " << round << ": the restart left temporaries";
            continue;
        }
        if (name == ".vqglob-crc-cache") {
            continue;  // the daemon's remembered CRCs
        }
        auto known = versions.find(name);
        ASSERT_NE(known, versions.end()) << "round " << round << ": stray entry " << name;
        EXPECT_EQ(known->second.count(hash_of(contents(entry.path()))), 1u) << "round " << round << ": " << name
                                                                   << " is no whole version";
    }
}

TEST_F(VqglobReliability, ADaemonKilledAtAnyPointLeavesOnlyWholeFilesAndItsRestartSweeps) {
    const fs::path src = scratch_.path() / "src";
    fs::create_directories(src);
    Versions versions;
    auto daemon = std::make_unique<Daemon>(scratch_.path(), "");
    for (int round = 0; round < kCrashRounds; ++round) {
        write_round(src, round, versions);
        // The kill comes after the n-th file of the round is in place, while
        // the daemon is on the next one (n = 0: as soon as it took the client).
        size_t kill_after = static_cast<size_t>(round) % (kCrashFiles + 1);
        ArrivalWatch watch(daemon->root());
        size_t connected = daemon->child().count_lines(": connected");
        Child client({"deploy", src.string(), "-to=" + daemon->target(), "-insecure"});
        if (kill_after == 0) {
            daemon->child().wait_line(": connected", connected + 1);
        } else {
            ASSERT_TRUE(watch.wait_arrivals(kill_after)) << "round " << round << ": files did not arrive";
        }
        daemon->child().signal(SIGKILL);
        daemon->child().wait_exit();
        int status = client.wait_exit();
        daemon.reset();
        daemon = std::make_unique<Daemon>(scratch_.path(), "");  // sweeps at start
        expect_only_whole_files(daemon->root(), versions, round);
        if (status == 0) {  // it committed before the kill: the whole round is there
            for (const auto &entry : fs::directory_iterator(src)) {
                EXPECT_EQ(contents(daemon->root() / entry.path().filename()), contents(entry.path()));
            }
        }
        if (HasFatalFailure() || HasFailure()) {
            return;
        }
    }
    ToolResult last = run_tool({"deploy", src.string(), "-to=" + daemon->target(), "-insecure"});
    ASSERT_EQ(last.status, 0) << last.output;
    for (const auto &entry : fs::directory_iterator(src)) {
        EXPECT_EQ(contents(daemon->root() / entry.path().filename()), contents(entry.path()));
    }
    daemon->wait_connections_closed();
    EXPECT_TRUE(fs::is_empty(daemon->root() / ".vqglob-tmp"));
}

TEST_F(VqglobReliability, FiftyConcurrentDeploymentsEachArriveIntact) {
    constexpr int kClients = 50;
    Daemon d(scratch_.path(), "Max Clients=64\n");
    // Client i deploys a tree holding one directory, t<i>, so every tree
    // lands in a sub-directory of its own.
    std::vector<fs::path> sources;
    for (int i = 0; i < kClients; ++i) {
        fs::path dir = scratch_.path() / ("src" + std::to_string(i));
        for (int f = 0; f < 6; ++f) {
            fs::path file = dir / ("t" + std::to_string(i)) / ("d" + std::to_string(f % 2)) / ("f" + std::to_string(f));
            fs::create_directories(file.parent_path());
            std::ofstream(file, std::ios::binary)
                << pattern(8192 + static_cast<size_t>(f) * 7000, static_cast<uint32_t>(i * 10 + f));
        }
        sources.push_back(dir);
    }
    std::vector<std::unique_ptr<Child>> clients;
    for (const fs::path &dir : sources) {
        clients.push_back(
            std::make_unique<Child>(std::vector<std::string>{"deploy", dir.string(), "-to=" + d.target(), "-insecure"}));
    }
    for (size_t i = 0; i < clients.size(); ++i) {
        EXPECT_EQ(clients[i]->wait_exit(), 0) << "client " << i << ":\n" << clients[i]->output();
    }
    for (size_t i = 0; i < sources.size(); ++i) {
        std::string sub = "t" + std::to_string(i);
        for (const auto &entry : fs::recursive_directory_iterator(sources[i] / sub)) {
            if (entry.is_regular_file()) {
                fs::path rel = fs::relative(entry.path(), sources[i]);
                EXPECT_EQ(contents(d.root() / rel), contents(entry.path())) << rel;
            }
        }
    }
    d.wait_connections_closed();
    EXPECT_TRUE(fs::is_empty(d.root() / ".vqglob-tmp"));
    EXPECT_EQ(d.child().count_lines("deployment committed"), static_cast<size_t>(kClients));
    EXPECT_EQ(d.child().count_lines("connection ended"), 0u);
}

#endif

}  // namespace
