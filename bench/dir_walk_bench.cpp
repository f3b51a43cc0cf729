// Directory walks against GNU find, whole processes timed.
//
// The tree: 200,000 files in 20,000 directories under the system's temporary
// directory, shaped like a source tree (the top folders and names of
// filter_bench.cpp), generated once and reused while complete; the page cache
// is warm when timing starts, since every pair is first run once to check it.
//
// Each iteration runs, one after the other, two fresh processes that write
// every selected path to /dev/null:
//  - this program with "--walk": directory_build_list over the tree (files
//    listed too), then the list written out;
//  - GNU find over the same tree with the equivalent tests.
// Two pairs: the plain walk against "find ROOT -mindepth 1", and the walk
// with the filter of the ten-pair rule set of filter_bench_rules.h against
// find with the same rules as -ipath/-iname tests (an excluded directory
// pruned, since the walk does not go into it either). The figures are objects
// of the tree per second of the whole child process on each side and the
// ratio find time / library time (above 1: the library is faster). Before the
// timing, both sides' outputs of each pair are compared as sets of paths and
// the program stops when they differ.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "filter_bench_rules.h"
#include "vq_glob/conf.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/filter.h"

extern char **environ;

namespace {

namespace fs = std::filesystem;

constexpr size_t kDirectories = 20000;
constexpr size_t kFilesPerDirectory = 10;
constexpr size_t kObjects = kDirectories + kDirectories * kFilesPerDirectory;

std::string tree_root() { return (fs::temp_directory_path() / "vq_dir_walk_bench_tree").string(); }
std::string tree_marker() { return tree_root() + ".complete"; }

// Creates the tree unless a complete one is there: directories below the
// top folders of a source tree, up to six levels deep, ten files each.
void ensure_tree() {
    const std::string root = tree_root();
    const std::string marker = tree_marker();
    const std::string signature = std::to_string(kDirectories) + " " + std::to_string(kFilesPerDirectory);
    {
        std::ifstream in(marker);
        std::string line;
        if (std::getline(in, line) && line == signature && fs::is_directory(root)) {
            return;
        }
    }
    std::fprintf(stderr, "generating %zu directories with %zu files each under %s\n", kDirectories,
                 kFilesPerDirectory, root.c_str());
    fs::remove_all(root);
    fs::remove(marker);
    const char *tops[] = {"src", "include", "docs", "build", "tests", "tools", "third_party", "Src", "scripts"};
    const char *folders[] = {"core", "net", "util", "io", "detail", "impl", "v2", "old", "x86_64", "Debug"};
    const char *stems[] = {"main", "parser", "buffer", "socket", "config", "readme", "notes", "run", "a", "Makefile"};
    const char *extensions[] = {".c", ".h", ".cpp", ".o", ".log", ".tmp", ".txt", ".md", ".py", "", ".H", ".C"};
    std::mt19937 random(20240612u);
    struct Dir {
        std::string path;
        int depth;
    };
    std::vector<Dir> dirs;
    for (const char *top : tops) {
        dirs.push_back({root + "/" + top, 1});
    }
    while (dirs.size() < kDirectories) {
        const Dir &parent = dirs[random() % dirs.size()];
        if (parent.depth >= 6) {
            continue;
        }
        std::string name = std::string(folders[random() % 10]) + std::to_string(dirs.size());
        dirs.push_back({parent.path + "/" + name, parent.depth + 1});
    }
    for (const Dir &dir : dirs) {
        fs::create_directories(dir.path);
        for (size_t i = 0; i < kFilesPerDirectory; ++i) {
            const char *stem = stems[random() % 10];
            std::string name = std::strcmp(stem, "Makefile") == 0
                                   ? (i == 0 ? std::string("Makefile") : std::string("mk") + std::to_string(i))
                                   : std::string(stem) + std::to_string(i) + extensions[random() % 12];
            int fd = ::open((dir.path + "/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (fd < 0) {
                std::perror(name.c_str());
                std::exit(1);
            }
            ::close(fd);
        }
    }
    std::ofstream(marker) << signature << "\n";
}

// ---- The library side, run in a child: "--walk ROOT [--filter]" -----------

int walk_child(const char *root, bool filtered) {
    void *filter = nullptr;
    if (filtered) {
        void *conf = nullptr;
        std::string text = vq_bench::filter_bench_config(root);
        if (conf_allocate_handle(&conf) != 1 || conf_read_buffer_to_handle(conf, text.c_str()) != 1 ||
            init_filter(&filter, conf) != 1) {
            err_print_error_msg();
            return 2;
        }
        conf_free_handle(&conf);
    }
    void *list = nullptr;
    if (directory_build_list(&list, root, filter, DIR_LIST_FILES) != 1) {
        err_print_error_msg();
        return 2;
    }
    static char buffer[1 << 20];
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    char *path = nullptr;
    int32_t type = 0;
    while (directory_next_entry(list, &path, &type) == 1) {
        std::fputs(path, stdout);
        std::fputc('\n', stdout);
    }
    std::fflush(stdout);
    directory_free_list(&list);
    close_filter(filter);
    return 0;
}

// ---- GNU find's side ------------------------------------------------------

// find's tests for one rule pair: the first element matches the
// non-recursive part (the object itself or anything below it) and the name
// the recursive part; "*" on either side tests nothing.
void add_pair(std::vector<std::string> &args, const std::string &root, const vq_bench::FilterRulePair &pair) {
    args.insert(args.end(), {"("});
    bool any = false;
    if (std::strcmp(pair.non_recursive, "*") != 0) {
        std::string top = root + "/" + pair.non_recursive;
        args.insert(args.end(), {"(", "-ipath", top, "-o", "-ipath", top + "/*", ")"});
        any = true;
    }
    if (std::strcmp(pair.recursive, "*") != 0) {
        args.insert(args.end(), {"-iname", pair.recursive});
        any = true;
    }
    if (!any) {
        args.push_back("-true");
    }
    args.push_back(")");
}

std::vector<std::string> find_command(const std::string &root, bool filtered) {
    std::vector<std::string> args = {"find", root, "-mindepth", "1"};
    if (!filtered) {
        return args;
    }
    // An exclude pair that takes everything below a folder prunes it.
    std::vector<const vq_bench::FilterRulePair *> name_excludes;
    args.push_back("(");
    bool first = true;
    for (const auto &pair : vq_bench::kFilterExcludeRules) {
        if (std::strcmp(pair.recursive, "*") == 0 && std::strcmp(pair.non_recursive, "*") != 0) {
            if (!first) {
                args.push_back("-o");
            }
            args.insert(args.end(), {"-ipath", root + "/" + pair.non_recursive});
            first = false;
        } else {
            name_excludes.push_back(&pair);
        }
    }
    args.insert(args.end(), {")", "-prune", "-o", "(", "("});
    first = true;
    for (const auto &pair : vq_bench::kFilterIncludeRules) {
        if (!first) {
            args.push_back("-o");
        }
        add_pair(args, root, pair);
        first = false;
    }
    args.insert(args.end(), {")", "!", "("});
    first = true;
    for (const auto *pair : name_excludes) {
        if (!first) {
            args.push_back("-o");
        }
        add_pair(args, root, *pair);
        first = false;
    }
    args.insert(args.end(), {")", "-print", ")"});
    return args;
}

std::vector<std::string> walk_command(const std::string &root, bool filtered) {
    std::vector<std::string> args = {"/proc/self/exe", "--walk", root};
    if (filtered) {
        args.push_back("--filter");
    }
    return args;
}

// ---- Running and timing children -------------------------------------------

// Runs args with standard output into output; seconds of the whole run.
double run_child(const std::vector<std::string> &args, const char *output) {
    std::vector<char *> argv;
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);
    std::string program = args[0] == "/proc/self/exe" ? fs::read_symlink("/proc/self/exe").string() : args[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, output, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) {
        std::fprintf(stderr, "cannot start %s: %s\n", program.c_str(), std::strerror(rc));
        std::exit(1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    auto end = std::chrono::steady_clock::now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s failed (status %d)\n", program.c_str(), status);
        std::exit(1);
    }
    return std::chrono::duration<double>(end - start).count();
}

std::vector<std::string> sorted_lines(const std::string &file) {
    std::vector<std::string> lines;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// Both sides select the same paths, or the program stops.
void check_same_selection(bool filtered) {
    const std::string root = tree_root();
    const std::string ours = root + ".walk.out";
    const std::string theirs = root + ".find.out";
    run_child(walk_command(root, filtered), ours.c_str());
    run_child(find_command(root, filtered), theirs.c_str());
    std::vector<std::string> a = sorted_lines(ours);
    std::vector<std::string> b = sorted_lines(theirs);
    fs::remove(ours);
    fs::remove(theirs);
    if (a != b) {
        std::vector<std::string> only;
        std::set_symmetric_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(only));
        std::fprintf(stderr, "%s walk: library selected %zu paths, find %zu; %zu differ, first: %s\n",
                     filtered ? "filtered" : "plain", a.size(), b.size(), only.size(), only.front().c_str());
        std::exit(1);
    }
    if (a.empty()) {
        std::fprintf(stderr, "the %s walk selected nothing\n", filtered ? "filtered" : "plain");
        std::exit(1);
    }
}

void walk_pair(benchmark::State &state, bool filtered) {
    ensure_tree();
    check_same_selection(filtered);
    const std::string root = tree_root();
    double ours = 0;
    double theirs = 0;
    for (auto _ : state) {
        double library = run_child(walk_command(root, filtered), "/dev/null");
        theirs += run_child(find_command(root, filtered), "/dev/null");
        ours += library;
        state.SetIterationTime(library);
    }
    state.counters["library_objects_per_s"] = static_cast<double>(kObjects) * state.iterations() / ours;
    state.counters["find_objects_per_s"] = static_cast<double>(kObjects) * state.iterations() / theirs;
    state.counters["find_time_over_library_time"] = theirs / ours;
}

void BM_plain_walk_vs_find(benchmark::State &state) { walk_pair(state, false); }
void BM_filtered_walk_vs_find(benchmark::State &state) { walk_pair(state, true); }

BENCHMARK(BM_plain_walk_vs_find)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(8);
BENCHMARK(BM_filtered_walk_vs_find)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(8);

}  // namespace

int main(int argc, char **argv) {
    if (argc >= 3 && std::strcmp(argv[1], "--walk") == 0) {
        return walk_child(argv[2], argc >= 4 && std::strcmp(argv[3], "--filter") == 0);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
