// Process handles: the per-thread table, typed parameters and their iterator,
// copies, environment variables, channels over real pipes, unique process
// ids, the table's last error and the traces of the API channel.
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/trace_capture.h"
#include "vq_glob/api.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace {

class GeneralApi : public ::testing::Test {
protected:
    void SetUp() override {
        err_set_log_interactive(0);
        err_clear_error_stack();
        api_clean();
    }
    void TearDown() override { api_clean(); }

    static int32_t handle() {
        int32_t h = -1;
        EXPECT_EQ(api_allocate_handle(&h, 0), 1);
        return h;
    }
};

uint32_t top_code() { return err_get_stack_depth() == 0 ? 0 : err_get_error_code(0); }

int32_t get_int(int32_t h, int32_t key) {
    int32_t v = -12345;
    return api_get_int_param(h, key, &v) == 1 ? v : -12345;
}

// ---- The table ---------------------------------------------------------------

TEST_F(GeneralApi, HandlesStartAtOneAndTheLowestFreeOneIsReused) {
    int32_t a = handle();
    int32_t b = handle();
    EXPECT_EQ(a, 1);
    EXPECT_EQ(b, 2);
    EXPECT_EQ(api_free_handle(a), 1);
    EXPECT_EQ(handle(), 1);
    EXPECT_EQ(api_free_handle(1), 1);
    EXPECT_EQ(api_free_handle(2), 1);
    EXPECT_EQ(handle(), 1);  // after the table itself went with its last handle
}

TEST_F(GeneralApi, TableGrowsPastFiveAndTenKeepingEveryEntry) {
    std::vector<int32_t> handles;
    for (int i = 0; i < 12; ++i) {
        handles.push_back(handle());
        ASSERT_EQ(handles.back(), i + 1);
        ASSERT_EQ(api_set_int_param(handles.back(), 7, 100 + i), 1);
    }
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(get_int(handles[static_cast<size_t>(i)], 7), 100 + i);
    }
}

TEST_F(GeneralApi, FreeingAFreeHandleIsNoErrorButBadHandlesAre) {
    int32_t a = handle();
    int32_t keep = handle();
    ASSERT_EQ(api_free_handle(a), 1);
    EXPECT_EQ(api_free_handle(a), 1);
    EXPECT_EQ(err_get_stack_depth(), 0);

    for (int32_t bad : {0, -1, 99}) {
        err_clear_error_stack();
        EXPECT_EQ(api_free_handle(bad), 0) << bad;
        EXPECT_EQ(top_code(), ERR_EXE_BADPAR) << bad;
        EXPECT_EQ(api_set_int_param(bad, 1, 1), 0) << bad;
    }
    err_clear_error_stack();
    EXPECT_EQ(api_set_int_param(a, 1, 1), 0);  // in range, but free
    EXPECT_EQ(top_code(), ERR_EXE_NOTACTIVE);
    EXPECT_EQ(api_get_last_error_code(), ERR_EXE_NOTACTIVE);
    EXPECT_STREQ(api_get_last_error_msg(), "entry is not active");
    EXPECT_EQ(api_get_pid(keep), 0);

    int32_t out = 7;
    EXPECT_EQ(api_allocate_handle(nullptr, 0), 0);
    EXPECT_EQ(api_allocate_channel(&out, 99), 0);
    EXPECT_EQ(out, -1);
}

TEST_F(GeneralApi, EveryThreadHasItsOwnTable) {
    // A plain rendezvous: std::latch of this C++ library can miss a wake-up
    // where the system has no futex (mingw).
    std::mutex lock;
    std::condition_variable changed;
    int allocated = 0;
    auto both_allocated = [&] {
        std::unique_lock<std::mutex> hold(lock);
        ++allocated;
        changed.notify_all();
        changed.wait(hold, [&] { return allocated == 2; });
    };
    int32_t seen[2] = {-1, -1};
    int32_t values[2] = {0, 0};
    auto work = [&](int i) {
        int32_t h = -1;
        api_allocate_handle(&h, 0);
        api_set_int_param(h, 1, 10 + i);
        both_allocated();
        seen[i] = h;
        api_get_int_param(h, 1, &values[i]);
        api_free_handle(h);
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(seen[0], 1);
    EXPECT_EQ(seen[1], 1);
    EXPECT_EQ(values[0], 10);
    EXPECT_EQ(values[1], 11);
    EXPECT_EQ(api_get_pid(1), 0);  // this thread never made a handle
}

// ---- Parameters ----------------------------------------------------------------

TEST_F(GeneralApi, NewestValueWinsAndRemovingUncoversTheOlderOne) {
    int32_t h = handle();
    ASSERT_EQ(api_set_int_param(h, 5, 1), 1);
    ASSERT_EQ(api_set_int_param(h, 5, 2), 1);
    EXPECT_EQ(get_int(h, 5), 2);
    EXPECT_EQ(api_remove_param(h, 5), 1);
    EXPECT_EQ(get_int(h, 5), 1);
    EXPECT_EQ(api_remove_param(h, 5), 1);
    EXPECT_EQ(api_remove_param(h, 5), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);

    // A value set after a lower slot was freed still hides the older one.
    api_set_int_param(h, 6, 0);
    api_set_int_param(h, 5, 1);
    api_remove_param(h, 6);
    api_set_int_param(h, 5, 2);
    EXPECT_EQ(get_int(h, 5), 2);
}

TEST_F(GeneralApi, MissingKeysAndOtherTypesReturnZeroWithoutAnError) {
    int32_t h = handle();
    api_set_int_param(h, 5, 1);
    int16_t s = 3;
    EXPECT_EQ(api_get_short_param(h, 5, &s), 0);
    EXPECT_EQ(s, 3);
    int32_t i = 0;
    EXPECT_EQ(api_get_int_param(h, 6, &i), 0);
    EXPECT_EQ(err_get_stack_depth(), 0);
}

TEST_F(GeneralApi, ValuesAreCopiedWithTheSizeOfTheirType) {
    int32_t h = handle();
    char text[] = "abc";
    unsigned char bytes[3] = {1, 0, 2};
    ASSERT_EQ(api_set_str_param(h, 1, text), 1);
    ASSERT_EQ(api_set_void_param(h, 2, bytes, 3), 1);
    ASSERT_EQ(api_set_void_param(h, 3, nullptr, 8), 1);
    ASSERT_EQ(api_set_void_param(h, 4, bytes, 0), 1);
    ASSERT_EQ(api_set_str_param(h, 5, nullptr), 1);
    ASSERT_EQ(api_set_char_param(h, 6, 'x'), 1);
    ASSERT_EQ(api_set_short_param(h, 7, -2), 1);
    ASSERT_EQ(api_set_long_param(h, 8, -70000), 1);
    text[0] = 'z';
    bytes[0] = 9;

    char *s = nullptr;
    int32_t size = -1;
    ASSERT_EQ(api_get_param(h, 1, API_PARAM_STR, &s, &size), 1);
    EXPECT_STREQ(s, "abc");
    EXPECT_EQ(size, 4);
    void *v = nullptr;
    ASSERT_EQ(api_get_param(h, 2, API_PARAM_VOID, &v, &size), 1);
    EXPECT_EQ(size, 3);
    EXPECT_EQ(std::memcmp(v, "\x01\x00\x02", 3), 0);
    for (int32_t key : {3, 4}) {
        v = bytes;
        ASSERT_EQ(api_get_param(h, key, API_PARAM_VOID, &v, &size), 1);
        EXPECT_EQ(v, nullptr);
        EXPECT_EQ(size, 0);
    }
    ASSERT_EQ(api_get_str_param(h, 5, &s), 1);
    EXPECT_EQ(s, nullptr);

    // A char copies one byte and no more into the caller's storage.
    char c[2] = {'-', '-'};
    ASSERT_EQ(api_get_char_param(h, 6, c), 1);
    EXPECT_EQ(c[0], 'x');
    EXPECT_EQ(c[1], '-');
    int16_t sh = 0;
    int32_t l = 0;
    EXPECT_EQ(api_get_short_param(h, 7, &sh), 1);
    EXPECT_EQ(sh, -2);
    EXPECT_EQ(api_get_long_param(h, 8, &l), 1);
    EXPECT_EQ(l, -70000);
}

TEST_F(GeneralApi, UnstorableParametersAreRefused) {
    int32_t h = handle();
    int32_t v = 1;
    EXPECT_EQ(api_set_int_param(h, -1, 1), 0);
    EXPECT_EQ(api_set_param(h, 1, 0, &v, 4), 0);
    EXPECT_EQ(api_set_param(h, 1, 7, &v, 4), 0);
    EXPECT_EQ(api_set_void_param(h, 1, &v, -1), 0);
    EXPECT_EQ(api_get_param(h, 1, API_PARAM_INT, nullptr, nullptr), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
    EXPECT_EQ(err_get_stack_depth(), 5);
    EXPECT_EQ(api_param_iterator_init(h), 1);
    api_param entry;
    EXPECT_EQ(api_param_iterator_next(&entry), 0);  // nothing was stored
}

// Sets and removals checked against a plain list of (key, value) in the order
// they were set: enough traffic to grow the store, compact it and switch to
// its index, with few keys so that most of them hold several values.
TEST_F(GeneralApi, StoreAgreesWithAModelThroughGrowthCompactionAndIndexing) {
    int32_t h = handle();
    std::vector<std::pair<int32_t, int32_t>> model;
    std::mt19937 random(42);  // NOLINT(cert-msc32-c,cert-msc51-cpp): a fixed seed, so a failure reproduces
    // Mostly 40 busy keys, some of 2,000 others, so that the index grows
    // and its removals shift entries of long probe runs.
    auto some_key = [&] { return static_cast<int32_t>(random() % 4 == 0 ? 40 + random() % 2000 : random() % 40); };
    for (int step = 0; step < 6000; ++step) {
        auto key = some_key();
        if (random() % 3 != 0) {
            ASSERT_EQ(api_set_int_param(h, key, step), 1);
            model.emplace_back(key, step);
        } else {
            auto newest = std::find_if(model.rbegin(), model.rend(), [&](auto &p) { return p.first == key; });
            ASSERT_EQ(api_remove_param(h, key), newest == model.rend() ? 0 : 1) << step;
            if (newest != model.rend()) {
                model.erase(std::next(newest).base());
            }
        }
        auto probe = some_key();
        auto newest = std::find_if(model.rbegin(), model.rend(), [&](auto &p) { return p.first == probe; });
        ASSERT_EQ(get_int(h, probe), newest == model.rend() ? -12345 : newest->second) << step;
    }
    ASSERT_EQ(api_param_iterator_init(h), 1);
    api_param entry;
    for (const auto &[key, value] : model) {
        ASSERT_EQ(api_param_iterator_next(&entry), 1);
        EXPECT_EQ(entry.key, key);
        EXPECT_EQ(*static_cast<int32_t *>(entry.value), value);
    }
    EXPECT_EQ(api_param_iterator_next(&entry), 0);
}

TEST_F(GeneralApi, IteratorSkipsRemovedSlotsAndKeepsItsPlaceWhenSlotsMove) {
    int32_t h = handle();
    for (int32_t key = 0; key < 10; ++key) {
        api_set_int_param(h, key, key);
    }
    api_remove_param(h, 1);
    api_remove_param(h, 2);
    ASSERT_EQ(api_param_iterator_init(h), 1);
    api_param entry;
    std::vector<int32_t> keys;
    for (int i = 0; i < 3 && api_param_iterator_next(&entry) == 1; ++i) {
        keys.push_back(entry.key);
    }
    // The ten slots are full up to the top: this set moves the used ones down.
    ASSERT_EQ(api_set_str_param(h, 42, "new"), 1);
    while (api_param_iterator_next(&entry) == 1) {
        keys.push_back(entry.key);
        if (entry.key == 42) {
            EXPECT_EQ(entry.type, API_PARAM_STR);
            EXPECT_EQ(entry.size, 4);
            EXPECT_STREQ(static_cast<char *>(entry.value), "new");
        }
    }
    EXPECT_EQ(keys, (std::vector<int32_t>{0, 3, 4, 5, 6, 7, 8, 9, 42}));

    ASSERT_EQ(api_param_iterator_init(h), 1);
    api_free_handle(h);
    EXPECT_EQ(api_param_iterator_next(&entry), 0);
}

// ---- Copies and environment variables ------------------------------------------------

TEST_F(GeneralApi, CopiesAreDeepAndKeepTheNewestValueOnTop) {
    int32_t from = handle();
    int32_t to = handle();
    api_set_int_param(from, 5, 1);
    api_set_int_param(from, 5, 2);
    api_set_str_param(from, 6, "text");
    api_set_int_param(to, 5, 99);
    api_set_context(from, "alice", "/work");
    api_set_shr_image_name(from, "image");
    api_set_password(from, "pw");
    char name[] = "A";
    char value[] = "1";
    ASSERT_EQ(api_add_env_var_to_handle(from, name, value), 1);
    name[0] = 'B';
    value[0] = '9';
    char *list[] = {const_cast<char *>("A=2"), const_cast<char *>("C=x=y"), const_cast<char *>("D="),
                    nullptr};
    ASSERT_EQ(api_add_env_var_list_to_handle(from, list), 1);

    ASSERT_EQ(api_copy_handle(from, to), 1);
    ASSERT_EQ(api_free_handle(from), 1);
    EXPECT_EQ(get_int(to, 5), 2);
    api_remove_param(to, 5);
    EXPECT_EQ(get_int(to, 5), 1);
    char *s = nullptr;
    ASSERT_EQ(api_get_str_param(to, 6, &s), 1);
    EXPECT_STREQ(s, "text");
    char *user = nullptr;
    char *dir = nullptr;
    ASSERT_EQ(api_get_context(to, &user, &dir), 1);
    EXPECT_STREQ(user, "alice");
    EXPECT_STREQ(dir, "/work");
    ASSERT_EQ(api_get_shr_image_name(to, &s), 1);
    EXPECT_STREQ(s, "image");
    const std::pair<const char *, const char *> expected[] = {{"A", "2"}, {"C", "x=y"}, {"D", ""}};
    for (auto [n, v] : expected) {
        ASSERT_EQ(api_get_env_var_from_handle(to, n, &s), 1) << n;
        EXPECT_STREQ(s, v);
    }
    EXPECT_EQ(api_get_env_var_from_handle(to, "B", &s), 0);
}

TEST_F(GeneralApi, BadEnvironmentVariablesAddNothing) {
    int32_t h = handle();
    EXPECT_EQ(api_add_env_var_to_handle(h, "", "1"), 0);
    EXPECT_EQ(api_add_env_var_to_handle(h, "X=Y", "1"), 0);
    EXPECT_EQ(api_add_env_var_to_handle(h, "X", nullptr), 0);
    char *list[] = {const_cast<char *>("E=1"), const_cast<char *>("no_equals"), nullptr};
    EXPECT_EQ(api_add_env_var_list_to_handle(h, list), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
    char *s = nullptr;
    EXPECT_EQ(api_get_env_var_from_handle(h, "E", &s), 0);
    EXPECT_EQ(api_get_env_var_from_handle(h, "X", &s), 0);
}

// ---- Channels ------------------------------------------------------------------------

// Both sides of one conversation inside this process: the owner's channel,
// and the channel of a second handle that was given the child's ends, as a
// child process builds it from the ends it inherited.
struct Loopback {
    int32_t owner = -1, owner_channel = -1, child = -1, child_channel = -1;
};

void make_loopback(Loopback *l) {
    ASSERT_EQ(api_allocate_handle(&l->owner, 0), 1);
    ASSERT_EQ(api_allocate_channel(&l->owner_channel, l->owner), 1);
    api_pipes ends;
    ASSERT_EQ(api_copy_pipes_from_handle(l->owner, &ends), 1);
    api_pipes owner_side = {{-1, ends.pipe1[1]}, {ends.pipe2[0], -1}};
    api_pipes child_side = {{-1, ends.pipe2[1]}, {ends.pipe1[0], -1}};
    ASSERT_EQ(api_copy_pipes_to_handle(l->owner, &owner_side), 1);
    ASSERT_EQ(api_allocate_handle(&l->child, 0), 1);
    ASSERT_EQ(api_copy_pipes_to_handle(l->child, &child_side), 1);
    ASSERT_EQ(api_allocate_channel(&l->child_channel, l->child), 1);
}

TEST_F(GeneralApi, ChannelsCarryBytesBothWays) {
    Loopback l;
    ASSERT_NO_FATAL_FAILURE(make_loopback(&l));
    char buffer[64] = {0};
    int32_t received = -1;
    ASSERT_EQ(api_write_to_channel(l.child_channel, "hello", 5), 1);
    ASSERT_EQ(api_listen_on_channel(l.owner_channel, buffer, sizeof buffer, &received, 5000), 1);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(received)), "hello");

    ASSERT_EQ(api_write_to_channel(l.owner_channel, "back", 4), 1);
    ASSERT_EQ(api_listen_on_channel(l.child_channel, buffer, 2, &received, 5000), 1);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(received)), "ba");  // bounded by the buffer
    ASSERT_EQ(api_listen_on_channel(l.child_channel, buffer, sizeof buffer, &received, 5000), 1);
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(received)), "ck");
}

TEST_F(GeneralApi, ListeningTimesOutAndEndsWhenEveryWriterHasGone) {
    Loopback l;
    ASSERT_NO_FATAL_FAILURE(make_loopback(&l));
    char buffer[16];
    int32_t received = -1;
    EXPECT_EQ(api_listen_on_channel(l.owner_channel, buffer, sizeof buffer, &received, 50), 1);
    EXPECT_EQ(received, 0);

    api_write_to_channel(l.child_channel, "one", 3);
    api_write_to_channel(l.child_channel, "two", 3);
    EXPECT_EQ(api_clean_channel(l.owner_channel), 1);
    EXPECT_EQ(api_listen_on_channel(l.owner_channel, buffer, sizeof buffer, &received, 0), 1);
    EXPECT_EQ(received, 0);

    EXPECT_EQ(api_free_channel(l.child_channel), 1);
    EXPECT_EQ(api_free_handle(l.child), 1);
    EXPECT_EQ(api_listen_on_channel(l.owner_channel, buffer, sizeof buffer, &received, 5000), 0);
    EXPECT_EQ(top_code(), ERR_EXE_PIPEREAD);
    // The child's reading end went with it: writing fails, and raises no signal.
    EXPECT_EQ(api_write_to_channel(l.owner_channel, "x", 1), 0);
    EXPECT_EQ(top_code(), ERR_EXE_PIPEWRITE);
}

TEST_F(GeneralApi, ChannelCallsRefuseOtherHandlesAndBadBuffers) {
    Loopback l;
    ASSERT_NO_FATAL_FAILURE(make_loopback(&l));
    char buffer[4];
    int32_t received = 0;
    EXPECT_EQ(api_write_to_channel(l.owner, "x", 1), 0);
    EXPECT_EQ(api_free_channel(l.owner), 0);
    EXPECT_EQ(api_write_to_channel(l.owner_channel, nullptr, 1), 0);
    EXPECT_EQ(api_write_to_channel(l.owner_channel, "x", -1), 0);
    EXPECT_EQ(api_listen_on_channel(l.owner_channel, nullptr, 4, &received, 0), 0);
    EXPECT_EQ(api_listen_on_channel(l.owner_channel, buffer, 0, &received, 0), 0);
    int32_t nested = 0;
    EXPECT_EQ(api_allocate_channel(&nested, l.owner_channel), 0);
    api_pipes twice = {{-1, l.owner_channel + 100}, {l.owner_channel + 100, -1}};
    EXPECT_EQ(api_copy_pipes_to_handle(l.child, &twice), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);
    EXPECT_EQ(api_write_to_channel(l.child_channel, "ok", 2), 1);  // nothing above broke the channels
}

// ---- Unique process ids ---------------------------------------------------------------

TEST_F(GeneralApi, UniqueIdOfTheCurrentProcessRoundTripsAndRefusesTampering) {
    int32_t pid = api_get_current_pid();
    int32_t h = -1;
    ASSERT_EQ(api_create_handle_from_pid(pid, &h), 1);
    EXPECT_EQ(api_get_pid(h), pid);
    char id[API_UNIQUE_ID_SIZE + 8];
    std::memset(id, '#', sizeof id);
    ASSERT_EQ(api_get_process_unique_id(h, id), 1);
    ASSERT_EQ(std::strlen(id), 32u);
    EXPECT_EQ(id[33], '#');
    char pid_digits[17];
    std::snprintf(pid_digits, sizeof pid_digits, "%016X", static_cast<unsigned>(pid));
    EXPECT_EQ(std::string(id, 16), pid_digits);
    EXPECT_EQ(std::string(id).find_first_not_of("0123456789ABCDEF"), std::string::npos);

    int32_t again = -1;
    ASSERT_EQ(api_create_handle_from_unique_id(id, &again), 1);
    EXPECT_NE(again, h);
    EXPECT_EQ(api_get_pid(again), pid);

    std::string tampered = id;
    tampered[31] = tampered[31] == '0' ? '1' : '0';
    err_clear_error_stack();
    EXPECT_EQ(api_create_handle_from_unique_id(tampered.c_str(), &again), 0);
    EXPECT_EQ(again, -1);
    EXPECT_EQ(top_code(), ERR_EXE_GENERAL);
}

TEST_F(GeneralApi, UniqueIdsAreParsedStrictly) {
    std::string good(32, '0');
    good.replace(8, 8, "0000ABCD");
    const std::string bad[] = {good.substr(1),       good + "0",           " " + good.substr(1),
                               "G" + good.substr(1), "1" + good.substr(1), std::string(32, '0'),
                               "-" + good.substr(1)};
    int32_t h = 5;
    for (const std::string &text : bad) {
        err_clear_error_stack();
        EXPECT_EQ(api_create_handle_from_unique_id(text.c_str(), &h), 0) << text;
        EXPECT_EQ(h, -1);
        EXPECT_EQ(top_code(), ERR_EXE_BADPAR) << text;
    }
    EXPECT_EQ(api_create_handle_from_unique_id(nullptr, &h), 0);
    EXPECT_EQ(top_code(), ERR_EXE_BADPAR);

    int32_t plain = handle();
    char id[API_UNIQUE_ID_SIZE];
    EXPECT_EQ(api_get_process_unique_id(plain, id), 0);  // carries no process
    EXPECT_EQ(top_code(), ERR_EXE_NOTACTIVE);
}

TEST_F(GeneralApi, AProcessThatDoesNotExistIsRefusedWithTheSystemsReason) {
    int32_t h = 5;
    EXPECT_EQ(api_create_handle_from_pid(0x7FFFFFFC, &h), 0);
    EXPECT_EQ(h, -1);
    EXPECT_EQ(api_get_last_error_code(), ERR_EXE_GENERAL);
    EXPECT_NE(std::string(api_get_last_error_msg()).find("2147483644"), std::string::npos);
    EXPECT_NE(api_get_last_system_error_code(), 0);
    EXPECT_STRNE(api_get_last_system_error_msg(), "");
}

// ---- Traces --------------------------------------------------------------------------

TEST_F(GeneralApi, TracesAreWrittenVerbatimAndNeverHoldThePassword) {
    dbg_clear_debug_mask();
    const std::string trace = vq::test::traced_on("API", [] {
        int32_t h = handle();
        api_set_password(h, "s3cret-pw");
        api_set_user_image_name(h, "worker");
        int32_t v = 0;
        api_get_int_param(h, 77, &v);
        api_free_handle(h);
        api_free_handle(h);
    });
    for (const char *line : {"in ga_init_entry() - entry is 1\n",
                             "api_set_user_image_name() - handle is 1 , image name is worker\n",
                             "api_get_param() - param_id 77 was not found\n",
                             "api_free_handle() - handle is out of range...\n"}) {
        EXPECT_NE(trace.find(line), std::string::npos) << line;
    }
    EXPECT_EQ(trace.find("s3cret-pw"), std::string::npos);
}

}  // namespace
