// File handles: the table's growth and reuse, open flags per I/O type, packets
// and positions, translation, truncation beyond 4 GiB, variable-length
// records from good and damaged files, the file CRC, last errors, lock files
// and temporary files.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/trace_capture.h"
#include "support/trace_pipe.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/gm.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

class Gf : public ::testing::Test {
protected:
    void SetUp() override {
        gf_clean();
        err_clear_error_stack();
    }
    void TearDown() override {
        gf_clean();
        for (const std::string &path : created_) {
            std::error_code ec;
            fs::remove(path, ec);
        }
    }

    // A path in the temp directory, removed after the test.
    std::string path(const std::string &name) {
        std::string p = ::testing::TempDir() + "vq_gf_" + name;
        created_.push_back(p);
        return p;
    }

    std::string file_with(const std::string &name, const Bytes &content) {
        std::string p = path(name);
        std::ofstream(p, std::ios::binary)
            .write(reinterpret_cast<const char *>(content.data()),
                   static_cast<std::streamsize>(content.size()));
        return p;
    }

    static Bytes read_all(const std::string &p) {
        std::ifstream in(p, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // A fresh handle with its defaults.
    static int32_t allocated() {
        int32_t h = -1;
        EXPECT_EQ(gf_allocate_handle(&h), 1);
        return h;
    }

    // A handle on name with the I/O type and flags set in that order.
    static int32_t handle(const std::string &name, uint32_t flags, int32_t type = GF_IO_CRT) {
        int32_t h = allocated();
        EXPECT_EQ(gf_set_file_io_type(h, type), 1);
        EXPECT_EQ(gf_set_file_name(h, name.c_str()), 1);
        EXPECT_EQ(gf_set_file_open_flags(h, flags), 1);
        return h;
    }

    std::vector<std::string> created_;
};

Bytes pattern(size_t n, uint32_t seed) {
    std::mt19937 gen(seed);
    Bytes v(n);
    for (auto &b : v) {
        b = static_cast<unsigned char>(gen());
    }
    return v;
}

class GfTypes : public Gf, public ::testing::WithParamInterface<int32_t> {};

// ---- The table --------------------------------------------------------------------------------------

TEST_F(Gf, TableGrowsByFiveAndReusesLowestFreeNumber) {
    std::vector<int32_t> hs(6);
    for (int32_t i = 0; i < 6; ++i) {
        ASSERT_EQ(gf_allocate_handle(&hs[i]), 1);
        EXPECT_EQ(hs[i], i);
    }
    // The sixth grew the table to ten: numbers up to 9 are in range (free),
    // 10 is beyond it.
    EXPECT_EQ(gf_free_handle(9), 1);  // a free entry only traces
    EXPECT_EQ(gf_set_file_packet_size(10, 1), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_NOTACTIVE);
    EXPECT_STREQ(err_get_error_text(0), "entry 10 is not active");

    char *name = nullptr;
    ASSERT_EQ(gf_set_file_name(hs[4], "keep me"), 1);
    ASSERT_EQ(gf_get_file_name(hs[4], &name), 1);
    ASSERT_EQ(gf_free_handle(hs[1]), 1);
    ASSERT_EQ(gf_free_handle(hs[3]), 1);
    int32_t again = allocated();
    EXPECT_EQ(again, 1);
    ASSERT_EQ(gf_allocate_handle(&again), 1);
    EXPECT_EQ(again, 3);
    for (int32_t i = 0; i < 5; ++i) {  // grows again; handed-out names stay put
        ASSERT_EQ(gf_allocate_handle(&again), 1);
    }
    EXPECT_STREQ(name, "keep me");
    char *fresh = name;
    ASSERT_EQ(gf_get_file_name(hs[1], &fresh), 1);
    EXPECT_EQ(fresh, nullptr);  // a reused entry starts with its defaults
}

TEST_F(Gf, InvalidHandlesAndLastErrors) {
    for (int32_t bad : {-1, 0, 4, 1000}) {
        err_clear_error_stack();
        EXPECT_EQ(gf_set_file_packet_size(bad, 10), 0) << bad;
        EXPECT_EQ(err_get_error_code(0), ERR_FIL_NOTACTIVE);
        EXPECT_EQ(gf_get_last_error(-1), ERR_FIL_NOTACTIVE);
    }
    int32_t h = allocated();
    ASSERT_EQ(gf_free_handle(h), 1);
    EXPECT_EQ(gf_is_file_opened(h), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_NOTACTIVE);

    // A failing open marks the handle and the thread.
    std::string missing = path("missing/none.bin");
    h = handle(missing, GF_READ);
    EXPECT_EQ(gf_open_file(h), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_OPEN);
    EXPECT_EQ(err_get_error_code(1), ERR_SYS_ERRMSG);
    EXPECT_EQ(gf_get_last_error(h), ERR_FIL_OPEN);
    EXPECT_EQ(gf_get_last_system_error(h), ENOENT);
    EXPECT_EQ(gf_get_last_status(h), ERR_FIL_OPEN);
    EXPECT_NE(std::strstr(gf_get_last_error_msg(h), ("error opening file <" + missing + ">").c_str()),
              nullptr);
    EXPECT_STREQ(gf_get_last_system_msg(h), gf_get_last_error_msg(h));
    int32_t os = 0;
    EXPECT_EQ(gf_get_last_os_status(h, &os), 1);
    EXPECT_EQ(os, ENOENT);
    EXPECT_EQ(gf_get_last_os_status_1(h, &os), 1);
    EXPECT_EQ(os, -1);
    EXPECT_EQ(gf_get_last_error(-1), ERR_FIL_OPEN);  // read without touching them
    EXPECT_EQ(gf_get_last_error(-1), ERR_FIL_OPEN);

    // Asking through a handle that is not valid records NOTACTIVE first.
    EXPECT_EQ(gf_get_last_error(77), ERR_FIL_NOTACTIVE);
    EXPECT_NE(std::strstr(gf_get_last_error_msg(77), "entry 77 is not active"), nullptr);
    EXPECT_EQ(gf_get_last_status(77), -1);

    // Names beyond 7,800 bytes fail before any system call.
    std::string long_name(7801, 'n');
    ASSERT_EQ(gf_set_file_name(h, long_name.c_str()), 1);
    EXPECT_EQ(gf_open_file(h), 0);
    EXPECT_EQ(gf_get_last_error(h), ERR_FIL_VLONGNAME);
    EXPECT_EQ(gf_get_last_system_error(h), -1);
    EXPECT_EQ(err_get_stack_depth(), 1);
}

// POSIX threads have no per-thread block until a module makes one: allocation
// must still work there.
TEST_F(Gf, FreshThreadGetsItsOwnTable) {
    int32_t h = allocated();
    int32_t other = -1;
    int opened_here = -1;
    std::thread([&] {
        EXPECT_EQ(gf_allocate_handle(&other), 1);
        opened_here = gf_is_file_opened(h + 1);  // the other thread's numbers are not ours
    }).join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(opened_here, 0);
}

// ---- Open flags -------------------------------------------------------------------------------------

TEST_P(GfTypes, OpenFlagsMapToTheIoType) {
    const int32_t type = GetParam();
    std::string name = path("flags" + std::to_string(type));
    Bytes data = pattern(100, 1);
    char buffer[200];
    int32_t n = 0;

    int32_t h = handle(name, GF_READ_WRITE, type);
    EXPECT_EQ(gf_open_file(h), 0);  // no creation on open
    EXPECT_EQ(gf_get_last_error(h), ERR_FIL_OPEN);
    ASSERT_EQ(gf_create_file(h), 1);
    ASSERT_EQ(gf_write_file(h, data.data(), 100), 1);
    ASSERT_EQ(gf_set_file_packet_size(h, 10), 1);
    ASSERT_EQ(gf_set_file_position(h, 0), 1);
    ASSERT_EQ(gf_read_file(h, buffer, 200, &n), 1);
    EXPECT_EQ(n, 100);
    char *result = nullptr;
    ASSERT_EQ(gf_get_res_file_name(h, &result), 1);
    EXPECT_EQ(std::string(result), name);
    ASSERT_EQ(gf_close_file(h), 1);
    EXPECT_EQ(gf_close_file(h), 1);  // closing a closed handle does nothing

    // Read only: writing fails with a clear stack.
    int32_t r = handle(name, GF_READ, type);
    ASSERT_EQ(gf_open_file(r), 1);
    EXPECT_EQ(gf_write_file(r, data.data(), 10), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_WRITE);
    EXPECT_EQ(gf_open_file(r), 0);  // already open
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);
    ASSERT_EQ(gf_close_file(r), 1);

    // Exclusive creation refuses an existing file.
    int32_t x = handle(name, GF_WRITE | GF_CREATE | GF_EXCLUSIVE, type);
    EXPECT_EQ(gf_create_file(x), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_CREATE);
    EXPECT_EQ(read_all(name), data);
}

// The same flags mean other things per type; flags set before the type
// keep the type-0 mapping.
TEST_F(Gf, FlagMappingDiffersPerType) {
    std::string name = path("mapping");
    Bytes data = pattern(64, 2);
    file_with("mapping", data);

    // Type 0: append, and keep contents when creating.
    int32_t a = handle(name, GF_WRITE | GF_APPEND | GF_KEEP_CONTENTS);
    ASSERT_EQ(gf_create_file(a), 1);
    ASSERT_EQ(gf_write_file(a, data.data(), 4), 1);
    ASSERT_EQ(gf_close_file(a), 1);
    EXPECT_EQ(read_all(name).size(), 68u);

    // Type 2: truncate ored with create gives TRUNCATE_EXISTING, so creating
    // a missing file fails while an existing one is cut.
    int32_t t = handle(name, GF_WRITE | GF_CREATE | GF_TRUNCATE, GF_IO_NATIVE);
    ASSERT_EQ(gf_create_file(t), 1);
    ASSERT_EQ(gf_close_file(t), 1);
    EXPECT_TRUE(read_all(name).empty());
    ASSERT_EQ(gf_set_file_name(t, path("mapping_missing").c_str()), 1);
    EXPECT_EQ(gf_create_file(t), 0);

    // Flags set while the type was still 0 leave the native access empty.
    int32_t late = allocated();
    ASSERT_EQ(gf_set_file_name(late, name.c_str()), 1);
    ASSERT_EQ(gf_set_file_open_flags(late, GF_READ_WRITE), 1);
    ASSERT_EQ(gf_set_file_io_type(late, GF_IO_NATIVE), 1);
    ASSERT_EQ(gf_open_file(late), 1);
    EXPECT_EQ(gf_write_file(late, data.data(), 4), 0);
    ASSERT_EQ(gf_close_file(late), 1);

    // A read-only file is replaced when the flags allow it, and made writable.
    fs::permissions(name, fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write,
                    fs::perm_options::remove);
    int32_t o = handle(name, GF_WRITE | GF_CREATE | GF_OVERWRITE_READONLY);
    ASSERT_EQ(gf_create_file(o), 1);
    ASSERT_EQ(gf_close_file(o), 1);
    EXPECT_NE(fs::status(name).permissions() & fs::perms::owner_write, fs::perms::none);

    // Unknown types do nothing and raise nothing.
    ASSERT_EQ(gf_set_file_io_type(late, 1), 1);
    err_clear_error_stack();
    EXPECT_EQ(gf_open_file(late), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);
}

// Type 2 dispositions follow the flags in the order they are given: a
// truncation or an exclusive creation replaces what was there, a plain
// creation only fills an empty choice. A native open shares nothing, so
// other writers wait for its close.
TEST_F(Gf, NativeDispositionFollowsTheFlagsInOrder) {
    Bytes data = pattern(32, 4);
    std::string existing = file_with("disp_existing", data);
    std::string missing = path("disp_missing");

    int32_t cut = handle(existing, GF_WRITE | GF_EXCLUSIVE, GF_IO_NATIVE);
    ASSERT_EQ(gf_add_file_open_flags(cut, GF_TRUNCATE | GF_WRITE_THROUGH), 1);
    ASSERT_EQ(gf_create_file(cut), 1) << err_get_error_msg();
    int32_t other_writer = handle(existing, GF_WRITE);
    EXPECT_EQ(gf_open_file(other_writer), 0);
    EXPECT_EQ(gf_get_last_error(other_writer), ERR_FIL_OPEN);
    ASSERT_EQ(gf_write_file(cut, data.data(), 8), 1);
    ASSERT_EQ(gf_close_file(cut), 1);
    EXPECT_EQ(read_all(existing), Bytes(data.begin(), data.begin() + 8));
    ASSERT_EQ(gf_open_file(other_writer), 1);
    ASSERT_EQ(gf_close_file(other_writer), 1);

    int32_t still_cut = handle(missing, GF_WRITE | GF_TRUNCATE, GF_IO_NATIVE);
    ASSERT_EQ(gf_add_file_open_flags(still_cut, GF_CREATE), 1);
    EXPECT_EQ(gf_create_file(still_cut), 0);
    EXPECT_EQ(gf_get_last_error(still_cut), ERR_FIL_CREATE);

    int32_t fresh = handle(missing, GF_WRITE | GF_TRUNCATE | GF_EXCLUSIVE, GF_IO_NATIVE);
    ASSERT_EQ(gf_create_file(fresh), 1) << err_get_error_msg();
    ASSERT_EQ(gf_close_file(fresh), 1);
    EXPECT_EQ(gf_create_file(fresh), 0);  // now it exists
    EXPECT_EQ(gf_get_last_error(fresh), ERR_FIL_CREATE);
}

TEST_F(Gf, DenyWritersRefusesWritersBothWays) {
    std::string name = file_with("deny", pattern(16, 3));
    int32_t reader = handle(name, GF_READ | GF_DENY_WRITERS);
    int32_t writer = handle(name, GF_WRITE);
    int32_t writer2 = handle(name, GF_WRITE);

    ASSERT_EQ(gf_open_file(reader), 1);
    EXPECT_EQ(gf_open_file(writer), 0);
    EXPECT_EQ(gf_get_last_error(writer), ERR_FIL_OPEN);
    ASSERT_EQ(gf_close_file(reader), 1);

    ASSERT_EQ(gf_open_file(writer), 1);
    ASSERT_EQ(gf_open_file(writer2), 1);  // writers do not refuse each other
    EXPECT_EQ(gf_open_file(reader), 0);
    ASSERT_EQ(gf_close_file(writer), 1);
    ASSERT_EQ(gf_close_file(writer2), 1);
    EXPECT_EQ(gf_open_file(reader), 1);
}

// ---- Packets ------------------------------------------------------------------------------------------

TEST_P(GfTypes, PacketsPositionsAndShortFinalPacket) {
    const int32_t type = GetParam();
    std::string name = path("packets" + std::to_string(type));
    Bytes data = pattern(250, 4);
    int32_t w = handle(name, GF_WRITE | GF_CREATE, type);
    ASSERT_EQ(gf_set_file_packet_size(w, 100), 1);
    ASSERT_EQ(gf_create_file(w), 1);
    Bytes copy = data;
    ASSERT_EQ(gf_write_packet(w, copy.data()), 1);
    ASSERT_EQ(gf_write_packet(w, copy.data() + 100), 1);
    ASSERT_EQ(gf_set_file_packet_size(w, 50), 1);
    ASSERT_EQ(gf_write_packet(w, copy.data() + 200), 1);
    ASSERT_EQ(gf_close_file(w), 1);
    ASSERT_EQ(read_all(name), data);

    int32_t r = handle(name, GF_READ, type);
    ASSERT_EQ(gf_set_file_packet_size(r, 100), 1);
    ASSERT_EQ(gf_open_file(r), 1);
    Bytes buffer(100, 0xEE);
    int32_t n = -1;
    ASSERT_EQ(gf_set_file_position(r, 2), 1);
    int32_t position = -1;
    ASSERT_EQ(gf_get_file_position(r, &position), 1);
    EXPECT_EQ(position, 2);
    ASSERT_EQ(gf_read_packet(r, buffer.data(), &n), 1);
    EXPECT_EQ(n, 50);
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.begin() + 50, data.begin() + 200));
    EXPECT_EQ(buffer[50], 0xEE);
    ASSERT_EQ(gf_read_packet(r, buffer.data(), &n), 1);
    EXPECT_EQ(n, 0);
    ASSERT_EQ(gf_set_file_position(r, 1), 1);
    ASSERT_EQ(gf_read_packet(r, buffer.data(), &n), 1);
    EXPECT_EQ(n, 100);
    EXPECT_TRUE(std::equal(buffer.begin(), buffer.end(), data.begin() + 100));
    EXPECT_EQ(gf_set_file_position(r, -1), 0);
    EXPECT_EQ(gf_get_last_error(r), ERR_FIL_SEEK);
    EXPECT_EQ(gf_read_file(r, buffer.data(), -1, &n), 0);
    EXPECT_EQ(gf_get_last_error(r), ERR_FIL_BADPAR);
}

INSTANTIATE_TEST_SUITE_P(IoTypes, GfTypes, ::testing::Values(GF_IO_CRT, GF_IO_NATIVE));

// ---- Translation ----------------------------------------------------------------------------------------

TEST_F(Gf, TranslationBothDirectionsAndSharing) {
    unsigned char rot[256];
    for (int i = 0; i < 256; ++i) {
        rot[i] = static_cast<unsigned char>(i + 13);
    }
    int32_t a = allocated();
    int32_t b = allocated();
    ASSERT_EQ(gf_set_translation_table(a, "rot13", rot, 0), 1);
    unsigned char bytes[3] = {0, 1, 250};
    ASSERT_EQ(gf_post_read_operations(a, bytes, 3), 1);
    EXPECT_EQ(bytes[0], 13);
    EXPECT_EQ(bytes[2], 7);
    ASSERT_EQ(gf_pre_write_operations(a, bytes, 3), 1);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[2], 250);
    ASSERT_EQ(gf_set_translation_table(b, "back", rot, 1), 1);  // the other direction
    ASSERT_EQ(gf_post_read_operations(b, bytes, 1), 1);
    EXPECT_EQ(bytes[0], 243);

    // Shared tables outlive the handle that made them.
    ASSERT_EQ(gf_copy_translation_tables(a, b), 1);
    ASSERT_EQ(gf_free_handle(a), 1);
    bytes[0] = 0;
    ASSERT_EQ(gf_post_read_operations(b, bytes, 1), 1);
    EXPECT_EQ(bytes[0], 13);
    ASSERT_EQ(gf_set_translation_table(b, nullptr, nullptr, 0), 1);
    ASSERT_EQ(gf_post_read_operations(b, bytes, 1), 1);
    EXPECT_EQ(bytes[0], 13);

    // Through a file: stored translated, read back as written; only the
    // bytes read are translated.
    std::string name = path("translated");
    int32_t h = handle(name, GF_READ_WRITE | GF_CREATE);
    ASSERT_EQ(gf_set_translation_table(h, "rot13", rot, 1), 1);
    ASSERT_EQ(gf_create_file(h), 1);
    unsigned char text[4] = {'a', 'b', 'c', 'd'};
    ASSERT_EQ(gf_write_file(h, text, 4), 1);
    EXPECT_EQ(text[0], 'a' + 13);  // the caller's buffer is translated in place
    EXPECT_EQ(read_all(name), (Bytes{'a' + 13, 'b' + 13, 'c' + 13, 'd' + 13}));
    ASSERT_EQ(gf_set_file_packet_size(h, 1), 1);
    ASSERT_EQ(gf_set_file_position(h, 1), 1);
    unsigned char in[8] = {0};
    int32_t n = 0;
    ASSERT_EQ(gf_read_file(h, in, 8, &n), 1);
    EXPECT_EQ(n, 3);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(in), 4), std::string("bcd\0", 4));
}

// ---- Truncation ---------------------------------------------------------------------------------------

TEST_F(Gf, TruncateBeyondFourGiBAndBadSizes) {
    std::string name = path("sparse");
    int32_t h = handle(name, GF_READ_WRITE | GF_CREATE);
    ASSERT_EQ(gf_create_file(h), 1);
    for (const char *bad : {"", "abc", "-1", "12x", "99999999999999999999"}) {
        EXPECT_EQ(gf_truncate_file(h, bad), 0) << bad;
        EXPECT_EQ(gf_get_last_error(h), ERR_FIL_BADPAR);
    }
    if (gf_truncate_file(h, "4294967296") == 0) {
        GTEST_SKIP() << "this file system refuses a 4 GiB sparse file: " << err_get_error_msg();
    }
    EXPECT_EQ(fs::file_size(name), 4294967296ULL);
    ASSERT_EQ(gf_truncate_file(h, " 4294967306 "), 1);
    EXPECT_EQ(fs::file_size(name), 4294967306ULL);
    unsigned char byte = 7;
    ASSERT_EQ(gf_write_file(h, &byte, 1), 1);  // the position is the new end
    EXPECT_EQ(fs::file_size(name), 4294967307ULL);
    ASSERT_EQ(gf_truncate_file(h, "10"), 1);
    EXPECT_EQ(fs::file_size(name), 10u);
    ASSERT_EQ(gf_close_file(h), 1);
    EXPECT_EQ(gf_truncate_file(h, "0"), 0);  // not open
    EXPECT_EQ(gf_get_last_error(h), ERR_FIL_TRUNC);
}

// ---- Variable-length records -----------------------------------------------------------------------------

class GfVl : public Gf {
protected:
    std::FILE *stream(const std::string &name, const Bytes &content) {
        std::FILE *f = std::fopen(file_with(name, content).c_str(), "rb");
        streams_.push_back(f);
        return f;
    }
    void TearDown() override {
        for (std::FILE *f : streams_) {
            if (f != nullptr) {
                std::fclose(f);
            }
        }
        Gf::TearDown();
    }
    std::vector<std::FILE *> streams_;
};

TEST_F(GfVl, RoundTripBigEndianAndCleanEnd) {
    std::string name = path("records");
    std::FILE *out = std::fopen(name.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    std::string long_line(300, 'x');
    for (const std::string &line : {std::string("ab"), long_line}) {
        auto n = static_cast<uint16_t>(line.size());
        ASSERT_EQ(gf_write_vl_line(out, line.data(), &n), 1);
    }
    std::fclose(out);
    Bytes raw = read_all(name);
    ASSERT_EQ(raw.size(), 2u + 2u + 2u + 300u);
    EXPECT_EQ((Bytes(raw.begin(), raw.begin() + 4)), (Bytes{0, 2, 'a', 'b'}));
    EXPECT_EQ(raw[4], 0x01);
    EXPECT_EQ(raw[5], 0x2C);

    std::FILE *in = stream("records_in", raw);
    ASSERT_NE(in, nullptr);
    char *line = nullptr;
    uint16_t n = 0;
    ASSERT_EQ(gf_read_vl_line(in, &line, &n), 1);
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(n, 2);
    EXPECT_STREQ(line, "ab");
    std::free(line);
    ASSERT_EQ(gf_read_vl_line(in, &line, &n), 1);
    EXPECT_EQ(std::string(line, n), long_line);
    std::free(line);
    EXPECT_EQ(gf_read_vl_line(in, &line, &n), 1);  // clean end
    EXPECT_EQ(line, nullptr);

    // A file that ends inside the length is at its end too.
    std::FILE *half = stream("records_half", Bytes{0, 2, 'a', 'b', 0});
    ASSERT_EQ(gf_read_vl_line(half, &line, &n), 1);
    std::free(line);
    EXPECT_EQ(gf_read_vl_line(half, &line, &n), 1);
    EXPECT_EQ(line, nullptr);
}

TEST_F(GfVl, DamagedRecordsFailCleanly) {
    char *line = reinterpret_cast<char *>(&line);
    uint16_t n = 0;
    // The length promises more than the file holds.
    std::FILE *cut = stream("records_cut", Bytes{0xFF, 0xFF, 'a', 'b', 'c'});
    EXPECT_EQ(gf_read_vl_line(cut, &line, &n), 0);
    EXPECT_EQ(line, nullptr);
    EXPECT_EQ(n, 0xFFFF);
    EXPECT_EQ(err_get_error_code(0), ERR_SYS_ERRMSG);
    EXPECT_NE(std::strstr(err_get_error_text(0), "65535 bytes cut short"), nullptr);

    // A zero-length record from elsewhere is refused.
    std::FILE *in = stream("records_empty_in", Bytes{0, 0, 0, 1, 'x'});
    EXPECT_EQ(gf_read_vl_line(in, &line, &n), 0);
    EXPECT_EQ(line, nullptr);

    EXPECT_EQ(gf_read_vl_line(nullptr, &line, &n), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_MEMORY_1727);
}

// The reader refuses a zero-length record, so the writer must not make one:
// the records around a refused empty one all read back.
TEST_F(GfVl, EmptyRecordIsNotWrittenAndLaterRecordsStayReachable) {
    std::string name = path("records_around_empty");
    std::FILE *out = std::fopen(name.c_str(), "wb");
    ASSERT_NE(out, nullptr);
    uint16_t two = 2;
    uint16_t zero = 0;
    ASSERT_EQ(gf_write_vl_line(out, "ab", &two), 1);
    EXPECT_EQ(gf_write_vl_line(out, "", &zero), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR);
    EXPECT_EQ(gf_write_vl_line(out, nullptr, &zero), 0);
    ASSERT_EQ(gf_write_vl_line(out, "cd", &two), 1);
    std::fclose(out);
    EXPECT_EQ(read_all(name), (Bytes{0, 2, 'a', 'b', 0, 2, 'c', 'd'}));

    std::FILE *in = stream("records_around_empty_in", read_all(name));
    std::vector<std::string> lines;
    for (;;) {
        char *line = nullptr;
        uint16_t n = 0;
        ASSERT_EQ(gf_read_vl_line(in, &line, &n), 1) << err_get_error_msg();
        if (line == nullptr) {
            break;
        }
        lines.emplace_back(line, n);
        std::free(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"ab", "cd"}));
}

// ---- The CRC of a file -----------------------------------------------------------------------------------

uint32_t reference_crc(const Bytes &data) {
    uint32_t crc = 0xFFFFFFFFu;
    for (unsigned char b : data) {
        crc ^= b;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
        }
    }
    return ~crc;
}

TEST_F(Gf, FileCrcMatchesReferenceAndEmptyFileLeavesOutput) {
    Bytes data = pattern(700 * 1024 + 13, 5);  // several chunks and a tail
    int32_t h = handle(file_with("crc", data), GF_READ);
    uint32_t crc = 0;
    ASSERT_EQ(gf_calc_file_crc(h, &crc), 1);
    EXPECT_EQ(crc, reference_crc(data));
    EXPECT_EQ(gf_is_file_opened(h), 0);
    ASSERT_EQ(gf_calc_file_crc(h, &crc), 1);  // closed, so it can run again
    EXPECT_EQ(crc, reference_crc(data));

    // The end is traced on channel GF.
    int32_t empty = handle(file_with("crc_empty", {}), GF_READ);
    crc = 0x12345678u;
    std::string traced = vq::test::traced_on("GF", [&] { EXPECT_EQ(gf_calc_file_crc(empty, &crc), 1); });
    EXPECT_EQ(crc, 0x12345678u);
    EXPECT_NE(traced.find("calc_file_crc : reached the end of file\n"), std::string::npos) << traced;

    ASSERT_EQ(gf_set_file_name(empty, path("crc_missing").c_str()), 1);
    EXPECT_EQ(gf_calc_file_crc(empty, &crc), 0);
    EXPECT_EQ(gf_get_last_error(empty), ERR_FIL_OPEN);
}

// ---- Lock files and temporary files ---------------------------------------------------------------------

TEST_F(Gf, LockWaitTimesOutUntilUnlocked) {
    std::string lock = path("config.lock");
    ASSERT_EQ(gf_lock_wait_file(lock.c_str(), 0), 1);
    EXPECT_TRUE(fs::exists(lock));
    EXPECT_EQ(gf_lock_wait_file(lock.c_str(), 50), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_LOCK);
    EXPECT_EQ(gf_get_last_error(-1), ERR_FIL_LOCK);

    // A waiter on another thread gets the lock once it is released. The lock
    // is released only after the waiter's trace says it found it held, so the
    // waiting path is the one taken.
    vq::test::TracePipe trace;
    int taken = -1;
    std::thread waiter([&] {
        trace.trace_here("GF");
        taken = gf_lock_wait_file(lock.c_str(), 60000);
        trace.stop_here("GF");
    });
    EXPECT_TRUE(trace.await("<" + lock + "> is held, waiting"));
    EXPECT_EQ(gf_unlock_file(lock.c_str()), 1);
    trace.drain();
    waiter.join();
    EXPECT_EQ(taken, 1);
    ASSERT_EQ(gf_unlock_file(lock.c_str()), 1);
    EXPECT_FALSE(fs::exists(lock));
    EXPECT_EQ(gf_unlock_file(lock.c_str()), 0);
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_DELETE_170B);

    EXPECT_EQ(gf_lock_wait_file(path("no/such/dir.lock").c_str(), 1000), 0);  // fails at once
    EXPECT_EQ(err_get_error_code(0), ERR_FIL_LOCK);
}

TEST_P(GfTypes, TemporaryFilesAreNewAndDistinct) {
    std::string dir = ::testing::TempDir();
    std::vector<std::string> names;
    for (int i = 0; i < 3; ++i) {
        int32_t h = allocated();
        ASSERT_EQ(gf_set_file_io_type(h, GetParam()), 1);
        ASSERT_EQ(gf_create_temp(h, dir.c_str(), "att"), 1);
        char *name = nullptr;
        ASSERT_EQ(gf_get_file_name(h, &name), 1);
        created_.emplace_back(name);
        names.emplace_back(name);
        EXPECT_EQ(names.back().rfind(dir + "att", 0), 0u) << names.back();
        ASSERT_EQ(gf_write_file(h, name, 3), 1);
        ASSERT_EQ(gf_close_file(h), 1);
        EXPECT_EQ(fs::file_size(names.back()), 3u);
    }
    EXPECT_NE(names[0], names[1]);
    EXPECT_NE(names[1], names[2]);
    int32_t h = allocated();
    EXPECT_EQ(gf_create_temp(h, (dir + "vq_gf_no_such_dir").c_str(), nullptr), 0);
    EXPECT_EQ(gf_get_last_error(h), ERR_FIL_CREATE);
}

// A prefix is part of one name: with a separator in it the file would land
// in another directory, so it is refused before anything is created.
TEST_F(Gf, TemporaryFilePrefixWithSeparatorIsRefused) {
    std::string top = ::testing::TempDir() + "vq_gf_temp_top";
    std::string inner = top + VQ_PATH_SEPARATOR_TEXT + "inner";
    std::error_code ec;
    fs::remove_all(top, ec);
    fs::create_directories(inner);
    int32_t h = allocated();
    ASSERT_EQ(gf_set_file_name(h, "kept"), 1);
    for (const char *prefix : {"../esc", "..\\esc", "a/b", "a\\b", "/esc", "\\esc"}) {
        EXPECT_EQ(gf_create_temp(h, inner.c_str(), prefix), 0) << prefix;
        EXPECT_EQ(err_get_error_code(0), ERR_FIL_BADPAR) << prefix;
        EXPECT_EQ(gf_get_last_error(h), ERR_FIL_BADPAR) << prefix;
        EXPECT_EQ(gf_is_file_opened(h), 0) << prefix;
    }
    char *name = nullptr;
    ASSERT_EQ(gf_get_file_name(h, &name), 1);
    EXPECT_STREQ(name, "kept");
    EXPECT_TRUE(fs::is_empty(inner));
    size_t entries = 0;
    for ([[maybe_unused]] const auto &e : fs::directory_iterator(top)) {
        ++entries;
    }
    EXPECT_EQ(entries, 1u);  // inner alone
    fs::remove_all(top, ec);
}

TEST_F(Gf, HandleTypeQueries) {
    std::string name = file_with("kind", pattern(4, 6));
    int32_t h = handle(name, GF_READ);
    EXPECT_EQ(gf_is_handle_regular(h), 1);
    EXPECT_EQ(gf_is_handle_dir(h), 0);
    ASSERT_EQ(gf_open_file(h), 1);
    EXPECT_EQ(gf_is_handle_regular(h), 1);
    EXPECT_EQ(gf_is_handle_fifo(h), 0);
    EXPECT_EQ(gf_is_handle_door(h), 0);
    EXPECT_EQ(gf_is_handle_link(h), 0);
    ASSERT_EQ(gf_close_file(h), 1);

    int32_t d = handle(::testing::TempDir(), GF_READ);
    EXPECT_EQ(gf_is_handle_dir(d), 1);
    ASSERT_EQ(gf_set_file_name(d, path("kind_missing").c_str()), 1);
    EXPECT_EQ(gf_is_handle_regular(d), 0);
    EXPECT_EQ(gf_get_last_error(d), ERR_FIL_GETINFO);
#ifndef _WIN32
    std::string link = path("kind_link");
    fs::create_symlink(name, link);
    ASSERT_EQ(gf_set_file_name(d, link.c_str()), 1);
    EXPECT_EQ(gf_is_handle_link(d), 1);
    EXPECT_EQ(gf_is_handle_regular(d), 1);  // what the link leads to
#endif
}

// ---- The status record in messages ---------------------------------------------------------------------

TEST(GfStatusRecord, TravelsAsAStructOfCharAndTwoLongs) {
    unsigned char buffer[64] = {0};
    gm_init_message_ex(buffer, sizeof buffer);
    const gfs record = {'R', 0x01020304, -2};
    ASSERT_EQ(add_gfs_to_message(7, &record), 1);
    uint32_t length = gm_end_message();
    const Bytes expected = {7, 0, 3, 7, 2,                        // struct head, 3 members, value 2
                            0, 0, 1, 0, 'R',                      // member 0: char
                            1, 0, 4, 3, 1,    2,    3,    4,      // member 1: long, big-endian
                            2, 0, 4, 3, 0xFF, 0xFF, 0xFF, 0xFE};  // member 2: long
    ASSERT_EQ(Bytes(buffer, buffer + length), expected);

    ASSERT_EQ(gm_disassemble_message(buffer, length), 1);
    gfs back = {};
    ASSERT_EQ(get_gfs_from_message(7, &back), 1);
    EXPECT_EQ(back.flag, 'R');
    EXPECT_EQ(back.value1, 0x01020304);
    EXPECT_EQ(back.value2, -2);

    // Without its last member the record is not read and stays as it was.
    unsigned char cut[sizeof buffer];
    std::memcpy(cut, buffer, length);
    cut[2] = 2;
    ASSERT_EQ(gm_disassemble_message(cut, length - 8), 1);
    gfs untouched = {'x', 1, 1};
    EXPECT_EQ(get_gfs_from_message(7, &untouched), 0);
    EXPECT_EQ(untouched.flag, 'x');
    EXPECT_EQ(untouched.value1, 1);
    gm_clean();
}

}  // namespace
