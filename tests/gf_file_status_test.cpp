// One file by name: status with and without following links, permission bits
// and times read back, the change time a restored modification time leaves,
// renames that do and do not replace, hard links (also across file systems),
// symbolic links, creating directory chains and single directories, removing
// empty directories, copying a file into place, and the check that keeps a
// relative name below its root.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"

namespace {

namespace fs = std::filesystem;

bool stack_has(uint32_t code) {
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        if (err_get_error_code(i) == code) {
            return true;
        }
    }
    return false;
}

std::string read_text(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_text(const fs::path &p, const std::string &text) { std::ofstream(p, std::ios::binary) << text; }

// The names in dir, sorted: what a failed copy must not have added to.
std::vector<std::string> names_in(const fs::path &dir) {
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool mentions(std::string text, const std::string &word) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text.find(word) != std::string::npos;
}

gf_file_status status_of(const fs::path &p, int32_t follow) {
    gf_file_status status{};
    EXPECT_EQ(gf_get_file_status(p.string().c_str(), follow, &status), 1) << p << ": " << err_get_error_msg();
    return status;
}

// A fresh directory per test, removed afterwards.
class GfByName : public ::testing::Test {
protected:
    void SetUp() override {
        gf_clean();
        err_clear_error_stack();
        dir_ = fs::path(::testing::TempDir()) /
               ("vq_gf_by_name_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::permissions(dir_ / "f.txt", fs::perms::owner_all, ignored);
        fs::remove_all(dir_, ignored);
        gf_clean();
    }

    std::string at(const std::string &name) const { return (dir_ / name).string(); }

    // Makes a symbolic link, or tells why the system does not let us.
    bool symlink_or_skip(const std::string &target, const std::string &link) {
        if (gf_make_symlink(target.c_str(), link.c_str()) != 1) {
            skip_reason_ = std::string("symbolic links cannot be made here: ") + err_get_error_msg();
            return false;
        }
#ifdef _WIN32
        // Wine makes the link but cannot open it again afterwards.
        gf_file_status status{};
        if (gf_get_file_status(link.c_str(), 0, &status) != 1) {
            skip_reason_ = std::string("symbolic links made here cannot be opened: ") + err_get_error_msg();
            return false;
        }
#endif
        return true;
    }

    fs::path dir_;
    std::string skip_reason_;
};

// ---- Status, mode and times -----------------------------------------------------------------

TEST_F(GfByName, StatusTellsFileDirectoryAndLinkWithAndWithoutFollowing) {
    write_text(dir_ / "f.txt", "hello");
    fs::create_directory(dir_ / "d");

    const gf_file_status file = status_of(dir_ / "f.txt", 1);
    EXPECT_EQ(file.type, GF_TYPE_FILE);
    EXPECT_EQ(file.size, 5u);
    EXPECT_EQ(file.links, 1u);
    EXPECT_EQ(status_of(dir_ / "d", 0).type, GF_TYPE_DIR);

    // A second name for the file: the same object, counted twice.
    ASSERT_EQ(gf_link_file(at("f.txt").c_str(), at("g.txt").c_str()), 1) << err_get_error_msg();
    const gf_file_status again = status_of(dir_ / "g.txt", 0);
    EXPECT_EQ(again.links, 2u);
    EXPECT_EQ(again.device, status_of(dir_ / "f.txt", 0).device);
    EXPECT_EQ(again.inode, status_of(dir_ / "f.txt", 0).inode);

    if (!symlink_or_skip("f.txt", at("to_file")) || !symlink_or_skip("d", at("to_dir")) ||
        !symlink_or_skip("nothing", at("dangling"))) {
        GTEST_SKIP() << skip_reason_;
    }
    EXPECT_EQ(status_of(dir_ / "to_file", 0).type, GF_TYPE_LINK);
    const gf_file_status followed = status_of(dir_ / "to_file", 1);
    EXPECT_EQ(followed.type, GF_TYPE_FILE);
    EXPECT_EQ(followed.size, 5u);
    EXPECT_EQ(followed.inode, file.inode);
    EXPECT_EQ(status_of(dir_ / "to_dir", 1).type, GF_TYPE_DIR);
    EXPECT_EQ(status_of(dir_ / "dangling", 0).type, GF_TYPE_LINK);

    gf_file_status untouched{};
    untouched.size = 77;
    err_clear_error_stack();
    EXPECT_EQ(gf_get_file_status(at("dangling").c_str(), 1, &untouched), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_GETINFO)) << err_get_error_msg();
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_GETINFO));
    EXPECT_EQ(untouched.size, 77u) << "a failed query leaves the record alone";
}

// The change time cannot be set back with the modification time, which is
// what lets a cache notice a file rewritten and then given its old time again.
TEST_F(GfByName, ChangeTimeStaysAtTheLastChangeWhenTheModificationTimeIsSetBack) {
    const std::string name = at("f.txt");
    write_text(name, "x");
    const int64_t before = static_cast<int64_t>(std::time(nullptr));
    ASSERT_EQ(gf_set_file_times(name.c_str(), 1000000000, 0), 1) << err_get_error_msg();
    const gf_file_status status = status_of(name, 1);
    const int64_t after = static_cast<int64_t>(std::time(nullptr));
    EXPECT_EQ(status.modified_seconds, 1000000000);
    // A second either side for clocks of coarser steps than the file system's.
    EXPECT_GE(status.changed_seconds, before - 1);
    EXPECT_LE(status.changed_seconds, after + 1);
    EXPECT_GE(status.changed_nanoseconds, 0);
    EXPECT_LE(status.changed_nanoseconds, 999999999);
}

TEST_F(GfByName, ModeAndTimesAreReadBackAsSet) {
    const std::string name = at("f.txt");
    write_text(name, "x");
    struct Case {
        uint32_t set;
        uint32_t read_back;
    };
#ifdef _WIN32
    // Only the owner write bit counts: it is the read-only attribute.
    const std::vector<Case> modes = {{0444, 0444}, {0644, 0666}, {0400, 0444}};
#else
    const std::vector<Case> modes = {{0640, 0640}, {0400, 0400}, {0755, 0755}};
#endif
    for (const Case &c : modes) {
        ASSERT_EQ(gf_set_file_mode(name.c_str(), c.set), 1) << err_get_error_msg();
        EXPECT_EQ(status_of(name, 1).mode, c.read_back) << std::oct << c.set;
    }

    // Nanoseconds where the system keeps them; Windows keeps 100 ns steps.
    struct When {
        int64_t seconds;
        int32_t nanoseconds;
    };
    for (const When w : {When{1234567890, 123456789}, When{4102444800, 999999999}, When{-1, 500000000}}) {
        ASSERT_EQ(gf_set_file_times(name.c_str(), w.seconds, w.nanoseconds), 1) << err_get_error_msg();
        const gf_file_status status = status_of(name, 1);
        EXPECT_EQ(status.modified_seconds, w.seconds);
#ifdef _WIN32
        EXPECT_EQ(status.modified_nanoseconds, w.nanoseconds / 100 * 100);
#else
        EXPECT_EQ(status.modified_nanoseconds, w.nanoseconds);
        struct stat record {};
        ASSERT_EQ(::stat(name.c_str(), &record), 0);
        EXPECT_EQ(record.st_atim.tv_sec, w.seconds) << "the access time is set alike";
        EXPECT_EQ(record.st_atim.tv_nsec, w.nanoseconds);
#endif
    }

    // Values out of range change nothing.
    const gf_file_status before = status_of(name, 1);
    EXPECT_EQ(gf_set_file_mode(name.c_str(), 010000), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_BADPAR));
    EXPECT_EQ(gf_set_file_times(name.c_str(), 0, 1000000000), 0);
    EXPECT_EQ(gf_set_file_times(name.c_str(), 0, -1), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_BADPAR));
    const gf_file_status after = status_of(name, 1);
    EXPECT_EQ(after.mode, before.mode);
    EXPECT_EQ(after.modified_seconds, before.modified_seconds);
    EXPECT_EQ(after.modified_nanoseconds, before.modified_nanoseconds);

    EXPECT_EQ(gf_set_file_mode(at("missing").c_str(), 0644), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_SETPROT));
    EXPECT_EQ(gf_set_file_times(at("missing").c_str(), 0, 0), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_SETTIME));
}

TEST_F(GfByName, MissingAndOverlongArgumentsFailBeforeTheSystemIsAsked) {
    const std::string longest(GF_MAX_PATH_LENGTH + 1, 'n');
    gf_file_status status{};
    char buffer[16];
    EXPECT_EQ(gf_get_file_status(nullptr, 0, &status), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_MEMORY_1727));
    EXPECT_EQ(gf_get_file_status(at("x").c_str(), 0, nullptr), 0);
    EXPECT_EQ(gf_rename_file(at("x").c_str(), nullptr, 0), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_MEMORY_1727));
    EXPECT_EQ(gf_read_symlink(at("x").c_str(), nullptr, 16), 0);
    EXPECT_EQ(gf_read_symlink(at("x").c_str(), buffer, 0), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_BADPAR));
    EXPECT_EQ(gf_make_symlink("", at("x").c_str()), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_BADPAR));
    EXPECT_EQ(gf_link_file(longest.c_str(), at("x").c_str()), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_VLONGNAME));
    EXPECT_EQ(gf_set_file_mode(longest.c_str(), 0644), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_VLONGNAME));
    EXPECT_FALSE(fs::exists(dir_ / "x"));
}

// ---- Renames and hard links -------------------------------------------------------------

TEST_F(GfByName, RenameReplacesOnlyWhenAskedAndARefusalKeepsBothFiles) {
    const std::string from = at("from.txt");
    const std::string to = at("to.txt");
    write_text(from, "new");
    write_text(to, "old");

    EXPECT_EQ(gf_rename_file(from.c_str(), to.c_str(), 0), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_RENAME)) << err_get_error_msg();
    EXPECT_TRUE(stack_has(ERR_SYS_ERRMSG)) << "the system says why";
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_RENAME));
    EXPECT_EQ(read_text(from), "new");
    EXPECT_EQ(read_text(to), "old");

    ASSERT_EQ(gf_rename_file(from.c_str(), to.c_str(), 1), 1) << err_get_error_msg();
    EXPECT_FALSE(fs::exists(from));
    EXPECT_EQ(read_text(to), "new");

    // Without replacing, onto a free name, and into another directory.
    fs::create_directory(dir_ / "sub");
    const std::string moved = (dir_ / "sub" / "moved.txt").string();
    ASSERT_EQ(gf_rename_file(to.c_str(), moved.c_str(), 0), 1) << err_get_error_msg();
    EXPECT_FALSE(fs::exists(to));
    EXPECT_EQ(read_text(moved), "new");

    EXPECT_EQ(gf_rename_file(at("missing").c_str(), to.c_str(), 1), 0);
    EXPECT_FALSE(fs::exists(to));
}

TEST_F(GfByName, AHardLinkRefusesAnExistingName) {
    write_text(dir_ / "a.txt", "a");
    write_text(dir_ / "b.txt", "b");
    EXPECT_EQ(gf_link_file(at("a.txt").c_str(), at("b.txt").c_str()), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_LINK)) << err_get_error_msg();
    EXPECT_EQ(gf_is_cross_device_error(gf_get_last_system_error(-1)), 0);
    EXPECT_EQ(read_text(dir_ / "b.txt"), "b");
    EXPECT_EQ(status_of(dir_ / "a.txt", 0).links, 1u);
}

TEST_F(GfByName, LinkingOrRenamingAcrossFileSystemsIsAClearErrorThatLeavesTheFile) {
    // Another file system than the test's directory: /dev/shm (a tmpfs) where there is one.
    const fs::path other = "/dev/shm";
    std::error_code error;
    if (!fs::is_directory(other, error)) {
        GTEST_SKIP() << "no /dev/shm here, so no second file system to link across";
    }
    const fs::path file = dir_ / "f.txt";
    write_text(file, "data");
    const gf_file_status shm = status_of(other, 1);
    if (shm.device == status_of(file, 1).device) {
        GTEST_SKIP() << "/dev/shm is on the same file system as " << dir_;
    }
    const fs::path across = other / ("vq_gf_by_name_" + std::to_string(status_of(file, 1).inode));
    fs::remove(across, error);

    EXPECT_EQ(gf_link_file(file.string().c_str(), across.string().c_str()), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_LINK)) << err_get_error_msg();
    EXPECT_EQ(gf_is_cross_device_error(gf_get_last_system_error(-1)), 1) << err_get_error_msg();
    EXPECT_FALSE(fs::exists(across, error));

    EXPECT_EQ(gf_rename_file(file.string().c_str(), across.string().c_str(), 1), 0);
    EXPECT_EQ(gf_is_cross_device_error(gf_get_last_system_error(-1)), 1) << err_get_error_msg();
    EXPECT_FALSE(fs::exists(across, error));
    EXPECT_EQ(read_text(file), "data");
    fs::remove(across, error);
}

// ---- Symbolic links ------------------------------------------------------------------------

TEST_F(GfByName, ASymbolicLinkReadsBackWholeOrNotAtAll) {
    const std::string target = "some/where/target.txt";
    const std::string link = at("link");
    if (!symlink_or_skip(target, link)) {
        GTEST_SKIP() << skip_reason_;
    }
    std::vector<char> buffer(target.size() + 1 + 8, 'X');
    ASSERT_EQ(gf_read_symlink(link.c_str(), buffer.data(), static_cast<int32_t>(target.size() + 1)), 1)
        << err_get_error_msg();
    EXPECT_EQ(std::string(buffer.data()), target);
    EXPECT_EQ(buffer[target.size() + 1], 'X') << "nothing written past the size";

    // One byte short for the terminator: refused, and no cut text left behind.
    std::fill(buffer.begin(), buffer.end(), 'X');
    EXPECT_EQ(gf_read_symlink(link.c_str(), buffer.data(), static_cast<int32_t>(target.size())), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_BUF)) << err_get_error_msg();
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(std::string(buffer.data() + 1, target.size() - 1), std::string(target.size() - 1, 'X'));

    // The link is not made twice, and a plain file has no link text.
    EXPECT_EQ(gf_make_symlink("elsewhere", link.c_str()), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_LINK));
    ASSERT_EQ(gf_read_symlink(link.c_str(), buffer.data(), static_cast<int32_t>(buffer.size())), 1);
    EXPECT_EQ(std::string(buffer.data()), target);
    write_text(dir_ / "plain.txt", "p");
    EXPECT_EQ(gf_read_symlink(at("plain.txt").c_str(), buffer.data(), static_cast<int32_t>(buffer.size())), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_BADLINK)) << err_get_error_msg();
}

// ---- Directory chains -------------------------------------------------------------------------

TEST_F(GfByName, MakeDirsCreatesEveryMissingLevelAndStopsAtAFile) {
    const fs::path deep = dir_ / "a" / "b" / "c";
#ifndef _WIN32
    const mode_t mask = ::umask(022);  // a known umask, restored below
#endif
    ASSERT_EQ(gf_make_dirs(deep.string().c_str(), 0750), 1) << err_get_error_msg();
    EXPECT_TRUE(fs::is_directory(deep));
#ifndef _WIN32
    EXPECT_EQ(status_of(dir_ / "a", 1).mode, 0750u);
    EXPECT_EQ(status_of(deep, 1).mode, 0750u);
    // Existing levels are kept as they are.
    ASSERT_EQ(gf_make_dirs((deep / "d").string().c_str(), 0700), 1) << err_get_error_msg();
    EXPECT_EQ(status_of(deep, 1).mode, 0750u);
    EXPECT_EQ(status_of(deep / "d", 1).mode, 0700u);
    ::umask(mask);
#endif
    EXPECT_EQ(gf_make_dirs(deep.string().c_str(), 0750), 1) << "all there already";

    write_text(dir_ / "a" / "file", "f");
    EXPECT_EQ(gf_make_dirs((dir_ / "a" / "file" / "x").string().c_str(), 0755), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_MKDFEX)) << err_get_error_msg();
    EXPECT_EQ(read_text(dir_ / "a" / "file"), "f");

    EXPECT_EQ(gf_make_dirs((dir_ / "m").string().c_str(), 010000), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_BADPAR));
    EXPECT_FALSE(fs::exists(dir_ / "m"));
}

TEST_F(GfByName, MakeDirClaimsANewNameOnceAndRefusesAnExistingOne) {
    const std::string made = at("release");
#ifndef _WIN32
    const mode_t mask = ::umask(022);
#endif
    ASSERT_EQ(gf_make_dir(made.c_str(), 0750), 1) << err_get_error_msg();
    EXPECT_EQ(status_of(made, 0).type, GF_TYPE_DIR);
#ifndef _WIN32
    EXPECT_EQ(status_of(made, 0).mode, 0750u);
    ::umask(mask);
#endif
    // The second claim of the same name fails, saying that it exists.
    err_clear_error_stack();
    EXPECT_EQ(gf_make_dir(made.c_str(), 0750), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_MAKDIR)) << err_get_error_msg();
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_MAKDIR));
    EXPECT_TRUE(mentions(gf_get_last_system_msg(-1), "exist")) << gf_get_last_system_msg(-1);

    write_text(dir_ / "file", "f");
    EXPECT_EQ(gf_make_dir(at("file").c_str(), 0755), 0);
    EXPECT_EQ(read_text(dir_ / "file"), "f");
    EXPECT_EQ(gf_make_dir((dir_ / "no" / "parent").string().c_str(), 0755), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_MAKDIR));
    EXPECT_FALSE(fs::exists(dir_ / "no"));
    EXPECT_EQ(gf_make_dir(at("m").c_str(), 010000), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_BADPAR));
    EXPECT_EQ(gf_make_dir(nullptr, 0755), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_MEMORY_1727));
    EXPECT_FALSE(fs::exists(dir_ / "m"));
}

TEST_F(GfByName, RemoveDirRemovesOnlyEmptyDirectoriesAndNeverFollowsALink) {
    fs::create_directories(dir_ / "full" / "inner");
    fs::create_directory(dir_ / "empty");
    fs::create_directory(dir_ / "target");
    write_text(dir_ / "file", "f");

    ASSERT_EQ(gf_remove_dir(at("empty").c_str()), 1) << err_get_error_msg();
    EXPECT_FALSE(fs::exists(dir_ / "empty"));

    for (const char *refused : {"full", "file", "empty"}) {
        err_clear_error_stack();
        EXPECT_EQ(gf_remove_dir(at(refused).c_str()), 0) << refused;
        EXPECT_TRUE(stack_has(ERR_FIL_DELDIR_1721)) << refused << ": " << err_get_error_msg();
        EXPECT_TRUE(stack_has(ERR_SYS_ERRMSG)) << refused << ": the system says why";
    }
    EXPECT_TRUE(fs::is_directory(dir_ / "full" / "inner"));
    EXPECT_EQ(read_text(dir_ / "file"), "f");

    // A link to an empty directory is neither followed nor removed itself.
    if (!symlink_or_skip("target", at("link"))) {
        GTEST_SKIP() << skip_reason_;
    }
    EXPECT_EQ(gf_remove_dir(at("link").c_str()), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_DELDIR_1721)) << err_get_error_msg();
    EXPECT_EQ(status_of(dir_ / "link", 0).type, GF_TYPE_LINK);
    EXPECT_TRUE(fs::is_directory(dir_ / "target"));
}

// ---- Copies ----------------------------------------------------------------------------------

TEST_F(GfByName, CopyKeepsBytesModeAndTimeAndFollowsALinkAsSource) {
    std::string bytes;
    for (int i = 0; i < 300000; ++i) {
        bytes.push_back(static_cast<char>(i * 7 % 256));  // NUL bytes included
    }
    const std::string from = at("f.txt");
    write_text(from, bytes);
    ASSERT_EQ(gf_set_file_mode(from.c_str(), 0640), 1);
    ASSERT_EQ(gf_set_file_times(from.c_str(), 1234567890, 123456789), 1);
    fs::create_directory(dir_ / "out");
    const std::string to = (dir_ / "out" / "copy.txt").string();

    ASSERT_EQ(gf_copy_file(from.c_str(), to.c_str(), 0), 1) << err_get_error_msg();
    EXPECT_EQ(read_text(to), bytes);
    const gf_file_status source = status_of(from, 0);
    const gf_file_status copy = status_of(to, 0);
    EXPECT_EQ(copy.type, GF_TYPE_FILE);
    EXPECT_NE(copy.inode, source.inode) << "a copy, not a second name";
    EXPECT_EQ(copy.mode, source.mode);
    EXPECT_EQ(copy.modified_seconds, 1234567890);
    EXPECT_EQ(copy.modified_nanoseconds, source.modified_nanoseconds);
    EXPECT_EQ(names_in(dir_ / "out"), std::vector<std::string>{"copy.txt"}) << "no temporary left";

    if (!symlink_or_skip("f.txt", at("link"))) {
        GTEST_SKIP() << skip_reason_;
    }
    ASSERT_EQ(gf_copy_file(at("link").c_str(), at("from_link").c_str(), 0), 1) << err_get_error_msg();
    EXPECT_EQ(status_of(dir_ / "from_link", 0).type, GF_TYPE_FILE);
    EXPECT_EQ(read_text(dir_ / "from_link"), bytes);
}

TEST_F(GfByName, CopyReplacesOnlyWhenAsked) {
    write_text(dir_ / "new.txt", "new");
    write_text(dir_ / "old.txt", "old");
    EXPECT_EQ(gf_copy_file(at("new.txt").c_str(), at("old.txt").c_str(), 0), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_COPY)) << err_get_error_msg();
    EXPECT_TRUE(mentions(gf_get_last_system_msg(-1), "exist")) << gf_get_last_system_msg(-1);
    EXPECT_EQ(read_text(dir_ / "old.txt"), "old");

    ASSERT_EQ(gf_copy_file(at("new.txt").c_str(), at("old.txt").c_str(), 1), 1) << err_get_error_msg();
    EXPECT_EQ(read_text(dir_ / "old.txt"), "new");
    EXPECT_EQ(read_text(dir_ / "new.txt"), "new");
    EXPECT_EQ(names_in(dir_), (std::vector<std::string>{"new.txt", "old.txt"}));
}

TEST_F(GfByName, AFailedCopyLeavesNothingBehind) {
    write_text(dir_ / "f.txt", "data");
    fs::create_directory(dir_ / "sub");
    fs::create_directory(dir_ / "out");
    const std::string out = (dir_ / "out" / "x").string();
    struct Refused {
        std::string from;
        std::string to;
    };
    std::vector<Refused> cases = {
        {at("f.txt"), (dir_ / "missing_dir" / "x").string()},
        {at("missing.txt"), out},
        {at("sub"), out},                                 // a directory is no file to copy
        {at("f.txt"), (dir_ / "out").string() + VQ_PATH_SEPARATOR},  // no name to copy to
    };
#ifndef _WIN32
    if (::geteuid() != 0) {  // root reads whatever the mode says
        write_text(dir_ / "locked.txt", "secret");
        ASSERT_EQ(gf_set_file_mode(at("locked.txt").c_str(), 0), 1);
        cases.push_back({at("locked.txt"), out});
    }
#endif
    for (const Refused &c : cases) {
        err_clear_error_stack();
        EXPECT_EQ(gf_copy_file(c.from.c_str(), c.to.c_str(), 1), 0) << c.from << " -> " << c.to;
        EXPECT_NE(err_get_stack_depth(), 0) << c.from << ": a failure says why";
        EXPECT_TRUE(names_in(dir_ / "out").empty()) << c.from << " left " << names_in(dir_ / "out").front();
    }
    EXPECT_FALSE(fs::exists(dir_ / "missing_dir"));

    // Copied in full, then refused at the rename: a directory has the name.
    fs::create_directories(dir_ / "out" / "busy" / "inner");
    EXPECT_EQ(gf_copy_file(at("f.txt").c_str(), (dir_ / "out" / "busy").string().c_str(), 1), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_COPY)) << err_get_error_msg();
    EXPECT_EQ(names_in(dir_ / "out"), std::vector<std::string>{"busy"});
    EXPECT_TRUE(fs::is_directory(dir_ / "out" / "busy" / "inner"));

    EXPECT_EQ(gf_copy_file(nullptr, out.c_str(), 1), 0);
    EXPECT_EQ(gf_get_last_error(-1), static_cast<int32_t>(ERR_FIL_MEMORY_1727));
}

#ifndef _WIN32
// With no writer the fifo's open or read would block forever: a copy that
// returns at all has not read it.
TEST_F(GfByName, ACopyRefusesAFifoWithoutReadingIt) {
    const std::string fifo = at("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    fs::create_directory(dir_ / "out");
    EXPECT_EQ(gf_copy_file(fifo.c_str(), (dir_ / "out" / "x").string().c_str(), 1), 0);
    EXPECT_TRUE(stack_has(ERR_FIL_COPY)) << err_get_error_msg();
    EXPECT_TRUE(mentions(err_get_error_msg(), "not a regular file")) << err_get_error_msg();
    EXPECT_TRUE(names_in(dir_ / "out").empty());
}
#endif

// ---- Confinement ---------------------------------------------------------------------------------

struct Verdict {
    int result;
    int32_t confined;
    std::string reason;
};

Verdict confinement(const fs::path &root, const std::string &name) {
    Verdict v{-1, -1, "<not set>"};
    const char *reason = nullptr;
    v.result = gf_path_is_confined(root.string().c_str(), name.c_str(), &v.confined, &reason);
    if (reason != nullptr) {
        v.reason = reason;
    }
    return v;
}

TEST_F(GfByName, ConfinementRefusesEveryFormThatLeavesTheRoot) {
    const fs::path root = dir_ / "root";
    fs::create_directories(root / "sub");
    write_text(root / "file.txt", "f");
    const char sep = VQ_PATH_SEPARATOR;
    const std::string s(1, sep);

    std::vector<std::string> accepted = {"file.txt", "new.txt", "sub", "sub" + s + "x.txt",
                                         "not" + s + "yet" + s + "there.txt", "..name", "na..me"};
    std::vector<std::string> refused = {"",
                                        root.string(),
                                        s + "x",
                                        "..",
                                        ".." + s + "x",
                                        "sub" + s + ".." + s + ".." + s + "x",
                                        "sub" + s + "..",
                                        "." + s + "x",
                                        "sub" + s + "." + s + "x",
                                        "a" + s + s + "b",
                                        "sub" + s};
#ifdef _WIN32
    refused.insert(refused.end(), {"C:x", "/x", "a/../../x", "x.", "x ", ".. \\x"});
#else
    accepted.push_back("name..");  // only Windows drops trailing dots
    refused.push_back("a\\b");
    refused.push_back("..\\x");
#endif
    for (const std::string &name : accepted) {
        const Verdict v = confinement(root, name);
        EXPECT_EQ(v.result, 1) << name << ": " << err_get_error_msg();
        EXPECT_EQ(v.confined, 1) << name << " refused: " << v.reason;
        EXPECT_EQ(v.reason, "") << name;
    }
    for (const std::string &name : refused) {
        const Verdict v = confinement(root, name);
        EXPECT_EQ(v.result, 1) << name << ": " << err_get_error_msg();
        EXPECT_EQ(v.confined, 0) << "<" << name << "> accepted";
        EXPECT_FALSE(v.reason.empty() || v.reason == "<not set>") << name;
    }

    // No reason asked for is fine too.
    int32_t confined = -1;
    EXPECT_EQ(gf_path_is_confined(root.string().c_str(), "..", &confined, nullptr), 1);
    EXPECT_EQ(confined, 0);

    // A root that is not there cannot be checked against.
    err_clear_error_stack();
    const Verdict missing = confinement(dir_ / "no_root", "x");
    EXPECT_EQ(missing.result, 0);
    EXPECT_EQ(missing.confined, 0);
    EXPECT_TRUE(stack_has(ERR_FIL_EXPAND)) << err_get_error_msg();
    EXPECT_EQ(gf_path_is_confined(nullptr, "x", &confined, nullptr), 0);
    EXPECT_EQ(gf_path_is_confined(root.string().c_str(), "x", nullptr, nullptr), 0);
}

TEST_F(GfByName, ConfinementFollowsLinksOnTheWay) {
    const fs::path root = dir_ / "root";
    fs::create_directories(root / "sub");
    fs::create_directories(dir_ / "elsewhere");
    write_text(dir_ / "victim.txt", "v");
    if (!symlink_or_skip((dir_ / "elsewhere").string(), (root / "escape").string()) ||
        !symlink_or_skip((dir_ / "victim.txt").string(), (root / "victim.txt").string()) ||
        !symlink_or_skip("sub", (root / "inner").string()) ||
        !symlink_or_skip((dir_ / "gone").string(), (root / "dangling").string()) ||
        !symlink_or_skip(".." + std::string(1, VQ_PATH_SEPARATOR) + "elsewhere", (root / "up").string())) {
        GTEST_SKIP() << skip_reason_;
    }
    const std::string s(1, VQ_PATH_SEPARATOR);
    for (const std::string &name : std::vector<std::string>{"escape" + s + "x.txt", "escape" + s + "a" + s + "b.txt", "victim.txt",
                                    "dangling", "dangling" + s + "x.txt", "up" + s + "x.txt", "escape"}) {
        const Verdict v = confinement(root, name);
        EXPECT_EQ(v.result, 1) << name << ": " << err_get_error_msg();
        EXPECT_EQ(v.confined, 0) << "<" << name << "> accepted";
        EXPECT_NE(v.reason.find("symbolic link"), std::string::npos) << name << ": " << v.reason;
    }
    // A link that stays inside is as good as the directory it leads to, also
    // when the root itself is reached through a link.
    ASSERT_TRUE(symlink_or_skip(root.string(), (dir_ / "root_link").string())) << skip_reason_;
    for (const fs::path &base : {root, dir_ / "root_link"}) {
        for (const std::string &name : std::vector<std::string>{"inner" + s + "x.txt", "inner", "sub" + s + "y.txt"}) {
            const Verdict v = confinement(base, name);
            EXPECT_EQ(v.result, 1) << name << ": " << err_get_error_msg();
            EXPECT_EQ(v.confined, 1) << base << " " << name << " refused: " << v.reason;
        }
    }
}

}  // namespace
