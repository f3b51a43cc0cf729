// Deploying a tree to a daemon on 127.0.0.1: `vqglob deploy` to `vqglob
// serve` against rsync to an rsync daemon (Debian's rsync, `rsync -a` to an
// rsync:// module), the same tree, the page cache warm (the tree was just
// written). Three things a user does, each as whole client processes:
//  - full: the first deployment into an empty target, by vqglob both in
//    plain mode and over mutual TLS (certificates made at start by the
//    openssl command, as scripts/demo.sh makes them);
//  - unchanged: deploying again when nothing changed;
//  - one_percent: deploying again after every 100th file was rewritten
//    (same size, new bytes, new modification time).
// Per run: the wall time of the client process (fork to wait4), the CPU
// time of the client (wait4) and of the daemon (its /proc stat, reaped
// children included, before and after). Both sides take turns, the first
// side alternating from run to run, and after every step both targets are
// compared with the source: every file present with its size and CRC-32
// (zlib), nothing else but the daemon's own entries. Reported: medians per
// step, MB/s for the full deployment and vqglob/rsync ratios.
//
//   deploy_bench [RUNS [MEGABYTES [FILES]]]    (default 3 runs, 1024 MB, 10,000 files)
//
// The trees live under VQ_DEPLOY_BENCH_DIR (default: the system's temporary
// directory) with the client's CRC cache and are removed at the end; they
// take four times MEGABYTES.
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

[[noreturn]] void die(const std::string &what) {
    std::fprintf(stderr, "deploy_bench: %s\n", what.c_str());
    std::exit(2);
}

// ---- The tree -----------------------------------------------------------------------------

// Deterministic bytes that no compressor or dedup shortcut can exploit.
void fill_random(std::vector<unsigned char> &bytes, uint64_t &state) {
    for (size_t i = 0; i < bytes.size(); i += 8) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(bytes.data() + i, &state, std::min<size_t>(8, bytes.size() - i));
    }
}

void write_file(const fs::path &path, const std::vector<unsigned char> &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
        die("cannot write " + path.string());
    }
}

// FILES files in directories of 100, sizes spread around MEGABYTES/FILES.
std::vector<fs::path> make_tree(const fs::path &root, uint64_t total_bytes, int files) {
    std::vector<fs::path> names;
    uint64_t state = 0x9e3779b97f4a7c15ULL;
    const uint64_t mean = total_bytes / static_cast<uint64_t>(files);
    std::vector<unsigned char> bytes;
    for (int i = 0; i < files; ++i) {
        fs::path rel = fs::path("d" + std::to_string(i / 100)) / ("f" + std::to_string(i) + ".bin");
        fs::create_directories(root / rel.parent_path());
        // Sizes from half to one and a half times the mean, the total kept.
        const uint64_t size = mean / 2 + (static_cast<uint64_t>(i) * 7919 % 1000) * mean / 1000;
        bytes.resize(size);
        fill_random(bytes, state);
        write_file(root / rel, bytes);
        names.push_back(rel);
    }
    return names;
}

// Rewrites every 100th file with new bytes of the same size.
int change_one_percent(const fs::path &root, const std::vector<fs::path> &names, uint64_t seed) {
    std::vector<unsigned char> bytes;
    int changed = 0;
    for (size_t i = 0; i < names.size(); i += 100) {
        bytes.resize(fs::file_size(root / names[i]));
        fill_random(bytes, seed);
        write_file(root / names[i], bytes);
        ++changed;
    }
    return changed;
}

uint32_t file_crc(const fs::path &path, uint64_t &size) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> buffer(1 << 20);
    uLong crc = crc32(0, nullptr, 0);
    size = 0;
    while (in) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const std::streamsize got = in.gcount();
        crc = crc32(crc, reinterpret_cast<const Bytef *>(buffer.data()), static_cast<uInt>(got));
        size += static_cast<uint64_t>(got);
    }
    return static_cast<uint32_t>(crc);
}

// Every source file is in target with its size and bytes, and the target
// holds nothing else but entries whose first component starts with
// `ignored_prefix` (the daemon's own state).
void check_same_tree(const fs::path &source, const fs::path &target, const std::string &ignored_prefix,
                     const char *side, const char *step) {
    std::map<std::string, std::pair<uint64_t, uint32_t>> expected;
    for (const auto &entry : fs::recursive_directory_iterator(source)) {
        if (entry.is_regular_file()) {
            uint64_t size = 0;
            const uint32_t crc = file_crc(entry.path(), size);
            expected[fs::relative(entry.path(), source).generic_string()] = {size, crc};
        }
    }
    size_t found = 0;
    for (auto it = fs::recursive_directory_iterator(target); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = fs::relative(it->path(), target).generic_string();
        if (!ignored_prefix.empty() && rel.rfind(ignored_prefix, 0) == 0) {
            it.disable_recursion_pending();
            continue;
        }
        if (!it->is_regular_file()) {
            continue;
        }
        auto want = expected.find(rel);
        uint64_t size = 0;
        if (want == expected.end()) {
            die(std::string(side) + " " + step + ": unexpected file on the target: " + rel);
        }
        if (file_crc(it->path(), size) != want->second.second || size != want->second.first) {
            die(std::string(side) + " " + step + ": wrong bytes on the target: " + rel);
        }
        ++found;
    }
    if (found != expected.size()) {
        die(std::string(side) + " " + step + ": " + std::to_string(expected.size() - found) +
            " files missing on the target");
    }
}

// ---- Processes ------------------------------------------------------------------------------

struct ChildResult {
    double wall_s = 0;
    double cpu_s = 0;
};

double cpu_seconds(const rusage &usage) {
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

pid_t start(const std::vector<std::string> &argv, int stdout_fd) {
    std::vector<char *> args;
    for (const std::string &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        if (stdout_fd >= 0) {
            dup2(stdout_fd, STDOUT_FILENO);
        }
        execvp(args[0], args.data());
        _exit(127);
    }
    if (pid < 0) {
        die("fork failed");
    }
    return pid;
}

// Runs a client to its end with its output thrown away; a failure stops
// the benchmark, since a failed run measures nothing.
ChildResult run_client(const std::vector<std::string> &argv) {
    const int null_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const Clock::time_point begin = Clock::now();
    const pid_t pid = start(argv, null_fd);
    close(null_fd);
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) {
        die("wait4 failed");
    }
    ChildResult result;
    result.wall_s = std::chrono::duration<double>(Clock::now() - begin).count();
    result.cpu_s = cpu_seconds(usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        die("client failed: " + argv[0] + " " + argv[1] + " (status " + std::to_string(status) + ")");
    }
    return result;
}

// Whether the process has children that have not been reaped yet.
bool has_children(pid_t pid) {
    for (const auto &task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream in(task.path() / "children");
        std::string first;
        if (in >> first) {
            return true;
        }
    }
    return false;
}

// A daemon's CPU time so far, its reaped children included: the rsync
// daemon serves each connection in a child, whose time counts once the
// daemon has reaped it, so this waits for that first.
double daemon_cpu_seconds(pid_t pid) {
    while (has_children(pid)) {
        usleep(1000);
    }
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close_paren = text.rfind(')');
    if (close_paren == std::string::npos) {
        die("no stat of the daemon");
    }
    std::istringstream fields(text.substr(close_paren + 2));
    std::vector<std::string> values;
    for (std::string value; fields >> value;) {
        values.push_back(value);
    }
    // After the name: state is field 3, utime..cstime are fields 14..17.
    double ticks = 0;
    for (int field = 14; field <= 17; ++field) {
        ticks += std::stod(values.at(static_cast<size_t>(field - 3)));
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

uint16_t free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        die("no free port");
    }
    close(fd);
    return ntohs(address.sin_port);
}

// Waits until something accepts connections on the port: the rsync daemon
// says nothing when it is ready.
void wait_until_listening(uint16_t port, pid_t daemon) {
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        const bool up = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        close(fd);
        if (up) {
            return;
        }
        if (waitpid(daemon, nullptr, WNOHANG) == daemon) {
            die("the daemon ended before it listened");
        }
        usleep(10000);
    }
    die("the daemon never listened on port " + std::to_string(port));
}

// Starts `vqglob serve` and reads its output up to the "listening on" line.
pid_t start_vqglob_daemon(const std::string &vqglob, const fs::path &config) {
    int out[2];
    if (pipe(out) != 0) {
        die("pipe failed");
    }
    const pid_t pid = start({vqglob, "serve", "-config=" + config.string()}, out[1]);
    close(out[1]);
    std::string line;
    char c = 0;
    while (read(out[0], &c, 1) == 1) {
        if (c != '\n') {
            line += c;
            continue;
        }
        if (line.rfind("listening on ", 0) == 0) {
            close(out[0]);
            return pid;
        }
        line.clear();
    }
    die("vqglob serve ended without listening");
}

void stop(pid_t pid) {
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

// ---- The two sides --------------------------------------------------------------------------

struct Side {
    std::string name;
    fs::path target;
    std::string ignored_prefix;  // the daemon's own entries in the target
    std::vector<std::string> client;
    pid_t daemon = -1;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

struct Figures {
    std::vector<double> wall, client_cpu, daemon_cpu;
};

void record(Figures &figures, const ChildResult &client, double daemon_cpu) {
    figures.wall.push_back(client.wall_s);
    figures.client_cpu.push_back(client.cpu_s);
    figures.daemon_cpu.push_back(daemon_cpu);
}

void run_step(Side &side, const fs::path &source, const char *step, Figures &figures) {
    const double daemon_before = daemon_cpu_seconds(side.daemon);
    const ChildResult client = run_client(side.client);
    record(figures, client, daemon_cpu_seconds(side.daemon) - daemon_before);
    check_same_tree(source, side.target, side.ignored_prefix, side.name.c_str(), step);
}

void empty_directory(const fs::path &dir) {
    for (const auto &entry : fs::directory_iterator(dir)) {
        fs::remove_all(entry.path());
    }
}

// Runs a shell command line; dies when it fails.
void shell(const std::string &command) {
    if (std::system(command.c_str()) != 0) {
        die("failed: " + command);
    }
}

// A throw-away CA in dir with a server certificate for 127.0.0.1 and a
// client certificate named deploy-client.
void make_certificates(const fs::path &dir) {
    fs::create_directories(dir);
    const std::string d = dir.string();
    auto key = [&](const char *name) {
        shell("openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out " + d + "/" + name +
              ".key 2>/dev/null");
    };
    auto issue = [&](const char *name, const char *subject, const char *extension) {
        key(name);
        shell("openssl req -new -key " + d + "/" + name + ".key -subj '/CN=" + subject + "' -out " + d + "/" + name +
              ".csr");
        std::ofstream(dir / (std::string(name) + ".ext")) << extension << "\n";
        shell("openssl x509 -req -in " + d + "/" + name + ".csr -CA " + d + "/ca.pem -CAkey " + d +
              "/ca.key -CAcreateserial -days 1 -extfile " + d + "/" + name + ".ext -out " + d + "/" + name +
              ".pem 2>/dev/null");
    };
    key("ca");
    shell("openssl req -x509 -new -key " + d + "/ca.key -subj '/CN=bench CA' -days 1 -out " + d + "/ca.pem");
    issue("server", "localhost", "subjectAltName=DNS:localhost,IP:127.0.0.1");
    issue("client", "deploy-client", "extendedKeyUsage=clientAuth");
}

std::string vqglob_path() {
#ifdef VQ_GLOB_TOOL_PATH
    return VQ_GLOB_TOOL_PATH;
#else
    die("built without the vqglob tool");
#endif
}

}  // namespace

int main(int argc, char **argv) {
    // Positional numbers only: options meant for Google Benchmark programs
    // (make bench passes them to every benchmark) are ignored.
    std::vector<const char *> numbers;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--", 2) != 0) {
            numbers.push_back(argv[i]);
        }
    }
    const int runs = numbers.size() > 0 ? std::max(1, std::atoi(numbers[0])) : 3;
    const uint64_t megabytes = numbers.size() > 1 ? std::strtoull(numbers[1], nullptr, 10) : 1024;
    const int files = numbers.size() > 2 ? std::max(100, std::atoi(numbers[2])) : 10000;
    const char *base_text = std::getenv("VQ_DEPLOY_BENCH_DIR");
    const fs::path base = fs::path(base_text != nullptr && *base_text ? base_text : fs::temp_directory_path().c_str()) /
                          ("vq_deploy_bench_" + std::to_string(getpid()));
    const fs::path source = base / "source";
    // The client's CRC cache lives with the trees and goes with them.
    setenv("XDG_CACHE_HOME", (base / "cache").c_str(), 1);
    fs::create_directories(base / "rsync_target");
    fs::create_directories(base / "vqglob_target");
    std::printf("making %d files, %llu MB, under %s\n", files, static_cast<unsigned long long>(megabytes),
                base.c_str());
    const std::vector<fs::path> names = make_tree(source, megabytes << 20, files);
    uint64_t total_bytes = 0;
    for (const fs::path &name : names) {
        total_bytes += fs::file_size(source / name);
    }

    Side rsync_side{"rsync", base / "rsync_target", "", {}, -1};
    const uint16_t rsync_port = free_port();
    {
        std::ofstream conf(base / "rsyncd.conf");
        conf << "use chroot = no\nuid = " << getuid() << "\ngid = " << getgid() << "\n[bench]\npath = "
             << rsync_side.target.string() << "\nread only = no\n";
    }
    rsync_side.daemon = start({"rsync", "--daemon", "--no-detach", "--config=" + (base / "rsyncd.conf").string(),
                               "--address=127.0.0.1", "--port=" + std::to_string(rsync_port)},
                              -1);
    wait_until_listening(rsync_port, rsync_side.daemon);
    rsync_side.client = {"rsync", "-a", source.string() + "/",
                         "rsync://127.0.0.1:" + std::to_string(rsync_port) + "/bench/"};

    Side vqglob_side{"vqglob", base / "vqglob_target", ".vqglob", {}, -1};
    const uint16_t vqglob_port = free_port();
    {
        std::ofstream conf(base / "serve.conf");
        conf << "[Server]\nListen Address=127.0.0.1\nPort=" << vqglob_port
             << "\nTarget Root=" << vqglob_side.target.string() << "\nInsecure Loopback=TRUE\nLog File="
             << (base / "serve.log").string() << "\n";
    }
    vqglob_side.daemon = start_vqglob_daemon(vqglob_path(), base / "serve.conf");
    vqglob_side.client = {vqglob_path(), "deploy", source.string(),
                          "-to=127.0.0.1:" + std::to_string(vqglob_port), "-insecure"};

    const fs::path pki = base / "pki";
    make_certificates(pki);
    fs::create_directories(base / "tls_target");
    Side tls_side{"vqglob+TLS", base / "tls_target", ".vqglob", {}, -1};
    const uint16_t tls_port = free_port();
    {
        std::ofstream conf(base / "tls.conf");
        conf << "[Server]\nListen Address=127.0.0.1\nPort=" << tls_port << "\nTarget Root=" << tls_side.target.string()
             << "\nCertificate File=" << (pki / "server.pem").string() << "\nKey File=" << (pki / "server.key").string()
             << "\nCA File=" << (pki / "ca.pem").string() << "\nAllowed Clients=_ml_text_\ndeploy-client\n_ml_text_\n"
             << "Log File=" << (base / "tls.log").string() << "\n";
    }
    tls_side.daemon = start_vqglob_daemon(vqglob_path(), base / "tls.conf");
    tls_side.client = {vqglob_path(), "deploy", source.string(), "-to=127.0.0.1:" + std::to_string(tls_port),
                       "-cert=" + (pki / "client.pem").string(), "-key=" + (pki / "client.key").string(),
                       "-ca=" + (pki / "ca.pem").string()};

    Side *sides[2] = {&vqglob_side, &rsync_side};
    std::map<std::string, Figures> figures;
    for (int run = 0; run < runs; ++run) {
        Side *order[2] = {sides[run % 2], sides[(run + 1) % 2]};
        for (Side *side : order) {
            empty_directory(side->target);
            run_step(*side, source, "full", figures[side->name + "/full"]);
        }
        empty_directory(tls_side.target);
        run_step(tls_side, source, "full", figures[tls_side.name + "/full"]);
        for (Side *side : order) {
            run_step(*side, source, "unchanged", figures[side->name + "/unchanged"]);
        }
        change_one_percent(source, names, 0x1234567ULL + static_cast<uint64_t>(run));
        for (Side *side : order) {
            run_step(*side, source, "one_percent", figures[side->name + "/one_percent"]);
        }
    }
    stop(vqglob_side.daemon);
    stop(tls_side.daemon);
    stop(rsync_side.daemon);
    fs::remove_all(base);

    std::printf("\n%d runs, %d files, %.0f MB; medians; CPU = client + daemon\n", runs, files,
                static_cast<double>(total_bytes) / 1e6);
    std::printf("%-12s %-8s %10s %10s %12s %12s\n", "step", "side", "wall s", "MB/s", "client CPU s",
                "daemon CPU s");
    for (const char *step : {"full", "unchanged", "one_percent"}) {
        double wall[2] = {0, 0};
        for (int i = 0; i < 2; ++i) {
            const Figures &f = figures[sides[i]->name + "/" + step];
            wall[i] = median(f.wall);
            std::printf("%-12s %-8s %10.3f %10.1f %12.3f %12.3f\n", step, sides[i]->name.c_str(), wall[i],
                        static_cast<double>(total_bytes) / 1e6 / wall[i], median(f.client_cpu),
                        median(f.daemon_cpu));
        }
        std::printf("%-12s vqglob/rsync speed %.2fx\n", step, wall[1] / wall[0]);
    }
    const Figures &tls = figures[tls_side.name + "/full"];
    const double tls_wall = median(tls.wall);
    std::printf("%-12s %-8s %10.3f %10.1f %12.3f %12.3f\n", "full", "vqglob+TLS", tls_wall,
                static_cast<double>(total_bytes) / 1e6 / tls_wall, median(tls.client_cpu), median(tls.daemon_cpu));
    std::printf("%-12s vqglob+TLS/rsync (plain) speed %.2fx\n", "full", median(figures["rsync/full"].wall) / tls_wall);
    return 0;
}
