// Directory walks, file lists and whole-tree operations: walk order and
// types, link cycles, entries that vanish during a walk, paths at and beyond
// the length limit, names with blanks and non-ASCII letters, copies that keep
// modes, times and links, removals that never leave the tree, first-failure
// stops with their counts, and the deletion report.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "support/deep_tree.h"
#include "support/net_support.h"
#include "support/trace_capture.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"
#include "vq_glob/dir.h"
#include "vq_glob/err.h"
#include "vq_glob/err_codes.h"
#include "vq_glob/filter.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/memory.h"
#include "vq_glob/mlist.h"

namespace {

namespace fs = std::filesystem;
using vq::test::ScratchDir;

constexpr char kSep = VQ_PATH_SEPARATOR;

std::string join(const std::string &a, const std::string &b) { return a + kSep + b; }

void write_text(const fs::path &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    ASSERT_TRUE(out.good()) << path;
}

std::string read_text(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// Whether code stands anywhere on the error stack; the stack is cleared.
bool on_stack(uint32_t code, std::string *texts = nullptr) {
    bool found = false;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        found = found || err_get_error_code(i) == code;
        if (texts != nullptr) {
            *texts += err_get_error_text(i);
            *texts += "\n";
        }
    }
    err_clear_error_stack();
    return found;
}

// Symbolic links need rights Windows may not grant; such tests skip.
bool make_link(const std::string &target, const fs::path &link, bool to_directory) {
    std::error_code error;
    if (to_directory) {
        fs::create_directory_symlink(target, link, error);
    } else {
        fs::create_symlink(target, link, error);
    }
    return !error;
}

// A whole walk as (path relative to root with "/", type) pairs, in order.
using Listing = std::vector<std::pair<std::string, int32_t>>;

Listing walk(const std::string &root, int32_t flags, int *rc = nullptr) {
    void *list = nullptr;
    int result = directory_build_list(&list, root.c_str(), nullptr, flags);
    if (rc != nullptr) {
        *rc = result;
    }
    Listing out;
    char *path = nullptr;
    int32_t type = 0;
    while (list != nullptr && directory_next_entry(list, &path, &type) == 1) {
        std::string relative = std::string(path).substr(root.size() + 1);
        std::replace(relative.begin(), relative.end(), kSep, '/');
        out.emplace_back(relative, type);
    }
    directory_free_list(&list);
    return out;
}

// The type a listing gives path, or -1 when it is not listed.
int32_t type_in(const Listing &listing, const std::string &path) {
    for (const auto &[listed, type] : listing) {
        if (listed == path) {
            return type;
        }
    }
    return -1;
}

// Every object below root (relative, "/"-separated, sorted), without the library.
std::vector<std::string> tree_of(const fs::path &root) {
    std::vector<std::string> out;
    for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
        out.push_back(fs::relative(it->path(), root).generic_string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

// ---- Walks ------------------------------------------------------------------

class DirWalk : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = scratch_.path().string();
        fs::create_directories(scratch_.path() / "a" / "y");
        write_text(scratch_.path() / "a" / "z", "z");
        write_text(scratch_.path() / "b.txt", "b");
        fs::create_directories(scratch_.path() / "c d");
        write_text(scratch_.path() / "c d" / "e f", "blank");
        fs::create_directories(scratch_.path() / u8"\u00e9t\u00e9");
        write_text(scratch_.path() / u8"\u00e9t\u00e9" / u8"\u6587", "utf-8");
    }
    void TearDown() override { dir_set_follow_links_flag(0); }

    ScratchDir scratch_{"vq_dir_walk_"};
    std::string root_;
};

TEST_F(DirWalk, ListsDepthFirstInNameOrderWithTypes) {
    int rc = 0;
    Listing all = walk(root_, DIR_LIST_FILES, &rc);
    ASSERT_EQ(rc, 1);
    const Listing expected = {{"a", DIR_TYPE_DIR},       {"a/y", DIR_TYPE_DIR},
                              {"a/z", DIR_TYPE_FILE},    {"b.txt", DIR_TYPE_FILE},
                              {"c d", DIR_TYPE_DIR},     {"c d/e f", DIR_TYPE_FILE},
                              {"\xc3\xa9t\xc3\xa9", DIR_TYPE_DIR}, {"\xc3\xa9t\xc3\xa9/\xe6\x96\x87", DIR_TYPE_FILE}};
    EXPECT_EQ(all, expected);
    // Without files: the directories only; without recursion: the top level only.
    const Listing dirs = {expected[0], expected[1], expected[4], expected[6]};
    EXPECT_EQ(walk(root_, 0), dirs);
    const Listing top = {expected[0], expected[3], expected[4], expected[6]};
    EXPECT_EQ(walk(root_, DIR_LIST_FILES | DIR_LIST_NO_RECURSE), top);
}

TEST_F(DirWalk, CursorCountsAndRewind) {
    void *list = nullptr;
    ASSERT_EQ(directory_build_list(&list, root_.c_str(), nullptr, DIR_LIST_FILES), 1);
    int32_t objects = 0;
    int32_t directories = 0;
    ASSERT_EQ(directory_list_count(list, &objects, &directories), 1);
    EXPECT_EQ(objects, 8);
    EXPECT_EQ(directories, 4);
    std::vector<std::string> seen;
    char *path = nullptr;
    while (directory_next_dir(list, &path) == 1) {
        seen.push_back(path);
    }
    EXPECT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[1], join(join(root_, "a"), "y"));
    EXPECT_EQ(directory_next_dir(list, &path), 0);
    EXPECT_EQ(err_get_stack_depth(), 0) << "the end of a list is no error";
    ASSERT_EQ(directory_rewind(list), 1);
    ASSERT_EQ(directory_next_dir(list, &path), 1);
    EXPECT_EQ(std::string(path), join(root_, "a"));
    directory_free_list(&list);
    EXPECT_EQ(list, nullptr);
}

TEST_F(DirWalk, RefusesRootsThatAreNoDirectoryAndBadArguments) {
    void *list = reinterpret_cast<void *>(1);
    std::string file = join(root_, "b.txt");
    EXPECT_EQ(directory_build_list(&list, file.c_str(), nullptr, 0), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_TRUE(on_stack(ERR_MKL_BADDIR));
    std::string missing = join(root_, "missing");
    EXPECT_EQ(directory_build_list(&list, missing.c_str(), nullptr, 0), 0);
    EXPECT_TRUE(on_stack(ERR_MKL_BADDIR));
    EXPECT_EQ(directory_build_list(&list, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(on_stack(ERR_GEN_PARAMS));
    EXPECT_EQ(dir_set_follow_links_flag(2), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_BADPAR));
    // A handle of another kind is refused, not read as a list.
    uint32_t foreign[8] = {};
    char *path = nullptr;
    EXPECT_EQ(directory_next_dir(foreign, &path), 0);
    EXPECT_TRUE(on_stack(ERR_GEN_PARAMS));
    EXPECT_EQ(directory_rewind(foreign), 0);
}

TEST_F(DirWalk, LinksAreListedAndWhenFollowedEnteredOnlyOnce) {
    fs::path a = scratch_.path() / "a";
    ScratchDir outside("vq_dir_outside_");
    write_text(outside.path() / "inner", "x");
    if (!make_link("..", a / "back", true) || !make_link(".", a / "self", true) ||
        !make_link(outside.path().string(), scratch_.path() / "out", true)) {
        GTEST_SKIP() << "symbolic links cannot be made here";
    }
    // Links off: listed as links, never entered.
    Listing plain = walk(root_, DIR_LIST_FILES);
    for (const char *link : {"a/back", "a/self", "out"}) {
        EXPECT_EQ(type_in(plain, link), DIR_TYPE_LINK) << link;
    }
    EXPECT_EQ(plain.size(), 11u);

    // Links followed: each link to a directory already entered is listed as
    // a directory but not entered; one to a directory outside is entered.
    ASSERT_EQ(dir_set_follow_links_flag(1), 1);
    int rc = 0;
    Listing followed = walk(root_, DIR_LIST_FILES, &rc);
    ASSERT_EQ(rc, 1);
    EXPECT_EQ(followed.size(), 12u);
    EXPECT_EQ(type_in(followed, "a/back"), DIR_TYPE_DIR);
    EXPECT_EQ(type_in(followed, "a/self"), DIR_TYPE_DIR);
    EXPECT_EQ(type_in(followed, "a/back/a"), -1);
    EXPECT_EQ(type_in(followed, "out/inner"), DIR_TYPE_FILE);
}

// The filter decides what is listed; an excluded directory is not entered
// at all, which the walk's trace shows.
TEST_F(DirWalk, FilterSelectsObjectsAndPrunesExcludedDirectories) {
    fs::create_directories(scratch_.path() / "src" / "sub");
    fs::create_directories(scratch_.path() / "build");
    for (const char *name : {"src/a.c", "src/b.txt", "src/sub/c.C", "build/x.c", "a/top.c"}) {
        write_text(scratch_.path() / fs::path(name).make_preferred(), name);
    }
    std::string text = "[Filter Params]\nBase Directory=" + root_ +
                       "\nInclude Non Recursive Part List=_ml_text_\nsrc\n*\n_ml_text_\n"
                       "Include Recursive Part List=_ml_text_\n*.c\nz\n_ml_text_\n"
                       "Exclude Non Recursive Part List=_ml_text_\nbuild\n_ml_text_\n"
                       "Exclude Recursive Part List=_ml_text_\n*\n_ml_text_\n"
                       "Ignore UNIX Hidden Files=FALSE\nIgnore UNIX Mount Points=FALSE\n";
    void *conf = nullptr;
    void *filter = nullptr;
    ASSERT_EQ(conf_allocate_handle(&conf), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(conf, text.c_str()), 1);
    ASSERT_EQ(init_filter(&filter, conf), 1) << err_get_error_msg();
    conf_free_handle(&conf);

    void *list = nullptr;
    int rc = 0;
    std::string traced =
        vq::test::traced_on("GF", [&] { rc = directory_build_list(&list, root_.c_str(), filter, DIR_LIST_FILES); });
    close_filter(filter);
    ASSERT_EQ(rc, 1);
    std::vector<std::string> listed;
    char *path = nullptr;
    while (directory_next_entry(list, &path, nullptr) == 1) {
        listed.push_back(path);
    }
    directory_free_list(&list);
    // "a/top.c" is outside "src", the directory "a/y" is no "z", "c.C"
    // matches "*.c" since the filter ignores case.
    std::vector<std::string> expected = {join(join(root_, "a"), "z"), join(join(root_, "src"), "a.c"),
                                         join(join(join(root_, "src"), "sub"), "c.C")};
    EXPECT_EQ(listed, expected);
    EXPECT_NE(traced.find("entering <" + join(root_, "src") + ">"), std::string::npos) << traced;
    EXPECT_EQ(traced.find("entering <" + join(root_, "build") + ">"), std::string::npos) << traced;
}

#ifndef _WIN32
TEST_F(DirWalk, DevicesAndFifosAreListedButNeverOpened) {
    ASSERT_EQ(::mkfifo((scratch_.path() / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(type_in(walk(root_, DIR_LIST_FILES | DIR_LIST_NO_RECURSE), "fifo"), DIR_TYPE_OTHER);
    // A copy leaves it out instead of blocking on it.
    int32_t copied = 0;
    std::string target = root_ + "-copy";
    ASSERT_EQ(gf_copy_dir(root_.c_str(), target.c_str(), 0, &copied), 1);
    EXPECT_EQ(copied, 4);
    EXPECT_FALSE(fs::exists(fs::symlink_status(fs::path(target) / "fifo")));
    ASSERT_EQ(gf_remove_recursive(target.c_str(), nullptr), 1);
}

// Trace lines of the walk reach this stream as they are written, so a test
// can change the tree at a known point of the walk: the walk itself signals
// the moment, nothing depends on timing.
class TraceHook {
public:
    TraceHook(std::string trigger, std::function<void()> action)
        : trigger_(std::move(trigger)), action_(std::move(action)) {
        cookie_io_functions_t io{};
        io.write = &TraceHook::write;
        stream_ = fopencookie(this, "w", io);
        dbg_set_debug_output(stream_);
        dbg_add_debug_mask("GF");
    }
    ~TraceHook() {
        dbg_add_debug_mask("NOGF");
        dbg_set_debug_output(nullptr);
        std::fclose(stream_);
    }
    bool fired() const { return fired_; }
    const std::string &text() const { return text_; }

private:
    static ssize_t write(void *cookie, const char *data, size_t size) {
        auto *hook = static_cast<TraceHook *>(cookie);
        hook->text_.append(data, size);
        if (!hook->fired_ && hook->text_.find(hook->trigger_) != std::string::npos) {
            hook->fired_ = true;
            hook->action_();
        }
        return static_cast<ssize_t>(size);
    }

    std::string trigger_;
    std::function<void()> action_;
    std::FILE *stream_ = nullptr;
    bool fired_ = false;
    std::string text_;
};

TEST_F(DirWalk, EntriesThatVanishDuringTheWalkAreSkipped) {
    // "c d" and the directory after it are listed with the root, then removed
    // while the walk is inside "a": both vanish before they are entered.
    fs::path gone = scratch_.path() / "c d";
    fs::path gone_too = scratch_.path() / u8"\u00e9t\u00e9";
    {
        TraceHook hook("entering <" + join(root_, "a") + ">", [&] {
            fs::remove_all(gone);
            fs::remove_all(gone_too);
        });
        int rc = 0;
        Listing listed = walk(root_, DIR_LIST_FILES, &rc);
        ASSERT_TRUE(hook.fired());
        ASSERT_EQ(rc, 1) << hook.text();
        Listing expected = {{"a", DIR_TYPE_DIR}, {"a/y", DIR_TYPE_DIR}, {"a/z", DIR_TYPE_FILE}, {"b.txt", DIR_TYPE_FILE}};
        EXPECT_EQ(listed, expected);
        EXPECT_NE(hook.text().find("<" + gone.string() + "> vanished"), std::string::npos) << hook.text();
    }
    // With links followed every link is examined: one removed after the
    // listing is skipped the same way.
    ASSERT_TRUE(make_link("a", scratch_.path() / "link", true));
    ASSERT_EQ(dir_set_follow_links_flag(1), 1);
    TraceHook hook("entering <" + join(root_, "a") + ">", [&] { fs::remove(scratch_.path() / "link"); });
    int rc = 0;
    Listing listed = walk(root_, DIR_LIST_FILES, &rc);
    ASSERT_TRUE(hook.fired());
    ASSERT_EQ(rc, 1);
    EXPECT_EQ(listed.size(), 4u);
}

TEST(DirTree, RemovalStepsOverEntriesRemovedMeanwhile) {
    ScratchDir scratch("vq_dir_rm_race_");
    fs::create_directories(scratch.path() / "t" / "a" / "deep");
    fs::create_directories(scratch.path() / "t" / "b" / "deeper");
    write_text(scratch.path() / "t" / "a" / "deep" / "f", "f");
    std::string tree = (scratch.path() / "t").string();
    TraceHook hook("gf_remove_recursive: entering <" + join(tree, "a") + ">",
                   [&] { fs::remove_all(scratch.path() / "t" / "b"); });
    int32_t removed = 0;
    ASSERT_EQ(gf_remove_recursive(tree.c_str(), &removed), 1);
    ASSERT_TRUE(hook.fired());
    EXPECT_EQ(removed, 4);  // t, a, deep, f: b had gone
    EXPECT_FALSE(fs::exists(scratch.path() / "t"));
    EXPECT_NE(hook.text().find("<" + join(tree, "b") + "> vanished"), std::string::npos) << hook.text();
}
#endif

// ---- Long paths ------------------------------------------------------------

#ifndef _WIN32
using vq_test::make_deep_file;

TEST(DirLongPaths, PathsUpToTheLimitWorkAndLongerOnesFailWhole) {
    ScratchDir scratch("vq_dir_deep_");
    std::string ok_root = (scratch.path() / "ok").string();
    std::string over_root = (scratch.path() / "over").string();
    fs::create_directories(ok_root);
    fs::create_directories(over_root);
    std::string deepest = make_deep_file(ok_root, GF_MAX_PATH_LENGTH, "f");
    std::string beyond = make_deep_file(over_root, GF_MAX_PATH_LENGTH + 1, "f");

    int rc = 0;
    Listing listed = walk(ok_root, DIR_LIST_FILES, &rc);
    ASSERT_EQ(rc, 1);
    ASSERT_FALSE(listed.empty());
    EXPECT_EQ(ok_root.size() + 1 + listed.back().first.size(), deepest.size());
    EXPECT_EQ(listed.back().second, DIR_TYPE_FILE);

    // A copy of the deep tree is just as deep: its file reads back.
    std::string copy_root = (scratch.path() / "cp").string();  // as long as "ok"
    int32_t copied = 0;
    ASSERT_EQ(gf_copy_dir(ok_root.c_str(), copy_root.c_str(), 0, &copied), 1);
    EXPECT_EQ(copied, 1);
    EXPECT_EQ(walk(copy_root, DIR_LIST_FILES), listed);

    // One byte more: the walk fails and names the whole path.
    void *list = nullptr;
    EXPECT_EQ(directory_build_list(&list, over_root.c_str(), nullptr, DIR_LIST_FILES), 0);
    std::string texts;
    EXPECT_TRUE(on_stack(ERR_FIL_VLONGNAME, &texts));
    // The stack's entries hold 5,120 bytes: the name shows from its start.
    EXPECT_NE(texts.find("<" + beyond.substr(0, 4000)), std::string::npos);
    EXPECT_EQ(list, nullptr);

    // Removing the tree below the limit removes everything; the other one
    // stops at the too-long name with what went before counted.
    int32_t removed = 0;
    ASSERT_EQ(gf_remove_recursive(ok_root.c_str(), &removed), 1);
    EXPECT_EQ(removed, static_cast<int32_t>(listed.size()) + 1);
    EXPECT_FALSE(fs::exists(ok_root));
    ASSERT_EQ(gf_remove_recursive(copy_root.c_str(), &removed), 1);
    EXPECT_EQ(gf_remove_recursive(over_root.c_str(), &removed), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_VLONGNAME));
    EXPECT_EQ(removed, 0);
    EXPECT_TRUE(fs::exists(over_root));
    // Renaming the first 200-byte level brings the tree below the limit.
    fs::path first_level = fs::directory_iterator(over_root)->path();
    fs::rename(first_level, fs::path(over_root) / "x");
    ASSERT_EQ(gf_remove_recursive(over_root.c_str(), &removed), 1);
    EXPECT_FALSE(fs::exists(over_root));
}
#endif

// ---- Copies ------------------------------------------------------------------

class DirCopy : public ::testing::Test {
protected:
    void SetUp() override {
        source_ = scratch_.path() / "src";
        target_ = scratch_.path() / "dst";
        fs::create_directories(source_ / "sub" / "inner");
        write_text(source_ / "a file", "alpha");
        write_text(source_ / "sub" / "b", std::string(300000, 'b'));
        write_text(source_ / "sub" / "inner" / u8"\u00fcber", "uber");
    }

    ScratchDir scratch_{"vq_dir_copy_"};
    fs::path source_;
    fs::path target_;
};

TEST_F(DirCopy, CopiesContentsModesAndTimes) {
    auto stamp = fs::file_time_type::clock::now() - std::chrono::hours(50) + std::chrono::nanoseconds(123456700);
    fs::last_write_time(source_ / "a file", stamp);
    fs::last_write_time(source_ / "sub" / "b", stamp - std::chrono::hours(1));
#ifndef _WIN32
    ASSERT_EQ(::chmod((source_ / "a file").c_str(), 0640), 0);
    ASSERT_EQ(::chmod((source_ / "sub" / "b").c_str(), 0751), 0);
    ASSERT_EQ(::chmod((source_ / "sub").c_str(), 0705), 0);
    // The C++ library of the Windows build cannot set a directory's time.
    fs::last_write_time(source_ / "sub", stamp - std::chrono::hours(2));
#endif
    int32_t copied = -1;
    ASSERT_EQ(gf_copy_dir(source_.string().c_str(), target_.string().c_str(), 0, &copied), 1);
    EXPECT_EQ(copied, 3);
    EXPECT_EQ(tree_of(target_), tree_of(source_)) << "no temporary name may be left";
    EXPECT_EQ(read_text(target_ / "sub" / "b"), std::string(300000, 'b'));
    EXPECT_EQ(read_text(target_ / "sub" / "inner" / u8"\u00fcber"), "uber");
    for (const char *name : {"a file", "sub/b", "sub"}) {
        fs::path relative = fs::path(name).make_preferred();
        EXPECT_EQ(fs::last_write_time(target_ / relative), fs::last_write_time(source_ / relative)) << name;
        EXPECT_EQ(fs::status(target_ / relative).permissions(), fs::status(source_ / relative).permissions())
            << name;
    }
}

TEST_F(DirCopy, ExistingFilesAreKeptUnlessOverwriting) {
    fs::create_directories(target_ / "sub");
    write_text(target_ / "sub" / "b", "old");
    write_text(target_ / "own", "own");
    int32_t copied = -1;
    EXPECT_EQ(gf_copy_dir(source_.string().c_str(), target_.string().c_str(), 0, &copied), 0);
    std::string texts;
    EXPECT_TRUE(on_stack(ERR_FIL_COPY, &texts));
    EXPECT_NE(texts.find("b>"), std::string::npos) << texts;
    EXPECT_EQ(copied, 1) << "\"a file\" came before the clash";
    EXPECT_EQ(read_text(target_ / "sub" / "b"), "old");
    EXPECT_EQ(tree_of(target_), (std::vector<std::string>{"a file", "own", "sub", "sub/b"}));

    ASSERT_EQ(gf_copy_dir(source_.string().c_str(), target_.string().c_str(), 1, &copied), 1);
    EXPECT_EQ(copied, 3);
    EXPECT_EQ(read_text(target_ / "sub" / "b"), std::string(300000, 'b'));
    EXPECT_EQ(read_text(target_ / "own"), "own") << "a merge keeps what the target had";
}

TEST_F(DirCopy, StopsAtTheFirstFailureWithTheCount) {
    // A file where the copy must create a directory fails for every user.
    fs::create_directories(target_);
    write_text(target_ / "sub", "in the way");
    int32_t copied = -1;
    EXPECT_EQ(gf_copy_dir(source_.string().c_str(), target_.string().c_str(), 1, &copied), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_MKDFEX));
    EXPECT_EQ(copied, 1);
    EXPECT_EQ(read_text(target_ / "sub"), "in the way");

    // A target inside the source is refused before anything is made.
    fs::path inside = source_ / "sub" / "copy";
    EXPECT_EQ(gf_copy_dir(source_.string().c_str(), inside.string().c_str(), 0, &copied), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_BADPAR));
    EXPECT_EQ(copied, 0);
    EXPECT_FALSE(fs::exists(inside));
    EXPECT_EQ(gf_copy_dir(source_.string().c_str(), source_.string().c_str(), 0, &copied), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_BADPAR));

    std::string file = (source_ / "a file").string();
    EXPECT_EQ(gf_copy_dir(file.c_str(), (scratch_.path() / "x").string().c_str(), 0, &copied), 0);
    EXPECT_TRUE(on_stack(ERR_MKL_BADDIR));
}

TEST_F(DirCopy, LinksAreCopiedAsLinksAndNeverFollowed) {
    ScratchDir outside("vq_dir_copy_out_");
    write_text(outside.path() / "secret", "outside");
    if (!make_link(outside.path().string(), source_ / "out", true) ||
        !make_link(fs::path("..").append("a file").string(), source_ / "sub" / "up", false) ||
        !make_link("nowhere", source_ / "dangling", false)) {
        GTEST_SKIP() << "symbolic links cannot be made here";
    }
    int32_t copied = 0;
    ASSERT_EQ(gf_copy_dir(source_.string().c_str(), target_.string().c_str(), 0, &copied), 1);
    EXPECT_EQ(copied, 6);
    for (const char *name : {"out", "sub/up", "dangling"}) {
        fs::path relative = fs::path(name).make_preferred();
        ASSERT_TRUE(fs::is_symlink(target_ / relative)) << name;
        EXPECT_EQ(fs::read_symlink(target_ / relative), fs::read_symlink(source_ / relative)) << name;
    }
    EXPECT_EQ(tree_of(outside.path()), std::vector<std::string>{"secret"});
}

// ---- Removal -------------------------------------------------------------------

TEST(DirRemove, NeverFollowsALinkOutOfTheTree) {
    ScratchDir scratch("vq_dir_rm_");
    ScratchDir outside("vq_dir_rm_out_");
    write_text(outside.path() / "keep", "keep");
    fs::path tree = scratch.path() / "tree";
    fs::create_directories(tree / "d");
    write_text(tree / "d" / "f", "f");
    if (!make_link(outside.path().string(), tree / "d" / "out", true) ||
        !make_link((outside.path() / "keep").string(), tree / "file link", false)) {
        GTEST_SKIP() << "symbolic links cannot be made here";
    }
    int32_t removed = 0;
    ASSERT_EQ(gf_remove_recursive(tree.string().c_str(), &removed), 1);
    EXPECT_EQ(removed, 5);
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_EQ(read_text(outside.path() / "keep"), "keep");

    // A link given as the root is removed itself.
    fs::path root_link = scratch.path() / "root link";
    ASSERT_TRUE(make_link(outside.path().string(), root_link, true));
    ASSERT_EQ(gf_remove_recursive(root_link.string().c_str(), &removed), 1);
    EXPECT_EQ(removed, 1);
    EXPECT_FALSE(fs::exists(fs::symlink_status(root_link)));
    EXPECT_EQ(read_text(outside.path() / "keep"), "keep");
}

TEST(DirRemove, MissingPathsAndBadArguments) {
    ScratchDir scratch("vq_dir_rm_args_");
    int32_t removed = -1;
    std::string missing = (scratch.path() / "missing" / "deeper").string();
    EXPECT_EQ(gf_remove_recursive(missing.c_str(), &removed), 1);
    EXPECT_EQ(removed, 0);
    EXPECT_EQ(gf_remove_recursive(nullptr, &removed), 0);
    EXPECT_TRUE(on_stack(ERR_GEN_PARAMS));
    std::string root(1, kSep);
    EXPECT_EQ(gf_remove_recursive(root.c_str(), &removed), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_BADPAR));
    std::string dot = (scratch.path() / ".").string();
    EXPECT_EQ(gf_remove_recursive(dot.c_str(), &removed), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_BADPAR));
    EXPECT_TRUE(fs::exists(scratch.path()));
}

// ---- File lists ----------------------------------------------------------------

TEST(DirFileList, ListsMatchingRegularFilesSorted) {
    ScratchDir scratch("vq_dir_list_");
    for (const char *name : {"b.txt", "a.txt", "c.log", "d d.txt"}) {
        write_text(scratch.path() / name, name);
    }
    fs::create_directories(scratch.path() / "dir.txt");
    std::string dir = scratch.path().string();

    char **list = nullptr;
    ASSERT_EQ(gf_get_file_list(dir.c_str(), "*.txt", &list), 1);
    ASSERT_EQ(ml_list_count(list), 3);
    EXPECT_EQ(std::vector<std::string>(list, list + 3), (std::vector<std::string>{"a.txt", "b.txt", "d d.txt"}));
    ml_free(list);

    char *buffer = nullptr;
    int32_t length = -1;
    ASSERT_EQ(gf_get_file_list_as_buffer(dir.c_str(), nullptr, &buffer, &length), 1);
    EXPECT_STREQ(buffer, "a.txt\nb.txt\nc.log\nd d.txt\n");
    EXPECT_EQ(length, static_cast<int32_t>(std::strlen(buffer)));
    sl_free(buffer);

    ASSERT_EQ(gf_get_file_list(dir.c_str(), "*.none", &list), 1);
    EXPECT_EQ(ml_list_count(list), 0);
    ml_free(list);

    std::string file = (scratch.path() / "a.txt").string();
    EXPECT_EQ(gf_get_file_list(file.c_str(), nullptr, &list), 0);
    EXPECT_EQ(list, nullptr);
    EXPECT_TRUE(on_stack(ERR_MKL_BADDIR));

    int32_t has = -1;
    ASSERT_EQ(gf_is_dir_has_children(dir.c_str(), &has), 1);
    EXPECT_EQ(has, 1);
    ASSERT_EQ(gf_is_dir_has_children((scratch.path() / "dir.txt").string().c_str(), &has), 1);
    EXPECT_EQ(has, 0);
    EXPECT_EQ(gf_is_dir_has_children(file.c_str(), &has), 0);
    EXPECT_TRUE(on_stack(ERR_MKL_BADDIR));
}

// ---- Deletion report -------------------------------------------------------------

TEST(DirDeleteReport, ReportsEveryNameAndGoesOnPastFailures) {
    ScratchDir scratch("vq_dir_report_");
    std::string one = (scratch.path() / "one").string();
    std::string gone = (scratch.path() / "gone").string();
    std::string dir = (scratch.path() / "dir").string();
    std::string two = (scratch.path() / "two words").string();
    write_text(one, "1");
    write_text(two, "2");
    fs::create_directories(dir);
    char **list = nullptr;
    for (const std::string *name : {&one, &gone, &dir, &two}) {
        ASSERT_EQ(ml_add_element(&list, name->c_str()), 1);
    }
    std::string report = (scratch.path() / "report.txt").string();
    int32_t deleted = -1;
    EXPECT_EQ(gf_delete_from_list_make_report(list, report.c_str(), &deleted), 0);
    EXPECT_TRUE(on_stack(ERR_FIL_DELETE_170B));
    EXPECT_EQ(deleted, 2);
    EXPECT_FALSE(fs::exists(one));
    EXPECT_FALSE(fs::exists(two));
    EXPECT_TRUE(fs::is_directory(dir));
    std::string text = read_text(report);
    std::string failed_line = "failed " + dir + ": ";
    size_t failed_at = text.find(failed_line);
    ASSERT_NE(failed_at, std::string::npos) << text;
    size_t reason_end = text.find('\n', failed_at);
    EXPECT_GT(reason_end, failed_at + failed_line.size()) << "the system's reason follows";
    std::string expected_start = "deleted " + one + "\nmissing " + gone + "\n";
    EXPECT_EQ(text.substr(0, expected_start.size()), expected_start);
    EXPECT_EQ(text.substr(reason_end + 1), "deleted " + two + "\n");

    // Everything gone or missing: success; no report file asked for.
    EXPECT_EQ(gf_delete_from_list_make_report(list, nullptr, &deleted), 0);
    on_stack(ERR_FIL_DELETE_170B);
    fs::remove(dir);
    EXPECT_EQ(gf_delete_from_list_make_report(list, nullptr, &deleted), 1);
    EXPECT_EQ(deleted, 0);

    // A report that cannot be written removes nothing.
    write_text(one, "1");
    std::string bad_report = (scratch.path() / "no such dir" / "r").string();
    EXPECT_EQ(gf_delete_from_list_make_report(list, bad_report.c_str(), &deleted), 0);
    EXPECT_TRUE(on_stack(ERR_MKL_FPRINTF));
    EXPECT_TRUE(fs::exists(one));
    ml_free(list);
}

}  // namespace
