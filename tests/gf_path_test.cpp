// Path handling: extraction by text and against the file system, remote
// specifications, full paths and their comparison, the Windows name test,
// partial paths, making directories and the wide form of names.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"
#include "vq_glob/mlist.h"

namespace {

namespace fs = std::filesystem;

constexpr char kSep = VQ_PATH_SEPARATOR;

// A path written with "/" in the test, with the platform's separator.
std::string native(std::string path) {
    for (char &c : path) {
        c = c == '/' ? kSep : c;
    }
    return path;
}

// Runs an extraction into a buffer of exactly the size the header promises
// (strlen + extra) followed by guard bytes, and fails the test when a guard
// byte changed. "<failed>" when the function returned 0.
template <typename Fn>
std::string run(Fn fn, const std::string &path, size_t extra = 1) {
    std::vector<char> buffer(path.size() + extra + 16, '\x5A');
    int rc = fn(path.c_str(), buffer.data());
    for (size_t i = path.size() + extra; i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], '\x5A') << "write past the promised size for <" << path << ">";
    }
    return rc == 1 ? std::string(buffer.data()) : "<failed>";
}

std::string expand(const std::string &path) {
    char *buffer = nullptr;
    int32_t size = 0;
    std::string out = gf_expand_full_path(path.c_str(), &buffer, &size) == 1 ? buffer : "<failed>";
    std::free(buffer);
    return out;
}

// A fresh directory tree under the test's temporary directory:
//   <root>/d.dir/sub/   <root>/d.dir/f.txt
class GfPathTree : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = ::testing::TempDir() + "vq_gf_path_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(root_);
        fs::create_directories(fs::path(root_) / "d.dir" / "sub");
        std::ofstream(fs::path(root_) / "d.dir" / "f.txt") << "x";
        root_ += kSep;
        err_clear_error_stack();
    }
    void TearDown() override { fs::remove_all(root_); }

    [[nodiscard]] std::string at(const std::string &relative) const { return root_ + native(relative); }

    std::string root_;
};

// ---- Tests on the text ------------------------------------------------------

TEST(GfPath, FullPathFollowsThePlatformRules) {
#if defined(_WIN32)
    for (const char *full : {R"(C:\a)", R"(z:\)", R"(\\node\share)"}) {
        EXPECT_EQ(gf_is_full_path(full), 1) << full;
    }
    for (const char *relative : {"C:a", "\\a", "", "C:/a", "1:\\a", "a\\b"}) {
        EXPECT_EQ(gf_is_full_path(relative), 0) << relative;
    }
#else
    for (const char *full : {"/", "/a/b", "//node/share"}) {
        EXPECT_EQ(gf_is_full_path(full), 1) << full;
    }
    for (const char *relative : {"a/b", "./a", "", R"(C:\a)", R"(\\node\x)"}) {
        EXPECT_EQ(gf_is_full_path(relative), 0) << relative;
    }
#endif
    err_clear_error_stack();
    EXPECT_EQ(gf_is_full_path(nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST(GfPath, TextExtractionIgnoresTheFileSystem) {
    auto filename = [](const char *p, char *o) { return gf_extract_text_filename(p, o); };
    auto path = [](const char *p, char *o) { return gf_extract_text_path(p, o); };
    EXPECT_EQ(run(filename, native("a/b/c.txt")), "c.txt");
    EXPECT_EQ(run(filename, "c.txt"), "c.txt");
    EXPECT_EQ(run(filename, native("a/")), "");
    EXPECT_EQ(run(filename, native("/")), native("/"));  // shorter than two: whole
    EXPECT_EQ(run(path, native("a/b/c")), native("a/b/"));
    EXPECT_EQ(run(path, native("/c")), native("/"));
    EXPECT_EQ(run(path, "c", 2), native("/"));  // no separator: the separator alone
    EXPECT_EQ(run(path, "", 2), native("/"));

    char out[16];
    ASSERT_EQ(gf_extract_text_filename_with_sep("x|y|z", out, '|'), 1);
    EXPECT_STREQ(out, "z");
    ASSERT_EQ(gf_extract_text_path_with_sep("x|y|z", out, '|'), 1);
    EXPECT_STREQ(out, "x|y|");
    ASSERT_EQ(gf_extract_text_path_with_sep("xyz", out, '|'), 1);
    EXPECT_STREQ(out, "|");
    err_clear_error_stack();
    EXPECT_EQ(gf_extract_text_path_with_sep("xyz", out, '\0'), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);

    // Results may be written over their input.
    char in_place[] = "dir|name";
    ASSERT_EQ(gf_extract_text_filename_with_sep(in_place, in_place, '|'), 1);
    EXPECT_STREQ(in_place, "name");
}

TEST(GfPath, ElementPointers) {
    const char *text = "a|bb|c";
    EXPECT_EQ(gf_extract_first_element_ptr(text, '|'), text + 1);
    EXPECT_EQ(gf_extract_first_element_ptr(text, '/'), nullptr);
    EXPECT_EQ(gf_extract_last_element_ptr(text, '|'), text + 5);
    EXPECT_EQ(gf_extract_last_element_ptr(text, '/'), text);
}

TEST(GfPath, ParentAndDirectoryName) {
    auto prev = [](const char *p, char *o) { return gf_extract_prev_dir(p, o); };
    auto dir = [](const char *p, char *o) { return gf_extract_dir_name(p, o); };
    EXPECT_EQ(run(prev, native("a/b/c")), native("a/b"));
    EXPECT_EQ(run(prev, native("a/b/")), "a");  // one trailing separator ignored
    EXPECT_EQ(run(prev, native("/a")), native("/"));
    EXPECT_EQ(run(prev, native("/")), native("/"));
    EXPECT_EQ(run(prev, "a"), "");
    EXPECT_EQ(run(dir, native("a/b//")), "b");
    EXPECT_EQ(run(dir, native("a/b")), "b");
    EXPECT_EQ(run(dir, native("/")), "");
}

TEST(GfPath, RemoteSpecificationsAndDevices) {
    char out[64];
    ASSERT_EQ(gf_extract_remote_node_name(native("//node/share/f").c_str(), out), 1);
    EXPECT_STREQ(out, "node");
    std::strcpy(out, "junk");
    err_clear_error_stack();
    EXPECT_EQ(gf_extract_remote_node_name(native("/local/f").c_str(), out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(gf_extract_remote_node_name(native("///f").c_str(), out), 0);  // empty node
    EXPECT_EQ(err_get_stack_depth(), 0);

    auto rest = [](const char *p, char *o) { return gf_extract_remote_filespec(p, o); };
    EXPECT_EQ(run(rest, native("//node/share/f")), native("/share/f"));
    EXPECT_EQ(run(rest, native("/local/f")), native("/local/f"));
    EXPECT_EQ(run(rest, native("//node")), "");

    auto device = [](const char *p, char *o) { return gf_extract_device_name(p, o); };
    EXPECT_EQ(run(device, native("//node/share/a/b")), native("//node/share"));
    EXPECT_EQ(run(device, native("/a/b")), "");
#if defined(_WIN32)
    EXPECT_EQ(run(device, "C:\\a"), "C:");
#endif
}

TEST(GfPath, FirstElementsAndNextPartialPath) {
    auto first = [](int32_t n) {
        return [n](const char *p, char *o) { return gf_get_n_first_elements_str(p, n, o); };
    };
    EXPECT_EQ(run(first(1), native("/a/b/c")), native("/a"));
    EXPECT_EQ(run(first(2), native("/a//b/c")), native("/a//b"));
    EXPECT_EQ(run(first(9), native("a/b/")), native("a/b/"));
#if defined(_WIN32)
    EXPECT_EQ(run(first(1), "C:\\a\\b"), "C:");
#endif
    char out[32];
    err_clear_error_stack();
    EXPECT_EQ(gf_get_n_first_elements_str("a", 0, out), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);

    // Walking a full path one element at a time, from its root.
    std::vector<std::string> steps;
    std::string base = "|";
    for (int guard = 0; guard < 10 && gf_get_next_partial_path(base.c_str(), "|a|bb|c", out, '|') == 1;
         ++guard) {
        steps.emplace_back(out);
        base = out;
    }
    EXPECT_EQ(steps, (std::vector<std::string>{"|a", "|a|bb", "|a|bb|c"}));
    ASSERT_EQ(gf_get_next_partial_path("|a|", "|a|bb|c", out, '|'), 1);
    EXPECT_STREQ(out, "|a|bb");
    ASSERT_EQ(gf_get_next_partial_path("|a", "|a|", out, '|'), 1);  // empty remainder
    EXPECT_STREQ(out, "");
    EXPECT_EQ(gf_get_next_partial_path("|a|b", "|a", out, '|'), 0);
}

TEST(GfPath, WindowsNameValidityIsTheSameEverywhere) {
    for (const char *good : {"name.txt", "CON", "nul.txt", "trailing.", "trailing ", ""}) {
        EXPECT_EQ(gf_is_windows_filename_valid(good), 1) << good;
    }
    for (char bad : std::string("\\/:*?\"<>|")) {
        std::string name = std::string("a") + bad + "b";
        err_clear_error_stack();
        EXPECT_EQ(gf_is_windows_filename_valid(name.c_str()), 0) << name;
        EXPECT_EQ(err_get_error_code(0), ERR_FIL_WINVALID);
        EXPECT_NE(std::string(err_get_error_text(0)).find("<" + name + ">"), std::string::npos);
    }
    err_clear_error_stack();
    EXPECT_EQ(gf_is_windows_filename_valid(nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST(GfPath, NamesWindowsWouldChangeOrOpenAsDevicesAreTold) {
    for (const char *kept : {"name.txt", "CONSOLE", "con2", "COMA", "nul_x.txt", "a.con", "caf\xc3\xa9", "x y.z"}) {
        EXPECT_EQ(gf_windows_keeps_filename(kept), 1) << kept;
    }
    for (const char *lost : {"CON", "con.txt", "Nul", "aux .log", "PRN", "COM1", "lpt9.tar.gz", "com0", "trailing.",
                             "trailing ", "..", "", "tab\tin", "a:b", "what?"}) {
        err_clear_error_stack();
        EXPECT_EQ(gf_windows_keeps_filename(lost), 0) << lost;
        EXPECT_EQ(err_get_error_code(0), ERR_FIL_WINVALID) << lost;
    }
    err_clear_error_stack();
    EXPECT_EQ(gf_windows_keeps_filename(nullptr), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
}

TEST(GfPath, NullArgumentsAreParamsErrors) {
    char out[8];
    const std::vector<std::pair<const char *, int>> calls = {
        {"gf_extract_filename", gf_extract_filename(nullptr, out)},
        {"gf_extract_path", gf_extract_path("a", nullptr)},
        {"gf_extract_prev_dir", gf_extract_prev_dir(nullptr, out)},
        {"gf_compare_file_names", gf_compare_file_names("a", "a", nullptr)},
        {"gf_get_next_partial_path", gf_get_next_partial_path(nullptr, "a", out, '/')},
        {"gf_make_path_from_list", gf_make_path_from_list(nullptr)},
        {"gf_path_to_wpath", gf_path_to_wpath("a", nullptr)},
        {"gf_is_dir", gf_is_dir(nullptr)},
    };
    for (const auto &[name, rc] : calls) {
        EXPECT_EQ(rc, 0) << name;
    }
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_NE(std::string(err_get_error_text(0)).find("<gf_is_dir>/<name>"), std::string::npos);
}

// ---- Against the file system ---------------------------------------------------

TEST_F(GfPathTree, ExistingDirectoriesChangeTheExtraction) {
    auto filename = [](const char *p, char *o) { return gf_extract_filename(p, o); };
    auto path = [](const char *p, char *o) { return gf_extract_path(p, o); };
    auto ext = [](const char *p, char *o) { return gf_extract_file_extension(p, o); };
    auto stem = [](const char *p, char *o) { return gf_extract_file_no_extension(p, o); };

    const std::string dir = at("d.dir");
    EXPECT_EQ(run(filename, dir), "");
    EXPECT_EQ(run(path, dir), dir);
    EXPECT_EQ(run(ext, dir), "");
    EXPECT_EQ(run(stem, dir), dir);

    const std::string file = at("d.dir/f.txt");
    EXPECT_EQ(run(filename, file), "f.txt");
    EXPECT_EQ(run(path, file), at("d.dir/"));
    EXPECT_EQ(run(ext, file), ".txt");
    EXPECT_EQ(run(stem, file), at("d.dir/f"));

    // Names that do not exist are taken by their text.
    EXPECT_EQ(run(filename, at("d.dir/sub.x/none")), "none");
    EXPECT_EQ(run(ext, at("d.dir/none")), "");  // the only dot is in a directory element
    EXPECT_EQ(run(ext, at("c.tar.gz")), ".gz");
    EXPECT_EQ(run(path, native("/f")), native("/"));
    EXPECT_EQ(run(path, "plain"), "");
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(GfPathTree, StatusQueries) {
    EXPECT_EQ(gf_is_dir(at("d.dir").c_str()), 1);
    EXPECT_EQ(gf_is_dir(at("d.dir/f.txt").c_str()), 0);
    EXPECT_EQ(gf_is_regular(at("d.dir/f.txt").c_str()), 1);
    EXPECT_EQ(gf_is_regular(at("d.dir").c_str()), 0);
    EXPECT_EQ(gf_is_link(at("d.dir").c_str()), 0);
    EXPECT_EQ(gf_is_dir(at("none").c_str()), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);

    std::string too_long(GF_MAX_PATH_LENGTH + 1, 'a');
    EXPECT_EQ(gf_is_dir(too_long.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_VLONGNAME);
}

#if !defined(_WIN32)
TEST_F(GfPathTree, LinksOnPosixDescribeTheirTarget) {
    fs::create_directory_symlink(at("d.dir"), at("link"));
    fs::create_symlink(at("gone"), at("dangling"));
    EXPECT_EQ(gf_is_link(at("link").c_str()), 1);
    EXPECT_EQ(gf_is_dir(at("link").c_str()), 1);
    EXPECT_EQ(gf_is_link(at("dangling").c_str()), 1);
    EXPECT_EQ(gf_is_dir(at("dangling").c_str()), 0);
    EXPECT_EQ(gf_is_regular(at("dangling").c_str()), 0);
}
#endif

TEST_F(GfPathTree, ExpandAgainstTheCurrentDirectory) {
    const std::string cwd = fs::current_path().string();
    std::string joined = cwd.back() == kSep ? cwd : cwd + kSep;
    EXPECT_EQ(expand(native("x/y")), joined + native("x/y"));
    EXPECT_EQ(expand(native("x/./z/../y/")), joined + native("x/y/"));
    EXPECT_EQ(expand(at("d.dir")), at("d.dir"));
#if defined(_WIN32)
    EXPECT_EQ(expand("C:\\a\\..\\..\\b"), "C:\\b");
#else
    EXPECT_EQ(expand("/a/../../b"), "/b");  // never above the root
    EXPECT_EQ(expand("//node/share/../x"), "//node/share/x");
#endif

    // The caller's buffer grows only when the result does not fit.
    int32_t size = 4;
    auto *buffer = static_cast<char *>(std::malloc(4));
    ASSERT_EQ(gf_expand_full_path(at("d.dir").c_str(), &buffer, &size), 1);
    EXPECT_EQ(size, static_cast<int32_t>(at("d.dir").size() + 1));
    EXPECT_EQ(std::string(buffer), at("d.dir"));
    ASSERT_EQ(gf_expand_full_path("a", &buffer, &size), 1);
    EXPECT_EQ(size, static_cast<int32_t>(at("d.dir").size() + 1));
    std::free(buffer);

    size = -1;
    buffer = nullptr;
    EXPECT_EQ(gf_expand_full_path("a", &buffer, &size), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);
}

#if !defined(_WIN32)
TEST_F(GfPathTree, ExpandFailsWithoutACurrentDirectoryOnPosix) {
    const fs::path previous = fs::current_path();
    fs::current_path(at("d.dir/sub"));
    fs::remove(at("d.dir/sub"));
    char *buffer = nullptr;
    int32_t size = 0;
    int rc = gf_expand_full_path("x", &buffer, &size);
    int32_t equal = -1;
    int compared = gf_compare_file_names("x", "/x", &equal);
    fs::current_path(previous);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(compared, 0);
    EXPECT_EQ(equal, 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_EXPAND);
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG);
    EXPECT_EQ(gf_get_last_error(-1), ERR_FIL_EXPAND);  // marked on the thread
}
#endif

TEST_F(GfPathTree, CompareExpandsButKeepsLetterCase) {
    int32_t equal = -1;
    ASSERT_EQ(gf_compare_file_names(at("d.dir").c_str(), at("d.dir/").c_str(), &equal), 1);
    EXPECT_EQ(equal, 1);
    ASSERT_EQ(gf_compare_file_names(at("d.dir/sub/..").c_str(), at("d.dir").c_str(), &equal), 1);
    EXPECT_EQ(equal, 1);
    const std::string cwd = fs::current_path().string();
    std::string absolute = (cwd.back() == kSep ? cwd : cwd + kSep) + "rel";
    ASSERT_EQ(gf_compare_file_names("rel", absolute.c_str(), &equal), 1);
    EXPECT_EQ(equal, 1);
    ASSERT_EQ(gf_compare_file_names(at("d.dir").c_str(), at("D.DIR").c_str(), &equal), 1);
    EXPECT_EQ(equal, 0);
    ASSERT_EQ(gf_compare_file_names(at("d.dir").c_str(), at("d.dir/sub").c_str(), &equal), 1);
    EXPECT_EQ(equal, 0);
}

TEST_F(GfPathTree, ShortPath) {
    char out[GF_PATH_SIZE];
    ASSERT_EQ(gf_get_short_path(at("d.dir/f.txt").c_str(), out, sizeof out), 1);
    EXPECT_EQ(gf_is_regular(out), 1);
#if !defined(_WIN32)
    EXPECT_EQ(std::string(out), at("d.dir/f.txt"));
#endif
    EXPECT_EQ(gf_get_short_path(at("d.dir/f.txt").c_str(), out, 3), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BUF);
    EXPECT_EQ(gf_get_short_path(at("none").c_str(), out, sizeof out), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_GETINFO);
}

TEST_F(GfPathTree, MakePathCreatesEveryMissingDirectory) {
    ASSERT_EQ(gf_make_path(at("m1/m2/m3").c_str()), 1) << err_get_error_msg();
    EXPECT_TRUE(fs::is_directory(at("m1/m2/m3")));
    EXPECT_EQ(gf_make_path(at("m1/m2/m3/").c_str()), 1);  // all there already
    EXPECT_EQ(gf_make_path(at("d.dir/sub//n1").c_str()), 1);
    EXPECT_TRUE(fs::is_directory(at("d.dir/sub/n1")));

    EXPECT_EQ(gf_make_path(at("d.dir/f.txt/below").c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_MKDFEX);
    EXPECT_FALSE(fs::exists(at("d.dir/f.txt/below")));

    char **list = nullptr;
    std::string base = root_.substr(0, root_.size() - 1);
    for (const std::string &e : {base, std::string("l1") + kSep, std::string("l2"), native("/l3")}) {
        ASSERT_EQ(ml_add_element(&list, e.c_str()), 1);
    }
    EXPECT_EQ(gf_make_path_from_list(list), 1) << err_get_error_msg();
    EXPECT_TRUE(fs::is_directory(at("l1/l2/l3")));
    ml_free(list);

    char *empty[] = {nullptr};
    EXPECT_EQ(gf_make_path_from_list(empty), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);
    std::string too_long = at(std::string(GF_MAX_PATH_LENGTH, 'a'));
    EXPECT_EQ(gf_make_path(too_long.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_LONGCREATE_1730);
}

// ---- Wide names --------------------------------------------------------------

#if defined(_WIN32)
const std::string kPrefix = "\\\\?\\";
#else
const std::string kPrefix;
#endif

std::wstring to_wide(const std::string &path) {
    std::vector<wchar_t> out(GF_WPATH_SIZE + 16, L'\x5A5A');
    if (gf_path_to_wpath(path.c_str(), out.data()) != 1) {
        return L"<failed>";
    }
    for (size_t i = GF_WPATH_SIZE; i < out.size(); ++i) {
        EXPECT_EQ(out[i], L'\x5A5A') << "write past GF_WPATH_SIZE";
    }
    return out.data();
}

std::string to_narrow(const std::wstring &wide) {
    std::vector<char> out(GF_PATH_SIZE + 16, '\x5A');
    int rc = gf_wpath_to_path(wide.c_str(), out.data());
    for (size_t i = GF_PATH_SIZE; i < out.size(); ++i) {
        EXPECT_EQ(out[i], '\x5A') << "write past GF_PATH_SIZE";
    }
    return rc == 1 ? std::string(out.data()) : "<failed>";
}

TEST(GfPathWide, RoundTripKeepsUtf8) {
    // U+00E9, U+20AC and U+1D11E (outside the basic plane: two UTF-16 units).
    const std::string name = native("dir/\xC3\xA9\xE2\x82\xAC\xF0\x9D\x84\x9E.txt");
    std::wstring wide = to_wide(name);
    ASSERT_NE(wide, L"<failed>");
    EXPECT_EQ(wide.substr(kPrefix.size(), 5), (std::wstring{L'd', L'i', L'r', kSep, L'\u00E9'}));
    EXPECT_EQ(to_narrow(wide), kPrefix + name);
#if defined(_WIN32)
    EXPECT_EQ(to_wide(R"(\\node\share\f)"), LR"(\\?\UNC\node\share\f)");
    EXPECT_EQ(to_wide("\\x"), L"\\\\?\\\\x");
#endif
    // 11 characters: U+1D11E takes a surrogate pair in UTF-16, one wchar_t in UTF-32.
    EXPECT_EQ(wide.size(), kPrefix.size() + (sizeof(wchar_t) == 2 ? 12u : 11u));
}

TEST(GfPathWide, LengthLimits) {
    std::string longest(GF_MAX_PATH_LENGTH, 'n');
    EXPECT_EQ(to_wide(longest).size(), kPrefix.size() + GF_MAX_PATH_LENGTH);
    std::string remote = native("//") + std::string(GF_MAX_PATH_LENGTH - 2, 'n');
    EXPECT_NE(to_wide(remote), L"<failed>");
    err_clear_error_stack();
    EXPECT_EQ(to_wide(longest + "n"), L"<failed>");
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_VLONGNAME);

    // The narrow form holds 15,609 bytes and the terminator: 5,203 three-byte
    // characters fit, one more byte does not.
    std::wstring euros(5203, L'\u20AC');
    EXPECT_EQ(to_narrow(euros).size(), 15609u);
    err_clear_error_stack();
    EXPECT_EQ(to_narrow(euros + L"x"), "<failed>");
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
}

TEST(GfPathWide, InvalidTextIsASystemError) {
    err_clear_error_stack();
    EXPECT_EQ(to_wide("bad\xC3("), L"<failed>");
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    EXPECT_EQ(to_wide("\xED\xA0\x80"), L"<failed>");  // an encoded surrogate

    // An unpaired surrogate cannot become UTF-8; the failure is traced on GF.
    std::string trace_file = ::testing::TempDir() + "vq_gf_path_trace.txt";
    ASSERT_EQ(dbg_set_debug_output_filename(trace_file.c_str()), 1);
    dbg_add_debug_mask("GF");
    std::wstring lone = L"a";
    lone += static_cast<wchar_t>(0xD800);
    err_clear_error_stack();
    EXPECT_EQ(to_narrow(lone), "<failed>");
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    dbg_close_debug_output();
    dbg_set_debug_output(nullptr);
    dbg_add_debug_mask("NOGF");
    std::ifstream in(trace_file);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line.rfind("convertWchar2Char: Failed in WideCharToMultiByte, error: <", 0), 0u) << line;
    in.close();
    std::remove(trace_file.c_str());
}

}  // namespace
