// Running the built vqglob as real child processes: a daemon whose output
// lines are read as they come (tests wait for a line, never for time), and
// client commands run to their end with their output collected.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/env_var.h"
#include "support/net_support.h"

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace vqglob_test {

namespace fs = std::filesystem;

#ifdef VQ_GLOB_TOOL_PATH
inline const char *const kTool = VQ_GLOB_TOOL_PATH;
#else
inline const char *const kTool = nullptr;
#endif

// A waited-for line that never comes fails the test after this long: a
// bound on a broken run, not a synchronisation.
constexpr auto kGiveUp = std::chrono::seconds(120);

// The client's CRC caches of a test program go to a scratch directory of
// its own, never to the user's: set unless a fixture chose another place.
inline void keep_caches_in_scratch() {
    static const vq::test::ScratchDir cache_home{"vqglob_cache_home"};
    if (std::getenv("XDG_CACHE_HOME") == nullptr) {
        vq::test::set_env("XDG_CACHE_HOME", cache_home.path().string().c_str());
    }
}

#ifndef _WIN32
// A child with its standard output and error on one pipe, read line by line
// on a thread of its own.
class Child {
public:
    explicit Child(const std::vector<std::string> &args) {
        keep_caches_in_scratch();
        int fds[2];
        if (pipe(fds) != 0) {
            ADD_FAILURE() << "pipe";
            return;
        }
        std::vector<char *> argv;
        std::string tool = kTool;
        argv.push_back(tool.data());
        std::vector<std::string> copy = args;
        for (std::string &a : copy) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(fds[1], 1);
            dup2(fds[1], 2);
            close(fds[0]);
            close(fds[1]);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(fds[1]);
        reader_ = std::thread([this, fd = fds[0]] { read_lines(fd); });
    }
    ~Child() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            wait_exit();
        }
        if (reader_.joinable()) {
            reader_.join();
        }
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void signal(int sig) const { kill(pid_, sig); }

    // Waits for the count-th line holding text (1: the first); the line.
    std::string wait_line(const std::string &text, size_t count = 1) {
        std::unique_lock<std::mutex> lock(mutex_);
        std::string found;
        bool ok = changed_.wait_for(lock, kGiveUp, [&] {
            size_t seen = 0;
            for (const std::string &line : lines_) {
                if (line.find(text) != std::string::npos && ++seen == count) {
                    found = line;
                    return true;
                }
            }
            return ended_;
        });
        EXPECT_TRUE(ok && !found.empty()) << "no line " << count << " with \"" << text << "\" in:\n" << all_locked();
        return found;
    }
    size_t count_lines(const std::string &text) {
        std::lock_guard<std::mutex> lock(mutex_);
        size_t seen = 0;
        for (const std::string &line : lines_) {
            seen += line.find(text) != std::string::npos ? 1 : 0;
        }
        return seen;
    }
    // The exit status (-1 when killed by a signal), once the child ended.
    int wait_exit() {
        int status = 0;
        if (!exited_) {
            waitpid(pid_, &status, 0);
            exited_ = true;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (reader_.joinable()) {
            reader_.join();
        }
        return status_;
    }
    std::string output() {
        std::lock_guard<std::mutex> lock(mutex_);
        return all_locked();
    }

private:
    void read_lines(int fd) {
        std::string partial;
        char buffer[4096];
        ssize_t got = 0;
        while ((got = read(fd, buffer, sizeof buffer)) > 0) {
            std::lock_guard<std::mutex> lock(mutex_);
            partial.append(buffer, static_cast<size_t>(got));
            for (size_t nl = partial.find('\n'); nl != std::string::npos; nl = partial.find('\n')) {
                lines_.push_back(partial.substr(0, nl));
                partial.erase(0, nl + 1);
            }
            changed_.notify_all();
        }
        close(fd);
        std::lock_guard<std::mutex> lock(mutex_);
        if (!partial.empty()) {
            lines_.push_back(partial);
        }
        ended_ = true;
        changed_.notify_all();
    }
    std::string all_locked() const {
        std::string text;
        for (const std::string &line : lines_) {
            text += line + "\n";
        }
        return text;
    }

    pid_t pid_ = -1;
    bool exited_ = false;
    int status_ = -1;
    std::thread reader_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
    bool ended_ = false;
};

// The whole contents of a file (empty when it cannot be read).
inline std::string contents(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

struct ToolResult {
    int status = -1;
    std::string output;
    bool says(const std::string &text) const { return output.find(text) != std::string::npos; }
};

// Runs vqglob with args to its end.
inline ToolResult run_tool(const std::vector<std::string> &args) {
    Child child(args);
    ToolResult run;
    run.status = child.wait_exit();
    run.output = child.output();
    return run;
}

// A daemon on its own scratch directory: target root "root", configuration
// "serve.conf" made of the lines given, on a port the system picks.
class Daemon {
public:
    Daemon(const fs::path &dir, const std::string &extra_lines, const std::string &port = "0")
        : root_(dir / "root"), config_(dir / "serve.conf") {
        fs::create_directories(root_);
        write_config(extra_lines, port);
        child_ = std::make_unique<Child>(std::vector<std::string>{"serve", "-config=" + config_.string()});
        std::string line = child_->wait_line("listening on ");
        size_t colon = line.rfind(':');
        port_ = colon == std::string::npos ? "" : line.substr(colon + 1);
    }
    void write_config(const std::string &extra_lines, const std::string &port) const {
        std::ofstream(config_) << "[Server]\nPort=" << port << "\nTarget Root=" << root_.string()
                               << "\nInsecure Loopback=TRUE\nLog File=" << (config_.parent_path() / "serve.log").string()
                               << "\n"
                               << extra_lines;
    }
    // Writes a new configuration and waits until the daemon has read it.
    void reload(const std::string &extra_lines) {
        size_t before = child_->count_lines("configuration reloaded");
        write_config(extra_lines, port_);
        child_->signal(SIGHUP);
        child_->wait_line("configuration reloaded", before + 1);
    }
    // Stops with SIGTERM; the exit status.
    int stop() {
        child_->signal(SIGTERM);
        return child_->wait_exit();
    }
    // Waits until every connection the daemon took so far is closed, its
    // temporary files gone.
    void wait_connections_closed() {
        size_t taken = child_->count_lines(": connected");
        if (taken > 0) {
            child_->wait_line(": closed", taken);
        }
    }
    std::string target() const { return "127.0.0.1:" + port_; }
    const std::string &port() const { return port_; }
    const fs::path &root() const { return root_; }
    Child &child() { return *child_; }

private:
    fs::path root_;
    fs::path config_;
    std::unique_ptr<Child> child_;
    std::string port_;
};
#endif

}  // namespace vqglob_test
