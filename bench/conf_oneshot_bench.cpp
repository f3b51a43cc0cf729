// A configuration read once, in a fresh process, against GLib's GKeyFile:
// what a program pays to read its configuration at start-up, on a cold heap.
// Each run starts conf_oneshot (built beside this program) as a child
// process that reads the file with one reader, checks a sample of the values
// it read and exits; the two readers run alternately, several times each.
// Per run: the wall time of the whole child process (fork to wait4), its
// CPU time (user + system, from wait4) and its peak resident set (ru_maxrss
// from wait4). Reported: the medians of each side and our/peer ratios.
// A child that fails to read or finds a value different stops the program
// with a non-zero status.
//
// Files: 100,000 fields in one section, 2,000 sections x 20 fields, and an
// adversarial shape of long values (2,000 fields of about 8 KB each).
//
//   conf_oneshot_bench [RUNS [BASELINE]]     (default 9 runs per side)
//
// BASELINE names another build of conf_oneshot (or a script running one);
// its vq_glob reads then take their turn in the same alternation, so that a
// change is measured against the build before it in one run.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct Shape {
    const char *name;
    int sections;
    int fields;  // per section
    int pad;     // 'x' characters after each value's text
};

constexpr Shape kShapes[] = {
    {"one_section_100000", 1, 100000, 0},
    {"sections_2000x20", 2000, 20, 0},
    {"long_values_2000x8k", 1, 2000, 8000},
};

std::string write_file(const Shape &shape) {
    std::string path =
        (std::filesystem::temp_directory_path() / (std::string("conf_oneshot_") + shape.name + ".conf")).string();
    std::string pad(static_cast<size_t>(shape.pad), 'x');
    std::ofstream out(path, std::ios::binary);
    char line[128];
    for (int s = 0; s < shape.sections; ++s) {
        out << "[section" << s << "]\n";
        for (int f = 0; f < shape.fields; ++f) {
            std::snprintf(line, sizeof line, "field%d=value %d of section %d, some text", f, f, s);
            out << line << pad << '\n';
        }
    }
    return path;
}

struct Run {
    double wall_ms = 0;
    double cpu_ms = 0;
    double rss_mb = 0;
};

double ms_of(const timeval &t) { return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3; }

double now_ms() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

// Runs the one-shot reader as a child; false when it could not run or its
// check failed.
// One side of the comparison: a program and the reader it runs.
struct Side {
    const char *label;
    std::string program;
    const char *reader;
    std::vector<Run> runs;
};

bool run_child(const std::string &program, const char *reader, const std::string &path, const Shape &shape,
               Run &run) {
    std::string sections = std::to_string(shape.sections);
    std::string fields = std::to_string(shape.fields);
    std::string pad = std::to_string(shape.pad);
    double start = now_ms();
    pid_t pid = fork();
    if (pid < 0) {
        return false;
    }
    if (pid == 0) {
        execl(program.c_str(), program.c_str(), reader, path.c_str(), sections.c_str(), fields.c_str(),
              pad.c_str(), static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) {
        return false;
    }
    run.wall_ms = now_ms() - start;
    run.cpu_ms = ms_of(usage.ru_utime) + ms_of(usage.ru_stime);
    run.rss_mb = static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s on %s: exit status %d\n", reader, shape.name,
                     WIFEXITED(status) ? WEXITSTATUS(status) : -1);
        return false;
    }
    return true;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

struct Medians {
    double wall, cpu, rss;
};

Medians medians_of(const std::vector<Run> &runs) {
    std::vector<double> wall, cpu, rss;
    for (const Run &r : runs) {
        wall.push_back(r.wall_ms);
        cpu.push_back(r.cpu_ms);
        rss.push_back(r.rss_mb);
    }
    return {median(wall), median(cpu), median(rss)};
}

}  // namespace

int main(int argc, char **argv) {
    int runs = argc > 1 ? std::atoi(argv[1]) : 9;
    if (runs < 1 || argc > 3) {
        std::fprintf(stderr, "usage: %s [RUNS [BASELINE]]\n", argv[0]);
        return 2;
    }
    std::string program = (std::filesystem::path(argv[0]).parent_path() / "conf_oneshot").string();
    std::printf("%-22s %-14s %10s %10s %10s   (medians of %d runs each, alternating)\n", "file", "reader",
                "wall ms", "cpu ms", "peak MB", runs);
    int failures = 0;
    for (const Shape &shape : kShapes) {
        std::string path = write_file(shape);
        std::vector<Side> sides = {{"vq_glob", program, "vq_glob", {}}, {"gkeyfile", program, "gkeyfile", {}}};
        if (argc > 2) {
            sides.push_back({"vq_glob(base)", argv[2], "vq_glob", {}});
        }
        for (int i = 0; i < runs && failures == 0; ++i) {
            // Rotate which side goes first, so that none always meets a
            // warmer page cache or a quieter machine.
            for (size_t k = 0; k < sides.size(); ++k) {
                Side &side = sides[(k + static_cast<size_t>(i)) % sides.size()];
                Run run;
                if (!run_child(side.program, side.reader, path, shape, run)) {
                    ++failures;
                    break;
                }
                side.runs.push_back(run);
            }
        }
        std::error_code ec;
        std::filesystem::remove(path, ec);
        if (failures != 0) {
            break;
        }
        for (const Side &side : sides) {
            Medians m = medians_of(side.runs);
            std::printf("%-22s %-14s %10.1f %10.1f %10.1f\n", shape.name, side.label, m.wall, m.cpu, m.rss);
        }
        Medians m = medians_of(sides[0].runs), p = medians_of(sides[1].runs);
        // Time as gkeyfile/vq_glob (above 1: we are faster), memory as
        // vq_glob/gkeyfile (below 1: we need less).
        std::printf("%-22s %-14s %9.2fx %9.2fx %9.2fx\n", shape.name, "ratio", p.wall / m.wall, p.cpu / m.cpu,
                    m.rss / p.rss);
    }
    return failures == 0 ? 0 : 1;
}
