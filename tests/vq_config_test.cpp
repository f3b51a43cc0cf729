// Configuration handles: the text format's rules and errors, merging, file
// round trips, lock and temporary files on success and failure, structural
// edits with search contexts, and a handle shared by threads.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/handle_checks.h"
#include "support/trace_capture.h"
#include "support/trace_pipe.h"
#include "vq_glob/conf.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/llist.h"

#if !defined(_WIN32)
#include <sys/stat.h>
#endif

namespace {

namespace fs = std::filesystem;

class Conf : public ::testing::Test {
protected:
    void SetUp() override {
        err_clear_error_stack();
        ASSERT_EQ(conf_allocate_handle(&h_), 1);
    }
    void TearDown() override {
        if (h_ != nullptr) {
            EXPECT_EQ(conf_free_handle(&h_), 1);
            EXPECT_EQ(h_, nullptr);
        }
        for (const std::string &p : created_) {
            std::error_code ec;
            fs::remove_all(p, ec);
        }
    }

    std::string path(const std::string &name) {
        std::string p = ::testing::TempDir() + "vq_conf_" + name;
        created_.push_back(p);
        created_.push_back(p + ".lock");
        created_.push_back(p + ".temp");
        return p;
    }
    std::string file_with(const std::string &name, const std::string &content) {
        std::string p = path(name);
        std::ofstream(p, std::ios::binary) << content;
        return p;
    }
    static std::string read_all(const std::string &p) {
        std::ifstream in(p, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    // The handle's text as conf_write_buffer gives it.
    std::string text() {
        char *buffer = nullptr;
        EXPECT_EQ(conf_write_buffer(h_, &buffer), 1);
        std::string out = buffer != nullptr ? buffer : "";
        conf_free_buffer(buffer);
        return out;
    }
    static std::string without_cr(std::string s) {
        std::erase(s, '\r');
        return s;
    }

    void *h_ = nullptr;
    std::vector<std::string> created_;
};

// ---- The format ----------------------------------------------------------------

TEST_F(Conf, LinesAreTrimmedSplitAtTheFirstEqualsAndHeadersEndAtTheFirstBracket) {
    const char *input =
        "\n  \t\n"
        "  [main] trailing text ]\r\n"
        "\tname = value with = and [ \t \r\n"
        "key==x\n"
        "empty=\n"
        "=nameless\n"
        "\n"
        "this line is ignored: no untyped field goes on after an empty line\n"
        "[second]\n"
        "a=1\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, input), 1) << err_get_error_msg();
    EXPECT_EQ(text(),
              "[main]\n"
              "name = value with = and [\n"
              "key==x\n"
              "empty=\n"
              "=nameless\n"
              "[second]\n"
              "a=1\n");
}

TEST_F(Conf, MultiLineBlocksKeepElementsUntilMarkerAndTagAndUntypedLinesContinue) {
    const char *input =
        "[s]\n"
        "text=_ml_text_END\n"
        "  first \n"
        "\n"
        "a=b\n"
        "_ml_text_\n"
        "_ml_text_END\n"
        "ints=_ml_int_\n"
        "12abc\n"
        "-3\n"
        "_ml_int_\n"
        "bools=_ml_bool_t\n"
        "true\n"
        "False\n"
        "_ml_bool_t\n"
        "cont=one\n"
        "two\n"
        "three\n"
        "next=plain\n"
        "stop=x\n"
        "\n"
        "ignored\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, input), 1) << err_get_error_msg();
    // The element "_ml_text_" would close a block with an empty tag, and
    // "a=b" is an element, not a field.
    EXPECT_EQ(text(),
              "[s]\n"
              "text=_ml_text_END\nfirst\n\na=b\n_ml_text_\n_ml_text_END\n"
              "ints=_ml_int_\n12\n-3\n_ml_int_\n"
              "bools=_ml_bool_t\nTRUE\nFALSE\n_ml_bool_t\n"
              "cont=_ml_text_\none\ntwo\nthree\n_ml_text_\n"
              "next=plain\n"
              "stop=x\n");
}

TEST_F(Conf, WriterPicksATagNoElementCanClose) {
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[s]\nf=_ml_text_\nx\n_ml_text_\n"), 1);
    // Through a continuation the list gets an element equal to the bare marker.
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[s]\nf=_ml_text_\n_ml_text__1\n_ml_text_\n"), 1);
    std::string once = text();
    void *again = nullptr;
    ASSERT_EQ(conf_allocate_handle(&again), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(again, once.c_str()), 1) << once;
    char *buffer = nullptr;
    ASSERT_EQ(conf_write_buffer(again, &buffer), 1);
    EXPECT_EQ(once, buffer);
    EXPECT_NE(once.find("\n_ml_text__1\n"), std::string::npos) << once;
    conf_free_buffer(buffer);
    conf_free_handle(&again);
}

TEST_F(Conf, BufferEndsAtByteFFAndLongLinesReadWhole) {
    std::string input = "[s]\nlong=" + std::string(20000, 'x') + "\nafter=1\n\xff[t]\nz=2\n";
    ASSERT_EQ(conf_read_buffer_to_handle(h_, input.c_str()), 1);
    EXPECT_EQ(text(), "[s]\nlong=" + std::string(20000, 'x') + "\nafter=1\n");
    ASSERT_EQ(conf_read_buffer_to_handle(h_, ""), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "\n\n   \n"), 1);
}

TEST_F(Conf, LargeSectionReadsAndMerges) {
    std::string input = "[big]\n";
    for (int i = 0; i < 100000; ++i) {
        input += "f" + std::to_string(i) + "=" + std::to_string(i) + "\n";
    }
    ASSERT_EQ(conf_read_buffer_to_handle(h_, input.c_str()), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h_, input.c_str()), 1);
    EXPECT_EQ(text(), input);
}

struct BadInput {
    const char *input;
    uint32_t code;
    const char *text;
};

TEST_F(Conf, BadInputFailsWithItsCodeAndTextAndKeepsWhatWasRead) {
    const BadInput cases[] = {
        {"[ok]\na=1\n[abc\n", ERR_CNF_GENERAL, "bad section name: abc"},
        {"\nstray=1\n[s]\n", ERR_CNF_GENERAL, "found an illegal line in file: stray=1"},
        {"[ok]\nb=_ml_text_T\nx\n_ml_text_\n", ERR_CNF_GENERAL, "unique string wasn't found for field  b"},
        {"[ok]\nc=_ml_bool_\nTRUE\nyes\n_ml_bool_\n", ERR_CNF_READ, "failed to read field <c>."},
    };
    for (const BadInput &c : cases) {
        void *h = nullptr;
        ASSERT_EQ(conf_allocate_handle(&h), 1);
        err_clear_error_stack();
        EXPECT_EQ(conf_read_buffer_to_handle(h, c.input), 0) << c.input;
        EXPECT_EQ(err_get_error_code(0), c.code) << c.input;
        EXPECT_STREQ(err_get_error_text(0), c.text);
        char *buffer = nullptr;
        ASSERT_EQ(conf_write_buffer(h, &buffer), 1);
        if (std::strncmp(c.input, "[ok]", 4) == 0) {
            EXPECT_EQ(std::strncmp(buffer, "[ok]\n", 5), 0) << buffer;
        }
        conf_free_buffer(buffer);
        conf_free_handle(&h);
    }
    EXPECT_EQ(err_get_error_code(1), ERR_CNF_VALUE);
    EXPECT_STREQ(err_get_error_text(1), "illegal value: field <c>  value <yes>");
}

TEST_F(Conf, ArgumentsAreChecked) {
    char *buffer = nullptr;
    EXPECT_EQ(conf_read_buffer_to_handle(nullptr, "[a]"), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_GEN_PARAMS);
    EXPECT_STREQ(err_get_error_text(0), "invalid function parameter (<conf_read_buffer_to_handle>/<handle>)");
    EXPECT_EQ(conf_write_buffer(h_, nullptr), 0);
    EXPECT_EQ(conf_write_buffer(nullptr, &buffer), 0);
    EXPECT_EQ(conf_write(h_, nullptr), 0);  // nothing read or written yet: no name
    EXPECT_EQ(conf_free_handle(nullptr), 0);
}

// ---- Handles of another kind -----------------------------------------------------

// Reading, typed access, writing, copies, searches and frees given a list
// where a configuration handle or a search context belongs, or the one where
// the other belongs: refused with PARAMS naming the argument, and nothing
// written through either.
TEST_F(Conf, AHandleOfAnotherKindIsRefused) {
    static const conf_table_row kTable[] = {
        {1, "s", CONF_TYPE_SECTION, nullptr, 0, 0, nullptr},
        {2, "n", CONF_TYPE_INT, nullptr, 0, 0, nullptr},
    };
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[s]\nn=5\n"), 1);
    ASSERT_EQ(conf_set_table(h_, kTable, 2), 1);
    void *list = ll_init_list();
    ASSERT_NE(list, nullptr);
    void *ctx = nullptr;
    ASSERT_EQ(conf_init_section_search_context(h_, &ctx), 1);
    std::string file = path("foreign");
    int32_t value = -1;
    int32_t marks[2] = {-1, -1};
    char *buffer = nullptr;
    char *name = nullptr;
    void *held = nullptr;

    vq::test::expect_refused({
        {"conf_read_buffer_to_handle", "handle",
         [&] { return conf_read_buffer_to_handle(list, "[x]\n") == 0; }},
        {"conf_read_file_to_handle", "handle",
         [&] { return conf_read_file_to_handle(list, file.c_str()) == 0; }},
        {"conf_get_int_field", "handle",
         [&] { return conf_get_int_field(list, "s", "n", &value) == 0 && value == -1; }},
        {"conf_get_int_field_by_const", "handle",
         [&] { return conf_get_int_field_by_const(list, 2, &value) == 0 && value == -1; }},
        {"conf_set_int_field_by_const", "handle",
         [&] { return conf_set_int_field_by_const(list, 2, 7) == 0; }},
        {"conf_set_string_field_by_const", "handle",
         [&] { return conf_set_string_field_by_const(list, 2, "x") == 0; }},
        {"conf_set_table", "handle", [&] { return conf_set_table(list, kTable, 2) == 0; }},
        {"conf_write", "handle", [&] { return conf_write(list, file.c_str()) == 0 && !fs::exists(file); }},
        {"conf_write_buffer", "handle",
         [&] { return conf_write_buffer(list, &buffer) == 0 && buffer == nullptr; }},
        {"conf_copy_int_field_by_const", "src",
         [&] { return conf_copy_int_field_by_const(list, h_, 2) == 0; }},
        {"conf_copy_int_field_by_const", "dst",
         [&] { return conf_copy_int_field_by_const(h_, list, 2) == 0; }},
        {"conf_copy_handle_by_table", "dst",
         [&] { return conf_copy_handle_by_table(h_, list, kTable, 2) == 0; }},
        {"conf_get_deferent_fields", "handle2",
         [&] { return conf_get_deferent_fields(h_, list, kTable, 2, marks) == 0 && marks[0] == -1; }},
        {"conf_is_check_read_write_access", "handle",
         [&] { return conf_is_check_read_write_access(list) == 0; }},
        {"conf_init_section_search_context", "handle",
         [&] { return conf_init_section_search_context(list, &held) == 0 && held == nullptr; }},
        {"conf_clean_handle", "handle", [&] { return conf_clean_handle(list) == 0; }},
        {"conf_free_handle", "handle",
         [&] { return held = list, conf_free_handle(&held) == 0 && held == list; }},
        // a search context and a configuration handle stand in for each other no more than a list does
        {"conf_get_next_section", "context", [&] { return conf_get_next_section(list, &name) == 0; }},
        {"conf_get_next_section", "context", [&] { return conf_get_next_section(h_, &name) == 0; }},
        {"conf_get_int_field_by_const", "handle",
         [&] { return conf_get_int_field_by_const(ctx, 2, &value) == 0; }},
        {"conf_free_search_context", "context", [&] { return conf_free_search_context(list), true; }},
        {"conf_free_search_context", "context", [&] { return conf_free_search_context(h_), true; }},
        {"conf_free_handle", "handle",
         [&] { return held = ctx, conf_free_handle(&held) == 0 && held == ctx; }},
    });

    EXPECT_EQ(ll_get_count(list), 0);
    EXPECT_EQ(ll_get_first_node(list), nullptr);
    EXPECT_EQ(text(), "[s]\nn=5\n");
    ASSERT_EQ(conf_get_next_section(ctx, &name), 1);
    EXPECT_STREQ(name, "s");
    conf_free_search_context(ctx);
    ll_dispose_list(&list);
}

// A freed handle or context passed back, and a context whose handle was
// freed: refused as well, as long as nothing new took their memory.
TEST_F(Conf, AFreedHandleOrContextIsRefused) {
    VQ_SKIP_UNDER_SANITIZER();
    void *h = nullptr;
    ASSERT_EQ(conf_allocate_handle(&h), 1);
    ASSERT_EQ(conf_set_section(h, "s"), 1);
    void *orphan = nullptr;
    ASSERT_EQ(conf_init_section_search_context(h, &orphan), 1);
    void *freed_ctx = nullptr;
    ASSERT_EQ(conf_init_section_search_context(h_, &freed_ctx), 1);
    conf_free_search_context(freed_ctx);
    void *stale = h;
    ASSERT_EQ(conf_free_handle(&h), 1);
    int32_t value = -1;
    char *name = nullptr;

    vq::test::expect_refused({
        {"conf_get_int_field_by_const", "handle",
         [&] { return conf_get_int_field_by_const(stale, 2, &value) == 0; }},
        {"conf_set_section", "handle", [&] { return conf_set_section(stale, "t") == 0; }},
        {"conf_free_handle", "handle", [&] { return h = stale, conf_free_handle(&h) == 0 && h == stale; }},
        {"conf_get_next_section", "context", [&] { return conf_get_next_section(orphan, &name) == 0; }},
        {"conf_get_next_section", "context", [&] { return conf_get_next_section(freed_ctx, &name) == 0; }},
        {"conf_free_search_context", "context", [&] { return conf_free_search_context(freed_ctx), true; }},
    });
    conf_free_search_context(orphan);  // a context outliving its handle is still freed
}

// ---- Files ------------------------------------------------------------------------

TEST_F(Conf, FilesRoundTripAndMerge) {
    std::string a =
        file_with("merge_a", "[one]\nx=1\ny=_ml_int_\n1\n2\n_ml_int_\n[_cf_header_]\nversion=3\n");
    std::string b = file_with("merge_b", "[two]\nz=3\n[one]\nx=changed\nw=new\n");
    ASSERT_EQ(conf_read_file_to_handle(h_, a.c_str()), 1) << err_get_error_msg();
    ASSERT_EQ(conf_read_file_to_handle(h_, b.c_str()), 1) << err_get_error_msg();
    const std::string merged =
        "[one]\nx=changed\ny=_ml_int_\n1\n2\n_ml_int_\nw=new\n[_cf_header_]\nversion=3\n[two]\nz=3\n";
    EXPECT_EQ(text(), merged);

    std::string out = path("merge_out");
    ASSERT_EQ(conf_write(h_, out.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(without_cr(read_all(out)), merged);
    void *back = nullptr;
    ASSERT_EQ(conf_allocate_handle(&back), 1);
    ASSERT_EQ(conf_read_file_to_handle(back, out.c_str()), 1);
    char *buffer = nullptr;
    ASSERT_EQ(conf_write_buffer(back, &buffer), 1);
    EXPECT_EQ(merged, buffer);
    conf_free_buffer(buffer);
    // Without a name the file last read is written.
    ASSERT_EQ(conf_set_section(back, "added"), 1);
    ASSERT_EQ(conf_write(back, nullptr), 1);
    EXPECT_EQ(without_cr(read_all(out)), merged + "[added]\n");
    conf_free_handle(&back);
}

TEST_F(Conf, EmptyMissingAndBlankFiles) {
    std::string empty = file_with("empty", "");
    EXPECT_EQ(conf_read_file_to_handle(h_, empty.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_EMPTY);
    EXPECT_STREQ(err_get_error_text(0), "configuration files is empty or currupted.");

    std::string missing = path("missing");
    EXPECT_EQ(conf_read_file_to_handle(h_, missing.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FILE_8202);
    EXPECT_EQ(std::string(err_get_error_text(0)), "error opening configuration file <" + missing + ">");

    std::string blank = file_with("blank", "\n  \n\r\n");
    EXPECT_EQ(conf_read_file_to_handle(h_, blank.c_str()), 1);
    EXPECT_EQ(text(), "");
}

// Anything but a regular file is refused before a byte is read (a device
// would fill memory, a fifo without a writer would block for ever), and so
// is a file past CONF_MAX_FILE_SIZE; the handle keeps what it held.
TEST_F(Conf, OnlyRegularFilesUpToTheLimitAreRead) {
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[kept]\nk=v\n"), 1);
    auto expect_refused = [this](const std::string &name, uint32_t code, const std::string &reason) {
        SCOPED_TRACE(name);
        EXPECT_EQ(conf_read_file_to_handle(h_, name.c_str()), 0);
        EXPECT_EQ(err_get_error_code(0), code) << err_get_error_msg();
        EXPECT_NE(std::string(err_get_error_msg()).find(name + reason), std::string::npos) << err_get_error_msg();
        EXPECT_EQ(text(), "[kept]\nk=v\n");
    };
    std::string dir = path("dir");
    fs::create_directory(dir);
    expect_refused(dir, ERR_CNF_FILE_8202, " is not a regular file");
#if !defined(_WIN32)
    expect_refused("/dev/zero", ERR_CNF_FILE_8202, " is not a regular file");
    std::string fifo = path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    expect_refused(fifo, ERR_CNF_FILE_8202, " is not a regular file");
#endif

    // Sparse files: only the length costs anything.
    std::string header = "[big]\nk=v\n";
    std::string limit = file_with("limit", header);
    fs::resize_file(limit, CONF_MAX_FILE_SIZE);
    std::string over = file_with("over", header);
    fs::resize_file(over, CONF_MAX_FILE_SIZE + 1ull);
    expect_refused(over, ERR_CNF_FILE_8203, " is larger than 67108864 bytes");
    // The zero bytes after the header are one line that its first NUL ends.
    EXPECT_EQ(conf_read_file_to_handle(h_, limit.c_str()), 1) << err_get_error_msg();
    EXPECT_EQ(text(), "[kept]\nk=v\n[big]\nk=v\n");
}

TEST_F(Conf, LockFileIsRemovedOnEveryPathAndWaitedFor) {
    ASSERT_EQ(conf_set_lock_use_on_handle(h_, 1), 1);
    std::string good = file_with("lock_good", "[s]\na=1\n");
    std::string bad = file_with("lock_bad", "junk\n");
    ASSERT_EQ(conf_read_file_to_handle(h_, good.c_str()), 1);
    EXPECT_FALSE(fs::exists(good + ".lock"));
    ASSERT_EQ(conf_read_file_to_handle(h_, bad.c_str()), 0);
    EXPECT_FALSE(fs::exists(bad + ".lock"));
    ASSERT_EQ(conf_read_file_to_handle(h_, path("lock_missing").c_str()), 0);
    EXPECT_FALSE(fs::exists(path("lock_missing") + ".lock"));
    ASSERT_EQ(conf_write(h_, good.c_str()), 1);
    EXPECT_FALSE(fs::exists(good + ".lock"));
    std::string unwritable = path("lock_dir");
    fs::create_directory(unwritable);
    ASSERT_EQ(conf_write(h_, unwritable.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FILE_8204);
    EXPECT_FALSE(fs::exists(unwritable + ".lock"));

    std::string nowhere = path("no_such_dir") + "/cfg";
    ASSERT_EQ(conf_write(h_, nowhere.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_GENERAL);
    EXPECT_EQ(std::string(err_get_error_text(0)), "failed to create lock file " + nowhere + ".lock");

    // A lock held elsewhere is waited for: the holder releases it only once
    // the writer's trace says it found the lock held and is waiting.
    ASSERT_EQ(conf_set_section(h_, "later"), 1);
    std::ofstream(good + ".lock") << "";
    vq::test::TracePipe trace;
    std::thread holder([&] {
        EXPECT_TRUE(trace.await("<" + good + ".lock> is held, waiting"));
        EXPECT_EQ(conf_delete_lock_file(good.c_str()), 1);
        trace.drain();
    });
    trace.trace_here("GF");
    EXPECT_EQ(conf_write(h_, good.c_str()), 1);
    trace.stop_here("GF");
    holder.join();
    EXPECT_FALSE(fs::exists(good + ".lock"));
    EXPECT_EQ(read_all(good).find("[later]") != std::string::npos, true);
    EXPECT_EQ(conf_delete_lock_file(good.c_str()), 1);  // none left: still fine
}

TEST_F(Conf, FailedWriteThroughTempLeavesTheOriginal) {
    std::string target = file_with("temp_target", "[orig]\nkeep=1\n");
    ASSERT_EQ(conf_read_file_to_handle(h_, target.c_str()), 1);
    ASSERT_EQ(conf_enable_write_with_temp(h_), 1);
    ASSERT_EQ(conf_set_lock_use_on_handle(h_, 1), 1);
    ASSERT_EQ(conf_set_section(h_, "new"), 1);
    ASSERT_EQ(conf_write(h_, target.c_str()), 1);
    EXPECT_EQ(without_cr(read_all(target)), "[orig]\nkeep=1\n[new]\n");
    EXPECT_FALSE(fs::exists(target + ".temp"));
    EXPECT_FALSE(fs::exists(target + ".lock"));

    // A directory in the temporary file's place: the temporary cannot be made.
    fs::create_directory(target + ".temp");
    ASSERT_EQ(conf_set_section(h_, "lost"), 1);
    EXPECT_EQ(conf_write(h_, target.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FILE_8204);
    EXPECT_STREQ(err_get_error_text(0), "error writing configuration file");
    EXPECT_EQ(without_cr(read_all(target)), "[orig]\nkeep=1\n[new]\n");
    EXPECT_FALSE(fs::exists(target + ".lock"));
}

TEST_F(Conf, PosixWriteToAFullDeviceFails) {
    if (!fs::exists("/dev/full")) {
        GTEST_SKIP() << "no /dev/full on this platform";
    }
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[s]\na=1\n"), 1);
    EXPECT_EQ(conf_write(h_, "/dev/full"), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FILE_8204);
}

// ---- Structure and search -------------------------------------------------------

std::string walk_sections(void *h) {
    void *ctx = nullptr;
    EXPECT_EQ(conf_init_section_search_context(h, &ctx), 1);
    std::string seen;
    char *name = nullptr;
    while (conf_get_next_section(ctx, &name) == 1) {
        seen += std::string(name) + ";";
    }
    EXPECT_EQ(conf_get_next_section(ctx, &name), 0);
    conf_free_search_context(ctx);
    return seen;
}

TEST_F(Conf, EditsAndSearchesKeepOrderAndSkipTheHeader) {
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[_cf_header_]\nversion=2\n[a]\nx=1\ny=2\nz=3\n[b]\n"), 1);
    ASSERT_EQ(conf_set_section(h_, "c"), 1);
    ASSERT_EQ(conf_set_section(h_, "a"), 1);
    EXPECT_EQ(walk_sections(h_), "a;b;c;");

    ASSERT_EQ(conf_add_field_to_section(h_, "a", "w"), 1);
    ASSERT_EQ(conf_add_field_to_section(h_, "a", "x"), 1);
    ASSERT_EQ(conf_add_field_to_section(h_, "d", "f"), 1);
    ASSERT_EQ(conf_remove_field(h_, "a", "y"), 1);
    EXPECT_EQ(conf_remove_field(h_, "a", "y"), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_FIND_820F);
    ASSERT_EQ(conf_rename_section(h_, "b", "bb"), 1);
    EXPECT_EQ(conf_rename_section(h_, "c", "a"), 0);
    EXPECT_EQ(conf_rename_section(h_, "nope", "n"), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_SECTION);
    EXPECT_STREQ(err_get_error_text(0), "did not find section <nope>.");
    ASSERT_EQ(conf_remove_section(h_, "c"), 1);
    EXPECT_EQ(conf_remove_section(h_, "c"), 0);
    EXPECT_EQ(walk_sections(h_), "a;bb;d;");

    void *ctx = nullptr;
    ASSERT_EQ(conf_init_field_search_context(h_, "a", &ctx), 1);
    std::string fields;
    char *name = nullptr;
    while (conf_get_next_field(ctx, &name) == 1) {
        fields += std::string(name) + ";";
    }
    conf_free_search_context(ctx);
    EXPECT_EQ(fields, "x;z;w;");
    EXPECT_EQ(conf_init_field_search_context(h_, "gone", &ctx), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_CNF_SECTION);
    // The renamed section is found by its new name only.
    ASSERT_EQ(conf_read_buffer_to_handle(h_, "[bb]\nq=1\n[b]\n"), 1);
    EXPECT_EQ(text(), "[_cf_header_]\nversion=2\n[a]\nx=1\nz=3\nw=\n[bb]\nq=1\n[d]\nf=\n[b]\n");

    ASSERT_EQ(conf_clean_handle(h_), 1);
    EXPECT_EQ(text(), "");
}

// Random creations, renames and removals against a model: every name must
// stay findable exactly while it exists, whatever the index had to shift.
TEST_F(Conf, NameIndexFollowsRandomEditsOfManySections) {
    std::vector<std::string> model;  // in list order
    std::srand(7);
    auto name_of = [](int n) { return "s" + std::to_string(n); };
    for (int step = 0; step < 6000; ++step) {
        int n = std::rand() % 700;
        std::string name = name_of(n);
        auto at = std::find(model.begin(), model.end(), name);
        switch (std::rand() % 3) {
            case 0:
                ASSERT_EQ(conf_set_section(h_, name.c_str()), 1);
                if (at == model.end()) {
                    model.push_back(name);
                }
                break;
            case 1:
                ASSERT_EQ(conf_remove_section(h_, name.c_str()), at != model.end() ? 1 : 0);
                if (at != model.end()) {
                    model.erase(at);
                }
                break;
            default: {
                std::string to = name_of(700 + std::rand() % 700);
                bool taken = std::find(model.begin(), model.end(), to) != model.end();
                ASSERT_EQ(conf_rename_section(h_, name.c_str(), to.c_str()), at != model.end() && !taken ? 1 : 0);
                if (at != model.end() && !taken) {
                    *at = to;
                }
                break;
            }
        }
    }
    err_clear_error_stack();
    std::string expected;
    for (const std::string &s : model) {
        expected += s + ";";
    }
    EXPECT_EQ(walk_sections(h_), expected);
    for (const std::string &s : model) {
        EXPECT_EQ(conf_add_field_to_section(h_, s.c_str(), "f"), 1);  // found, not created again
    }
    EXPECT_EQ(walk_sections(h_), expected);
}

TEST_F(Conf, RenameAndCriticalSectionAreTraced) {
    void *h = nullptr;
    ASSERT_EQ(conf_allocate_handle_use_cs(&h), 1);
    ASSERT_EQ(conf_set_section(h, "old"), 1);
    std::string trace =
        vq::test::traced_on("CONFIG", [h] { EXPECT_EQ(conf_rename_section(h, "old", "new"), 1); });
    EXPECT_NE(trace.find("conf_rename_section()  (old) --> (new)\n"), std::string::npos) << trace;
    EXPECT_NE(trace.find("conf: entering critical section on handle <"), std::string::npos) << trace;
    EXPECT_NE(trace.find("conf: left critical section on handle <"), std::string::npos) << trace;
    conf_free_handle(&h);
}

// ---- Threads ------------------------------------------------------------------------

TEST_F(Conf, SharedHandleServesTwoThreads) {
    void *h = nullptr;
    ASSERT_EQ(conf_allocate_handle_use_cs(&h), 1);
    constexpr int kRounds = 300;
    std::atomic<int> failures{0};
    // One thread merges text in while the other writes the handle out and
    // walks it. (Nothing is removed: a walker copies names handed out by the
    // handle, which a removal on another thread would free under it.)
    std::thread reader([&] {
        for (int i = 0; i < kRounds; ++i) {
            std::string input = "[r" + std::to_string(i % 7) + "]\nf" + std::to_string(i) + "=v\n";
            if (conf_read_buffer_to_handle(h, input.c_str()) != 1 || conf_set_section(h, "last") != 1) {
                ++failures;
            }
        }
    });
    std::thread writer([&] {
        for (int i = 0; i < kRounds; ++i) {
            char *buffer = nullptr;
            if (conf_write_buffer(h, &buffer) != 1) {
                ++failures;
            }
            conf_free_buffer(buffer);
            walk_sections(h);
        }
    });
    reader.join();
    writer.join();
    EXPECT_EQ(failures.load(), 0);
    std::string expected;
    for (int r = 0; r < 7; ++r) {
        expected += "r" + std::to_string(r) + ";";
        if (r == 0) {
            expected += "last;";
        }
    }
    EXPECT_EQ(walk_sections(h), expected);
    conf_free_handle(&h);
}

// A holder of the critical section reads the same version however long it
// holds it; the other thread's change lands only after the release. Without
// the lock the writer, started while the holder is inside, could slip in.
TEST_F(Conf, LockedHandleShowsItsHolderOneVersion) {
    void *h = nullptr;
    ASSERT_EQ(conf_allocate_handle_use_cs(&h), 1);
    ASSERT_EQ(conf_read_buffer_to_handle(h, "[s]\nf=old\n"), 1);
    ASSERT_EQ(conf_lock_handle(h), 1);
    std::atomic<bool> writer_started{false};
    std::thread writer([&] {
        writer_started = true;
        EXPECT_EQ(conf_set_string_field(h, "s", "f", "new"), 1);
    });
    while (!writer_started) {
        std::this_thread::yield();
    }
    std::this_thread::yield();
    char *value = nullptr;
    ASSERT_EQ(conf_get_string_field(h, "s", "f", &value), 1);  // re-entered by the holder
    EXPECT_STREQ(value, "old");
    ASSERT_EQ(conf_unlock_handle(h), 1);
    writer.join();
    ASSERT_EQ(conf_get_string_field(h, "s", "f", &value), 1);
    EXPECT_STREQ(value, "new");
    conf_free_handle(&h);

    void *plain = nullptr;  // no section to hold: both calls succeed, nothing blocks
    ASSERT_EQ(conf_allocate_handle(&plain), 1);
    EXPECT_EQ(conf_lock_handle(plain), 1);
    EXPECT_EQ(conf_unlock_handle(plain), 1);
    conf_free_handle(&plain);
    EXPECT_EQ(conf_lock_handle(nullptr), 0);
}

}  // namespace
