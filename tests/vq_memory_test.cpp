// The allocation tracker: guard checks, the unfreed-object report, realloc,
// unknown objects, dumps, per-thread tracking, and the plain path when off.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "vq_glob/llist.h"
#include "vq_glob/memory.h"

namespace {

// Text mode: the debug malloc file is a text file (CR LF lines on Windows).
std::string read_file(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

int count_of(const std::string &text, const std::string &needle) {
    int n = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1)) {
        ++n;
    }
    return n;
}

std::string hex16(const void *p) {
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
    return buf;
}

class MemoryTracker : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = temp_path("log");
        std::remove(path_.c_str());
    }
    void TearDown() override {
        sl_malloc_end();  // a failed test may leave tracking on
        std::remove(path_.c_str());
    }
    static std::string temp_path(const char *suffix) {
        const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
        return ::testing::TempDir() + "vq_memory_" + info->name() + "." + suffix;
    }
    [[nodiscard]] std::string log() const { return read_file(path_); }

    std::string path_;
};

TEST_F(MemoryTracker, DamagedGuardIsReportedAtReallocAndFree) {
    sl_malloc_init(path_.c_str());
    auto *inside = static_cast<unsigned char *>(sl_debug_malloc("guard.c", 11, 16));
    auto *small = static_cast<unsigned char *>(sl_debug_malloc("guard.c", 12, 8));
    ASSERT_NE(inside, nullptr);
    ASSERT_NE(small, nullptr);
    std::memset(inside, 0xAA, 16);  // every byte the caller owns: no finding
    small[8] = 'x';                 // one byte past the end
    auto *grown = static_cast<unsigned char *>(sl_debug_realloc("guard.c", 13, small, 32));
    ASSERT_NE(grown, nullptr);
    std::memset(grown, 0, 32);
    sl_debug_free("guard.c", 14, grown);  // guard rewritten by the realloc: clean
    sl_debug_free("guard.c", 15, inside);

    auto *late = static_cast<unsigned char *>(sl_debug_malloc("guard.c", 16, 3));
    late[3] = 0xFF;
    sl_debug_free("guard.c", 17, late);
    std::string text = log();
    EXPECT_EQ(count_of(text, "memory overwritten"), 2) << text;
    EXPECT_NE(text.find(" size 8 allocated in guard.c/12, checked in guard.c/13\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find(" size 3 allocated in guard.c/16, checked in guard.c/17\n"), std::string::npos)
        << text;
    EXPECT_EQ(text.find("unallocated"), std::string::npos) << text;
}

TEST_F(MemoryTracker, ReportListsUnfreedObjectsByPlaceAndKind) {
    sl_malloc_init(path_.c_str());
    void *a[3];
    for (size_t i = 0; i < 3; ++i) {
        a[i] = sl_debug_malloc("a.c", 10, 10 * (i + 1));
    }
    void *b = sl_debug_malloc("b.c", 20, 5);
    char *s = sl_debug_strdup("c.c", 30, "hello");
    void *list = sl_debug_ll_init_list("d.c", 40);
    std::string stream_path = temp_path("stream");
    FILE *f = sl_debug_fopen("e.c", 50, stream_path.c_str(), "w");
    ASSERT_TRUE(a[2] && b && s && list && f);

    sl_malloc_dump_info("first look");
    std::string text = log();
    EXPECT_NE(text.find("INFO HEADER : chain len 7, pid "), std::string::npos) << text;
    EXPECT_NE(text.find("INFO REASON : first look\n"), std::string::npos);
    EXPECT_NE(text.find("PEAK MEM 71, CURRENT MEM 71\n\nUNFREED MEMORY :\n"), std::string::npos) << text;
    // The malloc line names the group's newest block.
    EXPECT_NE(text.find("a.c/10                             3 (   60) unfreed malloc " + hex16(a[2]) + "\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("b.c/20                             1 (    5) unfreed malloc "), std::string::npos);
    EXPECT_NE(text.find("c.c/30                             1 (    6) unfreed malloc "), std::string::npos);
    EXPECT_NE(text.find("d.c/40                             1 unfreed ll_list handle \n"), std::string::npos);
    EXPECT_NE(text.find("e.c/50                             1 unclosed fopen \n"), std::string::npos);
    EXPECT_NE(text.find("ENDOF UNFREED MEMORY\n===========================================\n"),
              std::string::npos);

    sl_debug_free("a.c", 11, a[0]);
    sl_debug_free("a.c", 11, a[1]);
    sl_debug_free("c.c", 31, s);
    sl_debug_ll_dispose_list("d.c", 41, &list);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(sl_debug_fclose("e.c", 51, f), 0);
    sl_malloc_end();
    std::string end = log().substr(text.size());
    EXPECT_EQ(end.find("=====================DEBUG MALLOC SUMMARY=====================\n"), 0U) << end;
    EXPECT_NE(end.find("PEAK MEM 71, CURRENT MEM 35\n"), std::string::npos) << end;
    EXPECT_NE(end.find("a.c/10                             1 (   30) unfreed malloc "), std::string::npos);
    EXPECT_NE(end.find("b.c/20 "), std::string::npos);
    EXPECT_EQ(end.find("c.c/30"), std::string::npos);
    EXPECT_EQ(end.find("ll_list handle"), std::string::npos);
    EXPECT_EQ(end.find("unclosed fopen"), std::string::npos);
    const std::string tail =
        "ENDOF UNFREED MEMORY\n===========================================\n"
        "=====================DEBUG MALLOC END=========================\n";
    ASSERT_GE(end.size(), tail.size());
    EXPECT_EQ(end.substr(end.size() - tail.size()), tail);
    // Tracking is off now: these are plain frees of the C library's blocks.
    sl_debug_free("a.c", 12, a[2]);
    sl_debug_free("b.c", 21, b);
    EXPECT_EQ(log().size(), text.size() + end.size());
    std::remove(stream_path.c_str());
}

TEST_F(MemoryTracker, ReallocMovesTheRecordWithTheBlock) {
    sl_malloc_init(path_.c_str());
    void *p = sl_debug_malloc("r.c", 1, 8);
    void *q = sl_debug_realloc("r.c", 2, p, 5000);
    void *fresh = sl_debug_realloc("r.c", 3, nullptr, 7);  // NULL block: a tracked malloc
    void *foreign = sl_debug_realloc("r.c", 4, std::malloc(4), 16);
    ASSERT_TRUE(q && fresh && foreign);
    sl_malloc_dump_info("after realloc");
    std::string text = log();
    EXPECT_NE(text.find("r.c/1                              1 ( 5000) unfreed malloc " + hex16(q)),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("r.c/2"), std::string::npos);
    EXPECT_NE(text.find("r.c/3                              1 (    7) unfreed malloc "), std::string::npos);
    EXPECT_NE(text.find("realloc of unallocated space in line r.c/4\n"), std::string::npos);
    EXPECT_NE(text.find("r.c/4                              1 (   16) unfreed malloc "), std::string::npos);
    EXPECT_NE(text.find("PEAK MEM 5023, CURRENT MEM 5023\n"), std::string::npos) << text;

    sl_debug_free("r.c", 5, q);
    sl_debug_free("r.c", 6, fresh);
    sl_debug_free("r.c", 7, foreign);
    sl_malloc_dump_info("all freed");
    text = log();
    EXPECT_EQ(text.find("free of unallocated"), std::string::npos) << text;
    EXPECT_EQ(text.find("memory overwritten"), std::string::npos) << text;
    EXPECT_NE(text.find("PEAK MEM 5023, CURRENT MEM 0\n\nUNFREED MEMORY :\nENDOF UNFREED MEMORY\n"),
              std::string::npos);
}

TEST_F(MemoryTracker, UnknownObjectsAreReportedAndStillReleased) {
    void *plain = sl_debug_malloc("u.c", 1, 24);  // tracking off: untracked
    FILE *stream = std::fopen(temp_path("stream").c_str(), "w");
    void *list = ll_init_list();
    ASSERT_TRUE(plain && stream && list);

    sl_malloc_init(path_.c_str());
    sl_debug_free("u.c", 2, plain);
    sl_debug_free("u.c", 3, nullptr);
    EXPECT_EQ(sl_debug_fclose("u.c", 4, stream), 0);
    EXPECT_EQ(sl_debug_fclose("u.c", 5, nullptr), EOF);
    sl_debug_ll_dispose_list("u.c", 6, &list);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(sl_debug_close("u.c", 7, -1), -1);
    EXPECT_EQ(sl_debug_strdup("u.c", 8, nullptr), nullptr);
    std::string text = log();
    EXPECT_NE(text.find("free of unallocated space in line u.c/2\n"), std::string::npos) << text;
    EXPECT_NE(text.find("free of NULL space in line u.c/3\n"), std::string::npos);
    EXPECT_NE(text.find("fclose of unopened space in line u.c/4\n"), std::string::npos);
    EXPECT_NE(text.find("fclose of unopened space in line u.c/5\n"), std::string::npos);
    EXPECT_NE(text.find("free on unallocated ll_list handle line u.c/6\n"), std::string::npos);
    EXPECT_NE(text.find("close of unopened descriptor in line u.c/7\n"), std::string::npos);
    EXPECT_NE(text.find("strdup failed in u.c/8!!!!\n"), std::string::npos);
    std::remove(temp_path("stream").c_str());
}

TEST_F(MemoryTracker, DescriptorsPassToTheirStreams) {
    std::string data_path = temp_path("data");
    sl_malloc_init(path_.c_str());
    int fd = sl_debug_open("o.c", 1, data_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    sl_malloc_dump_info("open");
    EXPECT_NE(log().find("o.c/1                              1 unclosed open \n"), std::string::npos)
        << log();
    FILE *stream = sl_debug_fdopen("o.c", 2, fd, "w");
    ASSERT_NE(stream, nullptr);
    size_t before = log().size();
    sl_malloc_dump_info("fdopen");
    std::string text = log().substr(before);
    EXPECT_EQ(text.find("unclosed open"), std::string::npos) << text;
    EXPECT_NE(text.find("o.c/2                              1 unclosed fopen \n"), std::string::npos) << text;
    EXPECT_EQ(sl_debug_fclose("o.c", 3, stream), 0);
    EXPECT_EQ(log().find("unopened"), std::string::npos);
    std::remove(data_path.c_str());
}

TEST_F(MemoryTracker, WideAndTemporaryNames) {
    sl_malloc_init(path_.c_str());
    // The prefix's sixth character is one the random part never uses, so
    // that a name keeping more than five characters of it shows.
    char *name = sl_debug_tempnam("t.c", 1, ::testing::TempDir().c_str(), "vqmem_ry");
    ASSERT_NE(name, nullptr);
    std::string base(name);
    base = base.substr(base.find_last_of("/\\") + 1);
    EXPECT_EQ(base.rfind("vqm", 0), 0U) << name;
#ifndef _WIN32
    EXPECT_EQ(base.rfind("vqmem", 0), 0U) << name;  // five characters of the prefix
    EXPECT_NE(base[5], '_') << name;
#endif
    EXPECT_EQ(std::fopen(name, "r"), nullptr) << name;
    sl_malloc_dump_info("tempnam");
    char line[96];
    std::snprintf(line, sizeof(line), "t.c/1                              1 (%5d) unfreed malloc ",
                  static_cast<int>(std::strlen(name) + 1));
    EXPECT_NE(log().find(line), std::string::npos) << log();
    sl_debug_free("t.c", 2, name);

    std::wstring wide_name;
    for (char c : ::testing::TempDir() + "vq_memory_") {
        wide_name += static_cast<wchar_t>(static_cast<unsigned char>(c));
    }
    wide_name += L"\u00E9\u20AC.txt";
    FILE *wide = sl_debug_wfopen("t.c", 3, wide_name.c_str(), L"w");
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(sl_debug_fclose("t.c", 4, wide), 0);
#ifndef _WIN32
    std::string wide_target = ::testing::TempDir() + "vq_memory_\xC3\xA9\xE2\x82\xAC.txt";  // U+00E9 U+20AC
    FILE *check = std::fopen(wide_target.c_str(), "r");  // the name went to the system as UTF-8
    EXPECT_NE(check, nullptr);
    if (check != nullptr) {
        std::fclose(check);
    }
    const wchar_t bad[] = {L'x', static_cast<wchar_t>(0xD800), L'\0'};  // a lone surrogate
    EXPECT_EQ(sl_debug_wfopen("t.c", 5, bad, L"w"), nullptr);
    std::remove(wide_target.c_str());
#else
    _wremove(wide_name.c_str());
#endif
    std::string text = log();
    EXPECT_EQ(text.find("unopened"), std::string::npos) << text;
    EXPECT_EQ(text.find("unallocated"), std::string::npos) << text;
}

TEST_F(MemoryTracker, TrackingOffLeavesNoTrace) {
    sl_malloc_init(path_.c_str());
    void *kept = sl_debug_malloc("k.c", 1, 10);
    sl_malloc_end();
    const std::string closed = log();
    ASSERT_NE(closed.find("k.c/1 "), std::string::npos);

    sl_debug_free("k.c", 2, kept);  // made while on, freed plainly
    void *p = sl_debug_malloc("k.c", 3, 16);
    p = sl_debug_realloc("k.c", 4, p, 64);
    sl_debug_free("k.c", 5, p);
    sl_debug_free("k.c", 6, nullptr);
    sl_debug_free("k.c", 7, std::malloc(3));
    sl_debug_free("k.c", 8, sl_debug_strdup("k.c", 8, "text"));
    void *list = sl_debug_ll_init_list("k.c", 9);
    sl_debug_ll_dispose_list("k.c", 10, &list);
    sl_malloc_set_dump(1);
    sl_malloc_dump_info("off");
    sl_malloc_ps("k.c", 11);
    sl_malloc_end();
    EXPECT_EQ(log(), closed);
}

TEST_F(MemoryTracker, EveryTenThousandthRecordDumpsTheChainWhenAsked) {
    sl_malloc_set_dump(-2);  // tracking is off: ignored
    sl_malloc_init(path_.c_str());
    std::vector<void *> blocks;
    auto allocate = [&](int n) {
        for (int i = 0; i < n; ++i) {
            blocks.push_back(sl_debug_malloc("loop.c", 7, 1));
        }
    };
    testing::internal::CaptureStdout();
    allocate(10000);
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("DUMP"), std::string::npos);

    sl_malloc_set_dump(50);  // the chain-length dump but not its history
    testing::internal::CaptureStdout();
    allocate(9999);
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("DUMP"), std::string::npos);
    testing::internal::CaptureStdout();
    allocate(1);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("DUMP HEADER : chain len 20000, pid "), 0U) << out.substr(0, 200);
    EXPECT_NE(out.find("\nCALLED FROM : file loop.c line 7\nDUMP REASON : chain length\nTIME        : "),
              std::string::npos);
    EXPECT_NE(out.find("PEAK MEM 19999, CURRENT MEM 19999\nMARK malloc\n"), std::string::npos);
    EXPECT_EQ(count_of(out, " loop.c/7\n"), 19999);
    EXPECT_EQ(out.find("history"), std::string::npos);

    sl_malloc_set_dump(-2);
    testing::internal::CaptureStdout();
    allocate(10000);
    out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(count_of(out, "DUMP HEADER : chain len 30000"), 2);
    size_t plain = out.find("DUMP REASON : chain length\n");
    size_t history = out.find("DUMP REASON : chain length - history\n");
    EXPECT_NE(plain, std::string::npos);
    EXPECT_NE(history, std::string::npos);
    EXPECT_LT(plain, history);

    while (!blocks.empty()) {  // newest first: short walks
        sl_debug_free("loop.c", 8, blocks.back());
        blocks.pop_back();
    }
    sl_malloc_end();
    EXPECT_EQ(log().find("unallocated"), std::string::npos);
}

TEST_F(MemoryTracker, EachThreadTracksOnlyItsOwnObjects) {
    sl_malloc_init(path_.c_str());
    void *mine = sl_debug_malloc("main.c", 1, 8);
    std::string other_path = temp_path("thread");
    std::remove(other_path.c_str());
    std::string other_log;
    std::thread([&] {
        sl_malloc_init(other_path.c_str());
        void *theirs = sl_debug_malloc("thread.c", 2, 4);
        sl_debug_free("thread.c", 3, mine);  // not on this thread's chain
        sl_malloc_dump_info("thread");
        sl_malloc_end();
        sl_debug_free("thread.c", 4, theirs);
        other_log = read_file(other_path);
    }).join();
    EXPECT_NE(other_log.find("free of unallocated space in line thread.c/3\n"), std::string::npos)
        << other_log;
    EXPECT_NE(other_log.find("thread.c/2 "), std::string::npos);
    EXPECT_EQ(other_log.find("main.c/1"), std::string::npos);

    // The other thread's end left this thread tracking, with its record.
    void *again = sl_debug_malloc("main.c", 5, 2);
    sl_debug_free("main.c", 6, again);
    sl_malloc_dump_info("main");
    std::string text = log();
    EXPECT_NE(text.find("main.c/1                           1 (    8) unfreed malloc "), std::string::npos)
        << text;
    EXPECT_EQ(text.find("thread.c"), std::string::npos);
    EXPECT_EQ(text.find("unallocated"), std::string::npos);
    std::remove(other_path.c_str());
}

TEST_F(MemoryTracker, ProcessSnapshotIsAnnouncedOnPosixOnly) {
    sl_malloc_init(path_.c_str());
    sl_malloc_ps("ps.c", 9);
    std::string text = log();
#ifdef _WIN32
    EXPECT_EQ(text, "");
#else
    EXPECT_EQ(text.find("PS - CALLED FROM : file ps.c line 9\n"), 0U) << text;
    if (text.find("needs shell quoting") == std::string::npos) {
        EXPECT_NE(text.find("issuing: <ps axO rssize,vsize|grep "), std::string::npos) << text;
        EXPECT_NE(text.find(" >> " + path_ + ">\n"), std::string::npos) << text;
    }
#endif
}

}  // namespace
