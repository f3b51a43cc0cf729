// Search streams over real files in a scratch directory: directory searches
// (names, the current directory, dots, no match, restarts, names removed
// during a search, the unicode check), list-file searches (line ends,
// selection, prefixes, limits, files that are no regular files) and the
// release of a search's resources with its handle.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#ifndef _WIN32
#include <sys/stat.h>
#endif

#include "support/deep_tree.h"
#include "support/net_support.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/gf_path.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Names = std::set<std::string>;
using ::testing::HasSubstr;
constexpr auto kNoMoreFiles = static_cast<int32_t>(ERR_FIL_NMFILES);

std::string utf8(const fs::path &path) {
    std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

void write_text(const fs::path &path, const std::string &text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    ASSERT_TRUE(out.good()) << utf8(path);
}

// The codes on the error stack, newest first.
std::vector<uint32_t> stack_codes() {
    std::vector<uint32_t> codes;
    for (int32_t i = 0; i < err_get_stack_depth(); ++i) {
        codes.push_back(err_get_error_code(i));
    }
    return codes;
}

class GfSearch : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        ASSERT_EQ(gf_allocate_handle(&h_), 1) << err_get_error_msg();
    }
    void TearDown() override { gf_free_handle(h_); }

    fs::path dir() const { return scratch_.path(); }
    std::string in_dir(const std::string &name) const { return utf8(dir() / fs::u8path(name)); }

    void touch(const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            write_text(dir() / fs::u8path(name), "x");
        }
    }

    // Every name the running search still yields, checking that each call
    // leaves SSEARCH; stops at the first 0.
    Names drain(int (*next)(int32_t) = gf_next_file) {
        Names names;
        for (int guard = 0; guard < 1000 && next(h_) == 1; ++guard) {
            EXPECT_EQ(gf_get_last_status(h_), static_cast<int32_t>(ERR_FIL_SSEARCH));
            char *name = nullptr;
            EXPECT_EQ(gf_get_res_file_name(h_, &name), 1);
            EXPECT_TRUE(names.insert(name).second) << "returned twice: " << name;
        }
        return names;
    }

    // Searches spec to its end, which must be a normal one.
    Names search(const std::string &spec) {
        EXPECT_EQ(gf_set_file_name(h_, spec.c_str()), 1);
        EXPECT_EQ(gf_init_search(h_), 1) << err_get_error_msg();
        EXPECT_EQ(gf_get_last_status(h_), static_cast<int32_t>(ERR_FIL_SEARCHI));
        Names names = drain();
        EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);
        EXPECT_EQ(err_get_stack_depth(), 0) << err_get_error_msg();
        return names;
    }

    // A list-file search of list under the selection pattern, to its end.
    Names search_list(const std::string &list, const std::string &pattern, const char *prefix = nullptr) {
        write_text(dir() / "list.txt", list);
        EXPECT_EQ(gf_set_search_type(h_, GF_SEARCH_LIST_FILE), 1);
        EXPECT_EQ(gf_set_search_file(h_, in_dir("list.txt").c_str()), 1);
        EXPECT_EQ(gf_set_search_prefix(h_, prefix), 1);
        return search(pattern);
    }

    vq::test::ScratchDir scratch_{"vq_gf_search_"};
    int32_t h_ = -1;
};

TEST_F(GfSearch, DirectoryNamesCarryTheDirectoryAndNeverTheDots) {
    touch({"a.txt", "b.txt", "c.log", ".hidden"});
    fs::create_directory(dir() / "sub");
    EXPECT_EQ(search(in_dir("*")), (Names{in_dir("a.txt"), in_dir("b.txt"), in_dir("c.log"), in_dir(".hidden"),
                                          in_dir("sub")}));
    EXPECT_EQ(search(in_dir("*.txt")), (Names{in_dir("a.txt"), in_dir("b.txt")}));
    EXPECT_EQ(search(in_dir("?.log")), (Names{in_dir("c.log")}));
    // A name without wildcards finds itself, a directory included.
    EXPECT_EQ(search(in_dir("sub")), (Names{in_dir("sub")}));
    // "." and ".." are matched by patterns like these, and still never come.
    EXPECT_EQ(search(in_dir(".*")), (Names{in_dir(".hidden")}));
#ifdef _WIN32
    EXPECT_EQ(search(in_dir("*.TXT")), (Names{in_dir("a.txt"), in_dir("b.txt")}));
#else
    EXPECT_EQ(gf_set_file_name(h_, in_dir("*.TXT").c_str()), 1);
    EXPECT_EQ(gf_init_search(h_), 0) << "names are matched with their case on POSIX";
#endif
}

TEST_F(GfSearch, PatternWithoutDirectorySearchesTheCurrentOne) {
    touch({"one.txt", "two.txt", "three.log"});
    const fs::path before = fs::current_path();
    fs::current_path(dir());
    Names names = search("*.txt");
    const std::string cwd = utf8(fs::current_path());
    fs::current_path(before);
    const std::string sep(1, VQ_PATH_SEPARATOR);
    EXPECT_EQ(names, (Names{cwd + sep + "one.txt", cwd + sep + "two.txt"}));
}

TEST_F(GfSearch, NothingToFindFailsTheInitWithNoMoreFilesAsStatus) {
    touch({"a.txt"});
    fs::create_directory(dir() / "empty");
    std::vector<std::string> specs = {in_dir("*.none"), in_dir("missing") + VQ_PATH_SEPARATOR + "*",
                                      in_dir("empty") + VQ_PATH_SEPARATOR + "*"};
#ifndef _WIN32
    // A file where the directory should be is no directory to search (Windows
    // reports it as an invalid name instead, a failure of its own).
    specs.push_back(in_dir("a.txt") + VQ_PATH_SEPARATOR + "*");
#endif
    for (const std::string &spec : specs) {
        err_clear_error_stack();
        ASSERT_EQ(gf_set_file_name(h_, spec.c_str()), 1);
        EXPECT_EQ(gf_init_search(h_), 0) << spec;
        EXPECT_EQ(stack_codes(), std::vector<uint32_t>{ERR_FIL_NOFILEFND}) << spec;
        EXPECT_THAT(err_get_error_text(0), HasSubstr(spec));
        EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles) << spec;
        EXPECT_EQ(gf_next_file(h_), 0) << "no search is left running after a failed init";
    }
}

TEST_F(GfSearch, MisuseIsRefusedWithItsCode) {
    err_clear_error_stack();
    EXPECT_EQ(gf_init_search(h_), 0);
    EXPECT_EQ(stack_codes(), std::vector<uint32_t>{ERR_FIL_NFNAM});

    err_clear_error_stack();
    ASSERT_EQ(gf_set_file_name(h_, in_dir("*").c_str()), 1);
    EXPECT_EQ(gf_next_file(h_), 0) << "no search was started";
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_SEARCH_1712);

    err_clear_error_stack();
    ASSERT_EQ(gf_set_search_type(h_, 7), 1);
    EXPECT_EQ(gf_init_search(h_), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);
    EXPECT_EQ(gf_next_file(h_), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);

    err_clear_error_stack();
    EXPECT_EQ(gf_init_search(h_ + 100), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_NOTACTIVE);
}

TEST_F(GfSearch, RestartingAndClosingAreClean) {
    touch({"a", "b", "c", "d"});
    const Names all = {in_dir("a"), in_dir("b"), in_dir("c"), in_dir("d")};
    ASSERT_EQ(gf_set_file_name(h_, in_dir("*").c_str()), 1);
    ASSERT_EQ(gf_init_search(h_), 1);
    ASSERT_EQ(gf_next_file(h_), 1);
    ASSERT_EQ(gf_next_file(h_), 1);
    // A new init starts over: every name again, none twice.
    EXPECT_EQ(search(in_dir("*")), all);
    // After the end, further calls keep saying so without an error.
    EXPECT_EQ(gf_next_file(h_), 0);
    EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);
    EXPECT_EQ(err_get_stack_depth(), 0);
    // A search ended by gf_close_search yields nothing more, and the handle
    // can search again.
    ASSERT_EQ(gf_init_search(h_), 1);
    EXPECT_EQ(gf_close_search(h_), 1);
    EXPECT_EQ(gf_next_file(h_), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_SEARCH_1712);
    err_clear_error_stack();
    EXPECT_EQ(search(in_dir("*")), all);
}

TEST_F(GfSearch, NamesRemovedDuringTheSearchAreNotReturned) {
    touch({"k1", "k2", "gone1", "gone2", "gone3"});
    ASSERT_EQ(gf_set_file_name(h_, in_dir("*").c_str()), 1);
    ASSERT_EQ(gf_init_search(h_), 1);
    for (const char *name : {"gone1", "gone2", "gone3"}) {
        fs::remove(dir() / name);
    }
    EXPECT_EQ(drain(), (Names{in_dir("k1"), in_dir("k2")}));
    EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);

    // Everything gone, the first match found by the init included.
    ASSERT_EQ(gf_init_search(h_), 1);
    fs::remove(dir() / "k1");
    fs::remove(dir() / "k2");
    EXPECT_EQ(gf_next_file(h_), 0);
    EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);
    EXPECT_EQ(err_get_stack_depth(), 0) << err_get_error_msg();
}

TEST_F(GfSearch, UnicodeCheckRefusesNonAsciiNamesAndGoesOn) {
    const std::string accented = "\xc3\xa9t\xc3\xa9.txt";  // "été.txt" in UTF-8
    touch({"plain.txt", accented});
    EXPECT_EQ(search(in_dir("*.txt")), (Names{in_dir("plain.txt"), in_dir(accented)}));

    ASSERT_EQ(gf_init_search(h_), 1);
    Names accepted;
    int refused = 0;
    for (int call = 0; call < 10 && gf_get_last_status(h_) != kNoMoreFiles; ++call) {
        err_clear_error_stack();
        if (gf_next_file_check_unicode(h_) == 1) {
            char *name = nullptr;
            gf_get_res_file_name(h_, &name);
            accepted.insert(name);
        } else if (gf_get_last_status(h_) == static_cast<int32_t>(ERR_FIL_NOUNICOD)) {
            ++refused;
            EXPECT_EQ(stack_codes(), std::vector<uint32_t>{ERR_FIL_NOUNICOD});
            EXPECT_THAT(err_get_error_text(0), HasSubstr(accented));
        }
    }
    EXPECT_EQ(accepted, Names{in_dir("plain.txt")});
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);
}

TEST_F(GfSearch, ListFileLinesAreSelectedAndPrefixed) {
    const std::string sep(1, VQ_PATH_SEPARATOR);
    // The last line has no line end; CR LF ends and blank lines do not count.
    const std::string list = "a.txt\nb.log\r\n\nsub" + sep + "C.TXT\r\n\r\nd.txt";
    EXPECT_EQ(search_list(list, "*"), (Names{"a.txt", "b.log", "sub" + sep + "C.TXT", "d.txt"}));
    // Lines are matched without regard to case.
    EXPECT_EQ(search_list(list, "*.txt"), (Names{"a.txt", "sub" + sep + "C.TXT", "d.txt"}));
    const std::string base = sep + "base";
    for (const std::string &prefix : {base, base + sep}) {
        EXPECT_EQ(search_list(list, "*.log", prefix.c_str()), Names{base + sep + "b.log"}) << prefix;
    }
    EXPECT_EQ(search_list(list, "*.log", sep.c_str()), Names{sep + "b.log"});
    EXPECT_EQ(search_list("", "*"), Names{});
    EXPECT_EQ(search_list("x.log\n", "*.txt"), Names{});
}

TEST_F(GfSearch, ListFileTypeOneFormsAndTheirLimits) {
    const std::string longest(GF_SEARCH_MAX_LINE, 'n');
    const std::string too_long(GF_SEARCH_MAX_LINE + 1, 'n');
    write_text(dir() / "list.txt", longest + "\r\n" + too_long + "\nafter\nnul\0here\n"s);
    ASSERT_EQ(gf_set_search_file(h_, in_dir("list.txt").c_str()), 1);
    ASSERT_EQ(gf_init_file_search(h_), 1);
    char *name = nullptr;
    ASSERT_EQ(gf_file_search_next_file(h_), 1) << err_get_error_msg();
    gf_get_res_file_name(h_, &name);
    EXPECT_EQ(std::string(name), longest) << "a line of the longest length is whole";
    // Lines that cannot name a file fail, and the search goes on behind them.
    EXPECT_EQ(gf_file_search_next_file(h_), 0);
    EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_FIL_SEAFILOP_171F, ERR_SYS_ERRMSG}));
    EXPECT_THAT(err_get_error_text(1), HasSubstr("line 2 is longer"));
    ASSERT_EQ(gf_file_search_next_file(h_), 1);
    gf_get_res_file_name(h_, &name);
    EXPECT_EQ(std::string(name), "after");
    err_clear_error_stack();
    EXPECT_EQ(gf_file_search_next_file(h_), 0);
    EXPECT_THAT(err_get_error_text(1), HasSubstr("line 4 holds a NUL byte"));
    EXPECT_EQ(gf_file_search_next_file(h_), 0);
    EXPECT_EQ(gf_get_last_status(h_), kNoMoreFiles);

    // The list-file form refuses a directory search.
    touch({"f"});
    ASSERT_EQ(gf_set_search_type(h_, GF_SEARCH_DIRECTORY), 1);
    ASSERT_EQ(gf_set_file_name(h_, in_dir("*").c_str()), 1);
    ASSERT_EQ(gf_init_search(h_), 1);
    err_clear_error_stack();
    EXPECT_EQ(gf_file_search_next_file(h_), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_SEARCH_1712);
}

TEST_F(GfSearch, ListFilesThatCannotBeReadAreRefusedAtOnce) {
    ASSERT_EQ(gf_set_search_type(h_, GF_SEARCH_LIST_FILE), 1);
    ASSERT_EQ(gf_set_file_name(h_, "*"), 1);
    err_clear_error_stack();
    EXPECT_EQ(gf_init_search(h_), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_MEMORY_1727) << "no list file was named";

    std::vector<std::string> refused = {in_dir("missing.txt"), utf8(dir())};
#ifndef _WIN32
    // A fifo without a writer would block a plain open and every read.
    ASSERT_EQ(mkfifo((dir() / "fifo").c_str(), 0600), 0);
    refused.push_back(in_dir("fifo"));
    refused.push_back("/dev/zero");
#endif
    for (const std::string &list : refused) {
        err_clear_error_stack();
        ASSERT_EQ(gf_set_search_file(h_, list.c_str()), 1);
        EXPECT_EQ(gf_init_search(h_), 0) << list;
        EXPECT_EQ(stack_codes(), (std::vector<uint32_t>{ERR_FIL_SEAFILOP_171E, ERR_SYS_ERRMSG})) << list;
        EXPECT_EQ(gf_get_last_status(h_), static_cast<int32_t>(ERR_FIL_SEAFILOP_171E));
    }
}

#ifndef _WIN32
// A directory whose path is longer than PATH_MAX, up to the library's own
// limit, is searched like any other.
TEST_F(GfSearch, DirectoriesBeyondTheSystemPathLimitAreSearched) {
    const std::string file = vq_test::make_deep_file(dir().string(), GF_MAX_PATH_LENGTH - 2, "found");
    const std::string directory = file.substr(0, file.size() - 5);
    EXPECT_EQ(search(directory + "fo*"), (Names{file}));
}
#endif

#ifndef _WIN32
size_t open_descriptors() {
    return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// Under AddressSanitizer a leaked directory stream or list buffer is also
// reported as a leak.
TEST_F(GfSearch, FreeCleanAndRestartReleaseTheSearch) {
    touch({"a", "b"});
    write_text(dir() / "list.txt", "a\nb\n");
    const size_t before = open_descriptors();
    int32_t other = -1;
    ASSERT_EQ(gf_allocate_handle(&other), 1);
    ASSERT_EQ(gf_set_file_name(h_, in_dir("*").c_str()), 1);
    ASSERT_EQ(gf_set_search_type(other, GF_SEARCH_LIST_FILE), 1);
    ASSERT_EQ(gf_set_search_file(other, in_dir("list.txt").c_str()), 1);
    ASSERT_EQ(gf_set_file_name(other, "*"), 1);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(gf_init_search(h_), 1);
        ASSERT_EQ(gf_init_search(other), 1);
        ASSERT_EQ(gf_next_file(other), 1);
    }
    EXPECT_EQ(open_descriptors(), before + 2) << "a restart closes what the previous search held";
    EXPECT_EQ(gf_free_handle(other), 1);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(gf_clean(), 1);
    EXPECT_EQ(open_descriptors(), before);
    ASSERT_EQ(gf_allocate_handle(&h_), 1);
}
#endif

}  // namespace
